// The search manipulator: default callbacks per key, shared history, setters
// with null keys, search-directory behaviours and registration in a context.
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "vell/callbacks.h"
#include "vell/context.h"
#include "vell_callbacks/callback_fakes.h"
#include "vell_callbacks/search_manipulator.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

SearchManipulator &impl(const ObjectPtr<ISearchManipulator> &manipulator) {
  return *static_cast<SearchManipulator *>(manipulator.get());
}

TEST(SearchManipulatorTest, CreateWithoutContextHasHistoryAndUserDirectories) {
  ObjectPtr<ISearchManipulator> manipulator = ISearchManipulator::create(nullptr);
  ASSERT_TRUE(manipulator);
  ObjectPtr<ISearchHistory> history = manipulator->getHistory();
  ASSERT_TRUE(history);
  EXPECT_EQ(history.get(), manipulator->getHistory().get());
  ObjectPtr<IEditableSearchDirContainer> dirs = manipulator->getUserDefinedSearchDirs();
  ASSERT_TRUE(dirs);
  EXPECT_EQ(dirs.get(), manipulator->getUserDefinedSearchDirs().get());
  EXPECT_TRUE(dirs->addDirectory(scBinaryFiles, "/opt/bin", false, true));
  EXPECT_TRUE(manipulator->getUserDefinedSearchDirs()->enumerate(scBinaryFiles));
  EXPECT_FALSE(impl(manipulator).context());
}

TEST(SearchManipulatorTest, NullKeyChangesNothingAndReturnsZero) {
  ObjectPtr<ISearchManipulator> manipulator = ISearchManipulator::create(nullptr);
  SearchManipulator &m = impl(manipulator);
  RecordingSearchStarted started;
  ChoosingFilesFound found{ObjectPtr<IValidFile>()};
  SupplyingNoFilesFound noFiles{ObjectPtr<IValidFile>()};
  EXPECT_EQ(0, manipulator->setFilesFoundBehavior(nullptr, ffbUpdateHistory));
  EXPECT_EQ(0, manipulator->setSearchStartedBehavior(nullptr, ssbUseHistory));
  EXPECT_EQ(0, manipulator->setNoFilesFoundBehavior(nullptr, nfbUpdateHistory));
  EXPECT_EQ(0, manipulator->setOwnSearchStartedCallback(nullptr, &started));
  EXPECT_EQ(0, manipulator->setOwnFilesFoundCallback(nullptr, &found));
  EXPECT_EQ(0, manipulator->setOwnNoFilesFoundCallback(nullptr, &noFiles));
  EXPECT_EQ(0, manipulator->setSearchDirsBehavior(nullptr, search_dirs_behavior_t(3)));
  // Nothing was created, not even under the empty key.
  EXPECT_EQ(ffbIgnoreHistory, m.getFilesFoundCallback("").behavior());
  EXPECT_EQ(ssbIgnoreHistory, m.getSearchStartedCallback("").behavior());
  EXPECT_EQ(nfbIgnoreHistory, m.getNoFilesFoundCallback("").behavior());
  EXPECT_EQ(sdbDefault, m.getSearchDirsBehavior(""));
  // And the empty key's default callbacks have no own callback.
  StringContainer names;
  EXPECT_TRUE(m.getSearchStartedCallback("").binFileSearchStarted("a", names));
  EXPECT_EQ(0, started.callCount.load());
}

TEST(SearchManipulatorTest, SettersChangeTheDefaultCallbackOfTheirKey) {
  ObjectPtr<ISearchManipulator> manipulator = ISearchManipulator::create(nullptr);
  SearchManipulator &m = impl(manipulator);
  EXPECT_EQ(0, manipulator->setSearchStartedBehavior("k", ssbSuggestFromHistory));
  EXPECT_EQ(0, manipulator->setFilesFoundBehavior("k", ffbUpdateHistory));
  EXPECT_EQ(0, manipulator->setNoFilesFoundBehavior("k", nfbUpdateHistory));
  EXPECT_EQ(ssbSuggestFromHistory, m.getSearchStartedCallback("k").behavior());
  EXPECT_EQ(ffbUpdateHistory, m.getFilesFoundCallback("k").behavior());
  EXPECT_EQ(nfbUpdateHistory, m.getNoFilesFoundCallback("k").behavior());
  // Another key has its own default callbacks.
  EXPECT_EQ(ssbIgnoreHistory, m.getSearchStartedCallback("other").behavior());
  EXPECT_NE(&m.getSearchStartedCallback("k"), &m.getSearchStartedCallback("other"));
  // The same key finds the same object.
  EXPECT_EQ(&m.getFilesFoundCallback("k"), &m.getFilesFoundCallback("k"));
}

