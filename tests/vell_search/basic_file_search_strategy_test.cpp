// The step handlers shared by every category: search-directory passes with
// their priorities and guest names, archives, cache, system directories, the
// absolute-name look-up and the remote fetch into the cache.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell_search/recording_container.h"
#include "vell_search/search_test_support.h"
#include "vell_search/test_strategies.h"

using namespace VELL_2_13;
using vell_test::RecordingContainer;
using vell_test::TempDir;
using vell_test::TestDir;
using vell_test::TestLocalAndRemoteStrategy;

namespace fs = std::filesystem;

namespace {

// A basic strategy with a chosen category and system directories.
class TestStrategy : public vell_test::InertCallbacks<BasicFileSearchStrategy> {
public:
  TestStrategy(ISearchEnv *env, const std::string &name, search_category_t category = scBinaryFiles)
      : InertCallbacks(env, name), m_category(category) {}
  search_category_t getCategorySpecific() override { return m_category; }
  void fillSystemDirs(ISearchDirectoryContainer &container) override {
    for (const auto &dir : systemDirs)
      container.addSearchDirectory(dir.first.c_str(), dir.second);
  }
  std::vector<std::pair<std::string, bool>> systemDirs;

private:
  search_category_t m_category;
};

// A basic strategy whose find hook records every directory its walkers ask
// about and skips or claims the directories it is told to.
class HookedStrategy : public TestStrategy {
public:
  using TestStrategy::TestStrategy;
  bool find(const std::string &dir, bool recursive, const std::string &name, ISearchResultsContainer &,
            bool &skipDir) override {
    hookCalls.push_back(dir + (recursive ? " R " : " N ") + name);
    skipDir = skipAll;
    return dir == claim;
  }
  std::vector<std::string> hookCalls;
  bool skipAll = false;
  std::string claim;
};

ObjectPtr<IEditableSearchEnv> envWithDirs(const std::vector<TestDir> &dirs) {
  auto env = IEditableSearchEnv::create();
  env->setSearchDirs(vell_test::makeDirContainer(dirs));
  return env;
}

bool exists(const std::string &path) { return fs::is_regular_file(path); }

std::vector<std::string> errorLines(const vell_test::LogCapture &capture) { return capture.texts(40000); }

// --- Absolute name ----------------------------------------------------------------

TEST(BasicFileSearchStrategyTest, RelativeNamesHaveNoAbsoluteCandidate) {
  for (const char *name : {"libx.so", "a/b.c"}) {
    TestStrategy strategy(nullptr, name);
    RecordingContainer container;
    EXPECT_FALSE(strategy.lookUpAbsoluteName(container));
    EXPECT_TRUE(container.candidates.empty()) << name;
  }
}

TEST(BasicFileSearchStrategyTest, AbsoluteNameIsTheOnlyCandidate) {
  TestStrategy strategy(nullptr, "/a/b.c");
  RecordingContainer container;
  container.accepted.insert("/a/b.c");
  EXPECT_TRUE(strategy.lookUpAbsoluteName(container));
  ASSERT_EQ(1u, container.candidates.size());
  EXPECT_EQ("/a/b.c", container.candidates[0].first);
  EXPECT_EQ(unsigned(ssAbsoluteNameLookup), container.candidates[0].second);
}

TEST(BasicFileSearchStrategyTest, AbsoluteNameIsHandedOnUnchanged) {
  TestStrategy strategy(nullptr, "/a/./b/../c.so");
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAbsoluteName(container));
  EXPECT_EQ((std::vector<std::string>{"/a/./b/../c.so"}), container.paths());
}

TEST(BasicFileSearchStrategyTest, LookAroundBinaryNeverOffersACandidate) {
  TestStrategy strategy(nullptr, "/usr/lib/libx.so");
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAroundBinary(container));
  EXPECT_TRUE(container.candidates.empty());
}

// --- Search directories -------------------------------------------------------------

