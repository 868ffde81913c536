// Measures whole-file MD5 and SHA-1 against md5sum(1) and sha1sum(1) on one
// 256 MiB file, and kernel image extraction against `gzip -dc` on one gzip
// stream, all in the same run, and prints the time ratios at the end.
#include <benchmark/benchmark.h>

#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "support/peer_timing.h"
#include "vell/file_search.h"
#include "vell/validation.h"

using namespace VELL_2_13;
namespace fs = std::filesystem;

namespace {

constexpr size_t kChecksumFileSize = 256u << 20;
constexpr size_t kImageSize = 64u << 20;

struct Files {
  std::string dir;
  std::string big;        // random bytes for the digests
  std::string compressed; // gzip stream of an image-like payload
  std::string extracted;
};

Files *g_files = nullptr;
vell_bench::PeerTimes g_times;

void writeRandom(const std::string &path, size_t size) {
  std::mt19937_64 generator(12345);
  std::ofstream out(path, std::ios::binary);
  std::string block(1 << 20, '\0');
  for (size_t written = 0; written < size; written += block.size()) {
    for (size_t i = 0; i < block.size(); i += 8) {
      uint64_t value = generator();
      std::memcpy(&block[i], &value, 8);
    }
    out.write(block.data(), static_cast<std::streamsize>(block.size()));
  }
}

void writeGzip(const std::string &path, const std::string &data) {
  z_stream stream{};
  deflateInit2(&stream, 6, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, data.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data.data()));
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = reinterpret_cast<Bytef *>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  std::ofstream(path, std::ios::binary).write(out.data(), static_cast<std::streamsize>(out.size()));
}

void setUp() {
  if (g_files)
    return;
  g_files = new Files;
  const std::string dir = vell_bench::makeScratchDirectory("vell-checksum-bench");
  g_files->dir = dir;
  g_files->big = dir + "/big.bin";
  g_files->compressed = dir + "/vmlinuz";
  g_files->extracted = dir + "/vmlinux";
  writeRandom(g_files->big, kChecksumFileSize);
  writeGzip(g_files->compressed, vell_bench::imageLikePayload(kImageSize));
}

template <class Body> void timed(benchmark::State &state, const std::string &name, size_t bytes, Body body) {
  setUp();
  g_times.timed(state, name, body, bytes);
}

void BM_VellMd5(benchmark::State &state) {
  ObjectPtr<IChecksumCalculator> calculator = IChecksumCalculator::create();
  timed(state, "vell md5", kChecksumFileSize, [&](benchmark::State &) {
    benchmark::DoNotOptimize(calculator->calculateChecksum(g_files->big.c_str(), ctMd5));
  });
}

void BM_Md5sum(benchmark::State &state) {
  timed(state, "md5sum", kChecksumFileSize, [&](benchmark::State &s) {
    vell_bench::runCommandOrSkip(s, "md5sum '" + g_files->big + "' > /dev/null");
  });
}

void BM_VellSha1(benchmark::State &state) {
  ObjectPtr<IChecksumCalculator> calculator = IChecksumCalculator::create();
  timed(state, "vell sha1", kChecksumFileSize, [&](benchmark::State &) {
    benchmark::DoNotOptimize(calculator->calculateChecksum(g_files->big.c_str(), ctSha1));
  });
}

void BM_Sha1sum(benchmark::State &state) {
  timed(state, "sha1sum", kChecksumFileSize, [&](benchmark::State &s) {
    vell_bench::runCommandOrSkip(s, "sha1sum '" + g_files->big + "' > /dev/null");
  });
}

void BM_VellExtract(benchmark::State &state) {
  timed(state, "vell extract", kImageSize, [&](benchmark::State &s) {
    if (!utils::extractVmlinux(g_files->compressed.c_str(), g_files->extracted.c_str()))
      s.SkipWithError("extraction failed");
  });
}

void BM_GzipDc(benchmark::State &state) {
  timed(state, "gzip -dc", kImageSize, [&](benchmark::State &s) {
    vell_bench::runCommandOrSkip(s, "gzip -dc '" + g_files->compressed + "' > '" + g_files->extracted + "'");
  });
}

BENCHMARK(BM_VellMd5)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_Md5sum)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_VellSha1)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_Sha1sum)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_VellExtract)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_GzipDc)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::printf("\nTime per run (ratio = library / command; below 1 is faster):\n");
  g_times.printRatio("vell md5", "md5sum");
  g_times.printRatio("vell sha1", "sha1sum");
  g_times.printRatio("vell extract", "gzip -dc");
  if (g_files) {
    std::error_code ignored;
    fs::remove_all(g_files->dir, ignored);
  }
  return 0;
}
