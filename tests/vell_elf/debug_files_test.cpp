// Finding debug files by build ID and debug link, and checking that they
// belong to their binary, with real ELF files built by gcc, objcopy and strip.
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "support/elf_fixture.h"
#include "support/temp_dir.h"
#include "vell/debug_files.h"
#include "vell/file_search.h"
#include "vell/platform.h"
#include "vell_validation/catalog_scope.h"

using namespace VELL_2_13;
namespace fs = std::filesystem;

namespace {

using Strings = std::vector<std::string>;

class ErrorInfo : public IErrorInfoContainer {
public:
  void setSeverity(severity_t value) override { severity = value; }
  void setErrorMessage(const char *text) override { message = text ? text : ""; }
  unsigned severity = 99;
  std::string message;
};

// Keeps what a search that found nothing rejected.
class Rejections : public INoFilesFoundCallback {
public:
  ObjectPtr<IValidFile> noBinFilesFound(const char *, IValidator &, IInvalidFileIterator &rejected,
                                        IValidFileIterator &) override {
    return collect(rejected);
  }
  ObjectPtr<IValidFile> noSymFilesFound(const char *, const char *, const char *, IValidator &,
                                        IInvalidFileIterator &rejected, IValidFileIterator &) override {
    return collect(rejected);
  }
  ObjectPtr<IValidFile> noSrcFilesFound(const char *, const char *, const char *, IValidator &,
                                        IInvalidFileIterator &rejected, IValidFileIterator &) override {
    return collect(rejected);
  }
  std::vector<std::pair<std::string, std::string>> files; // path, message
  std::vector<unsigned> severities;

private:
  ObjectPtr<IValidFile> collect(IInvalidFileIterator &rejected) {
    rejected.reset();
    while (ObjectPtr<IInvalidFile> file = rejected.next()) {
      files.emplace_back(file->name(), file->errorMessage());
      severities.push_back(file->severity());
    }
    return ObjectPtr<IValidFile>();
  }
};

// A host layout in a temporary directory: <root>/usr/lib/debug as the global
// debug directory, <root>/symbols as a symbol search directory, the binary
// under <root>/usr/bin.
class DebugFilesTest : public ::testing::Test {
protected:
  void SetUp() override {
    globalDebug = tmp.mkdir("usr/lib/debug");
    symbols = tmp.mkdir("symbols");
    binary = tmp.sub("usr/bin/prog");
    vell_test::copyFile(fixture.prog.stripped, binary);
    locations.globalDebugDir = globalDebug;
    locations.directories = {symbols};
  }

  std::string byBuildId(const std::string &root, const vell_test::ElfBuild &build) const {
    return root + "/.build-id/" + build.buildId.substr(0, 2) + "/" + build.buildId.substr(2) + ".debug";
  }

  // Runs a symbol search over an environment whose symbol directory is
  // symbols, with the build-ID suggestions and the identity check installed.
  ObjectPtr<IValidFile> findSym(const std::string &symName, const std::string &binaryPath,
                                const std::string &recorded = "") {
    auto env = IEditableSearchEnv::create();
    auto dirs = IEditableSearchDirContainer::create();
    dirs->addDirectory(scSymbolFiles, symbols.c_str(), false, false);
    env->setSearchDirs(dirs);
    BuildIdSearchStartedCallback started(locations);
    started.setRecordedBuildId(recorded);
    env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&started));
    env->setNoFilesFoundCallback(CallbackHolder<INoFilesFoundCallback>(&rejections));
    ElfIdentityValidator check(scSymbolFiles, binaryPath, recorded);
    ObjectPtr<IFileSearch> search = IFileSearch::create(env);
    const char *binaryArg = binaryPath.empty() ? nullptr : binaryPath.c_str();
    return search->findSymFile(symName.c_str(), binaryArg, nullptr, &check, nullptr, nullptr, nullptr);
  }

  const vell_test::ElfFixture &fixture = vell_test::elfFixture();
  vell_test::TempDir tmp;
  vell_test::CatalogScope catalogs{vell_test::shippedCatalogDir()};
  std::string globalDebug;
  std::string symbols;
  std::string binary;
  DebugFileLocations locations;
  Rejections rejections;
};

} // namespace

// --- Candidates ---------------------------------------------------------------------------