TEST(BasicFileSearchStrategyTest, HighPriorityOffersCategoryDirectoriesThenAllFilesDirectories) {
  auto env = envWithDirs({{scAllFiles, "/D2", false, true}, {scBinaryFiles, "/D1", false, true}});
  TestStrategy strategy(env.get(), "a/b/c");
  RecordingContainer container;
  EXPECT_FALSE(strategy.findInHighPriorityDirs(container));
  EXPECT_EQ((std::vector<std::string>{"/D1/a/b/c", "/D1/b/c", "/D1/c", "/D2/a/b/c", "/D2/b/c", "/D2/c"}),
            container.paths());
  for (unsigned int step : container.steps())
    EXPECT_EQ(unsigned(ssHighPrioritySearchDirs), step);
}

TEST(BasicFileSearchStrategyTest, HighPriorityStopsAtTheFirstAcceptedCandidate) {
  auto env = envWithDirs({{scBinaryFiles, "/D1", false, true}, {scAllFiles, "/D2", false, true}});
  TestStrategy strategy(env.get(), "a/b/c");
  RecordingContainer container;
  container.accepted.insert("/D2/b/c");
  EXPECT_TRUE(strategy.findInHighPriorityDirs(container));
  EXPECT_EQ((std::vector<std::string>{"/D1/a/b/c", "/D1/b/c", "/D1/c", "/D2/a/b/c", "/D2/b/c"}),
            container.paths());
}

TEST(BasicFileSearchStrategyTest, AcceptedCandidateInTheCategoryDirectoriesSkipsTheAllFilesDirectories) {
  auto env = envWithDirs({{scBinaryFiles, "/D1", false, true},
                          {scAllFiles, "/D2", false, true},
                          {scBinaryFiles, "/L1", false, false},
                          {scAllFiles, "/L2", false, false}});
  TestStrategy strategy(env.get(), "a/b/c");
  RecordingContainer high;
  high.accepted.insert("/D1/b/c");
  EXPECT_TRUE(strategy.findInHighPriorityDirs(high));
  EXPECT_EQ((std::vector<std::string>{"/D1/a/b/c", "/D1/b/c"}), high.paths());
  RecordingContainer low;
  low.accepted.insert("/L1/a/b/c");
  EXPECT_TRUE(strategy.findInLowPriorityDirs(low));
  EXPECT_EQ((std::vector<std::string>{"/L1/a/b/c"}), low.paths());
}

TEST(BasicFileSearchStrategyTest, EachPriorityStepSeesOnlyItsOwnDirectories) {
  auto env = envWithDirs({{scBinaryFiles, "/high", false, true},
                          {scBinaryFiles, "/low", false, false},
                          {scAllFiles, "/allhigh", false, true},
                          {scAllFiles, "/alllow", false, false},
                          {scSymbolFiles, "/symhigh", false, true}});
  TestStrategy strategy(env.get(), "n");
  RecordingContainer high;
  strategy.findInHighPriorityDirs(high);
  EXPECT_EQ((std::vector<std::string>{"/high/n", "/allhigh/n"}), high.paths());
  RecordingContainer low;
  strategy.findInLowPriorityDirs(low);
  EXPECT_EQ((std::vector<std::string>{"/low/n", "/alllow/n"}), low.paths());
  for (unsigned int step : low.steps())
    EXPECT_EQ(unsigned(ssLowPrioritySearchDirs), step);
}

TEST(BasicFileSearchStrategyTest, RecursiveDirectoryIsTriedByTailsFirstThenWalked) {
  TempDir tmp;
  tmp.mkdir("d/sub");
  auto env = envWithDirs({{scBinaryFiles, tmp.sub("d"), true, false}});
  TestStrategy strategy(env.get(), "a/lib.so");
  RecordingContainer container;
  strategy.findInLowPriorityDirs(container);
  EXPECT_EQ((std::vector<std::string>{tmp.sub("d/a/lib.so"), tmp.sub("d/lib.so"), tmp.sub("d/lib.so"),
                                      tmp.sub("d/sub/lib.so")}),
            container.paths());
}

TEST(BasicFileSearchStrategyTest, NoEnvironmentMeansNoDirectorySteps) {
  TestStrategy strategy(nullptr, "/abs/name");
  strategy.systemDirs = {{"/sys1", false}};
  RecordingContainer container;
  EXPECT_FALSE(strategy.findInHighPriorityDirs(container));
  EXPECT_FALSE(strategy.findInLowPriorityDirs(container));
  EXPECT_FALSE(strategy.findInCacheDir(container));
  EXPECT_FALSE(strategy.findInArchiveDirs(container));
  EXPECT_TRUE(container.candidates.empty());
  // The absolute name and the system directories need no environment.
  strategy.lookUpAbsoluteName(container);
  strategy.findInSystemDirs(container);
  EXPECT_EQ((std::vector<std::string>{"/abs/name", "/sys1/abs/name", "/sys1/abs/name", "/sys1/name"}),
            container.paths());
}

