// The binary, symbol and source strategies: their system directories, the
// module-name rule, the look-around-the-binary candidates, remote variants
// and the callback hand-overs.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell_search/bin_file_search_strategy.h"
#include "vell_search/recording_container.h"
#include "vell_search/search_test_support.h"
#include "vell_search/src_file_search_strategy.h"
#include "vell_search/sym_file_search_strategy.h"

using namespace VELL_2_13;
using vell_test::FixedKernelRelease;
using vell_test::RecordingContainer;
using vell_test::RecordingDirectoryContainer;
using vell_test::TempDir;

namespace fs = std::filesystem;

namespace {

using Strings = std::vector<std::string>;

// A validator that is never asked anything by the strategies themselves.
class NullValidator : public IValidator {
public:
  ObjectPtr<IValidatedFile> validate(const char *) override { return {}; }
};

// Callbacks that record their arguments.
class RecordingSearchStarted : public ISearchStartedCallback {
public:
  bool binFileSearchStarted(const char *binName, IStringContainer &names) override {
    calls.push_back(Strings{"bin", binName});
    names.add("suggested");
    return answer;
  }
  bool symFileSearchStarted(const char *k1, const char *k2, const char *k3, IStringContainer &) override {
    calls.push_back(Strings{"sym", k1, k2, k3});
    return answer;
  }
  bool srcFileSearchStarted(const char *k1, const char *k2, const char *k3, IStringContainer &) override {
    calls.push_back(Strings{"src", k1, k2, k3});
    return answer;
  }
  std::vector<Strings> calls;
  bool answer = false;
};

class RecordingFilesFound : public IFilesFoundCallback {
public:
  ObjectPtr<IValidFile> binFilesFound(const char *binName, IValidFileIterator &files) override {
    calls.push_back(Strings{"bin", binName});
    seenFiles = &files;
    return result;
  }
  ObjectPtr<IValidFile> symFilesFound(const char *k1, const char *k2, const char *k3,
                                      IValidFileIterator &files) override {
    calls.push_back(Strings{"sym", k1, k2, k3});
    seenFiles = &files;
    return result;
  }
  ObjectPtr<IValidFile> srcFilesFound(const char *k1, const char *k2, const char *k3,
                                      IValidFileIterator &files) override {
    calls.push_back(Strings{"src", k1, k2, k3});
    seenFiles = &files;
    return result;
  }
  std::vector<Strings> calls;
  IValidFileIterator *seenFiles = nullptr;
  ObjectPtr<IValidFile> result{new ValidFile("/chosen", confidence_t(0), ssAskUser)};
};

class RecordingNoFilesFound : public INoFilesFoundCallback {
public:
  ObjectPtr<IValidFile> noBinFilesFound(const char *binName, IValidator &validator,
                                        IInvalidFileIterator &rejected, IValidFileIterator &files) override {
    calls.push_back(Strings{"bin", binName});
    record(validator, rejected, files);
    return result;
  }
  ObjectPtr<IValidFile> noSymFilesFound(const char *k1, const char *k2, const char *k3, IValidator &validator,
                                        IInvalidFileIterator &rejected, IValidFileIterator &files) override {
    calls.push_back(Strings{"sym", k1, k2, k3});
    record(validator, rejected, files);
    return result;
  }
  ObjectPtr<IValidFile> noSrcFilesFound(const char *k1, const char *k2, const char *k3, IValidator &validator,
                                        IInvalidFileIterator &rejected, IValidFileIterator &files) override {
    calls.push_back(Strings{"src", k1, k2, k3});
    record(validator, rejected, files);
    return result;
  }
  void record(IValidator &validator, IInvalidFileIterator &rejected, IValidFileIterator &files) {
    seenValidator = &validator;
    seenRejected = &rejected;
    seenFiles = &files;
  }
  std::vector<Strings> calls;
  IValidator *seenValidator = nullptr;
  IInvalidFileIterator *seenRejected = nullptr;
  IValidFileIterator *seenFiles = nullptr;
  ObjectPtr<IValidFile> result{new ValidFile("/supplied", confidence_t(0), ssAskUser)};
};

class EmptyValidFiles : public IValidFileIterator {
public:
  void reset() override {}
  ObjectPtr<IValidFile> next() override { return {}; }
};

class EmptyInvalidFiles : public IInvalidFileIterator {
public:
  void reset() override {}
  ObjectPtr<IInvalidFile> next() override { return {}; }
};

ObjectPtr<IEditableSearchEnv> envWithInfo(unsigned osType, const char *release) {
  auto env = IEditableSearchEnv::create();
  env->setEnvironmentInfo(vell_test::makeEnvironmentInfo(osType, release));
  return env;
}

// The system directories a binary strategy for name lists, as "<dir> N|R".
Strings binSystemDirs(ISearchEnv *env, const char *name) {
  NullValidator validator;
  BinFileSearchStrategy strategy(env, name, "", &validator);
  RecordingDirectoryContainer dirs;
  strategy.fillSystemDirs(dirs);
  return dirs.entries;
}

// --- Binary system directories -------------------------------------------------------

TEST(BinFileSearchStrategyTest, SystemDirectoriesOfAnOrdinaryBinary) {
  FixedKernelRelease release;
  EXPECT_EQ((Strings{"/lib/modules N", "/lib/modules/R1/kernel/ R"}), binSystemDirs(nullptr, "libx.so"));
}

TEST(BinFileSearchStrategyTest, SystemDirectoriesOfTheKernelImage) {
  FixedKernelRelease release;
  auto env = envWithInfo(1, "R2");
  EXPECT_EQ(
      (Strings{"/lib/modules N", "/lib/modules/R1/kernel/ R", "/boot N", "/usr/lib/debug/lib/modules/R2 N"}),
      binSystemDirs(env.get(), "vmlinux"));
}

TEST(BinFileSearchStrategyTest, KernelImageWithoutTargetReleaseHasNoDebugModuleDirectory) {
  FixedKernelRelease release;
  auto emptyRelease = envWithInfo(1, "");
  auto noInfo = IEditableSearchEnv::create();
  for (ISearchEnv *env : {static_cast<ISearchEnv *>(emptyRelease.get()),
                          static_cast<ISearchEnv *>(noInfo.get()), static_cast<ISearchEnv *>(nullptr)})
    EXPECT_EQ((Strings{"/lib/modules N", "/lib/modules/R1/kernel/ R", "/boot N"}),
              binSystemDirs(env, "vmlinux"));
}

TEST(BinFileSearchStrategyTest, FailingUnameLeavesOutTheReleaseDirectories) {
  FixedKernelRelease failing(true);
  auto env = envWithInfo(1, "R2");
  EXPECT_EQ((Strings{"/lib/modules N", "/boot N", "/usr/lib/debug/lib/modules/R2 N"}),
            binSystemDirs(env.get(), "vmlinux"));
}

TEST(BinFileSearchStrategyTest, KernelImageByAbsolutePathKeepsTheKernelDirectories) {
  FixedKernelRelease release;
  auto env = envWithInfo(1, "R2");
  EXPECT_EQ(
      (Strings{"/lib/modules N", "/lib/modules/R1/kernel/ R", "/boot N", "/usr/lib/debug/lib/modules/R2 N"}),
      binSystemDirs(env.get(), "/boot/vmlinux"));
}

TEST(BinFileSearchStrategyTest, NameMerelyContainingVmlinuxIsNotTheKernelImage) {
  FixedKernelRelease release;
  auto env = envWithInfo(1, "R2");
  for (const char *name : {"xvmlinux", "vmlinux.1", "/boot/vmlinux/x"})
    EXPECT_EQ((Strings{"/lib/modules N", "/lib/modules/R1/kernel/ R"}), binSystemDirs(env.get(), name))
        << name;
}

// --- Binary system-directory step --------------------------------------------------------

TEST(BinFileSearchStrategyTest, BareModuleNameIsLookedForAsKernelModuleOnly) {
  FixedKernelRelease release;
  NullValidator validator;
  BinFileSearchStrategy strategy(nullptr, "ext4", "", &validator);
  RecordingContainer container;
  EXPECT_FALSE(strategy.findInSystemDirs(container));
  // /lib/modules/R1/kernel/ does not exist, so its walk is empty.
  EXPECT_EQ((Strings{"/lib/modules/ext4.ko", "/lib/modules/R1/kernel/ext4.ko"}), container.paths());
  for (unsigned int step : container.steps())
    EXPECT_EQ(unsigned(ssSystemDirs), step);
}

TEST(BinFileSearchStrategyTest, KernelImageIsLookedForAsAModuleInSystemDirectories) {
  FixedKernelRelease release;
  NullValidator validator;
  auto env = envWithInfo(1, "R2");
  BinFileSearchStrategy strategy(env.get(), "vmlinux", "", &validator);
  RecordingContainer container;
  strategy.findInSystemDirs(container);
  EXPECT_EQ((Strings{"/lib/modules/vmlinux.ko", "/lib/modules/R1/kernel/vmlinux.ko", "/boot/vmlinux.ko",
                     "/usr/lib/debug/lib/modules/R2/vmlinux.ko"}),
            container.paths());
}

TEST(BinFileSearchStrategyTest, NameWithAnExtensionIsUsedAsGiven) {
  FixedKernelRelease release;
  NullValidator validator;
  BinFileSearchStrategy strategy(nullptr, "libx.so.1", "", &validator);
  RecordingContainer container;
  strategy.findInSystemDirs(container);
  EXPECT_EQ((Strings{"/lib/modules/libx.so.1", "/lib/modules/R1/kernel/libx.so.1"}), container.paths());
}

TEST(BinFileSearchStrategyTest, AbsoluteKernelImageNameIsUsedAsGiven) {
  FixedKernelRelease release;
  NullValidator validator;
  auto env = envWithInfo(1, "R2");
  BinFileSearchStrategy strategy(env.get(), "/boot/vmlinux", "", &validator);
  RecordingContainer container;
  strategy.findInSystemDirs(container);
  const Strings expected{"/lib/modules/boot/vmlinux",
                         "/lib/modules/boot/vmlinux",
                         "/lib/modules/vmlinux",
                         "/lib/modules/R1/kernel/boot/vmlinux",
                         "/lib/modules/R1/kernel/boot/vmlinux",
                         "/lib/modules/R1/kernel/vmlinux",
                         "/boot/boot/vmlinux",
                         "/boot/boot/vmlinux",
                         "/boot/vmlinux",
                         "/usr/lib/debug/lib/modules/R2/boot/vmlinux",
                         "/usr/lib/debug/lib/modules/R2/boot/vmlinux",
                         "/usr/lib/debug/lib/modules/R2/vmlinux"};
  EXPECT_EQ(expected, container.paths());
}

TEST(BinFileSearchStrategyTest, GuestNamesAreNotSearchedInSystemDirectories) {
  FixedKernelRelease release;
  NullValidator validator;
  for (const char *name : {"ext4 [guest]", "[guest]", "/lib/x.so [guest]"}) {
    BinFileSearchStrategy strategy(nullptr, name, "", &validator);
    RecordingContainer container;
    EXPECT_FALSE(strategy.findInSystemDirs(container));
    EXPECT_TRUE(container.candidates.empty()) << name;
  }
}

TEST(BinFileSearchStrategyTest, ModuleIsFoundInTheWalkOfTheModuleTree) {
  // The strategy's own list points at the real /lib/modules; the rule itself
  // is checked through the directory pass over a tree of the test.
  TempDir tmp;
  const std::string module = tmp.write("modules/R1/kernel/fs/ext4/ext4.ko");
  FilesFinder finder(ssSystemDirs, nullptr);
  finder.addSearchDirectory(tmp.sub("modules/R1/kernel/").c_str(), true);
  RecordingContainer container;
  container.acceptIf = [](const std::string &path) { return fs::is_regular_file(path); };
  EXPECT_TRUE(finder.find("ext4.ko", container));
  EXPECT_EQ(module, container.paths().back());
}

TEST(BinFileSearchStrategyTest, NeverLooksAroundTheBinary) {
  NullValidator validator;
  BinFileSearchStrategy strategy(nullptr, "/usr/lib/libx.so", "", &validator);
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAroundBinary(container));
  EXPECT_TRUE(container.candidates.empty());
  EXPECT_EQ(scBinaryFiles, strategy.getCategorySpecific());
}