TEST_F(DebugFilesTest, CandidatesComeInTheStatedOrder) {
  std::string binDir = tmp.sub("usr/bin");
  Strings expected = {byBuildId(globalDebug, fixture.prog), byBuildId(symbols, fixture.prog),
                      binDir + "/prog.debug", binDir + "/.debug/prog.debug",
                      globalDebug + binDir + "/prog.debug"};
  EXPECT_EQ(expected, debugFileCandidates(binary, "", locations));
}

TEST_F(DebugFilesTest, RecordedBuildIdOutranksTheBinarysOwn) {
  Strings candidates = debugFileCandidates(binary, fixture.other.buildId, locations);
  ASSERT_GE(candidates.size(), 2u);
  EXPECT_EQ(byBuildId(globalDebug, fixture.other), candidates[0]);
  EXPECT_EQ(byBuildId(symbols, fixture.other), candidates[1]);
}

TEST_F(DebugFilesTest, OnlyARecordedBuildIdGivesOnlyBuildIdCandidates) {
  Strings expected = {byBuildId(globalDebug, fixture.prog), byBuildId(symbols, fixture.prog)};
  EXPECT_EQ(expected, debugFileCandidates("", fixture.prog.buildId, locations));
}

TEST_F(DebugFilesTest, BinaryReachedThroughASymlinkAlsoGetsItsRealDirectory) {
  std::string link = tmp.sub("links/prog");
  fs::create_directories(fs::path(link).parent_path());
  fs::create_symlink(binary, link);
  Strings candidates = debugFileCandidates(link, "", locations);
  std::string binDir = tmp.sub("usr/bin");
  std::string linkDir = tmp.sub("links");
  ASSERT_EQ(8u, candidates.size());
  EXPECT_EQ(linkDir + "/prog.debug", candidates[2]);
  EXPECT_EQ(fs::canonical(binDir).string() + "/prog.debug", candidates[5]);
}

TEST_F(DebugFilesTest, DebugLinkThatNamesAPathIsIgnored) {
  std::string hostile = tmp.sub("usr/bin/hostile");
  vell_test::copyFile(fixture.prog.full, hostile);
  vell_test::runShell("cd '" + tmp.path() + "' && mkdir -p up && cp '" + fixture.prog.debug +
                      "' up/x.debug && objcopy --add-gnu-debuglink=up/x.debug '" + hostile + "'");
  // objcopy records the base name only; write a path into the section by hand.
  vell_test::runShell("cd '" + tmp.path() +
                      "' && printf '../../up/x.debug\\0\\0\\0\\0\\0\\0\\0\\0' > link.bin && "
                      "objcopy --update-section .gnu_debuglink=link.bin '" +
                      hostile + "'");
  std::optional<ElfIdentity> identity = readElfIdentity(hostile);
  ASSERT_TRUE(identity.has_value());
  ASSERT_EQ("../../up/x.debug", identity->debugLinkName);
  Strings expected = {byBuildId(globalDebug, fixture.prog), byBuildId(symbols, fixture.prog)};
  EXPECT_EQ(expected, debugFileCandidates(hostile, "", locations));
}

TEST_F(DebugFilesTest, BinaryCandidatesByBuildIdHaveNoSuffix) {
  Strings expected = {globalDebug + "/.build-id/ab/cdef", symbols + "/.build-id/ab/cdef"};
  EXPECT_EQ(expected, binaryCandidatesByBuildId("ABCDEF", locations));
  EXPECT_TRUE(binaryCandidatesByBuildId("zz", locations).empty());
  EXPECT_EQ("", buildIdPath("/r", "ab", ".debug"));
}

TEST_F(DebugFilesTest, SearchDirectoriesOfAnEnvironment) {
  auto env = IEditableSearchEnv::create();
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scSymbolFiles, "/s1", false, true);
  dirs->addDirectory(scBinaryFiles, "/b1", false, false);
  dirs->addDirectory(scAllFiles, "/a1", true, false);
  dirs->addDirectory(scSymbolFiles, "/s2", false, false);
  env->setSearchDirs(dirs);
  EXPECT_EQ((Strings{"/s1", "/s2", "/a1"}), searchDirectoriesOf(env, scSymbolFiles));
  EXPECT_EQ((Strings{"/b1", "/a1"}), searchDirectoriesOf(env, scBinaryFiles));
  EXPECT_TRUE(searchDirectoriesOf(ObjectPtr<ISearchEnv>(), scBinaryFiles).empty());
}

