// Chains of directory containers and captured directory sets.
#include <gtest/gtest.h>

#include "vell_searchenv/captured_search_dirs.h"
#include "vell_searchenv/dir_records.h"
#include "vell_searchenv/search_dir_chain.h"

namespace {

using namespace VELL_2_13;
using vell_test::DirRecord;
using vell_test::readAll;

ObjectPtr<IEditableSearchDirContainer> containerWith(search_category_t category,
                                                     const std::vector<DirRecord> &records) {
  auto dirs = IEditableSearchDirContainer::create();
  for (const auto &record : records)
    dirs->addDirectory(category, record.name.c_str(), record.recursive, record.highPriority);
  return dirs;
}

TEST(SearchDirChain, DuplicateAcrossItemsKeepsTheFirstPlaceAndMergesFlags) {
  auto chain = ISearchDirChain::create();
  chain->addItem(containerWith(scSymbolFiles, {{"/d", false, false}}));
  chain->addItem(containerWith(scSymbolFiles, {{"/d", true, false}}));
  EXPECT_EQ(readAll(chain->enumerate(scSymbolFiles)), (std::vector<DirRecord>{{"/d", true, false}}));
}

TEST(SearchDirChain, ItemOrderThenOwnOrder) {
  auto chain = ISearchDirChain::create();
  chain->addItem(containerWith(scBinaryFiles, {{"/a", false, false}, {"/d", false, false}}));
  chain->addItem(
      containerWith(scBinaryFiles, {{"/b", false, false}, {"/d/", true, false}, {"/a/.", false, true}}));
  chain->addItem(containerWith(scSourceFiles, {{"/src-only", false, false}}));
  EXPECT_EQ(readAll(chain->enumerate(scBinaryFiles)),
            (std::vector<DirRecord>{{"/a", false, true}, {"/d", true, false}, {"/b", false, false}}));
  EXPECT_EQ(readAll(chain->enumerate(scSourceFiles)), (std::vector<DirRecord>{{"/src-only", false, false}}));
}

TEST(SearchDirChain, NullItemIsRefusedAndTheSameItemMayComeTwice) {
  auto chain = ISearchDirChain::create();
  EXPECT_FALSE(chain->addItem(ObjectPtr<ISearchDirContainer>()));
  auto dirs = containerWith(scBinaryFiles, {{"/a", false, false}, {"/b", true, false}});
  EXPECT_TRUE(chain->addItem(dirs));
  EXPECT_TRUE(chain->addItem(dirs));
  EXPECT_EQ(readAll(chain->enumerate(scBinaryFiles)),
            (std::vector<DirRecord>{{"/a", false, false}, {"/b", true, false}}));
}

TEST(SearchDirChain, NoListForTheCategoryGivesNull) {
  auto chain = ISearchDirChain::create();
  EXPECT_FALSE(chain->enumerate(scBinaryFiles));
  chain->addItem(containerWith(scSymbolFiles, {{"/s", false, false}}));
  EXPECT_FALSE(chain->enumerate(scBinaryFiles));
  EXPECT_FALSE(chain->enumerate(static_cast<search_category_t>(0)));
  // Empty lists contribute no record, so the merge target never gets a list either.
  auto cleared = IEditableSearchDirContainer::create();
  cleared->clear(scBinaryFiles);
  chain->addItem(cleared);
  EXPECT_FALSE(chain->enumerate(scBinaryFiles));
}

TEST(SearchDirChain, IsEvaluatedAfreshAtEveryCall) {
  auto dirs = containerWith(scBinaryFiles, {{"/a", false, false}});
  auto chain = ISearchDirChain::create();
  chain->addItem(dirs);
  auto first = chain->enumerate(scBinaryFiles);
  dirs->addDirectory(scBinaryFiles, "/b", false, false);
  dirs->addDirectory(scBinaryFiles, "/a", true, false);
  EXPECT_EQ(readAll(first), (std::vector<DirRecord>{{"/a", false, false}}));
  EXPECT_EQ(readAll(chain->enumerate(scBinaryFiles)),
            (std::vector<DirRecord>{{"/a", true, false}, {"/b", false, false}}));
}

TEST(SearchDirChain, ChainsNestInChains) {
  auto inner = ISearchDirChain::create();
  inner->addItem(containerWith(scAllFiles, {{"/inner", false, false}}));
  auto outer = ISearchDirChain::create();
  outer->addItem(containerWith(scAllFiles, {{"/outer", false, false}}));
  outer->addItem(inner);
  EXPECT_EQ(readAll(outer->enumerate(scAllFiles)),
            (std::vector<DirRecord>{{"/outer", false, false}, {"/inner", false, false}}));
}

// An environment that only serves directories and records which categories were asked.
class RecordingEnv : public RefCountImpl<ISearchEnv> {
public:
  explicit RecordingEnv(ObjectPtr<ISearchDirContainer> dirs) : m_dirs(dirs) {}
  ObjectPtr<ISearchDirIterator> searchDirs(search_category_t category) override {
    asked.push_back(category);
    return m_dirs->enumerate(category);
  }
  ObjectPtr<ISearchDirIterator> archiveDirs(search_category_t) override { return {}; }
  const char *cacheDir() override { return ""; }
  CallbackHolder<ISearchStartedCallback> &searchStartedCallback() override { return m_started; }
  CallbackHolder<IFilesFoundCallback> &filesFoundCallback() override { return m_found; }
  CallbackHolder<INoFilesFoundCallback> &noFilesFoundCallback() override { return m_notFound; }
  CallbackHolder<IConfidenceLevelPolicyCallback> &confidenceLevelPolicyCallback() override {
    return m_policy;
  }
  ObjectPtr<IEnvironmentInfo> environmentInfo() override { return {}; }
  IFileRetriever *fileRetriever() override { return nullptr; }
  ObjectPtr<ISearchStepsConfigurator> searchStepsConfigurator() const override { return {}; }
  IMessenger *messenger() override { return nullptr; }