TEST(SearchManipulatorTest, AllDefaultCallbacksShareTheManipulatorsHistory) {
  ObjectPtr<ISearchManipulator> manipulator = ISearchManipulator::create(nullptr);
  SearchManipulator &m = impl(manipulator);
  ObjectPtr<ISearchHistory> history = manipulator->getHistory();
  EXPECT_EQ(history.get(), m.getSearchStartedCallback("a").history().get());
  EXPECT_EQ(history.get(), m.getFilesFoundCallback("a").history().get());
  EXPECT_EQ(history.get(), m.getNoFilesFoundCallback("b").history().get());

  // A files-found answer remembered through one key is suggested to the next
  // search started of any key's default callback.
  manipulator->setFilesFoundBehavior("a", ffbUpdateHistory);
  manipulator->setSearchStartedBehavior("b", ssbSuggestFromHistory);
  ListValidFileIterator files({validFile("/found/libx.so")});
  ASSERT_TRUE(m.getFilesFoundCallback("a").binFilesFound("libx.so", files));
  StringContainer names;
  EXPECT_TRUE(m.getSearchStartedCallback("b").binFileSearchStarted("libx.so", names));
  ASSERT_EQ(1u, names.strings().size());
  EXPECT_EQ("/found/libx.so", names.strings().front());
}

TEST(SearchManipulatorTest, OwnCallbacksAreHandedToTheDefaultCallbacks) {
  ObjectPtr<ISearchManipulator> manipulator = ISearchManipulator::create(nullptr);
  SearchManipulator &m = impl(manipulator);
  RecordingSearchStarted started(false);
  ChoosingFilesFound found(validFile("/own"));
  SupplyingNoFilesFound noFiles(validFile("/supplied"));
  EXPECT_EQ(0, manipulator->setOwnSearchStartedCallback("k", &started));
  EXPECT_EQ(0, manipulator->setOwnFilesFoundCallback("k", &found));
  EXPECT_EQ(0, manipulator->setOwnNoFilesFoundCallback("k", &noFiles));

  StringContainer names;
  EXPECT_FALSE(m.getSearchStartedCallback("k").binFileSearchStarted("a", names));
  ListValidFileIterator files({validFile("/x")});
  EXPECT_STREQ("/own", m.getFilesFoundCallback("k").binFilesFound("a", files)->name());
  NullValidator validator;
  EmptyInvalidFileIterator rejected;
  EXPECT_STREQ("/supplied",
               m.getNoFilesFoundCallback("k").noBinFilesFound("a", validator, rejected, files)->name());

  EXPECT_EQ(0, manipulator->setOwnSearchStartedCallback("k", nullptr));
  EXPECT_TRUE(m.getSearchStartedCallback("k").binFileSearchStarted("a", names));
}

TEST(SearchManipulatorTest, SearchDirsBehaviourIsKeptPerKey) {
  ObjectPtr<ISearchManipulator> manipulator = ISearchManipulator::create(nullptr);
  SearchManipulator &m = impl(manipulator);
  EXPECT_EQ(sdbDefault, m.getSearchDirsBehavior("k"));
  EXPECT_EQ(0, manipulator->setSearchDirsBehavior("k", search_dirs_behavior_t(2)));
  EXPECT_EQ(search_dirs_behavior_t(2), m.getSearchDirsBehavior("k"));
  EXPECT_EQ(0, manipulator->setSearchDirsBehavior("k", search_dirs_behavior_t(1)));
  EXPECT_EQ(search_dirs_behavior_t(1), m.getSearchDirsBehavior("k"));
  EXPECT_EQ(sdbDefault, m.getSearchDirsBehavior("other"));
}