TEST(BasicFileSearchStrategyTest, EnvironmentWithoutDirectoriesFindsNothing) {
  auto env = IEditableSearchEnv::create();
  TestStrategy strategy(env.get(), "n");
  RecordingContainer container;
  EXPECT_FALSE(strategy.findInHighPriorityDirs(container));
  EXPECT_FALSE(strategy.findInLowPriorityDirs(container));
  EXPECT_FALSE(strategy.findInArchiveDirs(container));
  EXPECT_TRUE(container.candidates.empty());
}

// --- Guest names ----------------------------------------------------------------------

TEST(BasicFileSearchStrategyTest, GuestNameIsSearchedAsGivenThenUnderTheGuestDirectory) {
  auto env = envWithDirs({{scBinaryFiles, "/D", false, false}});
  TestStrategy strategy(env.get(), "/usr/lib/libx.so [guest]");
  RecordingContainer container;
  EXPECT_FALSE(strategy.findInLowPriorityDirs(container));
  EXPECT_EQ((std::vector<std::string>{// As given.
                                      "/D/usr/lib/libx.so [guest]", "/D/usr/lib/libx.so [guest]",
                                      "/D/lib/libx.so [guest]", "/D/libx.so [guest]",
                                      // Under [guest].
                                      "/D/[guest]/usr/lib/libx.so", "/D/usr/lib/libx.so", "/D/lib/libx.so",
                                      "/D/libx.so"}),
            container.paths());
}

TEST(BasicFileSearchStrategyTest, GuestNameFoundAsGivenIsNotSearchedUnderTheGuestDirectory) {
  auto env = envWithDirs({{scBinaryFiles, "/D", false, true}, {scAllFiles, "/E", false, true}});
  TestStrategy strategy(env.get(), "/usr/lib/libx.so [guest]");
  RecordingContainer container;
  container.accepted.insert("/D/lib/libx.so [guest]");
  EXPECT_TRUE(strategy.findInHighPriorityDirs(container));
  EXPECT_EQ((std::vector<std::string>{"/D/usr/lib/libx.so [guest]", "/D/usr/lib/libx.so [guest]",
                                      "/D/lib/libx.so [guest]"}),
            container.paths());
}

TEST(BasicFileSearchStrategyTest, GuestMarkerAtTheStartTakesTheWholeName) {
  auto env = envWithDirs({{scBinaryFiles, "/D", false, false}});
  TestStrategy strategy(env.get(), "[guest]libx.so");
  RecordingContainer container;
  strategy.findInLowPriorityDirs(container);
  EXPECT_EQ((std::vector<std::string>{"/D/[guest]libx.so", "/D/[guest]/[guest]libx.so", "/D/[guest]libx.so"}),
            container.paths());
}

TEST(BasicFileSearchStrategyTest, GuestNameIsNeverSearchedInSystemDirectories) {
  TestStrategy strategy(nullptr, "/usr/lib/libx.so [guest]");
  strategy.systemDirs = {{"/usr/lib", false}};
  RecordingContainer container;
  EXPECT_FALSE(strategy.findInSystemDirs(container));
  EXPECT_TRUE(container.candidates.empty());
}

TEST(BasicFileSearchStrategyTest, GuestFileIsFoundInTheGuestLayout) {
  TempDir tmp;
  const std::string file = tmp.write("d/[guest]/usr/lib/libx.so");
  auto env = envWithDirs({{scBinaryFiles, tmp.sub("d"), false, true}});
  TestStrategy strategy(env.get(), "/usr/lib/libx.so [guest]");
  RecordingContainer container;
  container.acceptIf = exists;
  EXPECT_TRUE(strategy.findInHighPriorityDirs(container));
  EXPECT_EQ(file, container.paths().back());
}

// --- System directories -----------------------------------------------------------------

