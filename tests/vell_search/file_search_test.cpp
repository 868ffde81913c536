// End-to-end searches through IFileSearch over directory trees made by the
// tests: the steps, suggestions, callbacks, kernel fall-backs, remote files
// and file-system oddities.
#include <gtest/gtest.h>

#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell/platform.h"
#include "vell_search/file_search_driver.h"
#include "vell_search/search_callbacks_support.h"
#include "vell_search/search_test_support.h"

using namespace VELL_2_13;
using vell_test::Strings;
using vell_test::TempDir;
using vell_test::TestDir;

namespace fs = std::filesystem;

namespace {

ObjectPtr<IEditableSearchEnv> envWith(const std::vector<TestDir> &dirs,
                                      std::vector<search_step_t> steps = {}) {
  auto env = IEditableSearchEnv::create();
  env->setSearchDirs(vell_test::makeDirContainer(dirs));
  if (!steps.empty())
    env->setSearchStepsConfigurator(
        ObjectPtr<ISearchStepsConfigurator>(new vell_test::FixedStepsConfigurator(steps)));
  return env;
}

Strings linesWithPrefix(const vell_test::LogCapture &capture, const std::string &prefix) {
  Strings result;
  for (const std::string &text : capture.texts())
    if (text.rfind(prefix, 0) == 0)
      result.push_back(text);
  return result;
}

// Reads every valid file, continuing the search to its end.
Strings drain(IValidFileIterator &files, std::vector<search_step_t> *steps = nullptr) {
  Strings names;
  files.reset();
  while (ObjectPtr<IValidFile> file = files.next()) {
    names.push_back(file->name());
    if (steps)
      steps->push_back(file->searchStep());
  }
  return names;
}

void writeCompressedKernel(const std::string &path, const std::string &image) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << "stub";
  gzFile out = gzopen(path.c_str(), "ab");
  ASSERT_NE(nullptr, out);
  gzwrite(out, image.data(), unsigned(image.size()));
  gzclose(out);
}

using StepsRequests = std::vector<std::pair<search_category_t, unsigned long long>>;

// Visits the steps given and records the category and mask of every request.
class RecordingStepsConfigurator : public vell_test::FixedStepsConfigurator {
public:
  using FixedStepsConfigurator::FixedStepsConfigurator;
  ObjectPtr<ISearchStepsIterator> getSearchStepsIterator(search_category_t category,
                                                         unsigned long long mask) override {
    requests.emplace_back(category, mask);
    return FixedStepsConfigurator::getSearchStepsIterator(category, mask);
  }
  StepsRequests requests;
};

// The host's check: records every file it is asked about and rejects it.
class RejectingValidatorCallback : public IValidatorCallback {
public:
  int validate(const char *fileName, IErrorInfoContainer &errorInfo) override {
    asked.push_back(fileName ? fileName : "<null>");
    errorInfo.setSeverity(severity_t(0));
    errorInfo.setErrorMessage("%Rejected");
    return vvReject;
  }
  Strings asked;
};

// Counts the progress reports it gets.
class CountingProgress : public ISymSrvDownloadProgressCallback {
public:
  void progress(const char *, uint64_t, uint64_t) override { ++calls; }
  int calls = 0;
};

// --- Construction -------------------------------------------------------------------

TEST(FileSearchTest, LogsTheSearchEnvironmentAndTracesConstruction) {
  auto env = envWith({{scBinaryFiles, "/d", true, true}, {scAllFiles, "/a", false, false}});
  vell_test::LogCapture capture;
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  const Strings info = capture.texts(20000);
  ASSERT_EQ(1u, info.size());
  EXPECT_EQ(
      "Search environment: m_pSearchEnv(scBinaryFiles) =[ISearchEnv: searchDirs = /d (Recursive,  "
      "HighPriority), ], m_pSearchEnv(scSymbolFiles) =[ISearchEnv: searchDirs = ], "
      "m_pSearchEnv(scSourceFiles) =[ISearchEnv: searchDirs = ], m_pSearchEnv(scAllFiles) =[ISearchEnv: "
      "searchDirs = /a ( ), ]",
      info[0]);
  const Strings traces = capture.texts(0);
  ASSERT_EQ(2u, traces.size());
  EXPECT_EQ(0u, traces[0].find("ENTER: ")) << traces[0];
  EXPECT_NE(std::string::npos, traces[0].find("FileSearch::FileSearch"));
  EXPECT_EQ("EXIT:  " + traces[0].substr(7), traces[1]);
}

TEST(FileSearchTest, EveryFindIsTracedOnEntryAndExit) {
  auto env = envWith({}, {ssHighPrioritySearchDirs});
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  search->findSymFile("x.debug", "", nullptr, nullptr, nullptr, nullptr, nullptr);
  const Strings traces = capture.texts(0);
  ASSERT_EQ(2u, traces.size());
  EXPECT_EQ(0u, traces[0].find("ENTER: "));
  EXPECT_NE(std::string::npos, traces[0].find("findSymFile"));
  EXPECT_EQ("EXIT:  " + traces[0].substr(7), traces[1]);
}

