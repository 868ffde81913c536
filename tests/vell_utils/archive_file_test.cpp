// Filing copies of files into an archive tree keyed by name and MD5.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <fstream>
#include <sstream>
#include <string>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"

using namespace VELL_2_13;

namespace {

const char *const kAbcMd5 = "900150983cd24fb0d6963f7d28e17f72";
const char *const kAbdMd5 = "4911e516e5aa21d327512e0c8b197616";

std::string readAll(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

bool isDir(const std::string &path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isFile(const std::string &path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

class ArchiveFileTest : public ::testing::Test {
protected:
  vell_test::TempDir dir;
};

TEST_F(ArchiveFileTest, LayoutIsNameThenChecksumThenName) {
  std::string source = dir.write("in/libx.so", "abc");
  std::string archive = dir.sub("archive");
  std::string result;
  vell_test::LogCapture log;
  ASSERT_EQ(0, utils::archiveFile(source.c_str(), archive.c_str(), nullptr, result, false));
  EXPECT_EQ(archive + "/libx.so/" + kAbcMd5 + "/libx.so", result);
  EXPECT_EQ("abc", readAll(result));
  EXPECT_TRUE(log.texts().empty()); // archiving writes no log line
}

TEST_F(ArchiveFileTest, SubDirectoryIsInsertedAfterTheTarget) {
  std::string source = dir.write("in/libx.so", "abc");
  std::string result;
  ASSERT_EQ(0, utils::archiveFile(source.c_str(), dir.sub("archive").c_str(), "bin", result, false));
  EXPECT_EQ(dir.sub("archive") + "/bin/libx.so/" + kAbcMd5 + "/libx.so", result);
  EXPECT_TRUE(isFile(result));
}

TEST_F(ArchiveFileTest, ArchivingTwiceGivesZeroThenSixWithTheSamePath) {
  std::string source = dir.write("in/libx.so", "abc");
  std::string first, second;
  ASSERT_EQ(0, utils::archiveFile(source.c_str(), dir.sub("archive").c_str(), nullptr, first, false));
  ASSERT_EQ(6, utils::archiveFile(source.c_str(), dir.sub("archive").c_str(), nullptr, second, false));
  EXPECT_EQ(first, second);
  EXPECT_TRUE(isFile(source));
}

TEST_F(ArchiveFileTest, SameNameDifferentContentsLiveSideBySide) {
  std::string one = dir.write("a/libx.so", "abc");
  std::string two = dir.write("b/libx.so", "abd");
  std::string first, second;
  ASSERT_EQ(0, utils::archiveFile(one.c_str(), dir.sub("archive").c_str(), nullptr, first, false));
  ASSERT_EQ(0, utils::archiveFile(two.c_str(), dir.sub("archive").c_str(), nullptr, second, false));
  EXPECT_EQ(dir.sub("archive") + "/libx.so/" + kAbcMd5 + "/libx.so", first);
  EXPECT_EQ(dir.sub("archive") + "/libx.so/" + kAbdMd5 + "/libx.so", second);
  EXPECT_EQ("abc", readAll(first));
  EXPECT_EQ("abd", readAll(second));
}

TEST_F(ArchiveFileTest, RemoveSourceMovesTheFile) {
  std::string source = dir.write("in/fetched.so", "abc");
  std::string result;
  ASSERT_EQ(0, utils::archiveFile(source.c_str(), dir.sub("cache").c_str(), nullptr, result, true));
  EXPECT_FALSE(isFile(source));
  EXPECT_EQ("abc", readAll(result));
}

TEST_F(ArchiveFileTest, RemoveSourceFalseKeepsTheSource) {
  std::string source = dir.write("in/kept.so", "abc");
  std::string result;
  ASSERT_EQ(0, utils::archiveFile(source.c_str(), dir.sub("cache").c_str(), nullptr, result, false));
  EXPECT_TRUE(isFile(source));
  EXPECT_EQ("abc", readAll(source));
}

TEST_F(ArchiveFileTest, AlreadyArchivedLeavesTheSourceEvenWhenAskedToRemove) {
  std::string source = dir.write("in/x.so", "abc");
  std::string result;
  ASSERT_EQ(0, utils::archiveFile(source.c_str(), dir.sub("cache").c_str(), nullptr, result, false));
  ASSERT_EQ(6, utils::archiveFile(source.c_str(), dir.sub("cache").c_str(), nullptr, result, true));
  EXPECT_TRUE(isFile(source));
}

TEST_F(ArchiveFileTest, MissingSourceGivesThreeAfterTheNameDirectoryExists) {
  std::string result = "untouched";
  EXPECT_EQ(3, utils::archiveFile(dir.sub("in/none.so").c_str(), dir.sub("archive").c_str(), nullptr, result,
                                  false));
  EXPECT_TRUE(isDir(dir.sub("archive/none.so")));
  EXPECT_EQ("untouched", result);
}

TEST_F(ArchiveFileTest, UnreadableSourceGivesThreeAfterTheNameDirectoryExists) {
  std::string source = dir.write("in/secret.so", "abc");
  ASSERT_EQ(0, ::chmod(source.c_str(), 0));
  std::string archive = dir.mkdir("archive");
  ASSERT_EQ(0, ::chmod(archive.c_str(), 0777));
  vell_test::openForOthers(dir.sub("in"));
  std::string result;
  int status;
  {
    vell_test::AsUnprivilegedUser nobody;
    status = utils::archiveFile(source.c_str(), archive.c_str(), nullptr, result, false);
  }
  EXPECT_EQ(3, status);
  EXPECT_TRUE(isDir(archive + "/secret.so"));
}

TEST_F(ArchiveFileTest, TargetThatCannotBeCreatedGivesFour) {
  std::string source = dir.write("in/x.so", "abc");
  std::string result;
  EXPECT_EQ(4, utils::archiveFile(source.c_str(), dir.sub("no/parent").c_str(), nullptr, result, false));
  dir.write("blocker", "file");
  EXPECT_EQ(4, utils::archiveFile(source.c_str(), dir.sub("blocker").c_str(), nullptr, result, false));
  EXPECT_EQ(4, utils::archiveFile(source.c_str(), nullptr, nullptr, result, false));
}

TEST_F(ArchiveFileTest, SubDirectoryOrNameDirectoryThatCannotBeCreatedGivesFour) {
  std::string source = dir.write("in/x.so", "abc");
  std::string result;
  dir.write("archive/sub", "a file where the sub-directory should be");
  EXPECT_EQ(4, utils::archiveFile(source.c_str(), dir.sub("archive").c_str(), "sub", result, false));
  dir.write("archive2/x.so", "a file where the name directory should be");
  EXPECT_EQ(4, utils::archiveFile(source.c_str(), dir.sub("archive2").c_str(), nullptr, result, false));
}

TEST_F(ArchiveFileTest, ChecksumDirectoryThatCannotBeCreatedGivesFour) {
  std::string source = dir.write("in/x.so", "abc");
  dir.write(std::string("archive/x.so/") + kAbcMd5, "a file where the checksum directory should be");
  std::string result;
  EXPECT_EQ(4, utils::archiveFile(source.c_str(), dir.sub("archive").c_str(), nullptr, result, false));
}

TEST_F(ArchiveFileTest, FailingCopyLeavesAsAFileSystemError) {
  std::string source = dir.write("in/x.so", "abc");
  dir.mkdir(std::string("archive/x.so/") + kAbcMd5 + "/x.so"); // a directory where the copy should go
  std::string result;
  EXPECT_THROW(utils::archiveFile(source.c_str(), dir.sub("archive").c_str(), nullptr, result, false),
               boost::filesystem::filesystem_error);
  EXPECT_EQ(dir.sub("archive") + "/x.so/" + kAbcMd5 + "/x.so", result);
}

TEST_F(ArchiveFileTest, FailingRemovalOfTheSourceLeavesAsAFileSystemErrorAfterTheCopy) {
  std::string source = dir.write("in/fetched.so", "abc");
  std::string archive = dir.mkdir("archive");
  ASSERT_EQ(0, ::chmod(archive.c_str(), 0777));
  vell_test::openForOthers(dir.sub("in"));
  // Nobody may remove entries of "in": the copy succeeds, the removal fails.
  ASSERT_EQ(0, ::chmod(dir.sub("in").c_str(), 0555));
  std::string result;
  bool thrown = false;
  std::string failedPath;
  {
    vell_test::AsUnprivilegedUser nobody;
    try {
      utils::archiveFile(source.c_str(), archive.c_str(), nullptr, result, true);
    } catch (const boost::filesystem::filesystem_error &error) {
      thrown = true;
      failedPath = error.path1().string();
    }
  }
  ASSERT_EQ(0, ::chmod(dir.sub("in").c_str(), 0755));
  EXPECT_TRUE(thrown);
  EXPECT_EQ(source, failedPath); // the removal failed, not the copy
  EXPECT_EQ(archive + "/fetched.so/" + kAbcMd5 + "/fetched.so", result);
  EXPECT_EQ("abc", readAll(result));
  EXPECT_TRUE(isFile(source));
}

} // namespace