TEST(BasicFileSearchStrategyTest, SystemDirectoriesAreSearchedInListOrder) {
  TempDir tmp;
  tmp.mkdir("rec/sub");
  TestStrategy strategy(nullptr, "x.so");
  strategy.systemDirs = {{"/first", false}, {tmp.sub("rec"), true}};
  RecordingContainer container;
  EXPECT_FALSE(strategy.findInSystemDirs(container));
  EXPECT_EQ((std::vector<std::string>{"/first/x.so", tmp.sub("rec/x.so"), tmp.sub("rec/x.so"),
                                      tmp.sub("rec/sub/x.so")}),
            container.paths());
  for (unsigned int step : container.steps())
    EXPECT_EQ(unsigned(ssSystemDirs), step);
}

// --- Cache ------------------------------------------------------------------------------

TEST(BasicFileSearchStrategyTest, CacheIsWalkedRecursivelyForTheBareName) {
  TempDir tmp;
  const std::string cached = tmp.write("cache/libx.so/0123/libx.so");
  auto env = IEditableSearchEnv::create();
  env->setCacheDir(tmp.sub("cache").c_str());
  TestStrategy strategy(env.get(), "/usr/lib/libx.so");
  RecordingContainer container;
  container.acceptIf = exists;
  EXPECT_TRUE(strategy.findInCacheDir(container));
  EXPECT_EQ((std::vector<std::string>{tmp.sub("cache/libx.so"), tmp.sub("cache/libx.so"),
                                      tmp.sub("cache/libx.so/libx.so"), cached}),
            container.paths());
  for (unsigned int step : container.steps())
    EXPECT_EQ(unsigned(ssCacheSearchDir), step);
}

TEST(BasicFileSearchStrategyTest, EmptyCacheDirectoryIsLoggedAsAnError) {
  auto env = IEditableSearchEnv::create();
  TestStrategy strategy(env.get(), "libx.so");
  RecordingContainer container;
  vell_test::LogCapture capture;
  EXPECT_FALSE(strategy.findInCacheDir(container));
  EXPECT_TRUE(container.candidates.empty());
  const auto errors = errorLines(capture);
  ASSERT_EQ(1u, errors.size());
  EXPECT_EQ(0u, errors[0].find("Empty directory name., at file: src/vell_search:")) << errors[0];
}

// --- Archives -----------------------------------------------------------------------------

TEST(BasicFileSearchStrategyTest, ArchiveDirectoriesAreWalkedUnderTheirPerFileSubdirectory) {
  TempDir tmp;
  const std::string archived = tmp.write("A/libx.so/old/libx.so");
  auto env = IEditableSearchEnv::create();
  // Marked neither recursive nor high priority: neither flag matters here.
  env->setArchiveDirs(vell_test::makeDirContainer({{scBinaryFiles, tmp.sub("A"), false, false}}));
  TestStrategy strategy(env.get(), "/usr/lib/libx.so");
  RecordingContainer container;
  container.acceptIf = exists;
  EXPECT_TRUE(strategy.findInArchiveDirs(container));
  EXPECT_EQ((std::vector<std::string>{tmp.sub("A/libx.so/libx.so"), tmp.sub("A/libx.so/libx.so"), archived}),
            container.paths());
  for (unsigned int step : container.steps())
    EXPECT_EQ(unsigned(ssArchiveSearchDirs), step);
}

TEST(BasicFileSearchStrategyTest, CategoryArchivesComeBeforeAllFilesArchives) {
  auto env = IEditableSearchEnv::create();
  env->setArchiveDirs(vell_test::makeDirContainer({{scAllFiles, "/all", true, true},
                                                   {scSourceFiles, "/src", false, true},
                                                   {scBinaryFiles, "/bin", true, false}}));
  TestStrategy strategy(env.get(), "a/x.c", scSourceFiles);
  RecordingContainer container;
  EXPECT_FALSE(strategy.findInArchiveDirs(container));
  EXPECT_EQ((std::vector<std::string>{"/src/x.c/x.c", "/all/x.c/x.c"}), container.paths());
}