// --- Finding through a search ---------------------------------------------------------------

TEST_F(DebugFilesTest, FindsTheBuildIdFileUnderTheGlobalDebugDirectory) {
  std::string target = byBuildId(globalDebug, fixture.prog);
  vell_test::copyFile(fixture.prog.debug, target);
  ObjectPtr<IValidFile> found = findSym("prog", binary);
  ASSERT_TRUE(found);
  EXPECT_EQ(target, found->name());
  EXPECT_EQ(ssAskUser, found->searchStep());
  EXPECT_EQ(0u, unsigned(found->confidence()));
}

TEST_F(DebugFilesTest, FindsTheBuildIdFileUnderASymbolDirectory) {
  std::string target = byBuildId(symbols, fixture.prog);
  vell_test::copyFile(fixture.prog.debug, target);
  ObjectPtr<IValidFile> found = findSym("prog", binary);
  ASSERT_TRUE(found);
  EXPECT_EQ(target, found->name());
}

TEST_F(DebugFilesTest, FindsByRecordedBuildIdWithoutALocalBinary) {
  std::string target = byBuildId(symbols, fixture.prog);
  vell_test::copyFile(fixture.prog.debug, target);
  ObjectPtr<IValidFile> found = findSym("prog", "", fixture.prog.buildId);
  ASSERT_TRUE(found);
  EXPECT_EQ(target, found->name());
}

TEST_F(DebugFilesTest, FindsTheDebugLinkInEveryPlace) {
  std::string binDir = tmp.sub("usr/bin");
  for (const std::string &target :
       {binDir + "/prog.debug", binDir + "/.debug/prog.debug", globalDebug + binDir + "/prog.debug"}) {
    SCOPED_TRACE(target);
    vell_test::copyFile(fixture.prog.debug, target);
    // The symbol name is the binary's: only the debug link leads to the file.
    ObjectPtr<IValidFile> found = findSym("prog", binary);
    ASSERT_TRUE(found);
    EXPECT_EQ(target, found->name());
    EXPECT_EQ(ssAskUser, found->searchStep());
    fs::remove(target);
  }
}

TEST_F(DebugFilesTest, StrippedBinaryIsRejectedAsItsOwnDebugFile) {
  // Nothing else on disk: the around-binary step offers the binary itself.
  ObjectPtr<IValidFile> found = findSym("prog", binary);
  EXPECT_FALSE(found);
  bool seen = false;
  for (size_t i = 0; i < rejections.files.size(); ++i)
    if (rejections.files[i].first == binary) {
      seen = true;
      EXPECT_EQ("The file " + binary +
                    " is the binary itself, not its debug file: it carries no debug information.",
                rejections.files[i].second);
      EXPECT_EQ(0u, rejections.severities[i]);
    }
  EXPECT_TRUE(seen);
}

TEST_F(DebugFilesTest, DebugFileOfAnotherBuildIsRejectedWithItsMessage) {
  std::string wrong = tmp.sub("usr/bin/.debug/prog.debug");
  vell_test::copyFile(fixture.rebuilt.debug, wrong);
  ObjectPtr<IValidFile> found = findSym("prog.debug", binary);
  EXPECT_FALSE(found);
  ASSERT_FALSE(rejections.files.empty());
  bool seen = false;
  for (size_t i = 0; i < rejections.files.size(); ++i)
    if (rejections.files[i].first == wrong) {
      seen = true;
      EXPECT_EQ("The build ID of " + wrong + " differs (expected " + fixture.prog.buildId + ", found " +
                    fixture.rebuilt.buildId + "): it belongs to another build.",
                rejections.files[i].second);
      EXPECT_EQ(1u, rejections.severities[i]);
    }
  EXPECT_TRUE(seen);
}

TEST_F(DebugFilesTest, WrongFileUnderTheBuildIdNameIsPassedOverForTheRightOne) {
  vell_test::copyFile(fixture.other.debug, byBuildId(globalDebug, fixture.prog));
  std::string right = tmp.sub("usr/bin/.debug/prog.debug");
  vell_test::copyFile(fixture.prog.debug, right);
  ObjectPtr<IValidFile> found = findSym("prog", binary);
  ASSERT_TRUE(found);
  EXPECT_EQ(right, found->name());
}