TEST(BinFileSearchStrategyTest, AbsoluteNameIsFetchedWhenTheRetrieverDoesNotClaimIt) {
  TempDir tmp;
  vell_test::TestFileRetriever retriever;
  retriever.remoteFiles["/usr/lib/libx.so"] = "x";
  IFileRetriever *retrieverPtr = &retriever;
  auto env = IEditableSearchEnv::create();
  env->setFileRetriever(retrieverPtr);
  env->setCacheDir(tmp.sub("cache").c_str());
  NullValidator validator;
  BinFileSearchStrategy strategy(env.get(), "/usr/lib/libx.so", tmp.mkdir("fetch"), &validator);
  RecordingContainer container;
  strategy.lookUpAbsoluteName(container);
  ASSERT_EQ(1u, container.candidates.size());
  EXPECT_EQ(0u, container.candidates[0].first.find(tmp.sub("cache/libx.so/")));
}

// --- Symbol files -----------------------------------------------------------------------------

TEST(SymFileSearchStrategyTest, SystemDirectoriesMirrorTheBinarysDirectory) {
  NullValidator validator;
  SymFileSearchStrategy strategy(nullptr, "libx.so.debug", "", &validator, nullptr, "/usr/lib/libx.so", "",
                                 "");
  RecordingDirectoryContainer dirs;
  strategy.fillSystemDirs(dirs);
  EXPECT_EQ((Strings{"/usr/lib/debug N", "/usr/lib/debug//usr/lib N"}), dirs.entries);
}