TEST(BasicFileSearchStrategyTest, CacheAndArchiveWalkersAskTheStrategysFindHook) {
  auto env = IEditableSearchEnv::create();
  env->setCacheDir("/C");
  env->setArchiveDirs(
      vell_test::makeDirContainer({{scBinaryFiles, "/A1", false, true}, {scAllFiles, "/A2", false, false}}));
  HookedStrategy strategy(env.get(), "/usr/lib/libx.so");
  strategy.skipAll = true;
  RecordingContainer skipped;
  EXPECT_FALSE(strategy.findInCacheDir(skipped));
  EXPECT_FALSE(strategy.findInArchiveDirs(skipped));
  EXPECT_EQ((std::vector<std::string>{"/C R libx.so", "/A1/libx.so R libx.so", "/A2/libx.so R libx.so"}),
            strategy.hookCalls);
  // Every directory was skipped by the hook: nothing was offered.
  EXPECT_TRUE(skipped.candidates.empty());

  // A claim of the hook settles the step without a candidate.
  strategy.skipAll = false;
  strategy.claim = "/A2/libx.so";
  strategy.hookCalls.clear();
  RecordingContainer claimed;
  EXPECT_TRUE(strategy.findInArchiveDirs(claimed));
  EXPECT_EQ((std::vector<std::string>{"/A1/libx.so R libx.so", "/A2/libx.so R libx.so"}), strategy.hookCalls);
  // The missing first directory offers its tail candidate; its walk is empty.
  EXPECT_EQ((std::vector<std::string>{"/A1/libx.so/libx.so"}), claimed.paths());
  strategy.claim = "/C";
  RecordingContainer cache;
  EXPECT_TRUE(strategy.findInCacheDir(cache));
  EXPECT_TRUE(cache.candidates.empty());
}

// --- Steps --------------------------------------------------------------------------------

TEST(BasicFileSearchStrategyTest, StepsComeFromTheEnvironmentsConfigurator) {
  auto env = IEditableSearchEnv::create();
  ObjectPtr<ISearchStepsConfigurator> configurator(
      new vell_test::FixedStepsConfigurator({ssSystemDirs, ssAbsoluteNameLookup}));
  env->setSearchStepsConfigurator(configurator);
  TestStrategy strategy(env.get(), "x");
  ObjectPtr<ISearchStepsIterator> steps = strategy.getSearchStepsIterator(0);
  ASSERT_TRUE(steps);
  steps->reset();
  search_step_t step{};
  ASSERT_TRUE(steps->current(step));
  EXPECT_EQ(ssSystemDirs, step);
  ASSERT_TRUE(steps->next());
  ASSERT_TRUE(steps->current(step));
  EXPECT_EQ(ssAbsoluteNameLookup, step);
  EXPECT_FALSE(steps->next());
}

TEST(BasicFileSearchStrategyTest, DefaultStepsWithoutAConfigurator) {
  ObjectPtr<IEditableSearchEnv> emptyEnv = IEditableSearchEnv::create();
  for (ISearchEnv *env : {static_cast<ISearchEnv *>(nullptr), static_cast<ISearchEnv *>(emptyEnv.get())}) {
    TestStrategy strategy(env, "x", scSymbolFiles);
    ObjectPtr<ISearchStepsIterator> steps = strategy.getSearchStepsIterator(0xFF);
    ASSERT_TRUE(steps);
    std::vector<search_step_t> seen;
    search_step_t step{};
    for (steps->reset(); steps->current(step); steps->next())
      seen.push_back(step);
    EXPECT_EQ((std::vector<search_step_t>{ssArchiveSearchDirs, ssHighPrioritySearchDirs, ssAbsoluteNameLookup,
                                          ssAroundBinaryLookup, ssLowPrioritySearchDirs, ssSystemDirs}),
              seen);
  }
}

TEST(BasicFileSearchStrategyTest, FindHookNeitherClaimsNorSkips) {
  TestStrategy strategy(nullptr, "x");
  RecordingContainer container;
  bool skip = true;
  EXPECT_FALSE(strategy.find("/d", true, "x", container, skip));
  EXPECT_FALSE(skip);
  EXPECT_TRUE(container.candidates.empty());
}

TEST(BasicFileSearchStrategyTest, FileToSearchIsTheNameAsGiven) {
  auto env = IEditableSearchEnv::create();
  TestStrategy strategy(env.get(), "a/../b");
  EXPECT_STREQ("a/../b", strategy.fileToSearch());
  EXPECT_EQ(env.get(), strategy.getSearchEnv());
}

// --- Remote files -------------------------------------------------------------------------

