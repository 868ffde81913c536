// Many threads search on one file search object while another thread
// replaces and destroys the host's callbacks.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell_search/search_callbacks_support.h"
#include "vell_search/search_test_support.h"

using namespace VELL_2_13;
using vell_test::TempDir;

namespace {

// One set of host callbacks; the files-found callback picks the first file.
struct CallbackSet {
  CallbackSet() {
    found.chooser = [](IValidFileIterator &files) {
      files.reset();
      return files.next();
    };
  }
  vell_test::TestSearchStarted started;
  vell_test::TestFilesFound found;
  vell_test::TestNoFilesFound none;
};

void install(IEditableSearchEnv &env, CallbackSet &set) {
  env.setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&set.started));
  env.setFilesFoundCallback(CallbackHolder<IFilesFoundCallback>(&set.found));
  env.setNoFilesFoundCallback(CallbackHolder<INoFilesFoundCallback>(&set.none));
}

// A tree, an environment over it and one file search, searched by several
// threads that check every answer.
struct ConcurrentSearches {
  ConcurrentSearches() {
    bin = tmp.write("bins/deep/er/libx.so", "binary");
    sym = tmp.write("syms/libx.so.debug", "symbols");
    src = tmp.write("srcs/a/main.c", "source");
    for (int i = 0; i < 20; ++i)
      tmp.mkdir("bins/noise" + std::to_string(i) + "/sub");
    env = IEditableSearchEnv::create();
    env->setSearchDirs(vell_test::makeDirContainer({{scBinaryFiles, tmp.sub("bins"), true, true},
                                                    {scSymbolFiles, tmp.sub("syms"), false, false},
                                                    {scSourceFiles, tmp.sub("srcs"), true, false}}));
    env->setSearchStepsConfigurator(ObjectPtr<ISearchStepsConfigurator>(
        new vell_test::FixedStepsConfigurator({ssHighPrioritySearchDirs, ssLowPrioritySearchDirs})));
  }

  // One search of each kind in turn; wrong counts every unexpected answer.
  void searchOnce(IFileSearch &search, int i) {
    ObjectPtr<IValidFile> found;
    switch (i % 4) {
    case 0:
      found = search.findBinFile("libx.so", nullptr, nullptr, 0);
      wrong += !(found && bin == found->name());
      break;
    case 1:
      found = search.findSymFile("libx.so.debug", bin.c_str(), "sum", nullptr, nullptr, nullptr, nullptr);
      wrong += !(found && sym == found->name());
      break;
    case 2:
      found = search.findSrcFile("a/main.c", bin.c_str(), nullptr, nullptr, nullptr);
      wrong += !(found && src == found->name());
      break;
    default:
      found = search.findBinFile("libmissing.so", nullptr, nullptr, 0);
      wrong += found ? 1 : 0;
      break;
    }
    ++searches;
  }

  TempDir tmp;
  std::string bin, sym, src;
  ObjectPtr<IEditableSearchEnv> env;
  std::atomic<int> searches{0};
  std::atomic<int> wrong{0};
};

TEST(FileSearchConcurrencyTest, CallbacksAreDestroyedWhileSearchesRunAndReplacedBetweenThem) {
  ConcurrentSearches fixture;
  auto first = std::make_unique<CallbackSet>();
  install(*fixture.env, *first);
  ObjectPtr<IFileSearch> search = IFileSearch::create(fixture.env);

  // An environment takes no lock of its own: its owner fills it while no
  // search reads it, so installing takes the writer side of this lock and
  // searching the reader side. Destroying a callback needs no such care: its
  // generator waits for any search inside it and the holders forget it.
  std::shared_mutex environmentWrites;
  std::atomic<bool> stop{false};
  std::vector<std::thread> searchers;
  for (int t = 0; t < 4; ++t) {
    searchers.emplace_back([&, t] {
      for (int i = 0; i < 60; ++i) {
        std::shared_lock<std::shared_mutex> reading(environmentWrites);
        fixture.searchOnce(*search, i + t);
      }
    });
  }
  std::thread mutator([&] {
    std::unique_ptr<CallbackSet> current = std::move(first);
    int round = 0;
    while (!stop.load()) {
      auto next = std::make_unique<CallbackSet>();
      // Every other round the installed set dies while searches use it.
      if (++round % 2 == 0)
        current.reset();
      {
        std::unique_lock<std::shared_mutex> writing(environmentWrites);
        install(*fixture.env, *next);
      }
      // The replaced set dies while searches run.
      current = std::move(next);
      std::this_thread::yield();
    }
    current.reset();
  });

  for (std::thread &searcher : searchers)
    searcher.join();
  stop = true;
  mutator.join();

  EXPECT_EQ(240, fixture.searches.load());
  EXPECT_EQ(0, fixture.wrong.load());
}

TEST(FileSearchConcurrencyTest, ParallelSearchesEachGetTheirOwnResults) {
  TempDir tmp;
  std::vector<std::string> files;
  for (int i = 0; i < 8; ++i)
    files.push_back(tmp.write("tree/d" + std::to_string(i) + "/lib" + std::to_string(i) + ".so"));
  auto env = IEditableSearchEnv::create();
  env->setSearchDirs(vell_test::makeDirContainer({{scAllFiles, tmp.sub("tree"), true, false}}));
  CallbackSet callbacks;
  install(*env, callbacks);
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 20; ++i) {
        const int which = (t + i) % 8;
        const std::string name = "lib" + std::to_string(which) + ".so";
        ObjectPtr<IValidFile> found = search->findBinFile(name.c_str(), nullptr, nullptr, 0);
        wrong += !(found && files[which] == found->name());
      }
    });
  }
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(0, wrong.load());
  EXPECT_EQ(160, callbacks.started.count.load());
  EXPECT_EQ(160, callbacks.found.count.load());
  EXPECT_EQ(0, callbacks.none.count.load());
}

} // namespace
