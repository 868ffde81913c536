// Timing helpers the benchmarks share: running a peer command, timing a body
// per iteration under a name, and printing the ratio of two named times.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vell_bench {

// Runs argv (searched on PATH) with standard output sent to /dev/null and,
// when input is not empty, standard input read from that file. Returns the
// exit status, or -1 when the command cannot be started or is killed.
int runProcess(const std::vector<std::string> &args, const std::string &input = "");

// Runs a shell command line; a failure ends the benchmark with an error.
void runCommandOrSkip(benchmark::State &state, const std::string &command);

// Runs a shell command line; a failure aborts the benchmark program (for set-up
// steps that every figure depends on).
void runCommandOrAbort(const std::string &command);

// A fresh directory under the system's temporary directory, named from prefix.
std::string makeScratchDirectory(const std::string &prefix);

// Wall-clock seconds of one call of run.
double secondsOf(const std::function<void()> &run);

// The median wall-clock seconds of runs calls of run.
double medianSecondsOf(int runs, const std::function<void()> &run);

// Seconds per iteration, by the name a benchmark recorded them under.
class PeerTimes {
public:
  // Times body(state) once per iteration and records the mean under name;
  // bytes, when given, is what one iteration processes.
  template <class Body>
  void timed(benchmark::State &state, const std::string &name, Body body, size_t bytes = 0) {
    double seconds = 0;
    for (auto _ : state) {
      const auto start = std::chrono::steady_clock::now();
      body(state);
      seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    if (bytes > 0)
      state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    if (state.iterations() > 0)
      m_seconds[name] = seconds / static_cast<double>(state.iterations());
  }

  // Prints "ours  t  theirs  t  ratio r" in the unit's scale (1e3 for
  // milliseconds, 1e6 for microseconds); nothing when either was not run.
  void printRatio(const std::string &ours, const std::string &theirs, double scale = 1e3,
                  const char *unit = "ms") const;

private:
  std::map<std::string, double> m_seconds;
};

// A payload that compresses about as well as a kernel image: machine code of
// the running program repeated with small changes.
std::string imageLikePayload(size_t size);

} // namespace vell_bench
