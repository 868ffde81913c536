// Search environments assembled along the inheritance chain: directories child
// first in key order, archive directories, the per-client values with their
// default-client rules, capture and release, and archiving.
#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell_callbacks/callback_fakes.h"
#include "vell_context/context_fakes.h"
#include "vell_context/resolution_context_mgr.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

constexpr int kInfo = 20000;

// A manager and three contexts child -> parent -> grandparent with unique identities.
class SearchEnvBuilderTest : public ::testing::Test {
protected:
  SearchEnvBuilderTest()
      : mgr(IResolutionContextMgr::create()), child(context("child")), parent(context("parent")),
        grandparent(context("grandparent")) {
    mgr->addInheritance(*child, *parent);
    mgr->addInheritance(*parent, *grandparent);
  }

  ObjectPtr<IResolutionContext> context(const std::string &name) {
    return ObjectPtr<IResolutionContext>(new BasicResolutionContext((root.path() + "/" + name).c_str()));
  }

  ObjectPtr<ISearchEnv> env(const char *clientId,
                            ObjectPtr<IEnvironmentInfo> info = ObjectPtr<IEnvironmentInfo>()) {
    return mgr->createSearchEnv(*child, clientId, info);
  }

  IMetadata &metadata(IResolutionContext &ctx) {
    return *static_cast<ResolutionContextMgr *>(mgr.get())->getMetadataForContext(ctx);
  }

  TempDir root;
  ObjectPtr<IResolutionContextMgr> mgr;
  ObjectPtr<IResolutionContext> child;
  ObjectPtr<IResolutionContext> parent;
  ObjectPtr<IResolutionContext> grandparent;
};

// --- Search directories ----------------------------------------------------------------

TEST_F(SearchEnvBuilderTest, ChildWithoutDirectoriesListsTheParentsAndLaterChildDirectoriesComeFirst) {
  mgr->registerSearchDirs(*parent, containerWith(scBinaryFiles, {"/p/b1"}), "b");
  mgr->registerSearchDirs(*parent, containerWith(scBinaryFiles, {"/p/a1", "/p/a2"}), "a");
  ObjectPtr<ISearchEnv> e = env("client");
  EXPECT_EQ((std::vector<std::string>{"/p/a1", "/p/a2", "/p/b1"}), listDirs(e->searchDirs(scBinaryFiles)));

  mgr->registerSearchDirs(*child, containerWith(scBinaryFiles, {"/c/1"}), "z");
  EXPECT_EQ((std::vector<std::string>{"/c/1", "/p/a1", "/p/a2", "/p/b1"}),
            listDirs(e->searchDirs(scBinaryFiles)));
}

TEST_F(SearchEnvBuilderTest, LevelsAreWalkedChildFirstAndKeysInByteOrderWithinALevel) {
  mgr->registerSearchDirs(*grandparent, containerWith(scSourceFiles, {"/g"}), "a");
  mgr->registerSearchDirs(*parent, containerWith(scSourceFiles, {"/p"}), "a");
  mgr->registerSearchDirs(*child, containerWith(scSourceFiles, {"/c/b"}), "b");
  mgr->registerSearchDirs(*child, containerWith(scSourceFiles, {"/c/B"}), "B");
  mgr->registerSearchDirs(*child, containerWith(scSourceFiles, {"/c/hidden"}), " hidden_result_dir_key");
  EXPECT_EQ((std::vector<std::string>{"/c/hidden", "/c/B", "/c/b", "/p", "/g"}),
            listDirs(env("client")->searchDirs(scSourceFiles)));
  // Without a client id the directories are the same.
  EXPECT_EQ((std::vector<std::string>{"/c/hidden", "/c/B", "/c/b", "/p", "/g"}),
            listDirs(env(nullptr)->searchDirs(scSourceFiles)));
}

TEST_F(SearchEnvBuilderTest, DuplicatesAcrossLevelsKeepTheChildsPlaceAndMergeFlags) {
  ObjectPtr<IEditableSearchDirContainer> childDirs = IEditableSearchDirContainer::create();
  childDirs->addDirectory(scSymbolFiles, "/shared", false, false);
  ObjectPtr<IEditableSearchDirContainer> parentDirs = IEditableSearchDirContainer::create();
  parentDirs->addDirectory(scSymbolFiles, "/p", false, false);
  parentDirs->addDirectory(scSymbolFiles, "/shared/", true, true);
  mgr->registerSearchDirs(*child, childDirs, "k");
  mgr->registerSearchDirs(*parent, parentDirs, "k");
  EXPECT_EQ((std::vector<std::string>{"/shared:r:p", "/p"}), listDirs(env("c")->searchDirs(scSymbolFiles)));
}