TEST(FileSearchTest, TemporaryDirectoryExistsOnlyWithAFileRetrieverAndDiesWithTheSearch) {
  TempDir tmp;
  platform::setTempDirectory(tmp.path());
  vell_test::TestFileRetriever retriever;
  IFileRetriever *retrieverPtr = &retriever;
  auto env = IEditableSearchEnv::create();
  {
    ObjectPtr<FileSearch> plain(new FileSearch(ObjectPtr<ISearchEnv>(env)));
    EXPECT_TRUE(plain->tempDir().empty());
  }
  env->setFileRetriever(retrieverPtr);
  std::string dir;
  {
    ObjectPtr<FileSearch> remote(new FileSearch(ObjectPtr<ISearchEnv>(env)));
    dir = remote->tempDir();
    ASSERT_FALSE(dir.empty());
    EXPECT_TRUE(fs::is_directory(dir));
    EXPECT_EQ(tmp.path(), fs::path(dir).parent_path().string());
    const std::string leaf = fs::path(dir).filename().string();
    EXPECT_EQ(24u, leaf.size());
    EXPECT_EQ(0u, leaf.find("vell-"));
    std::ofstream(dir + "/fetched.so") << "x";
    fs::create_directories(dir + "/deep/er");
  }
  EXPECT_FALSE(fs::exists(dir));
  platform::setTempDirectory("");
}

TEST(FileSearchTest, FailedRemovalOfTheTemporaryDirectoryIsIgnored) {
  TempDir tmp;
  platform::setTempDirectory(tmp.path());
  vell_test::TestFileRetriever retriever;
  IFileRetriever *retrieverPtr = &retriever;
  auto env = IEditableSearchEnv::create();
  env->setFileRetriever(retrieverPtr);
  ObjectPtr<FileSearch> search(new FileSearch(ObjectPtr<ISearchEnv>(env)));
  const std::string dir = search->tempDir();
  ASSERT_FALSE(dir.empty());
  // A fetched file in a directory that may not be changed: without the
  // rights of the owner the removal fails.
  const std::string locked = dir + "/locked";
  fs::create_directory(locked);
  std::ofstream(locked + "/fetched.so") << "x";
  fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec, fs::perm_options::replace);
  vell_test::LogCapture capture;
  {
    vell_test::AsUnprivilegedUser nobody;
    EXPECT_NO_THROW(search.release());
  }
  EXPECT_TRUE(fs::exists(locked + "/fetched.so"));
  // Only the trace of the destructor was logged.
  for (const vell_test::CapturedLine &line : capture.lines())
    EXPECT_EQ(0, line.level) << line.text;
  fs::permissions(locked, fs::perms::owner_all, fs::perm_options::add);
  platform::setTempDirectory("");
}

// --- Names ---------------------------------------------------------------------------

TEST(FileSearchTest, NullOrEmptyNamesFindNothingAndCallNoCallback) {
  vell_test::TestSearchStarted started;
  vell_test::TestNoFilesFound none;
  auto env = envWith({});
  env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&started));
  env->setNoFilesFoundCallback(CallbackHolder<INoFilesFoundCallback>(&none));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  EXPECT_FALSE(search->findBinFile(nullptr, nullptr, nullptr, 0));
  EXPECT_FALSE(search->findBinFile("", nullptr, nullptr, 0));
  EXPECT_FALSE(search->findSymFile(nullptr, "b", "c", nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(search->findSymFile("", "b", "c", nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(search->findSrcFile(nullptr, "b", "c", nullptr, nullptr));
  EXPECT_FALSE(search->findSrcFile("", "b", "c", nullptr, nullptr));
  EXPECT_EQ(0, started.count.load());
  EXPECT_EQ(0, none.count.load());
}

TEST(FileSearchTest, BinaryNameIsNormalisedForTheStrategy) {
  vell_test::TestSearchStarted started;
  started.proceed = false;
  auto env = envWith({});
  env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&started));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  search->findBinFile("C:\\dir\\.\\x.so", nullptr, nullptr, 0);
  search->findBinFile("a/./b/../c/.", nullptr, nullptr, 0);
  EXPECT_EQ((std::vector<Strings>{{"bin", "C:/dir/x.so"}, {"bin", "a/c"}}), started.calls());
  EXPECT_EQ((Strings{"Searching bin file:C:\\dir\\.\\x.so", "Searching bin file:a/./b/../c/."}),
            linesWithPrefix(capture, "Searching"));
}

TEST(FileSearchTest, SymbolAndSourceSearchesLogAndHandOverTheirThreeNames) {
  vell_test::TestSearchStarted started;
  started.proceed = false;
  auto env = envWith({});
  env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&started));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  search->findSymFile("libx.so.debug", "/usr/lib/./libx.so", "abc", nullptr, nullptr, nullptr,
                      "/remote/libx.so");
  search->findSrcFile("x.c", "/usr/bin/prog", "def", nullptr, nullptr);
  search->findSrcFile("y.c", nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ((std::vector<Strings>{{"sym", "libx.so.debug", "/usr/lib/libx.so", "abc"},
                                  {"src", "x.c", "/usr/bin/prog", "def"},
                                  {"src", "y.c", "", ""}}),
            started.calls());
  EXPECT_EQ((Strings{"Searching sym file:libx.so.debug, binary file:/usr/lib/libx.so, checksum:abc",
                     "Searching src file:x.c, binary file:/usr/bin/prog, checksum:def",
                     "Searching src file:y.c, binary file:, checksum:"}),
            linesWithPrefix(capture, "Searching"));
}

