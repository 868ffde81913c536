// The editable search environment and the environment info.
#include <gtest/gtest.h>

#include "vell_searchenv/dir_records.h"
#include "vell_searchenv/editable_environment_info.h"
#include "vell_searchenv/editable_search_dir_container.h"
#include "vell_searchenv/editable_search_env.h"

namespace {

using namespace VELL_2_13;
using vell_test::DirRecord;
using vell_test::readAll;

const search_category_t CATEGORIES[] = {
    static_cast<search_category_t>(0), scBinaryFiles, scSymbolFiles, scSourceFiles, scAllFiles,
    static_cast<search_category_t>(5)};

class StartedCallback : public ISearchStartedCallback {
public:
  bool binFileSearchStarted(const char *, IStringContainer &) override { return true; }
  bool symFileSearchStarted(const char *, const char *, const char *, IStringContainer &) override {
    return true;
  }
  bool srcFileSearchStarted(const char *, const char *, const char *, IStringContainer &) override {
    return true;
  }
};

class FoundCallback : public IFilesFoundCallback {
public:
  ObjectPtr<IValidFile> binFilesFound(const char *, IValidFileIterator &) override { return {}; }
  ObjectPtr<IValidFile> symFilesFound(const char *, const char *, const char *,
                                      IValidFileIterator &) override {
    return {};
  }
  ObjectPtr<IValidFile> srcFilesFound(const char *, const char *, const char *,
                                      IValidFileIterator &) override {
    return {};
  }
};

class NotFoundCallback : public INoFilesFoundCallback {
public:
  ObjectPtr<IValidFile> noBinFilesFound(const char *, IValidator &, IInvalidFileIterator &,
                                        IValidFileIterator &) override {
    return {};
  }
  ObjectPtr<IValidFile> noSymFilesFound(const char *, const char *, const char *, IValidator &,
                                        IInvalidFileIterator &, IValidFileIterator &) override {
    return {};
  }
  ObjectPtr<IValidFile> noSrcFilesFound(const char *, const char *, const char *, IValidator &,
                                        IInvalidFileIterator &, IValidFileIterator &) override {
    return {};
  }
};

class PolicyCallback : public IConfidenceLevelPolicyCallback {
public:
  confidence_t getConfidenceLevel(search_category_t, unsigned int) override { return confidence_t(); }
};

int refCountOf(IVellObject *object) { return dynamic_cast<EditableSearchDirContainer *>(object)->refCount(); }

TEST(SearchEnv, NewEnvironmentIsEmpty) {
  auto env = IEditableSearchEnv::create();
  for (search_category_t category : CATEGORIES) {
    EXPECT_FALSE(env->searchDirs(category));
    EXPECT_FALSE(env->archiveDirs(category));
  }
  ASSERT_NE(env->cacheDir(), nullptr);
  EXPECT_STREQ(env->cacheDir(), "");
  EXPECT_FALSE(env->environmentInfo());
  EXPECT_FALSE(env->searchStepsConfigurator());
  EXPECT_EQ(env->fileRetriever(), nullptr);
  EXPECT_EQ(env->messenger(), nullptr);
  EXPECT_FALSE(env->searchStartedCallback().hasCallback());
  EXPECT_FALSE(env->filesFoundCallback().hasCallback());
  EXPECT_FALSE(env->noFilesFoundCallback().hasCallback());
  EXPECT_FALSE(env->confidenceLevelPolicyCallback().hasCallback());
}

TEST(SearchEnv, DirectoriesComeFreshFromTheirContainers) {
  auto env = IEditableSearchEnv::create();
  auto dirs = IEditableSearchDirContainer::create();
  auto archives = IEditableSearchDirContainer::create();
  dirs->addDirectory(scBinaryFiles, "/bin-dir", true, false);
  archives->addDirectory(scBinaryFiles, "/archive", false, false);
  env->setSearchDirs(dirs);
  env->setArchiveDirs(archives);
  auto first = env->searchDirs(scBinaryFiles);
  auto second = env->searchDirs(scBinaryFiles);
  EXPECT_NE(first.get(), second.get());
  EXPECT_EQ(readAll(first), (std::vector<DirRecord>{{"/bin-dir", true, false}}));
  EXPECT_EQ(readAll(env->archiveDirs(scBinaryFiles)), (std::vector<DirRecord>{{"/archive", false, false}}));
  EXPECT_FALSE(env->searchDirs(scSymbolFiles));
  // A later change of the shared container is visible to the environment.
  dirs->addDirectory(scSymbolFiles, "/sym", false, false);
  EXPECT_EQ(readAll(env->searchDirs(scSymbolFiles)), (std::vector<DirRecord>{{"/sym", false, false}}));
}

TEST(SearchEnv, PointerSettersTakeAndReleaseReferences) {
  auto env = IEditableSearchEnv::create();
  auto dirs = IEditableSearchDirContainer::create();
  EXPECT_EQ(refCountOf(dirs.get()), 1);
  env->setSearchDirs(dirs);
  EXPECT_EQ(refCountOf(dirs.get()), 2);
  env->setSearchDirs(dirs);
  EXPECT_EQ(refCountOf(dirs.get()), 2);
  env->setSearchDirs(ObjectPtr<ISearchDirContainer>());
  EXPECT_EQ(refCountOf(dirs.get()), 1);
  EXPECT_FALSE(env->searchDirs(scBinaryFiles));

  env->setArchiveDirs(dirs);
  auto other = IEditableSearchDirContainer::create();
  env->setArchiveDirs(other);
  EXPECT_EQ(refCountOf(dirs.get()), 1);
  EXPECT_EQ(refCountOf(other.get()), 2);
  env = ObjectPtr<IEditableSearchEnv>();
  EXPECT_EQ(refCountOf(other.get()), 1);
}

TEST(SearchEnv, CacheDirIgnoresNull) {
  auto env = IEditableSearchEnv::create();
  env->setCacheDir("/var/cache/vell");
  env->setCacheDir(nullptr);
  EXPECT_STREQ(env->cacheDir(), "/var/cache/vell");
  env->setCacheDir("");
  EXPECT_STREQ(env->cacheDir(), "");
}

TEST(SearchEnv, InfoConfiguratorRetrieverAndMessengerAreStored) {
  auto env = IEditableSearchEnv::create();
  auto info = IEditableEnvironmentInfo::create();
  env->setEnvironmentInfo(info);
  EXPECT_EQ(env->environmentInfo().get(), info.get());
  env->setEnvironmentInfo(ObjectPtr<IEnvironmentInfo>());
  EXPECT_FALSE(env->environmentInfo());

  ObjectPtr<ISearchStepsConfigurator> configurator(new DefaultSearchStepsConfigurator());
  env->setSearchStepsConfigurator(configurator);
  EXPECT_EQ(env->searchStepsConfigurator().get(), configurator.get());

  auto *retriever = reinterpret_cast<IFileRetriever *>(0x1000);
  env->setFileRetriever(retriever);
  EXPECT_EQ(env->fileRetriever(), retriever);
  auto *messenger = reinterpret_cast<IMessenger *>(0x2000);
  env->setMessenger(messenger);
  EXPECT_EQ(env->messenger(), messenger);
  env->setFileRetriever(nullptr);
  env->setMessenger(nullptr);
  EXPECT_EQ(env->fileRetriever(), nullptr);
  EXPECT_EQ(env->messenger(), nullptr);
}

TEST(SearchEnv, CallbackHoldersAreTheStoredOnesAndFollowTheCallbacks) {
  auto env = IEditableSearchEnv::create();
  StartedCallback started;
  FoundCallback found;
  NotFoundCallback notFound;
  PolicyCallback policy;
  env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&started));
  env->setFilesFoundCallback(CallbackHolder<IFilesFoundCallback>(&found));
  env->setNoFilesFoundCallback(CallbackHolder<INoFilesFoundCallback>(&notFound));
  env->setConfidenceLevelPolicyCallback(CallbackHolder<IConfidenceLevelPolicyCallback>(&policy));
  EXPECT_EQ(&env->searchStartedCallback(), &env->searchStartedCallback());
  EXPECT_EQ(env->searchStartedCallback().callbackUnlocked(), &started);
  EXPECT_EQ(env->filesFoundCallback().callbackUnlocked(), &found);
  EXPECT_EQ(env->noFilesFoundCallback().callbackUnlocked(), &notFound);
  EXPECT_EQ(env->confidenceLevelPolicyCallback().callbackUnlocked(), &policy);
  {
    CallbackAccessor<ISearchStartedCallback> access(env->searchStartedCallback());
    ASSERT_TRUE(access);
    EXPECT_EQ(access.get(), &started);
  }
}