TEST_F(DebugFilesTest, WithoutTheExtensionTheSpecifiedSearchIsUnchanged) {
  // Same layout, no callback and no check: the build-ID file is not found,
  // and the stripped binary comes back as its own debug file.
  vell_test::copyFile(fixture.prog.debug, byBuildId(globalDebug, fixture.prog));
  auto env = IEditableSearchEnv::create();
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  ObjectPtr<IValidFile> found =
      search->findSymFile("prog", binary.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(found);
  EXPECT_EQ(binary, found->name());
}

// --- Checking ---------------------------------------------------------------------------

TEST_F(DebugFilesTest, ValidatorAcceptsTheMatchingDebugFile) {
  ElfIdentityValidator check(scSymbolFiles, binary);
  EXPECT_EQ(fixture.prog.buildId, check.expectedBuildId());
  ErrorInfo info;
  EXPECT_EQ(vvAccept, check.validate(fixture.prog.debug.c_str(), info));
  // The unstripped binary carries its debug information too.
  EXPECT_EQ(vvAccept, check.validate(fixture.prog.full.c_str(), info));
}

TEST_F(DebugFilesTest, ValidatorRejectsAFileWithoutDebugInformation) {
  ElfIdentityValidator check(scSymbolFiles, binary);
  ErrorInfo info;
  std::string copy = tmp.sub("elsewhere/prog");
  vell_test::copyFile(fixture.prog.stripped, copy);
  EXPECT_EQ(vvReject, check.validate(copy.c_str(), info));
  EXPECT_EQ("The file " + copy + " carries no debug information.", info.message);
  EXPECT_EQ(0u, info.severity);
}

TEST_F(DebugFilesTest, ValidatorRejectsNonElfAndTruncatedFiles) {
  ElfIdentityValidator check(scSymbolFiles, binary);
  ErrorInfo info;
  std::string text = tmp.write("prog.debug", "not an ELF file\n");
  EXPECT_EQ(vvReject, check.validate(text.c_str(), info));
  EXPECT_EQ("The file " + text + " is not a readable ELF file.", info.message);
  std::ifstream in(fixture.prog.debug, std::ios::binary);
  std::string content((std::istreambuf_iterator<char>(in)), {});
  std::string cut = tmp.write("cut.debug", content.substr(0, content.size() / 3));
  ErrorInfo cutInfo;
  EXPECT_EQ(vvReject, check.validate(cut.c_str(), cutInfo));
  EXPECT_EQ("The file " + cut + " is not a readable ELF file.", cutInfo.message);
}

TEST_F(DebugFilesTest, DebugLinkCrcDecidesWhenNeitherSideHasABuildId) {
  std::string nobid = tmp.sub("usr/bin/nobid");
  vell_test::copyFile(fixture.noBuildIdStripped, nobid);
  ElfIdentityValidator check(scSymbolFiles, nobid);
  EXPECT_EQ("", check.expectedBuildId());
  ErrorInfo info;
  EXPECT_EQ(vvAccept, check.validate(fixture.noBuildIdDebug.c_str(), info));

  // One byte changed: same name, another CRC-32.
  std::ifstream in(fixture.noBuildIdDebug, std::ios::binary);
  std::string content((std::istreambuf_iterator<char>(in)), {});
  content.back() = static_cast<char>(content.back() ^ 0x5a);
  std::string changed = tmp.write("usr/bin/.debug/nobid.debug", content);
  char expected[9];
  std::snprintf(expected, sizeof expected, "%08x", *readElfIdentity(nobid)->debugLinkCrc);
  char found[9];
  std::snprintf(found, sizeof found, "%08x", *debugLinkCrcOfFile(changed));
  EXPECT_EQ(vvReject, check.validate(changed.c_str(), info));
  EXPECT_EQ("The CRC-32 of " + changed + " differs from the binary's debug link (expected " + expected +
                ", found " + found + "): it belongs to another build.",
            info.message);
  EXPECT_EQ(1u, info.severity);
}

TEST_F(DebugFilesTest, DebugLinkWithWrongCrcIsRejectedInASearch) {
  std::string nobid = tmp.sub("usr/bin/nobid");
  vell_test::copyFile(fixture.noBuildIdStripped, nobid);
  // A debug file of the right name but another program.
  std::string wrong = tmp.sub("usr/bin/.debug/nobid.debug");
  vell_test::copyFile(fixture.other.debug, wrong);
  ObjectPtr<IValidFile> found = findSym("nobid", nobid);
  EXPECT_FALSE(found);
  bool seen = false;
  for (const auto &[path, message] : rejections.files)
    if (path == wrong) {
      seen = true;
      EXPECT_NE(std::string::npos, message.find("differs from the binary's debug link")) << message;
    }
  EXPECT_TRUE(seen);
}

TEST_F(DebugFilesTest, WithNoIdentityOnEitherSideThereIsNoDecision) {
  std::string notElf = tmp.write("usr/bin/script", "#!/bin/sh\n");
  ElfIdentityValidator check(scSymbolFiles, notElf);
  ErrorInfo info;
  EXPECT_EQ(vvNoDecision, check.validate(fixture.other.debug.c_str(), info));
  ElfIdentityValidator sourceCheck(scSourceFiles, binary);
  EXPECT_EQ(vvNoDecision, sourceCheck.validate(fixture.other.debug.c_str(), info));
}

TEST_F(DebugFilesTest, MessagesAreLocalised) {
  vell_test::CatalogScope german(vell_test::shippedCatalogDir(), "de");
  ElfIdentityValidator check(scSymbolFiles, binary);
  ErrorInfo info;
  EXPECT_EQ(vvReject, check.validate(fixture.rebuilt.debug.c_str(), info));
  EXPECT_EQ("Die Build-ID von " + fixture.rebuilt.debug + " weicht ab (erwartet " + fixture.prog.buildId +
                ", gefunden " + fixture.rebuilt.buildId + "): die Datei gehört zu einem anderen Build.",
            info.message);
}

TEST_F(DebugFilesTest, ShippedCatalogHasEveryIdInBothLanguages) {
  for (const char *language : {"en", "de"}) {
    vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), language);
    auto catalog = platform::getMessageCatalog("vell_debug_files");
    ASSERT_NE(nullptr, catalog) << language;
    EXPECT_EQ(6u, catalog->size()) << language;
    for (const char *id : {"BuildIdMismatch", "BuildIdMissing", "DebugLinkCrcMismatch",
                           "BinaryIsNotItsDebugFile", "NoDebugInformation", "NotAnElfFile"})
      EXPECT_NE(0u, catalog->message(id).size()) << language << " " << id;
  }
}

