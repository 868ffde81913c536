// The search's validator: cache checksum pre-check, decorated host check and
// the mapping of verdicts and policy levels to results.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>

#include "support/temp_dir.h"
#include "vell/validation.h"
#include "vell_search/confidence_policy.h"
#include "vell_validation/catalog_scope.h"
#include "vell_validation/validation_fakes.h"
#include "vell_validation/validator.h"

using namespace VELL_2_13;
using vell_test::FakeRetriever;
using vell_test::FixedPolicy;
using vell_test::RecordingCallback;

namespace {

const char *const kAbcMd5 = "900150983cd24fb0d6963f7d28e17f72";

ObjectPtr<IChecksum> md5Text(const char *text) {
  return IChecksumCalculator::create()->fromString(ctMd5, text);
}

struct Outcome {
  ObjectPtr<IValidFile> valid;
  ObjectPtr<IInvalidFile> invalid;
};

Outcome run(Validator &validator, const std::string &path, unsigned int step) {
  ObjectPtr<IValidatedFile> validated = validator.validateInternal(path.c_str(), step);
  EXPECT_TRUE(validated);
  Outcome outcome{validated->validFile(), validated->invalidFile()};
  EXPECT_NE(outcome.valid.isNull(), outcome.invalid.isNull());
  return outcome;
}

class ValidatorTest : public ::testing::Test {
protected:
  // Every test starts with no catalog loaded.
  void SetUp() override { platform::setCatalogDirectory(""); }
  vell_test::TempDir dir;
  FixedPolicy policy{0};
};

// --- Decorator checks through the validator -------------------------------------------------

TEST_F(ValidatorTest, MissingFileIsRejectedWithSeverityZero) {
  RecordingCallback callback(vvAccept);
  Validator validator(&callback, policy, scBinaryFiles, {}, nullptr, "a.so");
  Outcome outcome = run(validator, dir.sub("missing.so"), ssSystemDirs);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ(severity_t(0), outcome.invalid->severity());
  EXPECT_STREQ("%FileDoesNotExist", outcome.invalid->errorMessage());
  EXPECT_EQ(ssSystemDirs, outcome.invalid->searchStep());
  EXPECT_EQ(dir.sub("missing.so"), outcome.invalid->name());
  EXPECT_EQ(0, callback.calls.load());
  EXPECT_EQ(0, policy.calls.load());
}

TEST_F(ValidatorTest, DirectoryIsReportedAsNotExisting) {
  std::string sub = dir.mkdir("d");
  Validator validator(nullptr, policy, scBinaryFiles, {}, nullptr, "d");
  Outcome outcome = run(validator, sub, ssLowPrioritySearchDirs);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ(severity_t(0), outcome.invalid->severity());
  EXPECT_STREQ("%FileDoesNotExist", outcome.invalid->errorMessage());
}

TEST_F(ValidatorTest, PipeIsReportedAsNotExisting) {
  std::string fifo = dir.sub("fifo");
  ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
  Validator validator(nullptr, policy, scSourceFiles, {}, nullptr, "fifo");
  Outcome outcome = run(validator, fifo, ssLowPrioritySearchDirs);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_STREQ("%FileDoesNotExist", outcome.invalid->errorMessage());
}

TEST_F(ValidatorTest, DanglingLinkIsReportedAsNotExisting) {
  std::string link = dir.sub("link");
  ASSERT_EQ(0, ::symlink(dir.sub("nowhere").c_str(), link.c_str()));
  Validator validator(nullptr, policy, scBinaryFiles, {}, nullptr, "link");
  Outcome outcome = run(validator, link, ssSystemDirs);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_STREQ("%FileDoesNotExist", outcome.invalid->errorMessage());
}

TEST_F(ValidatorTest, LinkToARegularFileIsPresent) {
  std::string target = dir.write("real.so", "x");
  std::string link = dir.sub("link.so");
  ASSERT_EQ(0, ::symlink(target.c_str(), link.c_str()));
  Validator validator(nullptr, policy, scBinaryFiles, {}, nullptr, "link.so");
  Outcome outcome = run(validator, link, ssSystemDirs);
  ASSERT_TRUE(outcome.valid);
  EXPECT_EQ(link, outcome.valid->name());
}

TEST_F(ValidatorTest, UnreadableFileIsRejectedBeforeTheUserCallback) {
  std::string file = dir.write("secret.so", "data");
  ASSERT_EQ(0, ::chmod(file.c_str(), 0));
  vell_test::openForOthers(dir.path());
  RecordingCallback callback(vvAccept);
  Validator validator(&callback, policy, scBinaryFiles, {}, nullptr, "secret.so");
  vell_test::AsUnprivilegedUser nobody;
  Outcome outcome = run(validator, file, ssHighPrioritySearchDirs);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ(severity_t(0), outcome.invalid->severity());
  EXPECT_STREQ("%CantOpenFile", outcome.invalid->errorMessage());
  EXPECT_EQ(ssHighPrioritySearchDirs, outcome.invalid->searchStep());
  EXPECT_EQ(0, callback.calls.load());
}

TEST_F(ValidatorTest, CatalogTextsReplaceTheFallbackIds) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  Validator validator(nullptr, policy, scBinaryFiles, {}, nullptr, "x");
  Outcome outcome = run(validator, dir.sub("missing"), ssSystemDirs);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ("The file " + dir.sub("missing") + " does not exist or is not a regular file.",
            outcome.invalid->errorMessage());
}

