// The ready-made validator callbacks: checksum, time and size, up to date;
// and the exception directories of the time checks.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "vell/validation.h"
#include "vell_validation/catalog_scope.h"
#include "vell_validation/validation_fakes.h"
#include "vell_validation/validator.h"

using namespace VELL_2_13;
using vell_test::modificationTime;
using vell_test::setModificationTime;
using Container = Validator::ErrorInfoContainer;

namespace {

const char *const kAbcMd5 = "900150983cd24fb0d6963f7d28e17f72";
const char *const kAbcSha1 = "a9993e364706816aba3e25717850c26c9cd0d89d";

ObjectPtr<IChecksum> checksum(checksum_type_t type, const char *text) {
  return IChecksumCalculator::create()->fromString(type, text);
}

class ValidatorsTest : public ::testing::Test {
protected:
  void SetUp() override { platform::setCatalogDirectory(""); }
  vell_test::TempDir dir;
};

// --- ChecksumValidator -------------------------------------------------------------------------

TEST_F(ValidatorsTest, ChecksumWithoutExpectationHasNoDecision) {
  std::string file = dir.write("a.so", "abc");
  ChecksumValidator validator(scBinaryFiles, ObjectPtr<IChecksum>());
  Container info;
  EXPECT_EQ(vvNoDecision, validator.validate(file.c_str(), info));
  EXPECT_EQ(severity_t(2), info.severity());
  EXPECT_EQ("", info.message());
}

TEST_F(ValidatorsTest, MatchingChecksumIsAccepted) {
  std::string file = dir.write("a.so", "abc");
  Container info;
  EXPECT_EQ(vvAccept,
            ChecksumValidator(scBinaryFiles, checksum(ctMd5, kAbcMd5)).validate(file.c_str(), info));
  EXPECT_EQ(vvAccept,
            ChecksumValidator(scSymbolFiles, checksum(ctSha1, "A9993E364706816ABA3E25717850C26C9CD0D89D"))
                .validate(file.c_str(), info));
  EXPECT_EQ(severity_t(2), info.severity());
}

TEST_F(ValidatorsTest, ChecksumOfTheOtherTypeIsComputedAsExpected) {
  std::string file = dir.write("a.so", "abc");
  Container info;
  // An MD5 text given as SHA-1 expectation is compared with the file's SHA-1.
  EXPECT_EQ(vvReject,
            ChecksumValidator(scBinaryFiles, checksum(ctSha1, kAbcMd5)).validate(file.c_str(), info));
  Container info2;
  EXPECT_EQ(vvAccept,
            ChecksumValidator(scBinaryFiles, checksum(ctSha1, kAbcSha1)).validate(file.c_str(), info2));
}

TEST_F(ValidatorsTest, BinaryAndSymbolMismatchHaveSeverityZero) {
  std::string file = dir.write("a.so", "abc");
  for (search_category_t category : {scBinaryFiles, scSymbolFiles}) {
    Container info;
    EXPECT_EQ(vvReject, ChecksumValidator(category, checksum(ctMd5, "0")).validate(file.c_str(), info));
    EXPECT_EQ(severity_t(0), info.severity());
    EXPECT_EQ("%ChecksumMismatch", info.message());
  }
}

TEST_F(ValidatorsTest, SourceMismatchHasSeverityOne) {
  std::string file = dir.write("a.c", "abc");
  Container info;
  EXPECT_EQ(vvReject, ChecksumValidator(scSourceFiles, checksum(ctMd5, "0")).validate(file.c_str(), info));
  EXPECT_EQ(severity_t(1), info.severity());
  EXPECT_EQ("%ChecksumMismatch", info.message());
}

TEST_F(ValidatorsTest, OtherCategoryMismatchLeavesTheSeverity) {
  std::string file = dir.write("a", "abc");
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  Container info;
  EXPECT_EQ(vvReject, ChecksumValidator(scAllFiles, checksum(ctMd5, "0")).validate(file.c_str(), info));
  EXPECT_EQ(severity_t(2), info.severity());
  EXPECT_EQ("%ChecksumMismatch", info.message()); // no message object is used
}

TEST_F(ValidatorsTest, ChecksumMismatchTextsFromTheCatalog) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  std::string file = dir.write("a.so", "abc");
  Container bin, sym, src;
  ChecksumValidator(scBinaryFiles, checksum(ctMd5, "0")).validate(file.c_str(), bin);
  ChecksumValidator(scSymbolFiles, checksum(ctMd5, "0")).validate(file.c_str(), sym);
  ChecksumValidator(scSourceFiles, checksum(ctMd5, "0")).validate(file.c_str(), src);
  EXPECT_EQ("The checksum of the binary file " + file + " does not match the expected checksum.",
            bin.message());
  EXPECT_EQ("The checksum of the symbol file " + file + " does not match the expected checksum.",
            sym.message());
  EXPECT_EQ("The checksum of the source file " + file + " does not match the expected checksum.",
            src.message());
}

