// Existence tests, directory creation and the user name.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "vell/file_search.h"

namespace {

using namespace VELL_2_13;
namespace fs = std::filesystem;

TEST(FileSystem, FileExistsOnlyForRegularFiles) {
  vell_test::TempDir dir;
  const std::string file = dir.write("lib/libx.so");
  const std::string sub = dir.mkdir("sub");
  EXPECT_TRUE(utils::fileExists(file.c_str()));
  EXPECT_FALSE(utils::fileExists(sub.c_str()));
  EXPECT_FALSE(utils::fileExists(dir.sub("missing").c_str()));
  EXPECT_FALSE(utils::fileExists(nullptr));
  EXPECT_FALSE(utils::fileExists(""));
}

TEST(FileSystem, IsDirectoryOnlyForDirectories) {
  vell_test::TempDir dir;
  const std::string file = dir.write("x.so");
  const std::string sub = dir.mkdir("sub");
  EXPECT_TRUE(utils::isDirectory(sub.c_str()));
  EXPECT_TRUE(utils::isDirectory((sub + "/").c_str()));
  EXPECT_FALSE(utils::isDirectory(file.c_str()));
  EXPECT_FALSE(utils::isDirectory(dir.sub("missing").c_str()));
  EXPECT_FALSE(utils::isDirectory(nullptr));
}

TEST(FileSystem, SymbolicLinksAreFollowed) {
  vell_test::TempDir dir;
  const std::string file = dir.write("real.so");
  const std::string sub = dir.mkdir("realdir");
  fs::create_symlink(file, dir.sub("link.so"));
  fs::create_directory_symlink(sub, dir.sub("linkdir"));
  fs::create_symlink(dir.sub("gone"), dir.sub("dangling"));
  EXPECT_TRUE(utils::fileExists(dir.sub("link.so").c_str()));
  EXPECT_TRUE(utils::isDirectory(dir.sub("linkdir").c_str()));
  EXPECT_FALSE(utils::fileExists(dir.sub("linkdir").c_str()));
  EXPECT_FALSE(utils::fileExists(dir.sub("dangling").c_str()));
  EXPECT_FALSE(utils::isDirectory(dir.sub("dangling").c_str()));
}

TEST(FileSystem, StatusErrorCountsAsMissing) {
  vell_test::TempDir dir;
  const std::string file = dir.write("closed/x.so");
  const std::string sub = dir.mkdir("closed/inner");
  ASSERT_EQ(::chmod(dir.sub("closed").c_str(), 0700), 0);
  {
    vell_test::AsUnprivilegedUser nobody;
    EXPECT_FALSE(utils::fileExists(file.c_str()));
    EXPECT_FALSE(utils::isDirectory(sub.c_str()));
  }
  vell_test::openForOthers(sub);
  {
    vell_test::AsUnprivilegedUser nobody;
    EXPECT_TRUE(utils::fileExists(file.c_str()));
    EXPECT_TRUE(utils::isDirectory(sub.c_str()));
  }
}

TEST(FileSystem, CreateDirMakesOneDirectory) {
  vell_test::TempDir dir;
  const std::string target = dir.sub("new");
  EXPECT_TRUE(utils::createDir(target.c_str()));
  EXPECT_TRUE(fs::is_directory(target));
  // Already there: boost reports that nothing was created.
  EXPECT_FALSE(utils::createDir(target.c_str()));
}

TEST(FileSystem, CreateDirDoesNotCreateParents) {
  vell_test::TempDir dir;
  const std::string target = dir.sub("a/b");
  EXPECT_FALSE(utils::createDir(target.c_str()));
  EXPECT_FALSE(fs::exists(dir.sub("a")));
}

TEST(FileSystem, CreateDirUsesTheCanonicalForm) {
  vell_test::TempDir dir;
  dir.mkdir("base");
  EXPECT_TRUE(utils::createDir((dir.sub("base") + "/../made/.").c_str()));
  EXPECT_TRUE(fs::is_directory(dir.sub("made")));
  EXPECT_TRUE(utils::createDir((dir.sub("base") + "/trailing/").c_str()));
  EXPECT_TRUE(fs::is_directory(dir.sub("base/trailing")));
}

TEST(FileSystem, CreateDirFailuresAreFalse) {
  vell_test::TempDir dir;
  const std::string file = dir.write("plain");
  EXPECT_FALSE(utils::createDir(nullptr));
  EXPECT_FALSE(utils::createDir(file.c_str())); // a file is in the way
  const std::string closed = dir.mkdir("closed");
  ASSERT_EQ(::chmod(closed.c_str(), 0755), 0);
  vell_test::openForOthers(closed);
  {
    vell_test::AsUnprivilegedUser nobody;
    EXPECT_FALSE(utils::createDir((closed + "/denied").c_str()));
  }
  EXPECT_FALSE(fs::exists(closed + "/denied"));
}

TEST(FileSystem, UserIdNamesTheUser) {
  std::string expected;
  if (const char *login = ::getlogin()) {
    expected = login;
  } else if (const passwd *entry = ::getpwuid(::geteuid()); entry && entry->pw_name) {
    expected = entry->pw_name;
  } else {
    expected = "unknown_user";
  }
  const std::string user = utils::getUserId();
  EXPECT_FALSE(user.empty());
  EXPECT_EQ(user, expected);
}

} // namespace