TEST(SymFileSearchStrategyTest, NameStartingWithTheBinaryPathHasNoMirrorDirectory) {
  NullValidator validator;
  SymFileSearchStrategy strategy(nullptr, "/usr/lib/libx.so.debug", "", &validator, nullptr,
                                 "/usr/lib/libx.so", "", "");
  RecordingDirectoryContainer dirs;
  strategy.fillSystemDirs(dirs);
  EXPECT_EQ((Strings{"/usr/lib/debug N"}), dirs.entries);

  SymFileSearchStrategy noBinary(nullptr, "libx.so.debug", "", &validator, nullptr, "", "", "");
  RecordingDirectoryContainer others;
  noBinary.fillSystemDirs(others);
  EXPECT_EQ((Strings{"/usr/lib/debug N"}), others.entries);
}

TEST(SymFileSearchStrategyTest, LooksAroundTheBinaryInOrder) {
  NullValidator validator;
  SymFileSearchStrategy strategy(nullptr, "libx.so.debug", "", &validator, nullptr, "/usr/lib/libx.so", "",
                                 "");
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAroundBinary(container));
  EXPECT_EQ((Strings{"/usr/lib/libx.so.debug", "/usr/lib/libx.debug", "/usr/lib/.debug/libx.so.debug"}),
            container.paths());
  for (unsigned int step : container.steps())
    EXPECT_EQ(unsigned(ssAroundBinaryLookup), step);
}

