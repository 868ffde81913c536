// Adding many directories to one list and enumerating them.
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "vell/search_env.h"

namespace {

using namespace VELL_2_13;

const int DIRECTORY_COUNT = 100000;

std::vector<std::string> directoryNames() {
  std::vector<std::string> names;
  names.reserve(DIRECTORY_COUNT);
  for (int i = 0; i < DIRECTORY_COUNT; ++i)
    names.push_back("/opt/project/build/module" + std::to_string(i % 97) + "/lib" + std::to_string(i));
  return names;
}

ObjectPtr<IEditableSearchDirContainer> filledContainer(const std::vector<std::string> &names) {
  auto dirs = IEditableSearchDirContainer::create();
  for (const auto &name : names)
    dirs->addDirectory(scSymbolFiles, name.c_str(), false, false);
  return dirs;
}

// 100,000 distinct directories into one fresh list; items = additions.
void BM_Add100kDirectories(benchmark::State &state) {
  const auto names = directoryNames();
  for (auto _ : state) {
    auto dirs = filledContainer(names);
    benchmark::DoNotOptimize(dirs.get());
  }
  state.SetItemsProcessed(state.iterations() * DIRECTORY_COUNT);
  state.counters["ns_per_add"] =
      benchmark::Counter(double(state.iterations()) * DIRECTORY_COUNT,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Add100kDirectories)->Unit(benchmark::kMillisecond);

// Adding the same 100,000 directories again: every addition is a duplicate found in the index.
void BM_Add100kDuplicates(benchmark::State &state) {
  const auto names = directoryNames();
  auto dirs = filledContainer(names);
  for (auto _ : state) {
    for (const auto &name : names)
      dirs->addDirectory(scSymbolFiles, name.c_str(), true, false);
  }
  state.SetItemsProcessed(state.iterations() * DIRECTORY_COUNT);
}
BENCHMARK(BM_Add100kDuplicates)->Unit(benchmark::kMillisecond);

// Snapshot of the 100,000 records and reading them all.
void BM_Enumerate100kDirectories(benchmark::State &state) {
  auto dirs = filledContainer(directoryNames());
  for (auto _ : state) {
    auto records = dirs->enumerate(scSymbolFiles);
    records->reset();
    const char *name = nullptr;
    bool recursive = false;
    bool highPriority = false;
    size_t count = 0;
    while (records->getCurrentRecord(name, recursive, highPriority)) {
      ++count;
      records->next();
    }
    if (count != DIRECTORY_COUNT)
      state.SkipWithError("wrong record count");
  }
  state.SetItemsProcessed(state.iterations() * DIRECTORY_COUNT);
}
BENCHMARK(BM_Enumerate100kDirectories)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