TEST_F(DebugFilesTest, MessageIdShownWithoutCatalog) {
  vell_test::CatalogScope none("");
  ElfIdentityValidator check(scSymbolFiles, binary);
  ErrorInfo info;
  EXPECT_EQ(vvReject, check.validate(fixture.rebuilt.debug.c_str(), info));
  EXPECT_EQ("%BuildIdMismatch", info.message);
}

TEST_F(DebugFilesTest, InnerCheckRunsAfterAnAcceptingVerdict) {
  struct Rejecting : IValidatorCallback {
    int validate(const char *, IErrorInfoContainer &errorInfo) override {
      ++calls;
      errorInfo.setErrorMessage("inner");
      return vvReject;
    }
    int calls = 0;
  } inner;
  ElfIdentityValidator check(scSymbolFiles, binary, "", &inner);
  ErrorInfo info;
  EXPECT_EQ(vvReject, check.validate(fixture.prog.debug.c_str(), info));
  EXPECT_EQ("inner", info.message);
  EXPECT_EQ(1, inner.calls);
  // A rejection of its own is final: the inner check is not asked.
  EXPECT_EQ(vvReject, check.validate(fixture.other.debug.c_str(), info));
  EXPECT_EQ(1, inner.calls);
}

// --- Binaries with a recorded build ID ---------------------------------------------------

