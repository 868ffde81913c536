// Measures the recursive directory search against find(1) on a generated tree
// of 10,110 directories and 100,000 files, counts the system calls per
// directory with strace, and times 1,000 symbol-file look-ups over the tree.
#include <benchmark/benchmark.h>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/peer_timing.h"
#include "support/recursive_search.h"
#include "vell/file_search.h"
#include "vell/platform.h"
#include "vell/search_env.h"

using namespace VELL_2_13;
namespace fs = std::filesystem;
using vell_bench::recursiveSearch;
using vell_bench::runProcess;

namespace {

// 10 top directories, 10 below each, 100 leaves below those: 10,110
// directories; 10 files in every leaf: 100,000 files.
constexpr int kTop = 10;
constexpr int kMiddle = 10;
constexpr int kLeaves = 100;
constexpr int kFilesPerLeaf = 10;
constexpr int kLookups = 1000;
const char *const kNeedle = "needle.so";

struct Tree {
  std::string root;
  std::vector<std::string> dirsInWalkOrder;
  std::vector<std::string> lookupNames; // one file name from 1,000 leaves spread over the walk
  size_t files = 0;
};

Tree *g_tree = nullptr;
double g_vellSeconds = 0;
double g_findSeconds = 0;

std::string leafFileName(size_t leafIndex, int file) {
  // Appended piecewise: GCC 12 warns falsely about "literal" + std::string.
  std::string name("f");
  name += std::to_string(leafIndex);
  name += '_';
  name += std::to_string(file);
  name += ".debug";
  return name;
}

// Directories in the order a depth-first walk meets them: each directory's
// subdirectories in the order the file system lists them.
void walkOrder(const std::string &dir, std::vector<std::string> &out) {
  out.push_back(dir);
  std::vector<std::string> subdirectories;
  if (DIR *stream = ::opendir(dir.c_str())) {
    while (const dirent *entry = ::readdir(stream)) {
      if (entry->d_type == DT_DIR && std::strcmp(entry->d_name, ".") != 0 &&
          std::strcmp(entry->d_name, "..") != 0)
        subdirectories.push_back(dir + "/" + entry->d_name);
    }
    ::closedir(stream);
  }
  for (const std::string &sub : subdirectories)
    walkOrder(sub, out);
}

Tree generateTree() {
  Tree tree;
  char pattern[] = "/tmp/vell-bench-XXXXXX";
  tree.root = ::mkdtemp(pattern);
  size_t leafIndex = 0;
  for (int t = 0; t < kTop; ++t) {
    for (int m = 0; m < kMiddle; ++m) {
      for (int l = 0; l < kLeaves; ++l, ++leafIndex) {
        const std::string leaf =
            tree.root + "/t" + std::to_string(t) + "/m" + std::to_string(m) + "/l" + std::to_string(l);
        fs::create_directories(leaf);
        for (int f = 0; f < kFilesPerLeaf; ++f) {
          std::ofstream(leaf + "/" + leafFileName(leafIndex, f)) << "debug data";
          ++tree.files;
        }
      }
    }
  }
  walkOrder(tree.root, tree.dirsInWalkOrder);
  // The needle lies only in the last directory the walk enters.
  std::ofstream(tree.dirsInWalkOrder.back() + "/" + kNeedle) << "needle";
  ++tree.files;
  // 1,000 names from leaves spread evenly over the walk order.
  std::vector<std::string> leaves;
  for (const std::string &dir : tree.dirsInWalkOrder)
    if (fs::path(dir).filename().string()[0] == 'l')
      leaves.push_back(dir);
  for (int i = 0; i < kLookups; ++i) {
    const std::string &leaf = leaves[i * leaves.size() / kLookups];
    for (const auto &entry : fs::directory_iterator(leaf)) {
      if (entry.path().extension() == ".debug") {
        tree.lookupNames.push_back(entry.path().filename().string());
        break;
      }
    }
  }
  return tree;
}

void BM_VellRecursiveSearchForTheLastDirectory(benchmark::State &state) {
  ObjectPtr<IFileSearch> search = recursiveSearch(g_tree->root);
  const std::string expected = g_tree->dirsInWalkOrder.back() + "/" + kNeedle;
  auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    ObjectPtr<IValidFile> found = search->findBinFile(kNeedle, nullptr, nullptr, 0);
    if (!found || expected != found->name())
      state.SkipWithError("needle not found where expected");
    benchmark::DoNotOptimize(found);
  }
  g_vellSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() /
                  double(state.iterations());
  state.counters["dirs"] = double(g_tree->dirsInWalkOrder.size());
}

void BM_FindCommandForTheSameFile(benchmark::State &state) {
  auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    if (runProcess({"find", g_tree->root, "-name", kNeedle, "-print", "-quit"}) != 0)
      state.SkipWithError("find failed");
  }
  g_findSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() /
                  double(state.iterations());
}

