// Measures thousands of look-ups over large trees with the directory index
// against find(1) and fd (fdfind) in the same run: the plain walk, the walk
// with directories read ahead on helper threads, the index's parallel
// listing, 1,000 names through the library and through vell find --batch, a
// tree of 200,000 directories, and the index's memory.
//
// The trees (about 1.1 million files in all) are created once under
// --trees DIR (default $VELL_BENCH_TREES, else /var/tmp/vell-bench-trees) and
// reused by later runs. --cold also times walks after dropping the page cache
// (root only: it writes /proc/sys/vm/drop_caches, which slows everything else
// on the machine for a moment). --tool PATH names the vell tool (default: the
// one of this build).
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "support/peer_timing.h"
#include "support/recursive_search.h"
#include "vell/directory_index.h"
#include "vell/file_search.h"
#include "vell/platform.h"
#include "vell/search_env.h"
#include "vell/walk_options.h"

using namespace VELL_2_13;
namespace fs = std::filesystem;

namespace {

using vell_bench::medianSecondsOf;
using vell_bench::recursiveSearch;
using vell_bench::runProcess;
using vell_bench::secondsOf;

constexpr int kLookups = 1000;
// Helper threads of the read-ahead walk measured unless --helpers says
// otherwise (the tool's default on two processors).
constexpr unsigned int kDefaultReadAheadThreads = 8;
const char *const kMissing = "no-such-file.so";

// A tree of top x middle x leaf directories with files in every leaf.
struct Shape {
  const char *name;
  int top;
  int middle;
  int leaves;
  int filesPerLeaf;
};

const Shape kFiles100k{"files-100k", 10, 10, 100, 10};
const Shape kFiles1m{"files-1m", 10, 50, 100, 20};
const Shape kDirs200k{"dirs-200k", 20, 100, 100, 0};

std::string leafPath(const std::string &root, int t, int m, int l) {
  return root + "/t" + std::to_string(t) + "/m" + std::to_string(m) + "/l" + std::to_string(l);
}

std::string fileName(int t, int m, int l, int f) {
  std::string name("f");
  name += std::to_string(t);
  name += '_';
  name += std::to_string(m);
  name += '_';
  name += std::to_string(l);
  name += '_';
  name += std::to_string(f);
  name += ".so";
  return name;
}

// Creates the tree unless an earlier run completed it.
std::string ensureTree(const std::string &trees, const Shape &shape) {
  const std::string root = trees + "/" + shape.name;
  const std::string marker = trees + "/" + shape.name + ".complete";
  if (fs::exists(marker))
    return root;
  std::printf("creating %s (once) ...\n", root.c_str());
  std::fflush(stdout);
  const auto started = std::chrono::steady_clock::now();
  std::error_code ignored;
  fs::remove_all(root, ignored);
  fs::create_directories(root);
  for (int t = 0; t < shape.top; ++t) {
    fs::create_directories(root + "/t" + std::to_string(t));
    for (int m = 0; m < shape.middle; ++m) {
      ::mkdir((root + "/t" + std::to_string(t) + "/m" + std::to_string(m)).c_str(), 0755);
      for (int l = 0; l < shape.leaves; ++l) {
        const std::string leaf = leafPath(root, t, m, l);
        ::mkdir(leaf.c_str(), 0755);
        for (int f = 0; f < shape.filesPerLeaf; ++f) {
          const int fd =
              ::open((leaf + "/" + fileName(t, m, l, f)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
          if (fd >= 0)
            ::close(fd);
        }
      }
    }
  }
  std::ofstream(marker) << "complete\n";
  std::printf("created in %.0f s\n",
              std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
  return root;
}

// 1,000 file names from leaves spread evenly over the tree.
std::vector<std::string> lookupNames(const Shape &shape) {
  std::vector<std::string> names;
  const int leaves = shape.top * shape.middle * shape.leaves;
  for (int i = 0; i < kLookups; ++i) {
    const int leaf = static_cast<int>(static_cast<long>(i) * leaves / kLookups);
    const int l = leaf % shape.leaves;
    const int m = (leaf / shape.leaves) % shape.middle;
    const int t = leaf / (shape.leaves * shape.middle);
    names.push_back(fileName(t, m, l, i % shape.filesPerLeaf));
  }
  return names;
}

void dropCaches() {
  ::sync();
  std::ofstream("/proc/sys/vm/drop_caches") << "3\n";
}

bool canDropCaches() { return ::access("/proc/sys/vm/drop_caches", W_OK) == 0; }

void findAll(IFileSearch &search, const std::vector<std::string> &names) {
  for (const std::string &name : names)
    if (!search.findBinFile(name.c_str(), nullptr, nullptr, 0))
      std::fprintf(stderr, "not found: %s\n", name.c_str());
}

void row(const char *what, double vell, const char *peer, double peerSeconds) {
  std::printf("%-62s %10.3f s   %-28s %8.3f s   ratio %.2f\n", what, vell, peer, peerSeconds,
              vell / peerSeconds);
  std::fflush(stdout);
}

long statusKb(const char *field) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind(field, 0) == 0)
      return std::atol(line.c_str() + std::strlen(field));
  return 0;
}

// Builds the index of root and prints its own count of bytes and the peak
// resident memory of this process above its start. Run in a fresh process,
// whose heap holds nothing of earlier measures.
int printIndexMemory(const std::string &root, const std::string &name) {
  const long before = statusKb("VmRSS:");
  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create();
  index->prepare(root.c_str());
  const DirectoryIndexStatistics statistics = index->statistics();
  const long peak = statusKb("VmHWM:");
  const long after = statusKb("VmRSS:");
  const double files = double(statistics.entries);
  std::printf("index of %s: %zu directories, %zu entries\n", name.c_str(), statistics.directories,
              statistics.entries);
  std::printf("  counted: %.1f MB (%.1f bytes per entry); resident after: %.1f MB, peak: %.1f MB above the "
              "start (%.1f MB per 1,000,000 entries)\n",
              double(statistics.memoryBytes) / 1e6, double(statistics.memoryBytes) / files,
              double(after - before) / 1e3, double(peak - before) / 1e3,
              double(peak - before) / 1e3 / files * 1e6);
  return 0;
}

// The index's memory, measured by this program started afresh.
void measureMemory(const std::string &root, const Shape &shape) {
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child == 0) {
    ::execl("/proc/self/exe", "directory_index_bench", "--memory-of", root.c_str(), shape.name,
            static_cast<char *>(nullptr));
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
}

struct Options {
  std::string trees;
  std::string tool;
  bool cold = false;
  unsigned int helpers = kDefaultReadAheadThreads;
};

void benchFileTree(const Options &options, const Shape &shape) {
  const std::string root = ensureTree(options.trees, shape);
  const std::vector<std::string> names = lookupNames(shape);
  std::printf("\n== %s: %d directories, %d files\n", shape.name,
              1 + shape.top + shape.top * shape.middle + shape.top * shape.middle * shape.leaves,
              shape.top * shape.middle * shape.leaves * shape.filesPerLeaf);
  // Warm the cache.
  runProcess({"find", root, "-name", kMissing});

  const double find = medianSecondsOf(3, [&] { runProcess({"find", root, "-name", kMissing}); });
  const double fd = medianSecondsOf(3, [&] { runProcess({"fdfind", "-u", "-j2", "-g", kMissing, root}); });
  ObjectPtr<IFileSearch> plain = recursiveSearch(root, ObjectPtr<IDirectoryIndex>());
  const double walk = medianSecondsOf(3, [&] { plain->findBinFile(kMissing, nullptr, nullptr, 0); });
  row("warm: plain walk, one missing name", walk, "find ROOT -name X", find);
  row("warm: plain walk, one missing name", walk, "fdfind -u -j2 -g X ROOT", fd);
  const std::string helpers =
      "read-ahead walk (" + std::to_string(options.helpers) + " helpers), one missing name";
  const std::string aheadWarmRow = "warm: " + helpers;
  const std::string aheadColdRow = "cold: " + helpers;
  ObjectPtr<IFileSearch> ahead = recursiveSearch(root, ObjectPtr<IDirectoryIndex>(), options.helpers);
  const double walkAhead = medianSecondsOf(3, [&] { ahead->findBinFile(kMissing, nullptr, nullptr, 0); });
  row(aheadWarmRow.c_str(), walkAhead, "find ROOT -name X", find);
  row(aheadWarmRow.c_str(), walkAhead, "fdfind -u -j2 -g X ROOT", fd);
  const double build = medianSecondsOf(3, [&] { IDirectoryIndex::create()->prepare(root.c_str()); });
  row("warm: index listing (2 threads)", build, "find ROOT -name X", find);
  row("warm: index listing (2 threads)", build, "fdfind -u -j2 -g X ROOT", fd);

  // Ten names walked without the index, for the per-name cost of today.
  const std::vector<std::string> ten(names.begin(), names.begin() + 10);
  const double tenPlain = secondsOf([&] { findAll(*plain, ten); });
  std::printf("%-62s %10.3f s per name\n", "plain walk, 10 of the names (average)", tenPlain / 10);

  ObjectPtr<IDirectoryIndex> index = IDirectoryIndex::create();
  ObjectPtr<IFileSearch> indexed = recursiveSearch(root, index);
  const double thousand = secondsOf([&] { findAll(*indexed, names); });
  row("index: 1,000 names, listing included", thousand, "one find ROOT -name X", find);
  const double again = secondsOf([&] { findAll(*indexed, names); });
  std::printf("%-62s %10.1f us per name\n", "index: the same 1,000 names again (tree listed)",
              again / kLookups * 1e6);
  const double missing = secondsOf([&] {
    for (int i = 0; i < kLookups; ++i)
      indexed->findBinFile(kMissing, nullptr, nullptr, 0);
  });
  std::printf("%-62s %10.1f us per name\n", "index: a missing name, 1,000 times", missing / kLookups * 1e6);

  if (!options.tool.empty() && fs::exists(options.tool)) {
    const std::string input = options.trees + "/" + shape.name + ".requests";
    {
      std::ofstream out(input);
      for (const std::string &name : names)
        out << "{\"category\": \"bin\", \"name\": \"" << name << "\"}\n";
    }
    const std::string dir = "all:r=" + root;
    const double batch = medianSecondsOf(3, [&] {
      runProcess({options.tool, "find", "--batch", "--dir", dir}, input);
    });
    row("vell find --batch: 1,000 requests, one process", batch, "one find ROOT -name X", find);
  } else {
    std::printf("vell tool not found (--tool PATH): batch not measured\n");
  }

  if (options.cold) {
    // Each run starts from an empty page cache; medians of 3.
    auto cold = [](const std::function<void()> &run) {
      return medianSecondsOf(3, [&] {
        dropCaches();
        run();
      });
    };
    const double findCold = cold([&] { runProcess({"find", root, "-name", kMissing}); });
    const double fdCold = cold([&] { runProcess({"fdfind", "-u", "-j2", "-g", kMissing, root}); });
    const double walkCold = cold([&] { plain->findBinFile(kMissing, nullptr, nullptr, 0); });
    const double aheadCold = cold([&] { ahead->findBinFile(kMissing, nullptr, nullptr, 0); });
    const double buildCold = cold([&] { IDirectoryIndex::create()->prepare(root.c_str()); });
    row("cold: plain walk, one missing name", walkCold, "find ROOT -name X", findCold);
    row("cold: plain walk, one missing name", walkCold, "fdfind -u -j2 -g X ROOT", fdCold);
    row(aheadColdRow.c_str(), aheadCold, "find ROOT -name X", findCold);
    row(aheadColdRow.c_str(), aheadCold, "fdfind -u -j2 -g X ROOT", fdCold);
    row("cold: index listing (2 threads)", buildCold, "fdfind -u -j2 -g X ROOT", fdCold);
    row("cold: index listing (2 threads)", buildCold, "find ROOT -name X", findCold);
  }
  measureMemory(root, shape);
}

void benchDirectoryTree(const Options &options, const Shape &shape) {
  const std::string root = ensureTree(options.trees, shape);
  std::printf("\n== %s: %d directories, no files\n", shape.name,
              1 + shape.top + shape.top * shape.middle + shape.top * shape.middle * shape.leaves);
  runProcess({"find", root, "-name", kMissing});
  const double find = medianSecondsOf(3, [&] { runProcess({"find", root, "-name", kMissing}); });
  ObjectPtr<IFileSearch> plain = recursiveSearch(root, ObjectPtr<IDirectoryIndex>());
  const double walk = medianSecondsOf(3, [&] { plain->findBinFile(kMissing, nullptr, nullptr, 0); });
  row("warm: plain walk, one missing name", walk, "find ROOT -name X", find);
}

} // namespace

int main(int argc, char **argv) {
  platform::configureLogging(platform::LogLevel::Off);
  if (argc == 4 && std::string(argv[1]) == "--memory-of")
    return printIndexMemory(argv[2], argv[3]);
  Options options;
  const char *fromEnvironment = std::getenv("VELL_BENCH_TREES");
  options.trees = fromEnvironment && *fromEnvironment ? fromEnvironment : "/var/tmp/vell-bench-trees";
  options.tool =
      (fs::path(fs::read_symlink("/proc/self/exe")).parent_path().parent_path() / "tools" / "vell").string();
  std::vector<std::string> only;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--trees" && i + 1 < argc)
      options.trees = argv[++i];
    else if (arg == "--tool" && i + 1 < argc)
      options.tool = argv[++i];
    else if (arg == "--cold")
      options.cold = true;
    else if (arg == "--helpers" && i + 1 < argc)
      options.helpers = static_cast<unsigned int>(std::stoul(argv[++i]));
    else if (arg == "--only" && i + 1 < argc)
      only.push_back(argv[++i]);
    else {
      std::fprintf(stderr,
                   "usage: %s [--trees DIR] [--tool PATH] [--cold] [--helpers N]\n"
                   "          [--only files-100k|files-1m|dirs-200k]\n",
                   argv[0]);
      return 2;
    }
  }
  if (options.cold && !canDropCaches()) {
    std::fprintf(stderr, "--cold needs write access to /proc/sys/vm/drop_caches\n");
    return 2;
  }
  fs::create_directories(options.trees);
  auto wanted = [&](const Shape &shape) {
    return only.empty() || std::find(only.begin(), only.end(), shape.name) != only.end();
  };
  std::printf("trees under %s; times are medians of 3 runs\n", options.trees.c_str());
  if (wanted(kFiles100k))
    benchFileTree(options, kFiles100k);
  if (wanted(kFiles1m))
    benchFileTree(options, kFiles1m);
  if (wanted(kDirs200k))
    benchDirectoryTree(options, kDirs200k);
  benchmark::DoNotOptimize(options);
  return 0;
}
