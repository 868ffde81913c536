// Timing helpers the benchmarks share.
#include "support/peer_timing.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

extern char **environ;

namespace vell_bench {

int runProcess(const std::vector<std::string> &args, const std::string &input) {
  std::vector<char *> argv;
  for (const std::string &arg : args)
    argv.push_back(const_cast<char *>(arg.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  if (!input.empty())
    posix_spawn_file_actions_addopen(&actions, 0, input.c_str(), O_RDONLY, 0);
  pid_t pid = 0;
  const int spawned = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0)
    return -1;
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void runCommandOrSkip(benchmark::State &state, const std::string &command) {
  if (std::system(command.c_str()) != 0)
    state.SkipWithError(("command failed: " + command).c_str());
}

void runCommandOrAbort(const std::string &command) {
  if (std::system(command.c_str()) == 0)
    return;
  std::fprintf(stderr, "command failed: %s\n", command.c_str());
  std::abort();
}

std::string makeScratchDirectory(const std::string &prefix) {
  std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
  if (!::mkdtemp(pattern.data())) {
    std::fprintf(stderr, "cannot create a directory like %s\n", pattern.c_str());
    std::abort();
  }
  return pattern;
}

double secondsOf(const std::function<void()> &run) {
  const auto started = std::chrono::steady_clock::now();
  run();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
}

double medianSecondsOf(int runs, const std::function<void()> &run) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i)
    times.push_back(secondsOf(run));
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

void PeerTimes::printRatio(const std::string &ours, const std::string &theirs, double scale,
                           const char *unit) const {
  const auto a = m_seconds.find(ours);
  const auto b = m_seconds.find(theirs);
  if (a == m_seconds.end() || b == m_seconds.end())
    return;
  std::printf("%-16s %10.1f %s   %-22s %10.1f %s   ratio %.4g\n", ours.c_str(), a->second * scale, unit,
              theirs.c_str(), b->second * scale, unit, a->second / b->second);
}

std::string imageLikePayload(size_t size) {
  std::ifstream in("/proc/self/exe", std::ios::binary);
  const std::string code((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::string payload;
  payload.reserve(size);
  std::mt19937 generator(7);
  while (payload.size() < size) {
    std::string copy = code;
    for (int i = 0; i < 1000; ++i)
      copy[generator() % copy.size()] = static_cast<char>(generator());
    payload += copy;
  }
  payload.resize(size);
  return payload;
}

} // namespace vell_bench