// --- Verdicts and the confidence policy --------------------------------------------------------

TEST_F(ValidatorTest, NoCallbackAndPolicyZeroGivesConfidenceOne) {
  std::string file = dir.write("a.so");
  FixedPolicy zero(0);
  Validator validator(nullptr, zero, scBinaryFiles, {}, nullptr, "a.so");
  Outcome outcome = run(validator, file, ssLowPrioritySearchDirs);
  ASSERT_TRUE(outcome.valid);
  EXPECT_EQ(confidence_t(1), outcome.valid->confidence());
  EXPECT_EQ(ssLowPrioritySearchDirs, outcome.valid->searchStep());
  EXPECT_EQ(1, zero.calls.load());
  EXPECT_EQ(scBinaryFiles, zero.lastCategory);
  EXPECT_EQ(unsigned(ssLowPrioritySearchDirs), zero.lastStep);
}

TEST_F(ValidatorTest, PolicyOneOrAnyOtherLevelButTwoGivesConfidenceTwo) {
  std::string file = dir.write("a.so");
  for (unsigned int level : {1u, 3u, 100u}) {
    FixedPolicy other(level);
    Validator validator(nullptr, other, scSymbolFiles, {}, nullptr, "a.so");
    Outcome outcome = run(validator, file, ssSystemDirs);
    ASSERT_TRUE(outcome.valid) << level;
    EXPECT_EQ(confidence_t(2), outcome.valid->confidence()) << level;
  }
}

TEST_F(ValidatorTest, PolicyTwoRejectsWithNeutralSeverityAndNoMessage) {
  std::string file = dir.write("a.so");
  FixedPolicy two(2);
  Validator validator(nullptr, two, scSourceFiles, {}, nullptr, "a.so");
  Outcome outcome = run(validator, file, ssAroundBinaryLookup);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ(severity_t(2), outcome.invalid->severity());
  EXPECT_STREQ("", outcome.invalid->errorMessage());
  EXPECT_EQ(ssAroundBinaryLookup, outcome.invalid->searchStep());
  EXPECT_EQ(scSourceFiles, two.lastCategory);
}

TEST_F(ValidatorTest, PolicyTwoKeepsWhatTheCallbackNoted) {
  std::string file = dir.write("a.c");
  RecordingCallback callback(vvNoDecision, 1, "note");
  FixedPolicy two(2);
  Validator validator(&callback, two, scSourceFiles, {}, nullptr, "a.c");
  Outcome outcome = run(validator, file, ssSystemDirs);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ(severity_t(1), outcome.invalid->severity());
  EXPECT_STREQ("note", outcome.invalid->errorMessage());
}