TEST_F(ValidatorsTest, Crc32ExpectationHasNoDecision) {
  std::string file = dir.write("a.so", "abc");
  Container info;
  EXPECT_EQ(vvNoDecision,
            ChecksumValidator(scBinaryFiles, checksum(ctCrc32, "352441c2")).validate(file.c_str(), info));
}

TEST_F(ValidatorsTest, ChecksumOfAMissingFileHasNoDecision) {
  Container info;
  EXPECT_EQ(
      vvNoDecision,
      ChecksumValidator(scBinaryFiles, checksum(ctMd5, kAbcMd5)).validate(dir.sub("none").c_str(), info));
}

// A host validator that words the binary message itself.
class WordingChecksumValidator : public ChecksumValidator {
public:
  using ChecksumValidator::ChecksumValidator;
  bool fillErrorMessageForBinFile(IBinChecksumMismatchMessage &, IMsgContainer &container,
                                  const char *fileName) override {
    container.put((std::string("bad binary ") + fileName).c_str());
    return true;
  }
  using ChecksumValidator::fillErrorMessageForBinFile;
};

TEST_F(ValidatorsTest, FillOperationsCanBeOverridden) {
  std::string file = dir.write("a.so", "abc");
  WordingChecksumValidator validator(scBinaryFiles, checksum(ctMd5, "0"));
  Container info;
  EXPECT_EQ(vvReject, validator.validate(file.c_str(), info));
  EXPECT_EQ("bad binary " + file, info.message());
  // The two-argument form goes through the three-argument one with "".
  MsgContainer container;
  ObjectPtr<IBinChecksumMismatchMessage> message = IMessageMgr::create()->getBinChecksumMismatchMessage();
  EXPECT_TRUE(validator.fillErrorMessageForBinFile(*message, container));
  EXPECT_STREQ("bad binary ", container.get());
}

TEST_F(ValidatorsTest, TwoArgumentFillsUseAnEmptyFileName) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  ChecksumValidator validator(scSourceFiles, checksum(ctMd5, "0"));
  ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
  MsgContainer container;
  EXPECT_TRUE(validator.fillErrorMessageForSrcFile(*mgr->getSrcChecksumMismatchMessage(), container));
  EXPECT_STREQ("The checksum of the source file  does not match the expected checksum.", container.get());
  EXPECT_TRUE(
      validator.fillErrorMessageForSymFile(*mgr->getSymChecksumMismatchMessage(), container, "s.dbg"));
  EXPECT_STREQ("The checksum of the symbol file s.dbg does not match the expected checksum.",
               container.get());
}

TEST_F(ValidatorsTest, ChecksumValidatorSharedByThreads) {
  std::string good = dir.write("good", "abc");
  std::string bad = dir.write("bad", "abd");
  ChecksumValidator validator(scBinaryFiles, checksum(ctMd5, kAbcMd5));
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 100; ++i) {
        Container a, b;
        if (validator.validate(good.c_str(), a) != vvAccept ||
            validator.validate(bad.c_str(), b) != vvReject || b.message() != "%ChecksumMismatch")
          ++wrong;
      }
    });
  for (auto &t : threads)
    t.join();
  EXPECT_EQ(0, wrong.load());
}

// --- SourceFileTimeAndSizeMatchValidator -------------------------------------------------------