// --- Suggestions and callbacks ---------------------------------------------------------

TEST(FileSearchTest, ValidSuggestionIsReturnedWithoutAnyStep) {
  TempDir tmp;
  const std::string suggested = tmp.write("elsewhere/libx.so");
  tmp.write("d/libx.so");
  auto env = envWith({{scBinaryFiles, tmp.sub("d"), true, true}});
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  ObjectPtr<IValidFile> found = search->findBinFile("libx.so", nullptr, suggested.c_str(), 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(suggested, found->name());
  EXPECT_EQ(ssAskUser, found->searchStep());
  EXPECT_EQ(confidence_t(1), found->confidence());
  EXPECT_EQ(
      (Strings{"Searching bin file:libx.so",
               "Suggested resolutions after callback: suggestedResolutions:[StringContainer: m_list = " +
                   suggested + ", ]",
               "*** VALID____ADDED " + suggested,
               "Returning the first found, no filesFoundCallback established"}),
      capture.texts(20000));
}

TEST(FileSearchTest, DestroyedFilesFoundCallbackIsAsIfNoneWereSet) {
  TempDir tmp;
  const std::string first = tmp.write("d1/libx.so");
  tmp.write("d2/libx.so");
  auto env =
      envWith({{scBinaryFiles, tmp.sub("d1"), false, true}, {scBinaryFiles, tmp.sub("d2"), false, true}});
  auto found = std::make_unique<vell_test::TestFilesFound>();
  found->chooser = [](IValidFileIterator &files) {
    // Would pick the second file if it were still called.
    files.next();
    return files.next();
  };
  env->setFilesFoundCallback(CallbackHolder<IFilesFoundCallback>(found.get()));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  found.reset();
  vell_test::LogCapture capture;
  ObjectPtr<IValidFile> result = search->findBinFile("libx.so", nullptr, nullptr, 0);
  ASSERT_TRUE(result);
  EXPECT_EQ(first, result->name());
  EXPECT_TRUE(capture.contains("Returning the first found, no filesFoundCallback established"));
  EXPECT_FALSE(capture.containsPrefix("Returning the result ="));
}

TEST(FileSearchTest, CancelledSearchRunsNoStepButOffersTheSuggestions) {
  TempDir tmp;
  const std::string suggested = tmp.write("s/libx.so");
  const std::string added = tmp.write("added/libx.so");
  const std::string rejected = tmp.write("rejected/libx.so");
  tmp.write("d/libx.so");
  vell_test::TestSearchStarted started;
  started.proceed = false;
  started.addNames = {added, rejected, tmp.sub("missing/libx.so")};
  vell_test::TestNoFilesFound none;
  Strings seenValid;
  Strings seenInvalid;
  none.supplier = [&](IValidator &, IInvalidFileIterator &invalid, IValidFileIterator &valid) {
    seenValid = drain(valid);
    while (ObjectPtr<IInvalidFile> file = invalid.next())
      seenInvalid.push_back(file->name());
    return ObjectPtr<IValidFile>();
  };
  vell_test::TestValidatorCallback validatorCallback;
  validatorCallback.rejected.insert(rejected);
  auto env = envWith({{scBinaryFiles, tmp.sub("d"), false, true}});
  env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&started));
  env->setNoFilesFoundCallback(CallbackHolder<INoFilesFoundCallback>(&none));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  EXPECT_FALSE(search->findBinFile("libx.so", &validatorCallback, suggested.c_str(), 0));
  EXPECT_EQ((Strings{suggested, added}), seenValid);
  EXPECT_EQ((Strings{rejected}), seenInvalid);
  EXPECT_FALSE(capture.containsPrefix("Found file:"));
  EXPECT_FALSE(capture.contains("*** DO__NOT__EXIST " + tmp.sub("d/libx.so")));
  EXPECT_TRUE(capture.contains("Suggested resolutions after callback: suggestedResolutions:[StringContainer: "
                               "m_list = " +
                               suggested + ", " + added + ", " + rejected + ", " +
                               tmp.sub("missing/libx.so") + ", ]"));
  EXPECT_TRUE(capture.contains("Nothing found after pNoFilesFoundCallback"));
}

TEST(FileSearchTest, SameFileFromTwoStepsIsKeptOnce) {
  TempDir tmp;
  const std::string file = tmp.write("d/libx.so");
  vell_test::TestFilesFound found;
  Strings all;
  found.chooser = [&](IValidFileIterator &files) {
    all = drain(files);
    files.reset();
    return files.next();
  };
  auto env = envWith({{scBinaryFiles, tmp.sub("d"), false, true}},
                     {ssHighPrioritySearchDirs, ssAbsoluteNameLookup, ssLowPrioritySearchDirs});
  env->setFilesFoundCallback(CallbackHolder<IFilesFoundCallback>(&found));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  ObjectPtr<IValidFile> result = search->findBinFile(file.c_str(), nullptr, nullptr, 0);
  ASSERT_TRUE(result);
  EXPECT_EQ(Strings{file}, all);
  EXPECT_EQ(ssHighPrioritySearchDirs, result->searchStep());
  EXPECT_EQ(1u, capture.count("*** VALID____ADDED " + file));
  EXPECT_EQ(1u, capture.count("*** VALID_DUBLICAT " + file));
  EXPECT_TRUE(capture.contains("Returning the result =" + file + " after pFilesFoundCallback"));
}