struct RemoteFixture : public ::testing::Test {
  void SetUp() override {
    env = IEditableSearchEnv::create();
    env->setCacheDir(tmp.sub("cache").c_str());
    env->setFileRetriever(retrieverPtr);
    retrievalDir = tmp.mkdir("fetch");
  }
  TempDir tmp;
  vell_test::TestFileRetriever retriever;
  IFileRetriever *retrieverPtr = &retriever;
  ObjectPtr<IEditableSearchEnv> env;
  std::string retrievalDir;
};

using LocalAndRemoteTest = RemoteFixture;

TEST_F(LocalAndRemoteTest, RemoteFileIsFetchedIntoTheCacheAndOffered) {
  retriever.remoteFiles["/usr/lib/libx.so"] = "remote content";
  TestLocalAndRemoteStrategy strategy(env.get(), "\\usr\\lib\\libx.so", retrievalDir);
  RecordingContainer container;
  container.acceptIf = exists;
  EXPECT_TRUE(strategy.lookUpAbsoluteName(container));
  // The retriever sees the name with forward slashes.
  EXPECT_EQ((std::vector<std::string>{"/usr/lib/libx.so"}), retriever.localQuestions);
  ASSERT_EQ(1u, retriever.retrieved.size());
  EXPECT_EQ("/usr/lib/libx.so", retriever.retrieved[0].first);
  EXPECT_EQ(retrievalDir, retriever.retrieved[0].second);
  ASSERT_EQ(1u, container.candidates.size());
  const std::string cached = container.candidates[0].first;
  EXPECT_EQ(unsigned(ssAbsoluteNameLookup), container.candidates[0].second);
  EXPECT_EQ(0u, cached.find(tmp.sub("cache/libx.so/"))) << cached;
  EXPECT_EQ("libx.so", fs::path(cached).filename().string());
  // The fetched file was moved into the cache.
  EXPECT_FALSE(fs::exists(retrievalDir + "/usr/lib/libx.so"));
}

TEST_F(LocalAndRemoteTest, SameRemoteFileFetchedTwiceIsFoundInTheCache) {
  retriever.remoteFiles["/usr/lib/libx.so"] = "remote content";
  TestLocalAndRemoteStrategy strategy(env.get(), "/usr/lib/libx.so", retrievalDir);
  RecordingContainer first;
  EXPECT_FALSE(strategy.lookUpAbsoluteName(first));
  RecordingContainer second;
  EXPECT_FALSE(strategy.lookUpAbsoluteName(second));
  ASSERT_EQ(1u, first.candidates.size());
  EXPECT_EQ(first.paths(), second.paths());
  EXPECT_EQ(2u, retriever.retrieved.size());
}

TEST_F(LocalAndRemoteTest, FailedRetrievalOffersNothing) {
  TestLocalAndRemoteStrategy strategy(env.get(), "/usr/lib/libmissing.so", retrievalDir);
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAbsoluteName(container));
  EXPECT_TRUE(container.candidates.empty());
  EXPECT_EQ(1u, retriever.retrieved.size());
}

TEST_F(LocalAndRemoteTest, FilingFailureRemovesTheFetchedFile) {
  // A regular file where the cache directory should be: nothing can be filed.
  env->setCacheDir(tmp.write("cachefile").c_str());
  retriever.remoteFiles["/usr/lib/libx.so"] = "remote content";
  TestLocalAndRemoteStrategy strategy(env.get(), "/usr/lib/libx.so", retrievalDir);
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAbsoluteName(container));
  EXPECT_TRUE(container.candidates.empty());
  EXPECT_EQ(1u, retriever.retrieved.size());
  EXPECT_FALSE(fs::exists(retrievalDir + "/usr/lib/libx.so"));
}

TEST_F(LocalAndRemoteTest, NameTheRetrieverClaimsIsLookedUpLocallyAsGiven) {
  retriever.localNames.insert("/usr/lib/libx.so");
  TestLocalAndRemoteStrategy strategy(env.get(), "\\usr\\lib\\libx.so", retrievalDir);
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAbsoluteName(container));
  // The name as given is relative: no local candidate, and nothing fetched.
  EXPECT_TRUE(container.candidates.empty());
  EXPECT_TRUE(retriever.retrieved.empty());

  retriever.localNames.insert("/opt/liby.so");
  TestLocalAndRemoteStrategy plain(env.get(), "/opt/liby.so", retrievalDir);
  EXPECT_FALSE(plain.lookUpAbsoluteName(container));
  EXPECT_EQ((std::vector<std::string>{"/opt/liby.so"}), container.paths());
  EXPECT_TRUE(retriever.retrieved.empty());
}