TEST_F(ValidatorTest, AcceptedByTheCallbackGivesConfidenceZeroWithoutAskingThePolicy) {
  std::string file = dir.write("a.so");
  RecordingCallback callback(vvAccept);
  Validator validator(&callback, policy, scBinaryFiles, {}, nullptr, "a.so");
  Outcome outcome = run(validator, file, ssArchiveSearchDirs);
  ASSERT_TRUE(outcome.valid);
  EXPECT_EQ(confidence_t(0), outcome.valid->confidence());
  EXPECT_EQ(ssArchiveSearchDirs, outcome.valid->searchStep());
  EXPECT_EQ(1, callback.calls.load());
  EXPECT_EQ(file, callback.lastName);
  EXPECT_EQ(0, policy.calls.load());
}

TEST_F(ValidatorTest, RejectedByTheCallbackCarriesItsSeverityAndMessage) {
  std::string file = dir.write("a.so");
  RecordingCallback callback(vvReject, 1, "wrong build");
  Validator validator(&callback, policy, scBinaryFiles, {}, nullptr, "a.so");
  Outcome outcome = run(validator, file, ssSystemDirs);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ(severity_t(1), outcome.invalid->severity());
  EXPECT_STREQ("wrong build", outcome.invalid->errorMessage());
  EXPECT_EQ(0, policy.calls.load());
}

TEST_F(ValidatorTest, RejectionWithoutDetailsKeepsTheNeutralValues) {
  std::string file = dir.write("a.so");
  RecordingCallback callback(vvReject);
  Validator validator(&callback, policy, scBinaryFiles, {}, nullptr, "a.so");
  Outcome outcome = run(validator, file, ssSystemDirs);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ(severity_t(2), outcome.invalid->severity());
  EXPECT_STREQ("", outcome.invalid->errorMessage());
}

TEST_F(ValidatorTest, UnknownVerdictIsLeftToThePolicy) {
  std::string file = dir.write("a.so");
  RecordingCallback callback(7);
  FixedPolicy one(1);
  Validator validator(&callback, one, scBinaryFiles, {}, nullptr, "a.so");
  Outcome outcome = run(validator, file, ssSystemDirs);
  ASSERT_TRUE(outcome.valid);
  EXPECT_EQ(confidence_t(2), outcome.valid->confidence());
  EXPECT_EQ(1, one.calls.load());
}

TEST_F(ValidatorTest, ValidateRecordsStepAskUser) {
  std::string file = dir.write("a.so");
  Validator validator(nullptr, policy, scBinaryFiles, {}, nullptr, "a.so");
  ObjectPtr<IValidatedFile> validated = validator.validate(file.c_str());
  ASSERT_TRUE(validated->validFile());
  EXPECT_EQ(ssAskUser, validated->validFile()->searchStep());
  EXPECT_EQ(unsigned(ssAskUser), policy.lastStep);
  // The same through the public interface handed to host callbacks.
  IValidator &forHost = validator;
  EXPECT_EQ(ssAskUser, forHost.validate(file.c_str())->validFile()->searchStep());
}

TEST_F(ValidatorTest, OnlyTheLowSixteenBitsAreTheStepButThePolicySeesAll) {
  std::string file = dir.write("a.so");
  Validator validator(nullptr, policy, scBinaryFiles, {}, nullptr, "a.so");
  Outcome outcome = run(validator, file, 0x30000u | ssSystemDirs);
  ASSERT_TRUE(outcome.valid);
  EXPECT_EQ(ssSystemDirs, outcome.valid->searchStep());
  EXPECT_EQ(0x30000u | ssSystemDirs, policy.lastStep);
}

TEST_F(ValidatorTest, ResultNamesAreNormalised) {
  dir.write("d/a.so");
  dir.mkdir("d/x");
  Validator validator(nullptr, policy, scBinaryFiles, {}, nullptr, "a.so");
  Outcome outcome = run(validator, dir.path() + "/d/./x/../a.so", ssSystemDirs);
  ASSERT_TRUE(outcome.valid);
  EXPECT_EQ(dir.path() + "/d/a.so", outcome.valid->name());
}

