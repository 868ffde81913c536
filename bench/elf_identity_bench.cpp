// Measures the identity check of one candidate (build ID, debug link, debug
// information) against `eu-readelf -n` on the same files, in the same run: the
// real libc debug file of libc6-dbg, and a debug file built here and grown to
// 256 MiB by an added section, to show that reading a build ID does not read
// the whole file. Prints the time ratios at the end.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "support/peer_timing.h"
#include "vell/debug_files.h"
#include "vell/elf_identity.h"

using namespace VELL_2_13;
namespace fs = std::filesystem;

namespace {

constexpr size_t kBlobSize = 256u << 20;
const char *const kLibc = "/lib/x86_64-linux-gnu/libc.so.6";

struct Files {
  std::string dir;
  std::string libcDebug; // empty when libc6-dbg is missing
  std::string small;     // a small debug file built here
  std::string big;       // the same with a 256 MiB section added
  std::string binary;    // its stripped binary
};

Files *g_files = nullptr;
vell_bench::PeerTimes g_times;

void setUp() {
  if (g_files)
    return;
  g_files = new Files;
  const std::string &d = g_files->dir = vell_bench::makeScratchDirectory("vell-elf-bench");
  std::optional<ElfIdentity> libc = readElfIdentity(kLibc);
  if (libc && libc->buildId.size() > 2) {
    std::string path =
        "/usr/lib/debug/.build-id/" + libc->buildId.substr(0, 2) + "/" + libc->buildId.substr(2) + ".debug";
    if (fs::exists(path))
      g_files->libcDebug = path;
  }
  std::ofstream(d + "/p.c") << "int main(void) { return 0; }\n";
  vell_bench::runCommandOrAbort("gcc -g -O0 -Wl,--build-id -o " + d + "/p.full " + d + "/p.c");
  vell_bench::runCommandOrAbort("objcopy --only-keep-debug " + d + "/p.full " + d + "/p.debug");
  vell_bench::runCommandOrAbort("strip --strip-debug -o " + d + "/p " + d + "/p.full");
  {
    std::mt19937_64 generator(1);
    std::ofstream out(d + "/blob", std::ios::binary);
    std::string block(1 << 20, '\0');
    for (size_t written = 0; written < kBlobSize; written += block.size()) {
      for (char &c : block)
        c = static_cast<char>(generator());
      out.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
  }
  vell_bench::runCommandOrAbort("objcopy --add-section .blob=" + d + "/blob " + d + "/p.debug " + d +
                                "/big.debug");
  fs::remove(d + "/blob");
  g_files->small = d + "/p.debug";
  g_files->big = d + "/big.debug";
  g_files->binary = d + "/p";
}

template <class Body> void timed(benchmark::State &state, const std::string &name, Body body) {
  setUp();
  g_times.timed(state, name, body);
}

void readIdentity(benchmark::State &state, const std::string &path) {
  if (path.empty()) {
    state.SkipWithError("libc6-dbg is not installed");
    return;
  }
  std::optional<ElfIdentity> identity = readElfIdentity(path);
  if (!identity || identity->buildId.empty())
    state.SkipWithError("no identity");
  benchmark::DoNotOptimize(identity);
}

void euReadelf(benchmark::State &state, const std::string &path) {
  if (path.empty()) {
    state.SkipWithError("libc6-dbg is not installed");
    return;
  }
  vell_bench::runCommandOrSkip(state, "eu-readelf -n '" + path + "' > /dev/null");
}

void BM_IdentityLibcDebug(benchmark::State &state) {
  timed(state, "identity libc", [](benchmark::State &s) { readIdentity(s, g_files->libcDebug); });
}
void BM_EuReadelfLibcDebug(benchmark::State &state) {
  timed(state, "eu-readelf libc", [](benchmark::State &s) { euReadelf(s, g_files->libcDebug); });
}
void BM_IdentitySmall(benchmark::State &state) {
  timed(state, "identity small", [](benchmark::State &s) { readIdentity(s, g_files->small); });
}
void BM_IdentityBig(benchmark::State &state) {
  timed(state, "identity 256M", [](benchmark::State &s) { readIdentity(s, g_files->big); });
}
void BM_EuReadelfBig(benchmark::State &state) {
  timed(state, "eu-readelf 256M", [](benchmark::State &s) { euReadelf(s, g_files->big); });
}
// The whole check of one candidate as a search runs it (the binary's identity
// is read once, when the check is made).
void BM_ValidatorPerCandidate(benchmark::State &state) {
  setUp();
  ElfIdentityValidator check(scSymbolFiles, g_files->binary);
  struct : IErrorInfoContainer {
    void setSeverity(severity_t) override {}
    void setErrorMessage(const char *) override {}
  } info;
  timed(state, "check 256M", [&](benchmark::State &s) {
    if (check.validate(g_files->big.c_str(), info) != vvAccept)
      s.SkipWithError("not accepted");
  });
}
// What reading the whole file costs: the debug-link CRC-32 of the big file.
void BM_WholeFileCrcBig(benchmark::State &state) {
  timed(state, "crc32 256M", [](benchmark::State &s) {
    if (!debugLinkCrcOfFile(g_files->big))
      s.SkipWithError("unreadable");
  });
}

BENCHMARK(BM_IdentityLibcDebug)->Unit(benchmark::kMicrosecond)->Iterations(200)->UseRealTime();
BENCHMARK(BM_EuReadelfLibcDebug)->Unit(benchmark::kMicrosecond)->Iterations(50)->UseRealTime();
BENCHMARK(BM_IdentitySmall)->Unit(benchmark::kMicrosecond)->Iterations(200)->UseRealTime();
BENCHMARK(BM_IdentityBig)->Unit(benchmark::kMicrosecond)->Iterations(200)->UseRealTime();
BENCHMARK(BM_EuReadelfBig)->Unit(benchmark::kMicrosecond)->Iterations(50)->UseRealTime();
BENCHMARK(BM_ValidatorPerCandidate)->Unit(benchmark::kMicrosecond)->Iterations(200)->UseRealTime();
BENCHMARK(BM_WholeFileCrcBig)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::printf("\nTime per run (ratio = first / second; below 1 is faster):\n");
  g_times.printRatio("identity libc", "eu-readelf libc", 1e6, "us");
  g_times.printRatio("identity 256M", "eu-readelf 256M", 1e6, "us");
  g_times.printRatio("identity 256M", "identity small", 1e6, "us");
  g_times.printRatio("check 256M", "crc32 256M", 1e6, "us");
  if (g_files) {
    std::error_code ignored;
    fs::remove_all(g_files->dir, ignored);
  }
  return 0;
}