TEST_F(LocalAndRemoteTest, WithoutARetrieverTheLookUpIsLocal) {
  env->setFileRetriever(nullptr);
  TestLocalAndRemoteStrategy strategy(env.get(), "/usr/lib/libx.so", retrievalDir);
  RecordingContainer container;
  strategy.lookUpAbsoluteName(container);
  EXPECT_EQ((std::vector<std::string>{"/usr/lib/libx.so"}), container.paths());
  TestLocalAndRemoteStrategy noEnv(nullptr, "/usr/lib/libx.so", retrievalDir);
  RecordingContainer other;
  noEnv.lookUpAbsoluteName(other);
  EXPECT_EQ((std::vector<std::string>{"/usr/lib/libx.so"}), other.paths());
}

TEST_F(LocalAndRemoteTest, FetchWithoutACacheDirectoryLogsAnError) {
  auto noCache = IEditableSearchEnv::create();
  noCache->setFileRetriever(retrieverPtr);
  retriever.remoteFiles["/usr/lib/libx.so"] = "remote content";
  TestLocalAndRemoteStrategy strategy(noCache.get(), "/usr/lib/libx.so", retrievalDir);
  RecordingContainer container;
  vell_test::LogCapture capture;
  EXPECT_FALSE(strategy.lookUpAbsoluteName(container));
  EXPECT_TRUE(container.candidates.empty());
  EXPECT_TRUE(retriever.retrieved.empty());
  const auto errors = errorLines(capture);
  ASSERT_EQ(1u, errors.size());
  EXPECT_EQ(0u, errors[0].find("Empty directory name., at file: src/vell_search:")) << errors[0];
}

TEST_F(LocalAndRemoteTest, FetchWithoutARetrievalDirectoryFails) {
  retriever.remoteFiles["/usr/lib/libx.so"] = "remote content";
  TestLocalAndRemoteStrategy strategy(env.get(), "/usr/lib/libx.so", "");
  std::string local;
  EXPECT_FALSE(fetchRemoteFile(strategy, "", "/usr/lib/libx.so", local));
  EXPECT_TRUE(retriever.retrieved.empty());
  EXPECT_TRUE(local.empty());
}

TEST_F(LocalAndRemoteTest, FetchFilesTheFileByNameAndChecksum) {
  retriever.remoteFiles["lib/libz.so"] = "zzz";
  TestLocalAndRemoteStrategy strategy(env.get(), "x", retrievalDir);
  std::string local;
  ASSERT_TRUE(fetchRemoteFile(strategy, retrievalDir, "lib/libz.so", local));
  // cache/<name>/<md5>/<name>
  const fs::path cached(local);
  EXPECT_EQ("libz.so", cached.filename().string());
  EXPECT_EQ(32u, cached.parent_path().filename().string().size());
  EXPECT_EQ(tmp.sub("cache/libz.so"), cached.parent_path().parent_path().string());
  EXPECT_TRUE(fs::is_regular_file(cached));
}

TEST_F(LocalAndRemoteTest, FetchWithoutAFileRetrieverFails) {
  env->setFileRetriever(nullptr);
  TestLocalAndRemoteStrategy strategy(env.get(), "/usr/lib/libx.so", retrievalDir);
  std::string local;
  EXPECT_FALSE(fetchRemoteFile(strategy, retrievalDir, "/usr/lib/libx.so", local));
  EXPECT_TRUE(local.empty());
  EXPECT_TRUE(fs::is_empty(retrievalDir));
  EXPECT_FALSE(fs::exists(tmp.sub("cache")));
  // Nor without a search environment at all.
  TestLocalAndRemoteStrategy noEnv(nullptr, "/usr/lib/libx.so", retrievalDir);
  EXPECT_FALSE(fetchRemoteFile(noEnv, retrievalDir, "/usr/lib/libx.so", local));
  EXPECT_TRUE(local.empty());
  EXPECT_TRUE(retriever.retrieved.empty());
}

} // namespace
