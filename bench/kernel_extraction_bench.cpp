// Measures kernel image extraction in every compression against the
// format's own tool (gzip -dc, xz -dc, lzma via xz -dc, bzip2 -dc, lz4 -dc,
// zstd -dc, lzop -dc) on one image-like payload compressed by that tool, all
// in the same run, and prints the time ratios at the end.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/peer_timing.h"
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
    {"gzip", "gzip -n -c", "gzip -dc"},
    {"xz", "xz --check=crc32 -c", "xz -dc"},
    {"lzma", "xz --format=lzma -c", "xz --format=lzma -dc"},
    {"bzip2", "bzip2 -c", "bzip2 -dc"},
    {"lz4", "lz4 -l -q -c", "lz4 -dc"},
    {"zstd", "zstd -q -c", "zstd -q -dc"},
    {"lzo", "lzop -c", "lzop -dc"},
};

std::string g_dir;
vell_bench::PeerTimes g_times;

std::string compressedPath(const Format &format) { return g_dir + "/image." + format.name; }

void setUp() {
  if (!g_dir.empty())
    return;
  g_dir = vell_bench::makeScratchDirectory("vell-kernel-bench");
  const std::string payload = g_dir + "/payload";
  std::ofstream(payload, std::ios::binary).write(vell_bench::imageLikePayload(kImageSize).data(), kImageSize);
  for (const Format &format : kFormats) {
    const std::string command =
        std::string(format.compress) + " < '" + payload + "' > '" + compressedPath(format) + "'";
    vell_bench::runCommandOrAbort(command);
  }
}

template <class Body> void timed(benchmark::State &state, const std::string &name, Body body) {
  setUp();
  g_times.timed(state, name, body, kImageSize);
}

void registerFormat(const Format &format) {
  const std::string ours = std::string("vell ") + format.name;
  benchmark::RegisterBenchmark(
      ours.c_str(),
      [format, ours](benchmark::State &state) {
        timed(state, ours, [&](benchmark::State &s) {
          if (!extractKernelImage(compressedPath(format).c_str(), (g_dir + "/vmlinux").c_str()))
            s.SkipWithError("extraction failed");
        });
      })
      ->Unit(benchmark::kMillisecond)
      ->Iterations(5)
      ->UseRealTime();
  const std::string theirs = format.decompress;
  benchmark::RegisterBenchmark(theirs.c_str(),
                               [format, theirs](benchmark::State &state) {
                                 timed(state, theirs, [&](benchmark::State &s) {
                                   vell_bench::runCommandOrSkip(s, theirs + " '" + compressedPath(format) +
                                                                       "' > '" + g_dir + "/plain'");
                                 });
                               })
      ->Unit(benchmark::kMillisecond)
      ->Iterations(5)
      ->UseRealTime();
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
  for (const Format &format : kFormats)
    g_times.printRatio(std::string("vell ") + format.name, format.decompress);
  if (!g_dir.empty()) {
    std::error_code ignored;
    fs::remove_all(g_dir, ignored);
  }
  return 0;
}