TEST_F(ValidatorTest, WorksWithTheSearchPolicyWrapper) {
  std::string file = dir.write("a.so");
  ConfidenceLevelPolicyWrapper wrapper{ObjectPtr<ISearchEnv>()};
  Validator validator(nullptr, wrapper, scBinaryFiles, {}, nullptr, "a.so");
  Outcome outcome = run(validator, file, ssSystemDirs);
  ASSERT_TRUE(outcome.valid);
  EXPECT_EQ(confidence_t(1), outcome.valid->confidence());
}

// --- Cache checksum pre-check -----------------------------------------------------------------

TEST_F(ValidatorTest, CacheCandidateWithWrongChecksumIsRejectedBeforeTheCallback) {
  std::string file = dir.write("a.so", "abc");
  RecordingCallback callback(vvAccept);
  FakeRetriever retriever;
  Validator validator(&callback, policy, scBinaryFiles, md5Text("00000000000000000000000000000000"),
                      &retriever, "a.so");
  Outcome outcome = run(validator, file, ssCacheSearchDir);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ(severity_t(0), outcome.invalid->severity());
  EXPECT_STREQ("%CannotMatchFileWithChecksumMismatch", outcome.invalid->errorMessage());
  EXPECT_EQ(ssCacheSearchDir, outcome.invalid->searchStep());
  EXPECT_EQ(0, callback.calls.load());
  EXPECT_TRUE(retriever.asked.empty()); // an expected checksum was given
}

TEST_F(ValidatorTest, SameFileFromAnotherStepGoesThroughTheCallback) {
  std::string file = dir.write("a.so", "abc");
  RecordingCallback callback(vvAccept);
  FakeRetriever retriever;
  Validator validator(&callback, policy, scBinaryFiles, md5Text("00000000000000000000000000000000"),
                      &retriever, "a.so");
  Outcome outcome = run(validator, file, ssLowPrioritySearchDirs);
  ASSERT_TRUE(outcome.valid);
  EXPECT_EQ(confidence_t(0), outcome.valid->confidence());
  EXPECT_EQ(1, callback.calls.load());
}

TEST_F(ValidatorTest, CacheCandidateWithoutRetrieverSkipsThePreCheck) {
  std::string file = dir.write("a.so", "abc");
  RecordingCallback callback(vvAccept);
  Validator validator(&callback, policy, scBinaryFiles, md5Text("00000000000000000000000000000000"), nullptr,
                      "a.so");
  Outcome outcome = run(validator, file, ssCacheSearchDir);
  ASSERT_TRUE(outcome.valid);
  EXPECT_EQ(1, callback.calls.load());
}

TEST_F(ValidatorTest, CacheCandidateWithMatchingChecksumGoesOn) {
  std::string file = dir.write("a.so", "abc");
  RecordingCallback callback(vvAccept);
  FakeRetriever retriever;
  Validator validator(&callback, policy, scBinaryFiles, md5Text("900150983CD24FB0D6963F7D28E17F72"),
                      &retriever, "a.so");
  Outcome outcome = run(validator, file, ssCacheSearchDir);
  ASSERT_TRUE(outcome.valid);
  EXPECT_EQ(ssCacheSearchDir, outcome.valid->searchStep());
  EXPECT_EQ(1, callback.calls.load());
}

TEST_F(ValidatorTest, CacheStepIsRecognisedInTheLowBits) {
  std::string file = dir.write("a.so", "abc");
  FakeRetriever retriever;
  Validator validator(nullptr, policy, scBinaryFiles, md5Text("0"), &retriever, "a.so");
  Outcome outcome = run(validator, file, 0x50000u | ssCacheSearchDir);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ(ssCacheSearchDir, outcome.invalid->searchStep());
  EXPECT_STREQ("%CannotMatchFileWithChecksumMismatch", outcome.invalid->errorMessage());
}