void BM_VellFindSymFileThousandNames(benchmark::State &state) {
  ObjectPtr<IFileSearch> search = recursiveSearch(g_tree->root);
  for (auto _ : state) {
    for (const std::string &name : g_tree->lookupNames) {
      ObjectPtr<IValidFile> found =
          search->findSymFile(name.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
      if (!found)
        state.SkipWithError("a name was not found");
    }
  }
  state.SetItemsProcessed(state.iterations() * int64_t(g_tree->lookupNames.size()));
  state.counters["per_name"] = benchmark::Counter(double(state.iterations() * g_tree->lookupNames.size()),
                                                  benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

BENCHMARK(BM_VellRecursiveSearchForTheLastDirectory)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_FindCommandForTheSameFile)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_VellFindSymFileThousandNames)->Unit(benchmark::kSecond)->Iterations(1);

// --- System calls ---------------------------------------------------------------------

// Calls per system call name from an "strace -c" summary.
std::map<std::string, long> readStraceSummary(const std::string &path) {
  std::map<std::string, long> calls;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::vector<std::string> words;
    for (std::string word; fields >> word;)
      words.push_back(word);
    // "% time seconds usecs/call calls [errors] syscall"
    if (words.size() < 5 || words[0].find_first_not_of("0123456789.") != std::string::npos)
      continue;
    const std::string name = words.back();
    calls[name] = std::atol(words[3].c_str());
  }
  return calls;
}

long sum(const std::map<std::string, long> &calls, std::initializer_list<const char *> names) {
  long total = 0;
  for (const char *name : names) {
    auto found = calls.find(name);
    if (found != calls.end())
      total += found->second;
  }
  return total;
}

void printSyscalls(const char *who, const std::map<std::string, long> &run,
                   const std::map<std::string, long> &base, double dirs) {
  auto perDir = [&](std::initializer_list<const char *> names) {
    return double(sum(run, names) - sum(base, names)) / dirs;
  };
  long total = 0;
  long baseTotal = 0;
  for (const auto &entry : run)
    total += entry.first == "total" ? 0 : entry.second;
  for (const auto &entry : base)
    baseTotal += entry.first == "total" ? 0 : entry.second;
  std::printf("%-5s per directory: %.2f system calls in all (stat family %.2f, open %.2f, getdents64 %.2f, "
              "close %.2f)\n",
              who, double(total - baseTotal) / dirs,
              perDir({"stat", "lstat", "fstat", "newfstatat", "statx", "fstatat64"}),
              perDir({"open", "openat"}), perDir({"getdents64", "getdents"}), perDir({"close"}));
}

void countSystemCalls(const char *self) {
  if (runProcess({"strace", "-V"}) != 0) {
    std::printf("strace is not available: system calls not counted\n");
    return;
  }
  const std::string out = g_tree->root + ".strace";
  const double dirs = double(g_tree->dirsInWalkOrder.size());
  // The search process, and the same process stopping just before the search.
  runProcess({"strace", "-f", "-c", "-o", out + ".vell", self, "--probe", g_tree->root, "search"});
  runProcess({"strace", "-f", "-c", "-o", out + ".base", self, "--probe", g_tree->root, "baseline"});
  runProcess(
      {"strace", "-f", "-c", "-o", out + ".find", "find", g_tree->root, "-name", kNeedle, "-print", "-quit"});
  runProcess({"strace", "-f", "-c", "-o", out + ".findbase", "find", g_tree->root, "-maxdepth", "0", "-name",
              kNeedle, "-print", "-quit"});
  std::printf("System calls counted with strace -c -f, minus a run that stops before the walk:\n");
  printSyscalls("vell", readStraceSummary(out + ".vell"), readStraceSummary(out + ".base"), dirs);
  printSyscalls("find", readStraceSummary(out + ".find"), readStraceSummary(out + ".findbase"), dirs);
  for (const char *suffix : {".vell", ".base", ".find", ".findbase"})
    std::remove((out + suffix).c_str());
}

// The process strace looks at: one search of root for the needle, or
// everything but the search.
int probe(const std::string &root, const std::string &mode) {
  platform::configureLogging(platform::LogLevel::Off);
  ObjectPtr<IFileSearch> search = recursiveSearch(root);
  if (mode != "search")
    return 0;
  return search->findBinFile(kNeedle, nullptr, nullptr, 0) ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
  if (argc == 4 && std::string(argv[1]) == "--probe")
    return probe(argv[2], argv[3]);
  // A host that has not configured logging gets no log lines; the search
  // pays only the level test.
  platform::configureLogging(platform::LogLevel::Off);
  benchmark::Initialize(&argc, argv);
  const auto started = std::chrono::steady_clock::now();
  Tree tree = generateTree();
  g_tree = &tree;
  std::printf("Tree %s: %zu directories, %zu files, generated in %.1f s\n", tree.root.c_str(),
              tree.dirsInWalkOrder.size(), tree.files,
              std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
  benchmark::RunSpecifiedBenchmarks();
  if (g_vellSeconds > 0 && g_findSeconds > 0)
    std::printf("Recursive search / find: %.2f ms / %.2f ms = %.2f\n", g_vellSeconds * 1e3,
                g_findSeconds * 1e3, g_vellSeconds / g_findSeconds);
  countSystemCalls(fs::read_symlink("/proc/self/exe").c_str());
  std::error_code ignored;
  fs::remove_all(tree.root, ignored);
  benchmark::Shutdown();
  return 0;
}