TEST(FileSearchTest, FilesFoundCallbackContinuesTheLazySearchAndChooses) {
  TempDir tmp;
  const std::string high = tmp.write("high/libx.so");
  const std::string low = tmp.write("low/libx.so");
  vell_test::TestFilesFound found;
  Strings sequence;
  found.chooser = [&](IValidFileIterator &files) {
    // Positioned after the first file: reading on runs further steps.
    ObjectPtr<IValidFile> second = files.next();
    sequence.push_back(second ? second->name() : "none");
    files.reset();
    sequence.push_back(files.next()->name());
    return second;
  };
  auto env =
      envWith({{scBinaryFiles, tmp.sub("high"), false, true}, {scAllFiles, tmp.sub("low"), false, false}});
  env->setFilesFoundCallback(CallbackHolder<IFilesFoundCallback>(&found));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  ObjectPtr<IValidFile> result = search->findBinFile("libx.so", nullptr, nullptr, 0);
  ASSERT_TRUE(result);
  EXPECT_EQ(low, result->name());
  EXPECT_EQ(ssLowPrioritySearchDirs, result->searchStep());
  EXPECT_EQ((Strings{low, high}), sequence);
  EXPECT_EQ((Strings{"Found file:" + high + " in step:ssHighPrioritySearchDirs",
                     "Found file:" + low + " in step:ssLowPrioritySearchDirs"}),
            linesWithPrefix(capture, "Found file:"));
  EXPECT_TRUE(capture.contains("Returning the result =" + low + " after pFilesFoundCallback"));
}

TEST(FileSearchTest, FilesFoundCallbackMayRejectEverything) {
  TempDir tmp;
  tmp.write("d/libx.so");
  vell_test::TestFilesFound found;
  found.chooser = [](IValidFileIterator &) { return ObjectPtr<IValidFile>(); };
  vell_test::TestNoFilesFound none;
  auto env = envWith({{scBinaryFiles, tmp.sub("d"), false, true}});
  env->setFilesFoundCallback(CallbackHolder<IFilesFoundCallback>(&found));
  env->setNoFilesFoundCallback(CallbackHolder<INoFilesFoundCallback>(&none));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  EXPECT_FALSE(search->findBinFile("libx.so", nullptr, nullptr, 0));
  EXPECT_TRUE(capture.contains("Returning the result =NULL after pFilesFoundCallback"));
  EXPECT_EQ(0, none.count.load());
}

TEST(FileSearchTest, NoFilesFoundCallbackMayForceARejectedFile) {
  TempDir tmp;
  const std::string file = tmp.write("d/libx.so");
  vell_test::TestValidatorCallback validatorCallback;
  validatorCallback.rejectAll = true;
  vell_test::TestNoFilesFound none;
  ObjectPtr<IInvalidFile> seen;
  none.supplier = [&](IValidator &, IInvalidFileIterator &invalid, IValidFileIterator &valid) {
    EXPECT_FALSE(valid.next());
    seen = invalid.next();
    EXPECT_FALSE(invalid.next());
    return seen ? seen->forceTreatAsValid() : ObjectPtr<IValidFile>();
  };
  auto env = envWith({{scBinaryFiles, tmp.sub("d"), false, true}});
  env->setNoFilesFoundCallback(CallbackHolder<INoFilesFoundCallback>(&none));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  ObjectPtr<IValidFile> result = search->findBinFile("libx.so", &validatorCallback, nullptr, 0);
  ASSERT_TRUE(seen);
  EXPECT_EQ(file, seen->name());
  EXPECT_EQ(severity_t(0), seen->severity());
  EXPECT_STREQ("%Rejected", seen->errorMessage());
  EXPECT_EQ(ssHighPrioritySearchDirs, seen->searchStep());
  ASSERT_TRUE(result);
  EXPECT_EQ(file, result->name());
  EXPECT_EQ(confidence_t(0), result->confidence());
  EXPECT_EQ(ssHighPrioritySearchDirs, result->searchStep());
  EXPECT_TRUE(capture.contains("*** INVALID__ADDED " + file));
  EXPECT_TRUE(capture.contains("Nothing found"));
  EXPECT_TRUE(capture.contains("Returning the result =" + file + " after pNoFilesFoundCallback"));
}

