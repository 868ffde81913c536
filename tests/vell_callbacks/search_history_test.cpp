// The search history: keys, replacement, categories, clearing and concurrent use.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "vell/callbacks.h"
#include "vell_callbacks/search_history.h"

using namespace VELL_2_13;

namespace {

SearchHistory &impl(const ObjectPtr<ISearchHistory> &history) {
  return *static_cast<SearchHistory *>(history.get());
}

TEST(SearchHistoryTest, CreateGivesOneReferenceOnAnEmptyHistory) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  ASSERT_TRUE(history);
  EXPECT_EQ(2, history->addRef());
  EXPECT_EQ(1, history->release());
  EXPECT_EQ(0u, impl(history).size(scBinaryFiles));
  EXPECT_EQ(0u, impl(history).size(scSymbolFiles));
  EXPECT_EQ(0u, impl(history).size(scSourceFiles));
}

TEST(SearchHistoryTest, FindOnEmptyHistoryReturnsNull) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  EXPECT_FALSE(history->findBinFileAssociation("a"));
  EXPECT_FALSE(history->findBinFileAssociation(nullptr));
  EXPECT_FALSE(history->findSymFileAssociation("a", "b", "c"));
  EXPECT_FALSE(history->findSrcFileAssociation("a", "b", "c"));
}

TEST(SearchHistoryTest, AddReturnsTheStoredAssociation) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  ObjectPtr<IFileAssociation> added = history->addBinFileAssociation("libx.so", "/opt/libx.so");
  ASSERT_TRUE(added);
  EXPECT_STREQ("/opt/libx.so", added->resolvedName());
  ObjectPtr<IFileAssociation> found = history->findBinFileAssociation("libx.so");
  EXPECT_EQ(added.get(), found.get());
}

TEST(SearchHistoryTest, SecondAddForSameKeyReplacesButOldAssociationKeepsItsName) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  ObjectPtr<IFileAssociation> first = history->addBinFileAssociation("a", "P");
  ObjectPtr<IFileAssociation> second = history->addBinFileAssociation("a", "Q");
  EXPECT_EQ(1u, impl(history).size(scBinaryFiles));
  ObjectPtr<IFileAssociation> found = history->findBinFileAssociation("a");
  ASSERT_TRUE(found);
  EXPECT_STREQ("Q", found->resolvedName());
  EXPECT_EQ(second.get(), found.get());
  EXPECT_STREQ("P", first->resolvedName());
}

TEST(SearchHistoryTest, ReplacedAssociationIsReleasedByTheTable) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  ObjectPtr<IFileAssociation> first = history->addBinFileAssociation("a", "P");
  // Our handle plus the table's.
  EXPECT_EQ(3, first->addRef());
  first->release();
  history->addBinFileAssociation("a", "Q");
  EXPECT_EQ(2, first->addRef()); // only ours is left
  first->release();
}

TEST(SearchHistoryTest, NullNameAndEmptyNameAreTheSameBinaryKey) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addBinFileAssociation("", "/empty");
  ObjectPtr<IFileAssociation> found = history->findBinFileAssociation(nullptr);
  ASSERT_TRUE(found);
  EXPECT_STREQ("/empty", found->resolvedName());

  ObjectPtr<ISearchHistory> other = ISearchHistory::create();
  other->addBinFileAssociation(nullptr, "/null");
  found = other->findBinFileAssociation("");
  ASSERT_TRUE(found);
  EXPECT_STREQ("/null", found->resolvedName());
}

TEST(SearchHistoryTest, NullKeysOfSymbolRequestsAreEmptyStrings) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addSymFileAssociation("a", nullptr, nullptr, "/s");
  ObjectPtr<IFileAssociation> found = history->findSymFileAssociation("a", "", "");
  ASSERT_TRUE(found);
  EXPECT_STREQ("/s", found->resolvedName());
}