class TimeAndSizeTest : public ValidatorsTest {
protected:
  void SetUp() override {
    ValidatorsTest::SetUp();
    file = dir.write("src/a.c", "12345"); // 5 bytes
    setModificationTime(file, kTime);
  }
  static constexpr int64_t kTime = 1600000000;
  std::string file;
};

TEST_F(TimeAndSizeTest, NothingExpectedHasNoDecision) {
  Container info;
  EXPECT_EQ(vvNoDecision, SourceFileTimeAndSizeMatchValidator(0, 0).validate(file.c_str(), info));
  EXPECT_EQ(severity_t(2), info.severity());
}

TEST_F(TimeAndSizeTest, MatchingTimeWithoutSizeIsAccepted) {
  Container info;
  EXPECT_EQ(vvAccept, SourceFileTimeAndSizeMatchValidator(kTime, 0).validate(file.c_str(), info));
}

TEST_F(TimeAndSizeTest, WrongTimeIsRejectedEvenIfTheSizeMatches) {
  Container info;
  EXPECT_EQ(vvReject, SourceFileTimeAndSizeMatchValidator(kTime + 1, 5).validate(file.c_str(), info));
  EXPECT_EQ(severity_t(1), info.severity());
  EXPECT_EQ("%ModificationTimeOrSizeMismatch", info.message());
}

TEST_F(TimeAndSizeTest, SizeIsCheckedWhenTheTimeMatches) {
  Container accepted, rejected;
  EXPECT_EQ(vvAccept, SourceFileTimeAndSizeMatchValidator(kTime, 5).validate(file.c_str(), accepted));
  EXPECT_EQ(vvReject, SourceFileTimeAndSizeMatchValidator(kTime, 6).validate(file.c_str(), rejected));
  EXPECT_EQ(severity_t(1), rejected.severity());
  EXPECT_EQ("%ModificationTimeOrSizeMismatch", rejected.message());
}

TEST_F(TimeAndSizeTest, SizeAloneDecides) {
  Container accepted, rejected;
  EXPECT_EQ(vvAccept, SourceFileTimeAndSizeMatchValidator(0, 5).validate(file.c_str(), accepted));
  EXPECT_EQ(vvReject, SourceFileTimeAndSizeMatchValidator(0, 4).validate(file.c_str(), rejected));
}

TEST_F(TimeAndSizeTest, ExceptionDirectoryExemptsTheTime) {
  SourceFileTimeAndSizeMatchValidator validator(kTime - 100, 0);
  std::string exempt = dir.sub("src");
  validator.exceptionDirs().addTimeCheckExceptionDir(exempt);
  Container info;
  EXPECT_EQ(vvAccept, validator.validate(file.c_str(), info));
  // ... but not the size.
  SourceFileTimeAndSizeMatchValidator sized(kTime - 100, 9);
  sized.exceptionDirs().addTimeCheckExceptionDir(exempt);
  Container sizedInfo;
  EXPECT_EQ(vvReject, sized.validate(file.c_str(), sizedInfo));
}

TEST_F(TimeAndSizeTest, UnreadableStatusMatchesNothing) {
  Container timeInfo, sizeInfo, none;
  EXPECT_EQ(vvReject,
            SourceFileTimeAndSizeMatchValidator(kTime, 0).validate(dir.sub("gone.c").c_str(), timeInfo));
  EXPECT_EQ(vvReject,
            SourceFileTimeAndSizeMatchValidator(0, 5).validate(dir.sub("gone.c").c_str(), sizeInfo));
  EXPECT_EQ(vvNoDecision,
            SourceFileTimeAndSizeMatchValidator(0, 0).validate(dir.sub("gone.c").c_str(), none));
}

TEST_F(TimeAndSizeTest, CatalogTextsAreFilledWithoutTheFileName) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  Container timeInfo, sizeInfo;
  SourceFileTimeAndSizeMatchValidator(kTime + 1, 0).validate(file.c_str(), timeInfo);
  SourceFileTimeAndSizeMatchValidator(kTime, 1).validate(file.c_str(), sizeInfo);
  EXPECT_EQ("The modification time of the source file does not match the expected time.", timeInfo.message());
  EXPECT_EQ("The size of the source file does not match the expected size.", sizeInfo.message());
}