TEST_F(DebugFilesTest, BinaryOfTheRecordedBuildIsAcceptedAnotherBuildRejected) {
  ElfIdentityValidator check(scBinaryFiles, "", fixture.prog.buildId);
  ErrorInfo info;
  EXPECT_EQ(vvAccept, check.validate(fixture.prog.stripped.c_str(), info));
  EXPECT_EQ(vvReject, check.validate(fixture.rebuilt.stripped.c_str(), info));
  EXPECT_EQ("The build ID of " + fixture.rebuilt.stripped + " differs (expected " + fixture.prog.buildId +
                ", found " + fixture.rebuilt.buildId + "): it belongs to another build.",
            info.message);
  EXPECT_EQ(1u, info.severity);
  ErrorInfo missing;
  EXPECT_EQ(vvReject, check.validate(fixture.noBuildIdStripped.c_str(), missing));
  EXPECT_EQ("The file " + fixture.noBuildIdStripped + " carries no build ID (expected " +
                fixture.prog.buildId + ").",
            missing.message);
}

TEST_F(DebugFilesTest, BinarySearchWithARecordedBuildIdFindsTheBuildIdTreeEntry) {
  std::string binaries = tmp.mkdir("binaries");
  std::string target =
      binaries + "/.build-id/" + fixture.prog.buildId.substr(0, 2) + "/" + fixture.prog.buildId.substr(2);
  vell_test::copyFile(fixture.prog.stripped, target);
  // Another build under the plain name in the same directory.
  vell_test::copyFile(fixture.rebuilt.stripped, binaries + "/prog");
  auto env = IEditableSearchEnv::create();
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scBinaryFiles, binaries.c_str(), false, false);
  env->setSearchDirs(dirs);
  DebugFileLocations binaryPlaces;
  binaryPlaces.globalDebugDir = globalDebug;
  binaryPlaces.directories = searchDirectoriesOf(env, scBinaryFiles);
  BuildIdSearchStartedCallback started(locations, binaryPlaces);
  ASSERT_TRUE(started.setRecordedBuildId(fixture.prog.buildId));
  EXPECT_FALSE(started.setRecordedBuildId("xyz"));
  EXPECT_EQ(fixture.prog.buildId, started.recordedBuildId());
  env->setSearchStartedCallback(CallbackHolder<ISearchStartedCallback>(&started));
  env->setNoFilesFoundCallback(CallbackHolder<INoFilesFoundCallback>(&rejections));
  ElfIdentityValidator check(scBinaryFiles, "", fixture.prog.buildId);
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);
  ObjectPtr<IValidFile> found = search->findBinFile("prog", &check, nullptr, 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(target, found->name());

  // Only the other build on disk: rejected, nothing found.
  fs::remove(target);
  found = search->findBinFile("prog", &check, nullptr, 0);
  EXPECT_FALSE(found);
  bool seen = false;
  for (const auto &[path, message] : rejections.files)
    if (path == binaries + "/prog") {
      seen = true;
      EXPECT_NE(std::string::npos, message.find("differs (expected " + fixture.prog.buildId)) << message;
    }
  EXPECT_TRUE(seen);
}

TEST_F(DebugFilesTest, InnerSearchStartedCallbackIsAskedFirstAndMayStopTheSteps) {
  struct Inner : ISearchStartedCallback {
    bool binFileSearchStarted(const char *, IStringContainer &names) override {
      names.add("/first");
      return false;
    }
    bool symFileSearchStarted(const char *, const char *, const char *, IStringContainer &names) override {
      names.add("/first");
      return false;
    }
    bool srcFileSearchStarted(const char *, const char *, const char *, IStringContainer &) override {
      ++sourceCalls;
      return true;
    }
    int sourceCalls = 0;
  } inner;
  struct Names : IStringContainer {
    void add(const char *s) override { list.push_back(s); }
    Strings list;
  } names;
  BuildIdSearchStartedCallback started(locations, DebugFileLocations(), &inner);
  EXPECT_FALSE(started.symFileSearchStarted("prog", binary.c_str(), nullptr, names));
  ASSERT_EQ(6u, names.list.size());
  EXPECT_EQ("/first", names.list[0]);
  EXPECT_EQ(byBuildId(globalDebug, fixture.prog), names.list[1]);
  EXPECT_TRUE(started.srcFileSearchStarted("a.c", binary.c_str(), nullptr, names));
  EXPECT_EQ(1, inner.sourceCalls);
  EXPECT_EQ(6u, names.list.size());
}