TEST_F(ValidatorTest, CacheChecksumMessageFromTheClimgrCatalog) {
  std::string file = dir.write("a.so", "abc");
  FakeRetriever retriever;
  Validator validator(nullptr, policy, scBinaryFiles, md5Text("0"), &retriever, "a.so");
  {
    vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), "en");
    Outcome outcome = run(validator, file, ssCacheSearchDir);
    ASSERT_TRUE(outcome.invalid);
    EXPECT_EQ("The cached file " + file +
                  " cannot be used: its checksum does not match the expected checksum.",
              outcome.invalid->errorMessage());
  }
  {
    vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), "de");
    Outcome outcome = run(validator, file, ssCacheSearchDir);
    ASSERT_TRUE(outcome.invalid);
    EXPECT_EQ("Die zwischengespeicherte Datei " + file +
                  " kann nicht verwendet werden: Ihre Prüfsumme stimmt nicht mit der erwarteten Prüfsumme "
                  "überein.",
              outcome.invalid->errorMessage());
  }
}

TEST_F(ValidatorTest, ClimgrCatalogWithoutTheIdGivesItsEmptyText) {
  vell_test::TempDir catalogs;
  catalogs.write("vell.climgr.en.json", R"({"Other": "x"})");
  vell_test::CatalogScope scope(catalogs.path());
  std::string file = dir.write("a.so", "abc");
  FakeRetriever retriever;
  Validator validator(nullptr, policy, scBinaryFiles, md5Text("0"), &retriever, "a.so");
  Outcome outcome = run(validator, file, ssCacheSearchDir);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_EQ(severity_t(0), outcome.invalid->severity());
  EXPECT_STREQ("", outcome.invalid->errorMessage());
}

TEST_F(ValidatorTest, ClimgrCatalogMissingGivesTheId) {
  // Only the common catalog is available.
  vell_test::TempDir catalogs;
  catalogs.write("vell_common.en.json", R"({"FileDoesNotExist": "x"})");
  vell_test::CatalogScope scope(catalogs.path());
  std::string file = dir.write("a.so", "abc");
  FakeRetriever retriever;
  Validator validator(nullptr, policy, scBinaryFiles, md5Text("0"), &retriever, "a.so");
  Outcome outcome = run(validator, file, ssCacheSearchDir);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_STREQ("%CannotMatchFileWithChecksumMismatch", outcome.invalid->errorMessage());
}

TEST_F(ValidatorTest, RetrieverSuppliesTheChecksumForAnAbsoluteName) {
  std::string file = dir.write("x.so", "abc");
  FakeRetriever retriever;
  retriever.checksumToGive = md5Text("ffffffffffffffffffffffffffffffff");
  RecordingCallback callback(vvAccept);
  Validator validator(&callback, policy, scBinaryFiles, {}, &retriever, "/usr/lib/x.so");
  Outcome outcome = run(validator, file, ssCacheSearchDir);
  ASSERT_EQ(1u, retriever.asked.size());
  EXPECT_EQ("/usr/lib/x.so", retriever.asked[0]);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_STREQ("%CannotMatchFileWithChecksumMismatch", outcome.invalid->errorMessage());
  EXPECT_EQ(0, callback.calls.load());
  // Once obtained, the checksum is held and not asked for again.
  run(validator, file, ssCacheSearchDir);
  EXPECT_EQ(1u, retriever.asked.size());
}

TEST_F(ValidatorTest, RetrieverIsAskedWithTheFixedLinuxName) {
  std::string file = dir.write("x.so", "abc");
  FakeRetriever retriever;
  retriever.checksumToGive = md5Text(kAbcMd5);
  Validator validator(nullptr, policy, scBinaryFiles, {}, &retriever, "\\usr\\lib\\x.so");
  Outcome outcome = run(validator, file, ssCacheSearchDir);
  ASSERT_EQ(1u, retriever.asked.size());
  EXPECT_EQ("/usr/lib/x.so", retriever.asked[0]);
  ASSERT_TRUE(outcome.valid); // the checksum matches
}