TEST(SymFileSearchStrategyTest, SameBaseNameSkipsTheExtensionCandidate) {
  NullValidator validator;
  SymFileSearchStrategy strategy(nullptr, "/build/libx.debug", "", &validator, nullptr, "/usr/lib/libx.so",
                                 "", "");
  RecordingContainer container;
  strategy.lookUpAroundBinary(container);
  EXPECT_EQ((Strings{"/usr/lib/libx.debug", "/usr/lib/.debug/libx.debug"}), container.paths());
}

TEST(SymFileSearchStrategyTest, LookAroundStopsAtTheFirstAcceptedCandidate) {
  NullValidator validator;
  SymFileSearchStrategy strategy(nullptr, "libx.so.debug", "", &validator, nullptr, "/usr/lib/libx.so", "",
                                 "");
  RecordingContainer container;
  container.accepted.insert("/usr/lib/libx.debug");
  EXPECT_TRUE(strategy.lookUpAroundBinary(container));
  EXPECT_EQ((Strings{"/usr/lib/libx.so.debug", "/usr/lib/libx.debug"}), container.paths());
}

TEST(SymFileSearchStrategyTest, NoBinaryMeansNothingAroundIt) {
  NullValidator validator;
  SymFileSearchStrategy strategy(nullptr, "libx.so.debug", "", &validator, nullptr, "", "", "");
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAroundBinary(container));
  EXPECT_TRUE(container.candidates.empty());
}

struct SymRemoteTest : public ::testing::Test {
  void SetUp() override {
    env = envWithInfo(1, "R2");
    env->setCacheDir(tmp.sub("cache").c_str());
    env->setFileRetriever(retrieverPtr);
    fetchDir = tmp.mkdir("fetch");
  }
  TempDir tmp;
  vell_test::TestFileRetriever retriever;
  IFileRetriever *retrieverPtr = &retriever;
  ObjectPtr<IEditableSearchEnv> env;
  std::string fetchDir;
  NullValidator validator;
};