TEST_F(SearchEnvBuilderTest, CapturedDirectoriesAreFrozenForTheirClientOnly) {
  ObjectPtr<IEditableSearchDirContainer> dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scBinaryFiles, "/before", false, true);
  mgr->registerSearchDirs(*child, dirs, "k");
  mgr->captureSearchDirs(*child, "A");
  dirs->addDirectory(scBinaryFiles, "/added/to/container", false, true);
  mgr->registerSearchDirs(*child, containerWith(scBinaryFiles, {"/new/key"}), "l");

  EXPECT_EQ(std::vector<std::string>{"/before:p"}, listDirs(env("A")->searchDirs(scBinaryFiles)));
  EXPECT_EQ((std::vector<std::string>{"/before:p", "/added/to/container:p", "/new/key"}),
            listDirs(env("B")->searchDirs(scBinaryFiles)));
  // Without a client id nothing is captured.
  EXPECT_EQ(3u, listDirs(env(nullptr)->searchDirs(scBinaryFiles)).size());

  mgr->releaseSearchDirs(*child, "A");
  EXPECT_EQ((std::vector<std::string>{"/before:p", "/added/to/container:p", "/new/key"}),
            listDirs(env("A")->searchDirs(scBinaryFiles)));
}

TEST_F(SearchEnvBuilderTest, CaptureInAParentFreezesThatLevelAndTheOnesAboveIt) {
  mgr->registerSearchDirs(*grandparent, containerWith(scAllFiles, {"/g/1"}), "k");
  mgr->registerSearchDirs(*parent, containerWith(scAllFiles, {"/p/1"}), "k");
  mgr->captureSearchDirs(*parent, "A");
  mgr->registerSearchDirs(*grandparent, containerWith(scAllFiles, {"/g/2"}), "l");
  mgr->registerSearchDirs(*parent, containerWith(scAllFiles, {"/p/2"}), "l");
  mgr->registerSearchDirs(*child, containerWith(scAllFiles, {"/c/1"}), "k");
  EXPECT_EQ((std::vector<std::string>{"/c/1", "/p/1", "/g/1"}), listDirs(env("A")->searchDirs(scAllFiles)));
  EXPECT_EQ((std::vector<std::string>{"/c/1", "/p/1", "/p/2", "/g/1", "/g/2"}),
            listDirs(env("B")->searchDirs(scAllFiles)));
}

TEST_F(SearchEnvBuilderTest, CapturingAgainReplacesTheFrozenDirectories) {
  mgr->registerSearchDirs(*child, containerWith(scAllFiles, {"/1"}), "a");
  mgr->captureSearchDirs(*child, "A");
  mgr->registerSearchDirs(*child, containerWith(scAllFiles, {"/2"}), "b");
  mgr->captureSearchDirs(*child, "A");
  mgr->registerSearchDirs(*child, containerWith(scAllFiles, {"/3"}), "c");
  EXPECT_EQ((std::vector<std::string>{"/1", "/2"}), listDirs(env("A")->searchDirs(scAllFiles)));
}

// --- Archive directories -----------------------------------------------------------------

TEST_F(SearchEnvBuilderTest, ArchiveDirectoriesOfAllLevelsAccumulatePerCategory) {
  mgr->registerArchiveDir(*child, "/c/archive");
  mgr->registerArchiveDir(*grandparent, "/g/archive");
  for (const char *client : {"client", static_cast<const char *>(nullptr)}) {
    ObjectPtr<ISearchEnv> e = env(client);
    EXPECT_EQ((std::vector<std::string>{"/c/archive/binaries:r:p", "/g/archive/binaries:r:p"}),
              listDirs(e->archiveDirs(scBinaryFiles)));
    EXPECT_EQ((std::vector<std::string>{"/c/archive/symbols:r:p", "/g/archive/symbols:r:p"}),
              listDirs(e->archiveDirs(scSymbolFiles)));
    EXPECT_EQ((std::vector<std::string>{"/c/archive/sources:r:p", "/g/archive/sources:r:p"}),
              listDirs(e->archiveDirs(scSourceFiles)));
    EXPECT_EQ((std::vector<std::string>{"/c/archive/all:r:p", "/g/archive/all:r:p"}),
              listDirs(e->archiveDirs(scAllFiles)));
  }
}

TEST_F(SearchEnvBuilderTest, NoArchiveDirectoryGivesNoArchiveDirs) {
  ObjectPtr<ISearchEnv> e = env("client");
  EXPECT_FALSE(e->archiveDirs(scBinaryFiles));
  EXPECT_FALSE(e->searchDirs(scBinaryFiles));
  EXPECT_STREQ("", e->cacheDir());
}