TEST(SearchHistoryTest, LetterCaseAndTrailingSlashMakeDifferentEntries) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addBinFileAssociation("/opt/LibX.so", "/upper");
  history->addBinFileAssociation("/opt/libx.so", "/lower");
  history->addBinFileAssociation("/opt/dir", "/noslash");
  history->addBinFileAssociation("/opt/dir/", "/slash");
  EXPECT_EQ(4u, impl(history).size(scBinaryFiles));
  EXPECT_STREQ("/upper", history->findBinFileAssociation("/opt/LibX.so")->resolvedName());
  EXPECT_STREQ("/lower", history->findBinFileAssociation("/opt/libx.so")->resolvedName());
  EXPECT_STREQ("/noslash", history->findBinFileAssociation("/opt/dir")->resolvedName());
  EXPECT_STREQ("/slash", history->findBinFileAssociation("/opt/dir/")->resolvedName());
  EXPECT_FALSE(history->findBinFileAssociation("/OPT/LIBX.SO"));
  EXPECT_FALSE(history->findBinFileAssociation("/opt/./dir"));
}

TEST(SearchHistoryTest, SymbolEntryIsNotFoundBySourceLookupNorWithOtherThirdKey) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addSymFileAssociation("a", "b", "c", "/sym");
  EXPECT_FALSE(history->findSrcFileAssociation("a", "b", "c"));
  EXPECT_FALSE(history->findSymFileAssociation("a", "b", ""));
  EXPECT_FALSE(history->findBinFileAssociation("a"));
  ObjectPtr<IFileAssociation> found = history->findSymFileAssociation("a", "b", "c");
  ASSERT_TRUE(found);
  EXPECT_STREQ("/sym", found->resolvedName());
}

TEST(SearchHistoryTest, SourceTableIsIndependent) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addSrcFileAssociation("main.c", "/bin/x", "sum", "/src/main.c");
  EXPECT_FALSE(history->findSymFileAssociation("main.c", "/bin/x", "sum"));
  ASSERT_TRUE(history->findSrcFileAssociation("main.c", "/bin/x", "sum"));
  EXPECT_STREQ("/src/main.c", history->findSrcFileAssociation("main.c", "/bin/x", "sum")->resolvedName());
}

TEST(SearchHistoryTest, KeysAreComparedStringByStringNotAsConcatenation) {
  // "ab"+"c" and "a"+"bc" concatenate equally but are different keys.
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addSymFileAssociation("ab", "c", "", "/one");
  history->addSymFileAssociation("a", "bc", "", "/two");
  EXPECT_EQ(2u, impl(history).size(scSymbolFiles));
  EXPECT_STREQ("/one", history->findSymFileAssociation("ab", "c", "")->resolvedName());
  EXPECT_STREQ("/two", history->findSymFileAssociation("a", "bc", "")->resolvedName());
}

TEST(SearchHistoryTest, KeyOrderingComparesFirstThenSecondThenThirdBytewise) {
  using Key = SearchHistory::AssociationKey;
  EXPECT_TRUE(Key("a", "z", "z") < Key("b", "a", "a"));
  EXPECT_TRUE(Key("a", "a", "z") < Key("a", "b", "a"));
  EXPECT_TRUE(Key("a", "a", "a") < Key("a", "a", "b"));
  EXPECT_FALSE(Key("a", "a", "a") < Key("a", "a", "a"));
  // Upper-case letters sort before lower-case ones (byte order).
  EXPECT_TRUE(Key("B", "", "") < Key("a", "", ""));
  // A prefix sorts first.
  EXPECT_TRUE(Key("lib", "", "") < Key("libx", "", ""));
  EXPECT_FALSE(Key("libx", "", "") < Key("lib", "", ""));
  // Bytes are compared unsigned: 0xE9 sorts after 'z'.
  EXPECT_TRUE(Key("z", "", "") < Key("\xe9", "", ""));
  // Null is the empty string.
  Key nullKey(nullptr, nullptr, nullptr);
  EXPECT_EQ("", nullKey.first);
  EXPECT_EQ("", nullKey.second);
  EXPECT_EQ("", nullKey.third);
}

TEST(SearchHistoryTest, ClearOfOneCategoryEmptiesOnlyThatTable) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addBinFileAssociation("a", "/a");
  history->addSymFileAssociation("a", "b", "c", "/s");
  history->addSrcFileAssociation("a", "b", "c", "/c");
  history->clear(scSymbolFiles);
  EXPECT_TRUE(history->findBinFileAssociation("a"));
  EXPECT_FALSE(history->findSymFileAssociation("a", "b", "c"));
  EXPECT_TRUE(history->findSrcFileAssociation("a", "b", "c"));
  history->clear(scBinaryFiles);
  EXPECT_FALSE(history->findBinFileAssociation("a"));
  EXPECT_TRUE(history->findSrcFileAssociation("a", "b", "c"));
  history->clear(scSourceFiles);
  EXPECT_FALSE(history->findSrcFileAssociation("a", "b", "c"));
}