TEST(SearchEnv, DestroyedCallbackIsForgottenByTheEnvironment) {
  auto env = IEditableSearchEnv::create();
  {
    StartedCallback started;
    env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&started));
    EXPECT_TRUE(env->searchStartedCallback().hasCallback());
  }
  EXPECT_FALSE(env->searchStartedCallback().hasCallback());
  CallbackAccessor<ISearchStartedCallback> access(env->searchStartedCallback());
  EXPECT_FALSE(access);
}

TEST(SearchEnv, ReplacedCallbackNoLongerReachesTheEnvironment) {
  auto env = IEditableSearchEnv::create();
  StartedCallback second;
  {
    StartedCallback first;
    env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&first));
    env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&second));
  }
  EXPECT_EQ(env->searchStartedCallback().callbackUnlocked(), &second);
  env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>());
  EXPECT_FALSE(env->searchStartedCallback().hasCallback());
}

TEST(SearchEnv, EnvironmentDyingBeforeItsCallbackUnregisters) {
  StartedCallback started;
  {
    auto env = IEditableSearchEnv::create();
    env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&started));
  }
  // The callback's destruction at the end of the test must not touch the freed holder (ASan checks).
  auto env = IEditableSearchEnv::create();
  env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&started));
  EXPECT_EQ(env->searchStartedCallback().callbackUnlocked(), &started);
}

TEST(EnvironmentInfo, DefaultsAndSetters) {
  auto info = IEditableEnvironmentInfo::create();
  EXPECT_EQ(info->osType(), 0u);
  EXPECT_EQ(info->architecture(), 0u);
  ASSERT_NE(info->kernelRelease(), nullptr);
  EXPECT_STREQ(info->kernelRelease(), "");
  info->setOsType(ostLinux);
  info->setArchitecture(archX86_64);
  info->setKernelRelease("6.1.0-18-amd64");
  info->setKernelRelease(nullptr);
  EXPECT_EQ(info->osType(), ostLinux);
  EXPECT_EQ(info->architecture(), archX86_64);
  EXPECT_STREQ(info->kernelRelease(), "6.1.0-18-amd64");
  info->setKernelRelease("");
  EXPECT_STREQ(info->kernelRelease(), "");
  EXPECT_EQ(dynamic_cast<EditableEnvironmentInfo *>(info.get())->refCount(), 1);
}

} // namespace