// --- SourceFileUpToDateCheckValidator ----------------------------------------------------------

class UpToDateTest : public ValidatorsTest {
protected:
  void SetUp() override {
    ValidatorsTest::SetUp();
    binary = dir.write("bin/app", "elf");
    setModificationTime(binary, kBinaryTime);
    source = dir.write("src/main.c", "int main;");
  }
  static constexpr int64_t kBinaryTime = 1600000000;
  std::string binary;
  std::string source;
};

TEST_F(UpToDateTest, SourceOneSecondNewerIsRejected) {
  setModificationTime(source, kBinaryTime + 1);
  Container info;
  EXPECT_EQ(vvReject, SourceFileUpToDateCheckValidator(binary.c_str(), true).validate(source.c_str(), info));
  EXPECT_EQ(severity_t(1), info.severity());
  EXPECT_EQ("%SourceFileUpToDate", info.message());
}

TEST_F(UpToDateTest, SourceWithTheSameTimePasses) {
  setModificationTime(source, kBinaryTime);
  Container accepted, undecided;
  EXPECT_EQ(vvAccept,
            SourceFileUpToDateCheckValidator(binary.c_str(), true).validate(source.c_str(), accepted));
  EXPECT_EQ(vvNoDecision,
            SourceFileUpToDateCheckValidator(binary.c_str(), false).validate(source.c_str(), undecided));
  EXPECT_EQ(severity_t(2), undecided.severity());
  EXPECT_EQ("", undecided.message());
}

TEST_F(UpToDateTest, OlderSourcePasses) {
  setModificationTime(source, kBinaryTime - 3600);
  Container info;
  EXPECT_EQ(vvAccept, SourceFileUpToDateCheckValidator(binary.c_str(), true).validate(source.c_str(), info));
}

TEST_F(UpToDateTest, NewerSourceUnderAnExceptionDirectoryPasses) {
  setModificationTime(source, kBinaryTime + 100);
  SourceFileUpToDateCheckValidator validator(binary.c_str(), true);
  std::string exempt = dir.path(); // an ancestor, not the direct parent
  validator.exceptionDirs().addTimeCheckExceptionDir(exempt);
  Container info;
  EXPECT_EQ(vvAccept, validator.validate(source.c_str(), info));
}

TEST_F(UpToDateTest, ExceptionDirectoryReachedThroughALinkPasses) {
  setModificationTime(source, kBinaryTime + 100);
  std::string link = dir.sub("srclink");
  ASSERT_EQ(0, ::symlink(dir.sub("src").c_str(), link.c_str()));
  {
    // Listed by its link, file given by its real path.
    SourceFileUpToDateCheckValidator validator(binary.c_str(), true);
    validator.exceptionDirs().addTimeCheckExceptionDir(link);
    Container info;
    EXPECT_EQ(vvAccept, validator.validate(source.c_str(), info));
  }
  {
    // Listed by its real path, file given through the link.
    SourceFileUpToDateCheckValidator validator(binary.c_str(), true);
    std::string real = dir.sub("src");
    validator.exceptionDirs().addTimeCheckExceptionDir(real);
    Container info;
    EXPECT_EQ(vvAccept, validator.validate((link + "/main.c").c_str(), info));
  }
}

TEST_F(UpToDateTest, UnknownBinaryTimeHasNoDecisionWithANote) {
  Container info;
  SourceFileUpToDateCheckValidator validator(dir.sub("bin/none").c_str(), true);
  EXPECT_EQ(vvNoDecision, validator.validate(source.c_str(), info));
  EXPECT_EQ(severity_t(1), info.severity());
  EXPECT_EQ("NoDataForSourceFileValidation", info.message());
  Container nullBinary;
  EXPECT_EQ(vvNoDecision,
            SourceFileUpToDateCheckValidator(nullptr, true).validate(source.c_str(), nullBinary));
  EXPECT_EQ("NoDataForSourceFileValidation", nullBinary.message());
}