TEST_F(SymRemoteTest, RemoteBinarysSurroundingsAreFetchedInOrder) {
  retriever.remoteFiles["/remote/lib/.debug/libx.so.debug"] = "symbols";
  SymFileSearchStrategy strategy(env.get(), "libx.so.debug", fetchDir, &validator, nullptr,
                                 "/usr/lib/libx.so", "", "/remote/lib/libx.so");
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAroundBinary(container));
  Strings asked;
  for (const auto &request : retriever.retrieved) {
    asked.push_back(request.first);
    EXPECT_EQ(fetchDir, request.second);
  }
  EXPECT_EQ(
      (Strings{"/remote/lib/libx.so.debug", "/remote/lib/libx.debug", "/remote/lib/.debug/libx.so.debug"}),
      asked);
  ASSERT_EQ(4u, container.candidates.size());
  EXPECT_EQ(0u, container.candidates[3].first.find(tmp.sub("cache/libx.so.debug/")));
  EXPECT_EQ(unsigned(ssAroundBinaryLookup), container.candidates[3].second);
}

TEST_F(SymRemoteTest, FirstFetchedRemoteNameEndsTheStep) {
  retriever.remoteFiles["/remote/lib/libx.so.debug"] = "symbols";
  retriever.remoteFiles["/remote/lib/.debug/libx.so.debug"] = "other symbols";
  SymFileSearchStrategy strategy(env.get(), "libx.so.debug", fetchDir, &validator, nullptr,
                                 "/usr/lib/libx.so", "", "/remote/lib/libx.so");
  RecordingContainer container;
  strategy.lookUpAroundBinary(container);
  EXPECT_EQ(1u, retriever.retrieved.size());
  EXPECT_EQ(4u, container.candidates.size());
}

TEST_F(SymRemoteTest, NothingFetchedWhenTheRemoteLookUpDoesNotApply) {
  SymFileSearchStrategy noRemote(env.get(), "libx.so.debug", fetchDir, &validator, nullptr,
                                 "/usr/lib/libx.so", "", "");
  SymFileSearchStrategy noRetrievalDir(env.get(), "libx.so.debug", "", &validator, nullptr,
                                       "/usr/lib/libx.so", "", "/remote/lib/libx.so");
  auto otherOs = envWithInfo(0, "R2");
  otherOs->setCacheDir(tmp.sub("cache").c_str());
  otherOs->setFileRetriever(retrieverPtr);
  SymFileSearchStrategy notLinux(otherOs.get(), "libx.so.debug", fetchDir, &validator, nullptr,
                                 "/usr/lib/libx.so", "", "/remote/lib/libx.so");
  for (SymFileSearchStrategy *strategy : {&noRemote, &noRetrievalDir, &notLinux}) {
    RecordingContainer container;
    strategy->lookUpAroundBinary(container);
    EXPECT_EQ(3u, container.candidates.size());
  }
  EXPECT_TRUE(retriever.retrieved.empty());

  // A retriever that claims the remote binary as local.
  retriever.localNames.insert("/remote/lib/libx.so");
  SymFileSearchStrategy claimed(env.get(), "libx.so.debug", fetchDir, &validator, nullptr, "/usr/lib/libx.so",
                                "", "/remote/lib/libx.so");
  RecordingContainer container;
  claimed.lookUpAroundBinary(container);
  EXPECT_EQ(3u, container.candidates.size());
  EXPECT_TRUE(retriever.retrieved.empty());
  EXPECT_EQ((Strings{"/remote/lib/libx.so"}), retriever.localQuestions);
}

TEST_F(SymRemoteTest, RemoteNamesThatCannotBeFetchedEndTheStepWithFalse) {
  SymFileSearchStrategy strategy(env.get(), "libx.so.debug", fetchDir, &validator, nullptr,
                                 "/usr/lib/libx.so", "", "/remote/lib/libx.so");
  const Strings local{"/usr/lib/libx.so.debug", "/usr/lib/libx.debug", "/usr/lib/.debug/libx.so.debug"};
  RecordingContainer container;
  // Any candidate but the three local ones would be accepted.
  container.acceptIf = [&](const std::string &path) {
    return std::find(local.begin(), local.end(), path) == local.end();
  };
  EXPECT_FALSE(strategy.lookUpAroundBinary(container));
  EXPECT_EQ(local, container.paths());
  Strings asked;
  for (const auto &request : retriever.retrieved)
    asked.push_back(request.first);
  EXPECT_EQ(
      (Strings{"/remote/lib/libx.so.debug", "/remote/lib/libx.debug", "/remote/lib/.debug/libx.so.debug"}),
      asked);
}