// --- Callbacks ---------------------------------------------------------------------------

TEST_F(SearchEnvBuilderTest, DefaultClientServesNoFilesFoundAndConfidencePolicyButNotTheOtherTwo) {
  RecordingSearchStarted started;
  ChoosingFilesFound found{ObjectPtr<IValidFile>()};
  SupplyingNoFilesFound noFiles{ObjectPtr<IValidFile>()};
  FixedConfidencePolicy policy;
  mgr->registerSearchStartedCallback(*child, "", &started);
  mgr->registerFilesFoundCallback(*child, "", &found);
  mgr->registerNoFilesFoundCallback(*child, "", &noFiles);
  mgr->registerConfidenceLevelPolicyCallback(*child, "", &policy);

  ObjectPtr<ISearchEnv> e = env("client");
  EXPECT_FALSE(e->searchStartedCallback().hasCallback());
  EXPECT_FALSE(e->filesFoundCallback().hasCallback());
  EXPECT_EQ(&noFiles, e->noFilesFoundCallback().callbackUnlocked());
  EXPECT_EQ(&policy, e->confidenceLevelPolicyCallback().callbackUnlocked());

  // The default client itself gets all four.
  ObjectPtr<ISearchEnv> d = env("");
  EXPECT_EQ(&started, d->searchStartedCallback().callbackUnlocked());
  EXPECT_EQ(&found, d->filesFoundCallback().callbackUnlocked());

  // A null client id gets none.
  ObjectPtr<ISearchEnv> n = env(nullptr);
  EXPECT_FALSE(n->searchStartedCallback().hasCallback());
  EXPECT_FALSE(n->filesFoundCallback().hasCallback());
  EXPECT_FALSE(n->noFilesFoundCallback().hasCallback());
  EXPECT_FALSE(n->confidenceLevelPolicyCallback().hasCallback());
}

TEST_F(SearchEnvBuilderTest, OwnCallbacksWinOverTheDefaultClientsAtTheSameLevel) {
  SupplyingNoFilesFound ownNoFiles{ObjectPtr<IValidFile>()}, defaultNoFiles{ObjectPtr<IValidFile>()};
  FixedConfidencePolicy ownPolicy, defaultPolicy;
  mgr->registerNoFilesFoundCallback(*child, "", &defaultNoFiles);
  mgr->registerNoFilesFoundCallback(*child, "client", &ownNoFiles);
  mgr->registerConfidenceLevelPolicyCallback(*child, "", &defaultPolicy);
  mgr->registerConfidenceLevelPolicyCallback(*child, "client", &ownPolicy);
  ObjectPtr<ISearchEnv> e = env("client");
  EXPECT_EQ(&ownNoFiles, e->noFilesFoundCallback().callbackUnlocked());
  EXPECT_EQ(&ownPolicy, e->confidenceLevelPolicyCallback().callbackUnlocked());
}

TEST_F(SearchEnvBuilderTest, NearestLevelWinsAndAChildsDefaultBeatsAParentsOwn) {
  RecordingSearchStarted childStarted, parentStarted;
  ChoosingFilesFound parentFound{ObjectPtr<IValidFile>()};
  SupplyingNoFilesFound childDefaultNoFiles{ObjectPtr<IValidFile>()},
      parentOwnNoFiles{ObjectPtr<IValidFile>()};
  FixedConfidencePolicy grandparentPolicy;
  mgr->registerSearchStartedCallback(*child, "client", &childStarted);
  mgr->registerSearchStartedCallback(*parent, "client", &parentStarted);
  mgr->registerFilesFoundCallback(*parent, "client", &parentFound);
  mgr->registerNoFilesFoundCallback(*child, "", &childDefaultNoFiles);
  mgr->registerNoFilesFoundCallback(*parent, "client", &parentOwnNoFiles);
  mgr->registerConfidenceLevelPolicyCallback(*grandparent, "", &grandparentPolicy);
  ObjectPtr<ISearchEnv> e = env("client");
  EXPECT_EQ(&childStarted, e->searchStartedCallback().callbackUnlocked());
  EXPECT_EQ(&parentFound, e->filesFoundCallback().callbackUnlocked());
  EXPECT_EQ(&childDefaultNoFiles, e->noFilesFoundCallback().callbackUnlocked());
  EXPECT_EQ(&grandparentPolicy, e->confidenceLevelPolicyCallback().callbackUnlocked());
}