TEST_F(UpToDateTest, UnknownBinaryTimeNoteFromTheCatalog) {
  {
    vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
    Container info;
    SourceFileUpToDateCheckValidator(dir.sub("bin/none").c_str(), true).validate(source.c_str(), info);
    EXPECT_EQ("There is no data to validate the source file against its binary file.", info.message());
  }
  {
    vell_test::TempDir catalogs;
    catalogs.write("vell_common.en.json", R"({"SizeMismatch": "s"})");
    vell_test::CatalogScope scope(catalogs.path());
    Container info;
    info.setErrorMessage("before");
    SourceFileUpToDateCheckValidator(dir.sub("bin/none").c_str(), true).validate(source.c_str(), info);
    EXPECT_EQ("", info.message()); // the catalog's text as it comes
  }
}

TEST_F(UpToDateTest, UpToDateTextFromTheCatalog) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  setModificationTime(source, kBinaryTime + 1);
  Container info;
  SourceFileUpToDateCheckValidator(binary.c_str(), true).validate(source.c_str(), info);
  EXPECT_EQ("The source file is newer than its binary file.", info.message());
}

TEST_F(UpToDateTest, BinaryTimeIsReadOnceAtConstruction) {
  setModificationTime(source, kBinaryTime + 10);
  SourceFileUpToDateCheckValidator validator(binary.c_str(), true);
  setModificationTime(binary, kBinaryTime + 20);
  Container info;
  EXPECT_EQ(vvReject, validator.validate(source.c_str(), info));
  EXPECT_EQ(kBinaryTime + 20, modificationTime(binary));
}

TEST_F(UpToDateTest, MissingSourceCountsAsNotNewer) {
  Container info;
  EXPECT_EQ(
      vvNoDecision,
      SourceFileUpToDateCheckValidator(binary.c_str(), false).validate(dir.sub("src/none.c").c_str(), info));
}

// --- ExceptionDirsHelper -----------------------------------------------------------------------

TEST_F(ValidatorsTest, EmptyExceptionListExemptsNothing) {
  ExceptionDirsHelper helper;
  std::string file = dir.write("a/b.c");
  EXPECT_FALSE(helper.isTimeCheckException(file.c_str()));
}

TEST_F(ValidatorsTest, FilesBelowAnExceptionDirectoryAreExempt) {
  ExceptionDirsHelper helper;
  std::string listed = dir.mkdir("a");
  std::string other = dir.mkdir("other");
  helper.addTimeCheckExceptionDir(other);
  helper.addTimeCheckExceptionDir(listed);
  EXPECT_TRUE(helper.isTimeCheckException(dir.write("a/b.c").c_str()));
  EXPECT_TRUE(helper.isTimeCheckException(dir.write("a/x/y/z.c").c_str()));
  EXPECT_FALSE(helper.isTimeCheckException(dir.write("ab/c.c").c_str()));
  EXPECT_FALSE(helper.isTimeCheckException(dir.write("top.c").c_str()));
  // The directory itself is not below itself.
  EXPECT_FALSE(helper.isTimeCheckException(listed.c_str()));
  // A file that does not exist yet is exempt by its place alone.
  EXPECT_TRUE(helper.isTimeCheckException((listed + "/later.c").c_str()));
}

TEST_F(ValidatorsTest, ExceptionDirectoriesMatchBySameObjectNotByText) {
  ExceptionDirsHelper helper;
  dir.mkdir("a/b");
  std::string spelled = dir.path() + "/a/b/../b/.";
  helper.addTimeCheckExceptionDir(spelled);
  EXPECT_TRUE(helper.isTimeCheckException(dir.write("a/b/c.c").c_str()));
}

TEST_F(ValidatorsTest, MissingOrRelativeEntriesExemptNothing) {
  ExceptionDirsHelper helper;
  std::string missing = dir.sub("missing");
  helper.addTimeCheckExceptionDir(missing);
  EXPECT_FALSE(helper.isTimeCheckException(dir.write("x.c").c_str()));
  EXPECT_FALSE(helper.isTimeCheckException("relative.c"));
  EXPECT_FALSE(helper.isTimeCheckException(nullptr));
}

} // namespace