TEST_F(SymRemoteTest, RemoteLookUpNeedsAFileRetriever) {
  // No file retriever and no cache directory: an attempt to fetch would log
  // the missing cache directory.
  auto noRetriever = envWithInfo(1, "R2");
  SymFileSearchStrategy strategy(noRetriever.get(), "libx.so.debug", fetchDir, &validator, nullptr,
                                 "/usr/lib/libx.so", "", "/remote/lib/libx.so");
  RecordingContainer container;
  vell_test::LogCapture capture;
  EXPECT_FALSE(strategy.lookUpAroundBinary(container));
  EXPECT_EQ((Strings{"/usr/lib/libx.so.debug", "/usr/lib/libx.debug", "/usr/lib/.debug/libx.so.debug"}),
            container.paths());
  EXPECT_TRUE(capture.lines().empty());
}

TEST_F(SymRemoteTest, AbsoluteNameIsFetchedOnlyForALinuxTarget) {
  retriever.remoteFiles["/usr/lib/debug/libx.so.debug"] = "symbols";
  SymFileSearchStrategy linuxTarget(env.get(), "/usr/lib/debug/libx.so.debug", fetchDir, &validator, nullptr,
                                    "", "", "");
  RecordingContainer fetched;
  linuxTarget.lookUpAbsoluteName(fetched);
  ASSERT_EQ(1u, fetched.candidates.size());
  EXPECT_EQ(0u, fetched.candidates[0].first.find(tmp.sub("cache/libx.so.debug/")));
  EXPECT_EQ(1u, retriever.retrieved.size());

  auto noInfo = IEditableSearchEnv::create();
  noInfo->setCacheDir(tmp.sub("cache").c_str());
  noInfo->setFileRetriever(retrieverPtr);
  auto otherOs = envWithInfo(0, "");
  otherOs->setCacheDir(tmp.sub("cache").c_str());
  otherOs->setFileRetriever(retrieverPtr);
  for (ISearchEnv *other : {static_cast<ISearchEnv *>(noInfo.get()), static_cast<ISearchEnv *>(otherOs.get()),
                            static_cast<ISearchEnv *>(nullptr)}) {
    SymFileSearchStrategy plain(other, "/usr/lib/debug/libx.so.debug", fetchDir, &validator, nullptr, "", "",
                                "");
    RecordingContainer container;
    plain.lookUpAbsoluteName(container);
    EXPECT_EQ((Strings{"/usr/lib/debug/libx.so.debug"}), container.paths());
  }
  EXPECT_EQ(1u, retriever.retrieved.size());
}

TEST(SymFileSearchStrategyTest, FindHookNeitherClaimsNorSkips) {
  NullValidator validator;
  SymFileSearchStrategy strategy(nullptr, "x", "", &validator, nullptr, "", "", "");
  RecordingContainer container;
  bool skip = true;
  EXPECT_FALSE(strategy.find("/d", false, "x", container, skip));
  EXPECT_FALSE(skip);
  EXPECT_EQ(scSymbolFiles, strategy.getCategorySpecific());
}

// --- Source files ------------------------------------------------------------------------------

TEST(SrcFileSearchStrategyTest, SystemDirectoriesAreTheKernelSources) {
  NullValidator validator;
  SrcFileSearchStrategy strategy(nullptr, "main.c", &validator, "", "");
  {
    FixedKernelRelease release;
    RecordingDirectoryContainer dirs;
    strategy.fillSystemDirs(dirs);
    EXPECT_EQ((Strings{"/usr/src N", "/usr/src/linux-headers-R1 N"}), dirs.entries);
  }
  FixedKernelRelease failing(true);
  RecordingDirectoryContainer dirs;
  strategy.fillSystemDirs(dirs);
  EXPECT_EQ((Strings{"/usr/src N"}), dirs.entries);
  EXPECT_EQ(scSourceFiles, strategy.getCategorySpecific());
}