// --- Retriever, configurator, messenger, environment info, cache directory ------------------

TEST_F(SearchEnvBuilderTest, RetrieverIsTheClientsThenTheDefaultOneAndReceivesTheEnvironmentInfo) {
  RecordingRetriever defaultRetriever, parentRetriever;
  mgr->registerFileRetriever(*child, "", &defaultRetriever);
  mgr->registerFileRetriever(*parent, "client", &parentRetriever);
  ObjectPtr<IEditableEnvironmentInfo> info = IEditableEnvironmentInfo::create();
  info->setKernelRelease("6.1.0");
  ObjectPtr<ISearchEnv> e = env("client", info);
  // The child's default retriever is met before the parent's own one.
  EXPECT_EQ(&defaultRetriever, e->fileRetriever());
  EXPECT_EQ(1, defaultRetriever.environmentInfoCalls);
  EXPECT_EQ(static_cast<IEnvironmentInfo *>(info.get()), defaultRetriever.lastInfo.get());
  EXPECT_EQ(0, parentRetriever.environmentInfoCalls);

  RecordingRetriever ownRetriever;
  mgr->registerFileRetriever(*child, "client", &ownRetriever);
  e = env("client");
  EXPECT_EQ(&ownRetriever, e->fileRetriever());
  EXPECT_EQ(1, ownRetriever.environmentInfoCalls);
  EXPECT_FALSE(ownRetriever.lastInfo);

  EXPECT_EQ(nullptr, env(nullptr)->fileRetriever());
}

TEST_F(SearchEnvBuilderTest, RetrieverOfAParentIsUsedWhenNoNearerLevelHasOne) {
  RecordingRetriever grandparentRetriever;
  ObjectPtr<IEditableEnvironmentInfo> registered = IEditableEnvironmentInfo::create();
  mgr->registerFileRetriever(*grandparent, "client", &grandparentRetriever);
  mgr->registerEnvironmentInfo(*parent, "client", registered);
  ObjectPtr<ISearchEnv> e = env("client");
  EXPECT_EQ(&grandparentRetriever, e->fileRetriever());
  // It receives the environment info the environment carries.
  EXPECT_EQ(static_cast<IEnvironmentInfo *>(registered.get()), grandparentRetriever.lastInfo.get());
  EXPECT_EQ(e->environmentInfo().get(), grandparentRetriever.lastInfo.get());
}

TEST_F(SearchEnvBuilderTest, ConfiguratorIsTheClientsThenTheDefaultOneNearestFirst) {
  ObjectPtr<ISearchStepsConfigurator> defaultOne(new DefaultSearchStepsConfigurator());
  ObjectPtr<ISearchStepsConfigurator> own(new DefaultSearchStepsConfigurator());
  ObjectPtr<ISearchStepsConfigurator> parentOwn(new DefaultSearchStepsConfigurator());
  mgr->registerSearchStepsConfigurator(*parent, "client", parentOwn);
  EXPECT_EQ(parentOwn.get(), env("client")->searchStepsConfigurator().get());
  mgr->registerSearchStepsConfigurator(*child, "", defaultOne);
  EXPECT_EQ(defaultOne.get(), env("client")->searchStepsConfigurator().get());
  mgr->registerSearchStepsConfigurator(*child, "client", own);
  EXPECT_EQ(own.get(), env("client")->searchStepsConfigurator().get());
  EXPECT_FALSE(env(nullptr)->searchStepsConfigurator());
}

TEST_F(SearchEnvBuilderTest, MessengerIsTheClientsThenTheDefaultOneNearestFirst) {
  int a = 0, b = 0, c = 0;
  mgr->registerMessenger(*grandparent, "client", fakeMessenger(a));
  EXPECT_EQ(fakeMessenger(a), env("client")->messenger());
  mgr->registerMessenger(*parent, "", fakeMessenger(b));
  EXPECT_EQ(fakeMessenger(b), env("client")->messenger());
  mgr->registerMessenger(*parent, "client", fakeMessenger(c));
  EXPECT_EQ(fakeMessenger(c), env("client")->messenger());
  EXPECT_EQ(nullptr, env(nullptr)->messenger());
}

