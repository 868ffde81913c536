// Measures kernel image extraction in every compression against the
// format's own tool (gzip -dc, xz -dc, lzma via xz -dc, bzip2 -dc, lz4 -dc,
// zstd -dc, lzop -dc) on one image-like payload compressed by that tool, all
// in the same run, and prints the time ratios at the end.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "vell/kernel.h"

using namespace VELL_2_13;
namespace fs = std::filesystem;

namespace {

constexpr size_t kImageSize = 64u << 20;

struct Format {
  const char *name;
  const char *compress;   // stdin to stdout
  const char *decompress; // the command a user would run
};

// The levels are the tools' defaults (lz4 in the kernel's legacy frame).
const Format kFormats[] = {
    {"gzip", "gzip -n -c", "gzip -dc"},          {"xz", "xz --check=crc32 -c", "xz -dc"},
    {"lzma", "xz --format=lzma -c", "xz --format=lzma -dc"}, {"bzip2", "bzip2 -c", "bzip2 -dc"},
    {"lz4", "lz4 -l -q -c", "lz4 -dc"},          {"zstd", "zstd -q -c", "zstd -q -dc"},
    {"lzo", "lzop -c", "lzop -dc"},
};

std::string g_dir;
std::map<std::string, double> g_secondsPerRun;

// A payload that compresses about as well as a kernel image: machine code of
// the running system repeated with small changes, starting as an ELF file.
std::string imageLikePayload(size_t size) {
  std::ifstream in("/proc/self/exe", std::ios::binary);
  std::string code((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
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

std::string compressedPath(const Format &format) { return g_dir + "/image." + format.name; }

void setUp() {
  if (!g_dir.empty())
    return;
  std::string pattern = (fs::temp_directory_path() / "vell-kernel-bench-XXXXXX").string();
  if (!::mkdtemp(pattern.data()))
    std::abort();
  g_dir = pattern;
  const std::string payload = g_dir + "/payload";
  std::ofstream(payload, std::ios::binary).write(imageLikePayload(kImageSize).data(), kImageSize);
  for (const Format &format : kFormats) {
    const std::string command = std::string(format.compress) + " < '" + payload + "' > '" +
                                compressedPath(format) + "'";
    if (std::system(command.c_str()) != 0)
      std::abort();
  }
}

template <class Body> void timed(benchmark::State &state, const std::string &name, Body body) {
  setUp();
  double seconds = 0;
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    body(state);
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kImageSize));
  if (state.iterations() > 0)
    g_secondsPerRun[name] = seconds / static_cast<double>(state.iterations());
}

void registerFormat(const Format &format) {
  const std::string ours = std::string("vell ") + format.name;
  benchmark::RegisterBenchmark(ours.c_str(), [format, ours](benchmark::State &state) {
    timed(state, ours, [&](benchmark::State &s) {
      if (!extractKernelImage(compressedPath(format).c_str(), (g_dir + "/vmlinux").c_str()))
        s.SkipWithError("extraction failed");
    });
  })->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
  const std::string theirs = format.decompress;
  benchmark::RegisterBenchmark(theirs.c_str(), [format, theirs](benchmark::State &state) {
    timed(state, theirs, [&](benchmark::State &s) {
      const std::string command = theirs + " '" + compressedPath(format) + "' > '" + g_dir + "/plain'";
      if (std::system(command.c_str()) != 0)
        s.SkipWithError(("command failed: " + command).c_str());
    });
  })->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
}

} // namespace

int main(int argc, char **argv) {
  for (const Format &format : kFormats)
    registerFormat(format);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::printf("\nTime per run of a 64 MiB image (ratio = library / command; below 1 is faster):\n");
  for (const Format &format : kFormats) {
    auto ours = g_secondsPerRun.find(std::string("vell ") + format.name);
    auto theirs = g_secondsPerRun.find(format.decompress);
    if (ours == g_secondsPerRun.end() || theirs == g_secondsPerRun.end())
      continue;
    std::printf("%-6s vell %8.1f ms   %-22s %8.1f ms   ratio %.2f\n", format.name, ours->second * 1e3,
                format.decompress, theirs->second * 1e3, ours->second / theirs->second);
  }
  if (!g_dir.empty()) {
    std::error_code ignored;
    fs::remove_all(g_dir, ignored);
  }
  return 0;
}