TEST(SrcFileSearchStrategyTest, NeverFetchesAndNeverLooksAroundTheBinary) {
  TempDir tmp;
  vell_test::TestFileRetriever retriever;
  retriever.remoteFiles["/src/main.c"] = "int main;";
  IFileRetriever *retrieverPtr = &retriever;
  auto env = envWithInfo(1, "R2");
  env->setFileRetriever(retrieverPtr);
  env->setCacheDir(tmp.sub("cache").c_str());
  NullValidator validator;
  SrcFileSearchStrategy strategy(env.get(), "/src/main.c", &validator, "/usr/bin/prog", "");
  RecordingContainer container;
  EXPECT_FALSE(strategy.lookUpAroundBinary(container));
  EXPECT_TRUE(container.candidates.empty());
  strategy.lookUpAbsoluteName(container);
  EXPECT_EQ((Strings{"/src/main.c"}), container.paths());
  EXPECT_TRUE(retriever.retrieved.empty());
  EXPECT_TRUE(retriever.localQuestions.empty());
}

// --- Callback hand-overs ---------------------------------------------------------------------

TEST(CategoryStrategyCallbacksTest, BinaryCallbacksGetTheFileName) {
  NullValidator validator;
  BinFileSearchStrategy strategy(nullptr, "/usr/lib/libx.so", "", &validator);
  RecordingSearchStarted started;
  StringContainer suggestions;
  EXPECT_FALSE(strategy.callSearchStarted(started, suggestions));
  EXPECT_EQ((std::vector<Strings>{{"bin", "/usr/lib/libx.so"}}), started.calls);
  EXPECT_EQ((std::list<std::string>{"suggested"}), suggestions.strings());
  started.answer = true;
  EXPECT_TRUE(strategy.callSearchStarted(started, suggestions));

  RecordingFilesFound found;
  EmptyValidFiles files;
  EXPECT_EQ(found.result, strategy.callFilesFound(found, files));
  EXPECT_EQ((std::vector<Strings>{{"bin", "/usr/lib/libx.so"}}), found.calls);
  EXPECT_EQ(&files, found.seenFiles);

  RecordingNoFilesFound none;
  EmptyInvalidFiles rejected;
  EXPECT_EQ(none.result, strategy.callNoFilesFound(none, rejected, files));
  EXPECT_EQ((std::vector<Strings>{{"bin", "/usr/lib/libx.so"}}), none.calls);
  EXPECT_EQ(&validator, none.seenValidator);
  EXPECT_EQ(&rejected, none.seenRejected);
  EXPECT_EQ(&files, none.seenFiles);
}

TEST(CategoryStrategyCallbacksTest, SymbolCallbacksGetTheThreeNames) {
  NullValidator validator;
  SymFileSearchStrategy strategy(nullptr, "libx.so.debug", "", &validator, nullptr, "/usr/lib/libx.so",
                                 "abc123", "/remote/libx.so");
  RecordingSearchStarted started;
  StringContainer suggestions;
  strategy.callSearchStarted(started, suggestions);
  RecordingFilesFound found;
  EmptyValidFiles files;
  strategy.callFilesFound(found, files);
  RecordingNoFilesFound none;
  EmptyInvalidFiles rejected;
  strategy.callNoFilesFound(none, rejected, files);
  const Strings expected{"sym", "libx.so.debug", "/usr/lib/libx.so", "abc123"};
  EXPECT_EQ(std::vector<Strings>{expected}, started.calls);
  EXPECT_EQ(std::vector<Strings>{expected}, found.calls);
  EXPECT_EQ(std::vector<Strings>{expected}, none.calls);
  EXPECT_EQ(&validator, none.seenValidator);
}

TEST(CategoryStrategyCallbacksTest, SourceCallbacksGetTheThreeNames) {
  NullValidator validator;
  SrcFileSearchStrategy strategy(nullptr, "main.c", &validator, "/usr/bin/prog", "sum");
  RecordingSearchStarted started;
  StringContainer suggestions;
  strategy.callSearchStarted(started, suggestions);
  RecordingFilesFound found;
  EmptyValidFiles files;
  strategy.callFilesFound(found, files);
  RecordingNoFilesFound none;
  EmptyInvalidFiles rejected;
  strategy.callNoFilesFound(none, rejected, files);
  const Strings expected{"src", "main.c", "/usr/bin/prog", "sum"};
  EXPECT_EQ(std::vector<Strings>{expected}, started.calls);
  EXPECT_EQ(std::vector<Strings>{expected}, found.calls);
  EXPECT_EQ(std::vector<Strings>{expected}, none.calls);
  EXPECT_EQ(&validator, none.seenValidator);
}

} // namespace