TEST(SearchManipulatorTest, ContextManipulatorRegistersEachDefaultCallbackOnceForItsKey) {
  TempDir dir;
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> context = mgr->createFileSystemContext(dir.path().c_str(), true);
  ObjectPtr<ISearchManipulator> manipulator = ISearchManipulator::create(context.get());
  SearchManipulator &m = impl(manipulator);
  ASSERT_TRUE(m.context());
  EXPECT_STREQ(context->getUniqueID(), m.context()->getUniqueID());
  EXPECT_NE(context.get(), m.context().get()); // a copy of the identity

  manipulator->setFilesFoundBehavior("client", ffbUpdateHistory);
  manipulator->setSearchStartedBehavior("client", ssbUseHistory);
  manipulator->setNoFilesFoundBehavior("client", nfbUpdateHistory);
  ObjectPtr<ISearchEnv> env = mgr->createSearchEnv(*context, "client", ObjectPtr<IEnvironmentInfo>());
  EXPECT_EQ(static_cast<ISearchStartedCallback *>(&m.getSearchStartedCallback("client")),
            env->searchStartedCallback().callbackUnlocked());
  EXPECT_EQ(static_cast<IFilesFoundCallback *>(&m.getFilesFoundCallback("client")),
            env->filesFoundCallback().callbackUnlocked());
  EXPECT_EQ(static_cast<INoFilesFoundCallback *>(&m.getNoFilesFoundCallback("client")),
            env->noFilesFoundCallback().callbackUnlocked());

  // A host registration replaces it; later changes through the manipulator
  // do not register the default callback again.
  ChoosingFilesFound host{ObjectPtr<IValidFile>()};
  mgr->registerFilesFoundCallback(*context, "client", &host);
  manipulator->setFilesFoundBehavior("client", ffbIgnoreHistory);
  ObjectPtr<ISearchEnv> later = mgr->createSearchEnv(*context, "client", ObjectPtr<IEnvironmentInfo>());
  EXPECT_EQ(static_cast<IFilesFoundCallback *>(&host), later->filesFoundCallback().callbackUnlocked());

  // Another client sees none of them.
  ObjectPtr<ISearchEnv> other = mgr->createSearchEnv(*context, "other", ObjectPtr<IEnvironmentInfo>());
  EXPECT_FALSE(other->searchStartedCallback().hasCallback());
  EXPECT_FALSE(other->filesFoundCallback().hasCallback());
}

TEST(SearchManipulatorTest, DefaultCallbacksDieWithTheManipulatorAndEnvironmentsForgetThem) {
  TempDir dir;
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> context = mgr->createFileSystemContext(dir.path().c_str(), true);
  ObjectPtr<ISearchManipulator> manipulator = ISearchManipulator::create(context.get());
  manipulator->setSearchStartedBehavior("client", ssbUseHistory);
  ObjectPtr<ISearchEnv> env = mgr->createSearchEnv(*context, "client", ObjectPtr<IEnvironmentInfo>());
  EXPECT_TRUE(env->searchStartedCallback().hasCallback());
  manipulator.release();
  EXPECT_FALSE(env->searchStartedCallback().hasCallback());
  ObjectPtr<ISearchEnv> later = mgr->createSearchEnv(*context, "client", ObjectPtr<IEnvironmentInfo>());
  EXPECT_FALSE(later->searchStartedCallback().hasCallback());
}

TEST(SearchManipulatorTest, ManipulatorKeepsTheManagerAndItsRegistrationsAlive) {
  TempDir dir;
  ObjectPtr<ISearchManipulator> manipulator;
  std::string id;
  {
    ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
    ObjectPtr<IResolutionContext> context = mgr->createFileSystemContext(dir.path().c_str(), true);
    id = context->getUniqueID();
    manipulator = ISearchManipulator::create(context.get());
  }
  manipulator->setFilesFoundBehavior("client", ffbUpdateHistory);
  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  BasicResolutionContext *raw = new BasicResolutionContext(id.c_str());
  ObjectPtr<IResolutionContext> context(raw);
  ObjectPtr<ISearchEnv> env = mgr->createSearchEnv(*context, "client", ObjectPtr<IEnvironmentInfo>());
  EXPECT_EQ(static_cast<IFilesFoundCallback *>(&impl(manipulator).getFilesFoundCallback("client")),
            env->filesFoundCallback().callbackUnlocked());
}

} // namespace