TEST_F(SearchEnvBuilderTest, EnvironmentInfoArgumentWinsThenClientThenDefault) {
  ObjectPtr<IEditableEnvironmentInfo> argument = IEditableEnvironmentInfo::create();
  ObjectPtr<IEditableEnvironmentInfo> own = IEditableEnvironmentInfo::create();
  ObjectPtr<IEditableEnvironmentInfo> fallback = IEditableEnvironmentInfo::create();
  mgr->registerEnvironmentInfo(*child, "", fallback);
  EXPECT_EQ(static_cast<IEnvironmentInfo *>(fallback.get()), env("client")->environmentInfo().get());
  mgr->registerEnvironmentInfo(*parent, "client", own);
  EXPECT_EQ(static_cast<IEnvironmentInfo *>(fallback.get()), env("client")->environmentInfo().get());
  mgr->registerEnvironmentInfo(*child, "client", own);
  EXPECT_EQ(static_cast<IEnvironmentInfo *>(own.get()), env("client")->environmentInfo().get());
  EXPECT_EQ(static_cast<IEnvironmentInfo *>(argument.get()),
            env("client", argument)->environmentInfo().get());
  // A null client id carries only the caller's info.
  EXPECT_FALSE(env(nullptr)->environmentInfo());
  EXPECT_EQ(static_cast<IEnvironmentInfo *>(argument.get()), env(nullptr, argument)->environmentInfo().get());
}

TEST_F(SearchEnvBuilderTest, CacheDirectoryIsTheNearestNonEmptyOneAndNoneWithoutClient) {
  mgr->registerCacheDir(*grandparent, "/g/cache");
  EXPECT_STREQ("/g/cache", env("client")->cacheDir());
  mgr->registerCacheDir(*parent, "/p/cache");
  EXPECT_STREQ("/p/cache", env("any")->cacheDir());
  mgr->registerCacheDir(*child, "");
  EXPECT_STREQ("/p/cache", env("client")->cacheDir());
  EXPECT_STREQ("", env(nullptr)->cacheDir());
}

TEST_F(SearchEnvBuilderTest, CreateSearchEnvIsLoggedWithContextAndClient) {
  LogCapture log;
  env("client");
  env(nullptr);
  const std::string id = child->getUniqueID();
  EXPECT_EQ((std::vector<std::string>{"Context: " + id + " ClientId: client",
                                      "Context: " + id + " ClientId: NULL"}),
            log.texts(kInfo));
}

TEST_F(SearchEnvBuilderTest, CreateFileSearchRunsOverTheContextsEnvironment) {
  const std::string dir = root.mkdir("bin");
  root.write("bin/tool", "binary");
  mgr->registerSearchDirs(*parent, containerWith(scBinaryFiles, {dir}), "k");
  ObjectPtr<IFileSearch> search = mgr->createFileSearch(*child, "client", ObjectPtr<IEnvironmentInfo>());
  ASSERT_TRUE(search);
  ObjectPtr<IValidFile> found = search->findBinFile("tool", nullptr, nullptr, 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(dir + "/tool", found->name());
}

// --- Archiving ---------------------------------------------------------------------------

TEST_F(SearchEnvBuilderTest, ArchiveFileWithoutArchiveDirectoryReturnsEight) {
  const std::string file = root.write("lib.so", "content");
  EXPECT_EQ(8u, mgr->archiveFile(*child, file.c_str(), scBinaryFiles));
}

TEST_F(SearchEnvBuilderTest, ArchiveFileUsesTheNearestArchiveDirectoryAndTheCategorysSubdirectory) {
  const std::string file = root.write("in/lib.so", "content");
  const std::string parentArchive = root.sub("parent-archive");
  const std::string childArchive = root.sub("child-archive");
  mgr->registerArchiveDir(*grandparent, root.sub("unused").c_str());
  mgr->registerArchiveDir(*parent, parentArchive.c_str());
  EXPECT_EQ(0u, mgr->archiveFile(*child, file.c_str(), scSymbolFiles));
  EXPECT_TRUE(boost::filesystem::is_directory(parentArchive + "/symbols/lib.so"));
  EXPECT_EQ(6u, mgr->archiveFile(*child, file.c_str(), scSymbolFiles));
  EXPECT_FALSE(boost::filesystem::exists(root.sub("unused")));

  mgr->registerArchiveDir(*child, childArchive.c_str());
  EXPECT_EQ(0u, mgr->archiveFile(*child, file.c_str(), search_category_t(9)));
  EXPECT_TRUE(boost::filesystem::is_directory(childArchive + "/all/lib.so"));
  EXPECT_TRUE(boost::filesystem::exists(file)); // copied, not moved
}

TEST_F(SearchEnvBuilderTest, ArchiveFileOfAnUnreadableFileReportsTheArchivingStatus) {
  mgr->registerArchiveDir(*child, root.sub("archive").c_str());
  EXPECT_EQ(3u, mgr->archiveFile(*child, root.sub("missing.so").c_str(), scBinaryFiles));
}

} // namespace