TEST(SearchHistoryTest, ClearAllEmptiesAllThreeTables) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addBinFileAssociation("a", "/a");
  history->addSymFileAssociation("a", "b", "c", "/s");
  history->addSrcFileAssociation("a", "b", "c", "/c");
  history->clear(scAllFiles);
  EXPECT_FALSE(history->findBinFileAssociation("a"));
  EXPECT_FALSE(history->findSymFileAssociation("a", "b", "c"));
  EXPECT_FALSE(history->findSrcFileAssociation("a", "b", "c"));
}

TEST(SearchHistoryTest, ClearWithUnknownCategoryChangesNothing) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  history->addBinFileAssociation("a", "/a");
  history->addSymFileAssociation("a", "b", "c", "/s");
  history->addSrcFileAssociation("a", "b", "c", "/c");
  history->clear(search_category_t(0));
  history->clear(search_category_t(5));
  EXPECT_TRUE(history->findBinFileAssociation("a"));
  EXPECT_TRUE(history->findSymFileAssociation("a", "b", "c"));
  EXPECT_TRUE(history->findSrcFileAssociation("a", "b", "c"));
}

TEST(SearchHistoryTest, AssociationTakenBeforeClearStaysValid) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  ObjectPtr<IFileAssociation> kept = history->findBinFileAssociation("a");
  EXPECT_FALSE(kept);
  history->addBinFileAssociation("a", "/kept");
  kept = history->findBinFileAssociation("a");
  history->clear(scAllFiles);
  EXPECT_STREQ("/kept", kept->resolvedName());
}

TEST(SearchHistoryTest, NullResolvedNameResolvesToEmptyString) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  ObjectPtr<IFileAssociation> added = history->addBinFileAssociation("a", nullptr);
  ASSERT_TRUE(added);
  EXPECT_STREQ("", added->resolvedName());
  ObjectPtr<IFileAssociation> found = history->findBinFileAssociation("a");
  ASSERT_TRUE(found);
  EXPECT_STREQ("", found->resolvedName());
  EXPECT_STREQ("", history->addSymFileAssociation("a", "b", "c", nullptr)->resolvedName());
  EXPECT_STREQ("", history->addSrcFileAssociation("a", "b", "c", nullptr)->resolvedName());
}

TEST(SearchHistoryTest, ConcurrentFindsAndAddsStayConsistent) {
  ObjectPtr<ISearchHistory> history = ISearchHistory::create();
  constexpr int kWriters = 2;
  constexpr int kReaders = 3;
  constexpr int kEntries = 40;
  std::atomic<bool> wrongName{false};
  std::vector<std::thread> threads;
  for (int w = 0; w < kWriters; ++w) {
    threads.emplace_back([&, w] {
      for (int i = 0; i < kEntries; ++i) {
        std::string key = "bin" + std::to_string(i);
        history->addBinFileAssociation(key.c_str(), ("/w" + std::to_string(w) + "/" + key).c_str());
        history->addSymFileAssociation(key.c_str(), "b", "c", "/sym");
      }
    });
  }
  for (int r = 0; r < kReaders; ++r) {
    threads.emplace_back([&] {
      for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < kEntries; ++i) {
          std::string key = "bin" + std::to_string(i);
          ObjectPtr<IFileAssociation> found = history->findBinFileAssociation(key.c_str());
          if (found) {
            std::string name = found->resolvedName();
            if (name != "/w0/" + key && name != "/w1/" + key)
              wrongName = true;
          }
          history->findSymFileAssociation(key.c_str(), "b", "c");
        }
      }
    });
  }
  for (std::thread &t : threads)
    t.join();
  EXPECT_FALSE(wrongName);
  EXPECT_EQ(size_t(kEntries), impl(history).size(scBinaryFiles));
  EXPECT_EQ(size_t(kEntries), impl(history).size(scSymbolFiles));
}

} // namespace
