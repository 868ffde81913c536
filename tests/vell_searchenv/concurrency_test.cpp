// Containers, chains and persistent containers used from several threads at once.
#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "vell/platform.h"
#include "vell_searchenv/dir_records.h"

namespace {

using namespace VELL_2_13;
using vell_test::readAll;

const int THREADS = 4;
const int PER_THREAD = 200;

TEST(SearchDirConcurrency, ConcurrentAdditionsAndEnumerationsKeepEveryDirectoryOnce) {
  auto dirs = IEditableSearchDirContainer::create();
  std::atomic<bool> failed{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < THREADS; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < PER_THREAD; ++i) {
        // Every thread adds the shared names too, with its own flags.
        dirs->addDirectory(scBinaryFiles, ("/shared/" + std::to_string(i)).c_str(), t == 1, t == 2);
        dirs->addDirectory(scBinaryFiles, ("/own/" + std::to_string(t) + "/" + std::to_string(i)).c_str(),
                           false, false);
        if (i % 20 == 0) {
          auto records = dirs->enumerate(scBinaryFiles);
          if (!records || readAll(records).empty())
            failed = true;
        }
      }
    });
  }
  for (auto &thread : threads)
    thread.join();
  EXPECT_FALSE(failed.load());
  const auto records = readAll(dirs->enumerate(scBinaryFiles));
  EXPECT_EQ(records.size(), size_t(PER_THREAD + THREADS * PER_THREAD));
  std::set<std::string> names;
  for (const auto &record : records) {
    names.insert(record.name);
    if (record.name.rfind("/shared/", 0) == 0) {
      EXPECT_TRUE(record.recursive);
      EXPECT_TRUE(record.highPriority);
    }
  }
  EXPECT_EQ(names.size(), records.size());
}

TEST(SearchDirConcurrency, ChainsAreEnumeratedWhileTheirItemsChange) {
  auto first = IEditableSearchDirContainer::create();
  auto second = IEditableSearchDirContainer::create();
  auto chain = ISearchDirChain::create();
  chain->addItem(first);
  chain->addItem(second);
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers;
  std::atomic<size_t> reads{0};
  for (int r = 0; r < 2; ++r) {
    readers.emplace_back([&] {
      while (!stop) {
        auto records = chain->enumerate(scSymbolFiles);
        if (records)
          reads += readAll(records).size() > 0 ? 1 : 0;
      }
    });
  }
  std::thread writer([&] {
    for (int i = 0; i < PER_THREAD; ++i) {
      first->addDirectory(scSymbolFiles, ("/a" + std::to_string(i)).c_str(), false, false);
      second->addDirectory(scSymbolFiles, ("/a" + std::to_string(i) + "/").c_str(), true, false);
      if (i % 50 == 25)
        second->clear(scSymbolFiles);
    }
    chain->addItem(IEditableSearchDirContainer::create());
  });
  writer.join();
  stop = true;
  for (auto &reader : readers)
    reader.join();
  const auto records = readAll(chain->enumerate(scSymbolFiles));
  EXPECT_EQ(records.size(), size_t(PER_THREAD));
  EXPECT_EQ(records.front().name, "/a0");
  EXPECT_TRUE(records.back().recursive); // added to the second container after its last clear
}

TEST(SearchDirConcurrency, PersistentContainerUnderTheUpdateLockLosesNothing) {
  auto storage = platform::createMemoryPropertyStorage();
  std::vector<std::thread> threads;
  for (int t = 0; t < THREADS; ++t) {
    threads.emplace_back([&, t] {
      auto dirs = IPersistentSearchDirContainer::create(storage);
      for (int i = 0; i < 20; ++i) {
        auto lock = storage->lockForUpdate();
        dirs->addDirectory(scSourceFiles, ("/t" + std::to_string(t) + "/" + std::to_string(i)).c_str(), false,
                           false);
      }
    });
  }
  for (auto &thread : threads)
    thread.join();
  auto dirs = IPersistentSearchDirContainer::create(storage);
  EXPECT_EQ(readAll(dirs->enumerate(scSourceFiles)).size(), size_t(THREADS * 20));
}

} // namespace