  std::vector<search_category_t> asked;

private:
  ObjectPtr<ISearchDirContainer> m_dirs;
  CallbackHolder<ISearchStartedCallback> m_started;
  CallbackHolder<IFilesFoundCallback> m_found;
  CallbackHolder<INoFilesFoundCallback> m_notFound;
  CallbackHolder<IConfidenceLevelPolicyCallback> m_policy;
};

TEST(CapturedSearchDirs, AsksTheCategoriesSourcesSymbolsBinariesAll) {
  ObjectPtr<RecordingEnv> env(new RecordingEnv(containerWith(scBinaryFiles, {{"/b", false, false}})));
  auto captured = ICapturedSearchDirs::create(ObjectPtr<ISearchEnv>(env));
  EXPECT_EQ(env->asked,
            (std::vector<search_category_t>{scSourceFiles, scSymbolFiles, scBinaryFiles, scAllFiles}));
  EXPECT_EQ(readAll(captured->enumerate(scBinaryFiles)), (std::vector<DirRecord>{{"/b", false, false}}));
  EXPECT_FALSE(captured->enumerate(scSourceFiles));
  EXPECT_EQ(env->asked.size(), 4u); // enumerate does not ask again
}

TEST(CapturedSearchDirs, NullEnvironmentGivesNullIterators) {
  auto captured = ICapturedSearchDirs::create(ObjectPtr<ISearchEnv>());
  for (search_category_t category : {scBinaryFiles, scSymbolFiles, scSourceFiles, scAllFiles})
    EXPECT_FALSE(captured->enumerate(category));
}

TEST(CapturedSearchDirs, HandsOutOneSharedIteratorThatIsAFrozenCopy) {
  auto dirs = containerWith(scSymbolFiles, {{"/s1", false, false}, {"/s2", true, true}});
  auto env = IEditableSearchEnv::create();
  env->setSearchDirs(dirs);
  auto captured = ICapturedSearchDirs::create(env);
  dirs->addDirectory(scSymbolFiles, "/s3", false, false);

  auto first = captured->enumerate(scSymbolFiles);
  auto second = captured->enumerate(scSymbolFiles);
  ASSERT_TRUE(first);
  EXPECT_EQ(first.get(), second.get());
  first->reset();
  first->next();
  const char *name = nullptr;
  bool recursive = false;
  bool highPriority = false;
  ASSERT_TRUE(second->getCurrentRecord(name, recursive, highPriority));
  EXPECT_STREQ(name, "/s2"); // the position is shared
  EXPECT_EQ(readAll(second), (std::vector<DirRecord>{{"/s1", false, false}, {"/s2", true, true}}));
}

TEST(CapturedSearchDirs, CanBeAChainItem) {
  auto env = IEditableSearchEnv::create();
  env->setSearchDirs(containerWith(scSourceFiles, {{"/captured", false, false}}));
  auto chain = ISearchDirChain::create();
  chain->addItem(ICapturedSearchDirs::create(env));
  chain->addItem(containerWith(scSourceFiles, {{"/captured/", true, false}, {"/more", false, false}}));
  EXPECT_EQ(readAll(chain->enumerate(scSourceFiles)),
            (std::vector<DirRecord>{{"/captured", true, false}, {"/more", false, false}}));
  // Enumerating again reads the shared iterator again from its start.
  EXPECT_EQ(readAll(chain->enumerate(scSourceFiles)).size(), 2u);
}

} // namespace