TEST_F(ValidatorTest, RetrieverIsAskedForTheKernelImage) {
  std::string file = dir.write("vmlinux", "abc");
  FakeRetriever retriever;
  retriever.checksumToGive = md5Text("0");
  Validator validator(nullptr, policy, scBinaryFiles, {}, &retriever, "vmlinux");
  Outcome outcome = run(validator, file, ssCacheSearchDir);
  ASSERT_EQ(1u, retriever.asked.size());
  EXPECT_EQ("vmlinux", retriever.asked[0]);
  EXPECT_TRUE(outcome.invalid);
}

TEST_F(ValidatorTest, RetrieverIsNotAskedForARelativeName) {
  std::string file = dir.write("x.so", "abc");
  FakeRetriever retriever;
  retriever.checksumToGive = md5Text("0");
  RecordingCallback callback(vvAccept);
  for (const char *name : {"x.so", "lib/x.so", "xvmlinux", "C:\\x.so", "\\\\server\\x.so"}) {
    Validator validator(&callback, policy, scBinaryFiles, {}, &retriever, name);
    Outcome outcome = run(validator, file, ssCacheSearchDir);
    EXPECT_TRUE(outcome.valid) << name;
  }
  EXPECT_TRUE(retriever.asked.empty());
  EXPECT_EQ(5, callback.calls.load());
}

TEST_F(ValidatorTest, RetrieverFailureOrNoChecksumSkipsThePreCheck) {
  std::string file = dir.write("x.so", "abc");
  RecordingCallback callback(vvAccept);
  {
    FakeRetriever failing;
    failing.checksumResult = 1;
    Validator validator(&callback, policy, scBinaryFiles, {}, &failing, "/usr/lib/x.so");
    EXPECT_TRUE(run(validator, file, ssCacheSearchDir).valid);
    EXPECT_EQ(1u, failing.asked.size());
  }
  {
    FakeRetriever silent; // answers 0 but stores nothing
    Validator validator(&callback, policy, scBinaryFiles, {}, &silent, "/usr/lib/x.so");
    EXPECT_TRUE(run(validator, file, ssCacheSearchDir).valid);
    EXPECT_EQ(1u, silent.asked.size());
  }
  EXPECT_EQ(2, callback.calls.load());
}

TEST_F(ValidatorTest, Crc32ExpectationMakesNoDecisionInThePreCheck) {
  std::string file = dir.write("x.so", "abc");
  FakeRetriever retriever;
  RecordingCallback callback(vvAccept);
  Validator validator(&callback, policy, scBinaryFiles,
                      IChecksumCalculator::create()->fromString(ctCrc32, "12345678"), &retriever, "x.so");
  EXPECT_TRUE(run(validator, file, ssCacheSearchDir).valid);
  EXPECT_EQ(1, callback.calls.load());
}

TEST_F(ValidatorTest, UnreadableCacheCandidateIsRejectedWithoutAnException) {
  std::string file = dir.write("x.so", "abc");
  ASSERT_EQ(0, ::chmod(file.c_str(), 0));
  vell_test::openForOthers(dir.path());
  FakeRetriever retriever;
  Validator validator(nullptr, policy, scBinaryFiles, md5Text("0"), &retriever, "x.so");
  vell_test::AsUnprivilegedUser nobody;
  Outcome outcome = run(validator, file, ssCacheSearchDir);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_STREQ("%CantOpenFile", outcome.invalid->errorMessage());
}

TEST_F(ValidatorTest, MissingCacheCandidateIsRejectedWithoutAnException) {
  FakeRetriever retriever;
  Validator validator(nullptr, policy, scBinaryFiles, md5Text("0"), &retriever, "x.so");
  Outcome outcome = run(validator, dir.sub("gone"), ssCacheSearchDir);
  ASSERT_TRUE(outcome.invalid);
  EXPECT_STREQ("%FileDoesNotExist", outcome.invalid->errorMessage());
}

} // namespace
