// Fetches 200 binaries by build ID from a local debuginfod server with 1, 4
// and 16 transfers in flight, and through `vell find --batch` with --jobs 1
// and 4, against one curl process fetching the same URLs one after the other,
// in the same run; prints files per second and ratios.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "vell/http_retriever.h"
#include "vell_retriever/retriever_fixtures.h"

using namespace VELL_2_13;
namespace fs = std::filesystem;

namespace {

constexpr int kFiles = 200;

struct Setup {
  vell_test::TempDir dir;
  std::vector<std::string> buildIds;
  std::unique_ptr<vell_test::DebuginfodServer> server;
  std::string curlConfig; // one "url" and "output" pair per file
  std::string batchInput; // one vell find request per file
};

Setup *g_setup = nullptr;
std::map<std::string, double> g_filesPerSecond;

std::string hexOf(const std::string &bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out += digits[c >> 4];
    out += digits[c & 15];
  }
  return out;
}

// 200 copies of one program, each with its own build ID written over the original.
void makeFiles(Setup &setup) {
  vell_test::BuiltProgram program =
      vell_test::buildProgram(setup.dir.sub("src"), "bench", "benchmark program");
  std::string bytes = vell_test::readWhole(program.binary);
  std::string original;
  for (size_t i = 0; i < program.buildId.size(); i += 2)
    original += static_cast<char>(std::stoi(program.buildId.substr(i, 2), nullptr, 16));
  size_t at = bytes.find(original);
  std::mt19937_64 random(42);
  fs::create_directories(setup.dir.sub("tree"));
  for (int i = 0; i < kFiles; ++i) {
    std::string id(original.size(), '\0');
    for (char &c : id)
      c = static_cast<char>(random() & 0xff);
    std::string copy = bytes;
    copy.replace(at, id.size(), id);
    std::ofstream(setup.dir.sub("tree/file" + std::to_string(i)), std::ios::binary) << copy;
    setup.buildIds.push_back(hexOf(id));
  }
}

void setUp() {
  g_setup = new Setup;
  makeFiles(*g_setup);
  g_setup->server =
      std::make_unique<vell_test::DebuginfodServer>(g_setup->dir.path(), "-F", g_setup->dir.sub("tree"));
  if (!g_setup->server->waitUntilIndexed())
    throw std::runtime_error("debuginfod did not index the files");
  std::ofstream config(g_setup->dir.sub("curl.config"));
  for (int i = 0; i < kFiles; ++i)
    config << "url = \"" << g_setup->server->url() << "/buildid/" << g_setup->buildIds[i] << "/executable\"\n"
           << "output = \"" << g_setup->dir.sub("curl/" + std::to_string(i)) << "\"\n";
  g_setup->curlConfig = g_setup->dir.sub("curl.config");
  std::ofstream batch(g_setup->dir.sub("batch.jsonl"));
  for (int i = 0; i < kFiles; ++i)
    batch << "{\"category\": \"bin\", \"name\": \"/opt/bench/file" << i << "\", \"build_id\": \""
          << g_setup->buildIds[i] << "\"}\n";
  g_setup->batchInput = g_setup->dir.sub("batch.jsonl");
}

void record(benchmark::State &state, const std::string &name, double seconds) {
  double perSecond = kFiles * static_cast<double>(state.iterations()) / seconds;
  state.counters["files/s"] = perSecond;
  g_filesPerSecond[name] = perSecond;
}

void BM_VellFetchAll(benchmark::State &state) {
  unsigned inFlight = static_cast<unsigned>(state.range(0));
  std::vector<BuildIdRequest> requests;
  for (const std::string &id : g_setup->buildIds)
    requests.push_back({bfkExecutable, id, ""});
  double seconds = 0;
  for (auto _ : state) {
    std::string cache = g_setup->dir.sub("vell-cache");
    fs::remove_all(cache);
    HttpRetrieverOptions options;
    options.servers = {g_setup->server->url()};
    options.cacheDir = cache;
    HttpFileRetriever retriever(options);
    auto start = std::chrono::steady_clock::now();
    std::vector<BuildIdResult> results = retriever.fetchAll(requests, inFlight);
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    for (const BuildIdResult &result : results)
      if (!result.ok)
        state.SkipWithError(result.error.c_str());
  }
  record(state, "vell x" + std::to_string(inFlight), seconds);
}

#ifdef VELL_BENCH_TOOL_PATH
// The tool a user would run: one process answering every request of a batch,
// each request a whole search (local steps first, then the server).
void BM_VellBatch(benchmark::State &state) {
  auto quoted = [](const std::string &text) { return vell_test::shellQuoted(text); };
  const std::string jobs = std::to_string(state.range(0));
  const std::string home = g_setup->dir.sub("batch-home");
  const std::string out = g_setup->dir.sub("batch.out");
  const std::string command = "env HOME=" + quoted(home) + " XDG_CACHE_HOME=" + quoted(home + "/cache") +
                              " DEBUGINFOD_URLS= DEBUGINFOD_CACHE_PATH=" + quoted(home + "/none") + " " +
                              quoted(VELL_BENCH_TOOL_PATH) + " find --batch --jobs " + jobs + " --server " +
                              quoted(g_setup->server->url()) + " <" + quoted(g_setup->batchInput) + " >" +
                              quoted(out);
  double seconds = 0;
  for (auto _ : state) {
    fs::remove_all(home);
    fs::create_directories(home);
    auto start = std::chrono::steady_clock::now();
    int status = std::system(command.c_str());
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::ifstream answers(out);
    int found = 0;
    for (std::string line; std::getline(answers, line);)
      found += line.find("\"found\":true") != std::string::npos;
    if (status != 0 || found != kFiles)
      state.SkipWithError("the batch did not find every file");
  }
  record(state, "batch j" + jobs, seconds);
}
BENCHMARK(BM_VellBatch)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
#endif

void BM_CurlSequential(benchmark::State &state) {
  double seconds = 0;
  for (auto _ : state) {
    fs::remove_all(g_setup->dir.sub("curl"));
    fs::create_directories(g_setup->dir.sub("curl"));
    auto start = std::chrono::steady_clock::now();
    int status = std::system(("curl -s -f -K " + g_setup->curlConfig).c_str());
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (status != 0)
      state.SkipWithError("curl failed");
  }
  record(state, "curl", seconds);
}

BENCHMARK(BM_VellFetchAll)
    ->Arg(1)
    ->Arg(4)
    ->Arg(16)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->UseRealTime();
BENCHMARK(BM_CurlSequential)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  setUp();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  auto curl = g_filesPerSecond.find("curl");
  std::printf("\nFiles per second (ratio = vell / sequential curl; above 1 is faster):\n");
  for (const auto &[name, perSecond] : g_filesPerSecond)
    std::printf("%-10s %8.0f files/s   ratio %.2f\n", name.c_str(), perSecond,
                curl == g_filesPerSecond.end() ? 0.0 : perSecond / curl->second);
  delete g_setup;
  return 0;
}