TEST(FileSearchTest, NoFilesFoundCallbackMayValidateAFileOfItsOwn) {
  TempDir tmp;
  const std::string own = tmp.write("own/libx.so");
  vell_test::TestNoFilesFound none;
  none.supplier = [&](IValidator &validator, IInvalidFileIterator &, IValidFileIterator &) {
    ObjectPtr<IValidatedFile> validated = validator.validate(own.c_str());
    return validated ? validated->validFile() : ObjectPtr<IValidFile>();
  };
  auto env = envWith({}, {ssHighPrioritySearchDirs});
  env->setNoFilesFoundCallback(CallbackHolder<INoFilesFoundCallback>(&none));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  ObjectPtr<IValidFile> result = search->findBinFile("libx.so", nullptr, nullptr, 0);
  ASSERT_TRUE(result);
  EXPECT_EQ(own, result->name());
  EXPECT_EQ(ssAskUser, result->searchStep());
}

TEST(FileSearchTest, NothingFoundWithoutCallbacks) {
  auto env = envWith({}, {ssHighPrioritySearchDirs});
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  EXPECT_FALSE(search->findSrcFile("x.c", nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(
      (Strings{"Searching src file:x.c, binary file:, checksum:",
               "Suggested resolutions after callback: suggestedResolutions:[StringContainer: m_list = ]",
               "Nothing found", "Returning the NULL result, no noFilesFoundCallback established"}),
      capture.texts(20000));
}

TEST(FileSearchTest, SearchWithoutAnEnvironment) {
  ObjectPtr<IFileSearch> search = IFileSearch::create(ObjectPtr<ISearchEnv>());
  TempDir tmp;
  const std::string file = tmp.write("x.so");
  // Only the absolute name and the system directories need no environment.
  ObjectPtr<IValidFile> result = search->findBinFile(file.c_str(), nullptr, nullptr, 0);
  ASSERT_TRUE(result);
  EXPECT_EQ(ssAbsoluteNameLookup, result->searchStep());
}

// --- Steps ------------------------------------------------------------------------------

// A tree in which libx.so.debug of the binary B/libx.so lies where each step
// looks, and nowhere else.
struct StepTree {
  explicit StepTree(const TempDir &tmp) {
    archive = tmp.write("A/libx.so.debug/v1/libx.so.debug", "archive");
    high = tmp.write("H/libx.so.debug", "high");
    cache = tmp.write("C/some/where/libx.so.debug", "cache");
    absolute = tmp.write("abs/libx.so.debug", "absolute");
    around = tmp.write("B/.debug/libx.so.debug", "around");
    tmp.write("B/libx.so", "binary");
    low = tmp.write("L/sub/libx.so.debug", "low");
    binary = tmp.sub("B/libx.so");
  }
  ObjectPtr<IEditableSearchEnv> env(const TempDir &tmp) const {
    auto env = IEditableSearchEnv::create();
    env->setSearchDirs(vell_test::makeDirContainer(
        {{scSymbolFiles, tmp.sub("H"), false, true}, {scAllFiles, tmp.sub("L"), true, false}}));
    env->setArchiveDirs(vell_test::makeDirContainer({{scAllFiles, tmp.sub("A"), false, false}}));
    env->setCacheDir(tmp.sub("C").c_str());
    return env;
  }
  std::string archive, high, cache, absolute, around, low, binary;
};

TEST(FileSearchStepsTest, EveryStepOnItsOwn) {
  TempDir tmp;
  StepTree tree(tmp);
  const std::vector<std::pair<search_step_t, std::string>> cases{
      {ssArchiveSearchDirs, tree.archive}, {ssHighPrioritySearchDirs, tree.high},
      {ssCacheSearchDir, tree.cache},      {ssAbsoluteNameLookup, tree.absolute},
      {ssAroundBinaryLookup, tree.around}, {ssLowPrioritySearchDirs, tree.low}};
  for (const auto &[step, expected] : cases) {
    auto env = tree.env(tmp);
    env->setSearchStepsConfigurator(
        ObjectPtr<ISearchStepsConfigurator>(new vell_test::FixedStepsConfigurator({step})));
    ObjectPtr<IFileSearch> search = IFileSearch::create(env);
    ObjectPtr<IValidFile> result = search->findSymFile(tree.absolute.c_str(), tree.binary.c_str(), nullptr,
                                                       nullptr, nullptr, nullptr, nullptr);
    ASSERT_TRUE(result) << dump(step);
    EXPECT_EQ(expected, result->name()) << dump(step);
    EXPECT_EQ(step, result->searchStep());
  }
}

TEST(FileSearchStepsTest, SystemDirectoriesStepOnItsOwn) {
  vell_test::FixedKernelRelease release;
  auto env = envWith({}, {ssSystemDirs});
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  EXPECT_FALSE(search->findBinFile("vellnosuchmodule", nullptr, nullptr, 0));
  EXPECT_EQ((Strings{"*** DO__NOT__EXIST /lib/modules/vellnosuchmodule.ko",
                     "*** DO__NOT__EXIST /lib/modules/R1/kernel/vellnosuchmodule.ko"}),
            linesWithPrefix(capture, "***"));
  capture.clear();
  EXPECT_FALSE(search->findSrcFile("vell/nosuch.c", nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ((Strings{"*** DO__NOT__EXIST /usr/src/vell/nosuch.c", "*** DO__NOT__EXIST /usr/src/nosuch.c",
                     "*** DO__NOT__EXIST /usr/src/linux-headers-R1/vell/nosuch.c",
                     "*** DO__NOT__EXIST /usr/src/linux-headers-R1/nosuch.c"}),
            linesWithPrefix(capture, "***"));
}

TEST(FileSearchStepsTest, AllStepsTogetherInTheirFixedOrder) {
  TempDir tmp;
  StepTree tree(tmp);
  auto env = tree.env(tmp);
  ObjectPtr<DefaultSearchStepsConfigurator> configurator(new DefaultSearchStepsConfigurator());
  configurator->setStep(ssCacheSearchDir, scSymbolFiles, true);
  env->setSearchStepsConfigurator(ObjectPtr<ISearchStepsConfigurator>(configurator));
  vell_test::TestFilesFound found;
  Strings names;
  std::vector<search_step_t> steps;
  found.chooser = [&](IValidFileIterator &files) {
    names = drain(files, &steps);
    files.reset();
    return files.next();
  };
  env->setFilesFoundCallback(CallbackHolder<IFilesFoundCallback>(&found));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  ObjectPtr<IValidFile> result = search->findSymFile(tree.absolute.c_str(), tree.binary.c_str(), nullptr,
                                                     nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(result);
  EXPECT_EQ(tree.archive, result->name());
  EXPECT_EQ((Strings{tree.archive, tree.high, tree.cache, tree.absolute, tree.around, tree.low}), names);
  EXPECT_EQ((std::vector<search_step_t>{ssArchiveSearchDirs, ssHighPrioritySearchDirs, ssCacheSearchDir,
                                        ssAbsoluteNameLookup, ssAroundBinaryLookup, ssLowPrioritySearchDirs}),
            steps);
}

TEST(FileSearchStepsTest, SymbolAndSourceSearchesIgnoreTheMaskArgument) {
  // The default configurator decides by category alone; a binary search's
  // mask is handed to it and ignored as well.
  TempDir tmp;
  const std::string file = tmp.write("L/x.c");
  auto env = envWith({{scSourceFiles, tmp.sub("L"), false, false}});
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  ObjectPtr<IValidFile> result = search->findSrcFile("x.c", nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(result);
  EXPECT_EQ(file, result->name());
  auto binEnv = envWith({{scBinaryFiles, tmp.sub("L"), false, false}});
  ObjectPtr<IFileSearch> binSearch = IFileSearch::create(binEnv);
  ObjectPtr<IValidFile> binResult = binSearch->findBinFile("x.c", nullptr, nullptr, ssHighPrioritySearchDirs);
  ASSERT_TRUE(binResult);
  EXPECT_EQ(ssLowPrioritySearchDirs, binResult->searchStep());
}

TEST(FileSearchStepsTest, BinarySearchHandsItsMaskToTheConfiguratorOthersHandZero) {
  auto env = envWith({});
  ObjectPtr<RecordingStepsConfigurator> configurator(
      new RecordingStepsConfigurator({ssHighPrioritySearchDirs}));
  env->setSearchStepsConfigurator(ObjectPtr<ISearchStepsConfigurator>(configurator));
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  const unsigned long long mask = 0x2aULL | (1ULL << 40);
  EXPECT_FALSE(search->findBinFile("libx.so", nullptr, nullptr, mask));
  EXPECT_FALSE(
      search->findSymFile("libx.so.debug", "/usr/lib/libx.so", "c", nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(search->findSrcFile("x.c", "/usr/bin/prog", "c", nullptr, nullptr));
  EXPECT_FALSE(search->findBinFile("liby.so", nullptr, nullptr, 0));
  EXPECT_EQ(
      (StepsRequests{{scBinaryFiles, mask}, {scSymbolFiles, 0}, {scSourceFiles, 0}, {scBinaryFiles, 0}}),
      configurator->requests);
}

// --- Kernel images -------------------------------------------------------------------------

struct KernelFallbackTest : public ::testing::Test {
  void SetUp() override {
    env = envWith({{scBinaryFiles, tmp.mkdir("H"), false, true}}, {ssHighPrioritySearchDirs});
    env->setEnvironmentInfo(vell_test::makeEnvironmentInfo(1, "R9"));
    platform::setCacheRoot(tmp.sub("cacheroot"));
  }
  void TearDown() override { platform::setCacheRoot(""); }
  Strings searched(const char *name) {
    ObjectPtr<IFileSearch> search = IFileSearch::create(env);
    vell_test::LogCapture capture;
    search->findBinFile(name, nullptr, nullptr, 0);
    return linesWithPrefix(capture, "Searching bin file:");
  }
  TempDir tmp;
  ObjectPtr<IEditableSearchEnv> env;
};

TEST_F(KernelFallbackTest, MissingKernelImageIsLookedForUnderBootWithTheTargetRelease) {
  EXPECT_EQ((Strings{"Searching bin file:vmlinux", "Searching bin file:/boot/vmlinux-R9",
                     "Searching bin file:/boot/vmlinuz-R9"}),
            searched("vmlinux"));
  EXPECT_EQ((Strings{"Searching bin file:/x/vmlinux", "Searching bin file:/boot/vmlinux-R9",
                     "Searching bin file:/boot/vmlinuz-R9"}),
            searched("/x/vmlinux"));
}

TEST_F(KernelFallbackTest, OnlyTheExactKernelImageNameFallsBack) {
  for (const char *name : {"xvmlinux", "vmlinux.old", "/x/vmlinux/y", "vmlinuz"})
    EXPECT_EQ(Strings{std::string("Searching bin file:") + name}, searched(name)) << name;
}

TEST_F(KernelFallbackTest, NoFallbackWithoutATargetRelease) {
  env->setEnvironmentInfo(vell_test::makeEnvironmentInfo(1, ""));
  EXPECT_EQ(Strings{"Searching bin file:vmlinux"}, searched("vmlinux"));
  env->setEnvironmentInfo(ObjectPtr<IEnvironmentInfo>());
  EXPECT_EQ(Strings{"Searching bin file:vmlinux"}, searched("vmlinux"));
}

TEST_F(KernelFallbackTest, FileRetrieverDecidesWhetherToFallBack) {
  vell_test::TestFileRetriever retriever;
  IFileRetriever *retrieverPtr = &retriever;
  env->setFileRetriever(retrieverPtr);
  env->setCacheDir(tmp.sub("cache").c_str());
  retriever.allowFallback = false;
  EXPECT_EQ(Strings{"Searching bin file:vmlinux"}, searched("vmlinux"));
  // The retriever is asked for every name that was not found.
  EXPECT_EQ(Strings{"vmlinux"}, retriever.fallbackQuestions);
  retriever.allowFallback = true;
  EXPECT_EQ(3u, searched("vmlinux").size());
  // A name that is no kernel image is asked about too and does not fall back.
  EXPECT_EQ(1u, searched("libx.so").size());
  EXPECT_EQ((Strings{"vmlinux", "vmlinux", "libx.so"}), retriever.fallbackQuestions);
}

TEST_F(KernelFallbackTest, RetriesKeepTheValidatorCallbackTheSuggestionAndTheMask) {
  ObjectPtr<RecordingStepsConfigurator> configurator(
      new RecordingStepsConfigurator({ssHighPrioritySearchDirs}));
  env->setSearchStepsConfigurator(ObjectPtr<ISearchStepsConfigurator>(configurator));
  // Were the suggestion offered without the rejecting callback, it would be
  // accepted.
  const std::string suggestion = tmp.write("suggested/vmlinux", "ELF");
  RejectingValidatorCallback validatorCallback;
  const unsigned long long mask = 0x15ULL;
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  EXPECT_FALSE(search->findBinFile("vmlinux", &validatorCallback, suggestion.c_str(), mask));
  EXPECT_EQ((Strings{"Searching bin file:vmlinux", "Searching bin file:/boot/vmlinux-R9",
                     "Searching bin file:/boot/vmlinuz-R9"}),
            linesWithPrefix(capture, "Searching bin file:"));
  EXPECT_EQ((Strings{suggestion, suggestion, suggestion}), validatorCallback.asked);
  EXPECT_EQ(3u, capture.count("*** INVALID__ADDED " + suggestion));
  EXPECT_EQ(3u, capture.count("Suggested resolutions after callback: suggestedResolutions:[StringContainer: "
                              "m_list = " +
                              suggestion + ", ]"));
  EXPECT_EQ((StepsRequests{{scBinaryFiles, mask}, {scBinaryFiles, mask}, {scBinaryFiles, mask}}),
            configurator->requests);
}

TEST_F(KernelFallbackTest, FallbackFindsTheReleasedImage) {
  const std::string image = tmp.write("H/vmlinux-R9", "ELF");
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  ObjectPtr<IValidFile> result = search->findBinFile("vmlinux", nullptr, nullptr, 0);
  ASSERT_TRUE(result);
  EXPECT_EQ(image, result->name());
}

TEST_F(KernelFallbackTest, CompressedFallbackIsExtractedIntoTheCacheAndReused) {
  const std::string compressed = tmp.sub("H/vmlinuz-R9");
  writeCompressedKernel(compressed, "uncompressed kernel");
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  ObjectPtr<IValidFile> first = search->findBinFile("vmlinux", nullptr, nullptr, 0);
  ASSERT_TRUE(first);
  const std::string cacheDir = tmp.sub("cacheroot/vmlinux_cache");
  EXPECT_EQ(0u, std::string(first->name()).find(cacheDir + "/")) << first->name();
  EXPECT_EQ("vmlinux", fs::path(first->name()).filename().string());
  EXPECT_EQ(32u, fs::path(first->name()).parent_path().filename().string().size());
  ObjectPtr<IValidFile> second = search->findBinFile("vmlinux", nullptr, nullptr, 0);
  ASSERT_TRUE(second);
  EXPECT_STREQ(first->name(), second->name());
  EXPECT_EQ(1u, capture.count(std::string(first->name()) + " was extracted from " + compressed));
}

// --- Remote files ---------------------------------------------------------------------------

TEST(FileSearchRemoteTest, FetchedFileIsFiledIntoTheCache) {
  TempDir tmp;
  vell_test::TestFileRetriever retriever;
  retriever.remoteFiles["/remote/only/libr.so"] = "remote";
  IFileRetriever *retrieverPtr = &retriever;
  auto env = envWith({}, {ssAbsoluteNameLookup});
  env->setFileRetriever(retrieverPtr);
  env->setCacheDir(tmp.sub("cache").c_str());
  ObjectPtr<FileSearch> search(new FileSearch(ObjectPtr<ISearchEnv>(env)));
  ObjectPtr<IValidFile> result = search->findBinFile("/remote/only/libr.so", nullptr, nullptr, 0);
  ASSERT_TRUE(result);
  EXPECT_EQ(0u, std::string(result->name()).find(tmp.sub("cache/libr.so/"))) << result->name();
  EXPECT_EQ(ssAbsoluteNameLookup, result->searchStep());
  ASSERT_EQ(1u, retriever.retrieved.size());
  EXPECT_EQ(search->tempDir(), retriever.retrieved[0].second);
}

TEST(FileSearchRemoteTest, FailingRetrieverFindsNothing) {
  TempDir tmp;
  vell_test::TestFileRetriever retriever;
  IFileRetriever *retrieverPtr = &retriever;
  auto env = envWith({}, {ssAbsoluteNameLookup});
  env->setFileRetriever(retrieverPtr);
  env->setCacheDir(tmp.sub("cache").c_str());
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  vell_test::LogCapture capture;
  EXPECT_FALSE(search->findBinFile("/remote/only/libr.so", nullptr, nullptr, 0));
  EXPECT_EQ(1u, retriever.retrieved.size());
  EXPECT_FALSE(fs::exists(tmp.sub("cache")));
  EXPECT_TRUE(capture.contains("Returning the NULL result, no noFilesFoundCallback established"));
}

TEST(FileSearchRemoteTest, SymbolSearchHintIsTheRemoteBinaryLookedAround) {
  TempDir tmp;
  vell_test::TestFileRetriever retriever;
  retriever.remoteFiles["/remote/lib/.debug/libx.so.debug"] = "symbols";
  IFileRetriever *retrieverPtr = &retriever;
  auto env = envWith({}, {ssAroundBinaryLookup});
  env->setFileRetriever(retrieverPtr);
  env->setCacheDir(tmp.sub("cache").c_str());
  env->setEnvironmentInfo(vell_test::makeEnvironmentInfo(1, "R2"));
  CountingProgress progress;
  ObjectPtr<FileSearch> search(new FileSearch(ObjectPtr<ISearchEnv>(env)));
  ObjectPtr<IValidFile> result =
      search->findSymFile("libx.so.debug", tmp.sub("local/libx.so").c_str(), nullptr, nullptr, nullptr,
                          &progress, "/remote/lib/libx.so");
  ASSERT_TRUE(result);
  EXPECT_EQ(0u, std::string(result->name()).find(tmp.sub("cache/libx.so.debug/"))) << result->name();
  EXPECT_EQ(ssAroundBinaryLookup, result->searchStep());
  EXPECT_EQ(Strings{"/remote/lib/libx.so"}, retriever.localQuestions);
  Strings asked;
  for (const auto &request : retriever.retrieved) {
    asked.push_back(request.first);
    EXPECT_EQ(search->tempDir(), request.second);
  }
  EXPECT_EQ(
      (Strings{"/remote/lib/libx.so.debug", "/remote/lib/libx.debug", "/remote/lib/.debug/libx.so.debug"}),
      asked);
  // The progress callback is only carried along.
  EXPECT_EQ(0, progress.calls);
}

// --- File-system oddities ---------------------------------------------------------------------

TEST(FileSearchTreeTest, SymbolicLinkLoopsDoNotHoldTheSearchUp) {
  TempDir tmp;
  tmp.mkdir("R/a/b");
  fs::create_directory_symlink(tmp.sub("R"), tmp.sub("R/a/b/back"));
  fs::create_symlink("self", tmp.sub("R/a/self"));
  const std::string file = tmp.write("R/z/deep/libx.so");
  auto env = envWith({{scBinaryFiles, tmp.sub("R"), true, false}});
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  EXPECT_FALSE(search->findBinFile("libnone.so", nullptr, nullptr, 0));
  ObjectPtr<IValidFile> result = search->findBinFile("libx.so", nullptr, nullptr, 0);
  ASSERT_TRUE(result);
  EXPECT_EQ(file, result->name());
}

TEST(FileSearchTreeTest, UnreadableDirectoriesAreSkippedSilently) {
  TempDir tmp;
  tmp.write("R/closed/inner/libhidden.so");
  const std::string visible = tmp.write("R/open/inner/libvisible.so");
  vell_test::openForOthers(tmp.sub("R/open/inner"));
  fs::permissions(visible, fs::perms::others_read, fs::perm_options::add);
  fs::permissions(tmp.sub("R/closed"), fs::perms::owner_all, fs::perm_options::replace);
  auto env = envWith({{scBinaryFiles, tmp.sub("R"), true, false}});
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  ObjectPtr<IValidFile> hidden;
  ObjectPtr<IValidFile> found;
  {
    vell_test::AsUnprivilegedUser nobody;
    hidden = search->findBinFile("libhidden.so", nullptr, nullptr, 0);
    found = search->findBinFile("libvisible.so", nullptr, nullptr, 0);
  }
  EXPECT_FALSE(hidden);
  ASSERT_TRUE(found);
  EXPECT_EQ(visible, found->name());
}

} // namespace
