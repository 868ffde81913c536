// Lexical and real containment of paths built from untrusted names.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/temp_dir.h"
#include "vell_utils/path_containment.h"

using VELL_2_13::utils::isOwnFileInsideDirectory;
using VELL_2_13::utils::isPathInsideDirectory;
using vell_test::TempDir;

namespace fs = std::filesystem;

namespace {

TEST(PathContainmentTest, LexicalContainmentAfterNormalisation) {
  EXPECT_TRUE(isPathInsideDirectory("/r/fetch/a", "/r/fetch"));
  EXPECT_TRUE(isPathInsideDirectory("/r/fetch/usr/../a/b", "/r/fetch/"));
  EXPECT_TRUE(isPathInsideDirectory("/r/fetch//x/./y", "/r/fetch/."));
  EXPECT_FALSE(isPathInsideDirectory("/r/fetch", "/r/fetch"));
  EXPECT_FALSE(isPathInsideDirectory("/r/fetch/.", "/r/fetch"));
  EXPECT_FALSE(isPathInsideDirectory("/r/fetch/a/..", "/r/fetch"));
  EXPECT_FALSE(isPathInsideDirectory("/r/fetch/../x", "/r/fetch"));
  EXPECT_FALSE(isPathInsideDirectory("/r/fetch/../../../../x", "/r/fetch"));
  EXPECT_FALSE(isPathInsideDirectory("/r/fetchx/a", "/r/fetch"));
  EXPECT_FALSE(isPathInsideDirectory("/r/a", "/r/fetch"));
  EXPECT_FALSE(isPathInsideDirectory("", "/r/fetch"));
  EXPECT_FALSE(isPathInsideDirectory("/r/fetch/a", ""));
  EXPECT_TRUE(isPathInsideDirectory("/x", "/"));
  EXPECT_TRUE(isPathInsideDirectory("/x", "/."));
  EXPECT_TRUE(isPathInsideDirectory("/x", "//."));
  EXPECT_FALSE(isPathInsideDirectory("/", "/"));
  // Leading slashes are all the root, as for the kernel.
  EXPECT_TRUE(isPathInsideDirectory("//net/a", "/net"));
  EXPECT_TRUE(isPathInsideDirectory("/net/a", "//net"));
  EXPECT_FALSE(isPathInsideDirectory("//net/../a", "//net"));
}

TEST(PathContainmentTest, RelativePathsAreTakenFromTheWorkingDirectory) {
  const std::string cwd = fs::current_path().string();
  EXPECT_TRUE(isPathInsideDirectory("a/b", cwd));
  EXPECT_TRUE(isPathInsideDirectory(cwd + "/a", "."));
  EXPECT_FALSE(isPathInsideDirectory("../a", "."));
}

TEST(PathContainmentTest, OwnFileIsARegularFileWhoseRealLocationIsInside) {
  TempDir tmp;
  const std::string dir = tmp.mkdir("fetch");
  const std::string outside = tmp.write("outside/file", "x");
  tmp.write("fetch/sub/file", "x");
  fs::create_symlink(outside, dir + "/link");
  fs::create_directory_symlink(tmp.sub("outside"), dir + "/linkdir");
  tmp.mkdir("fetch/dir");

  EXPECT_TRUE(isOwnFileInsideDirectory(dir + "/sub/file", dir));
  EXPECT_TRUE(isOwnFileInsideDirectory(dir + "/sub/../sub/file", dir));
  EXPECT_FALSE(isOwnFileInsideDirectory(dir + "/link", dir));
  EXPECT_FALSE(isOwnFileInsideDirectory(dir + "/linkdir/file", dir));
  EXPECT_FALSE(isOwnFileInsideDirectory(dir + "/dir", dir));
  EXPECT_FALSE(isOwnFileInsideDirectory(dir + "/missing", dir));
  EXPECT_FALSE(isOwnFileInsideDirectory(dir + "/../outside/file", dir));
}

TEST(PathContainmentTest, ALinkedRetrievalDirectoryIsComparedByItsRealLocation) {
  TempDir tmp;
  tmp.write("real/file", "x");
  fs::create_directory_symlink(tmp.sub("real"), tmp.sub("alias"));
  EXPECT_TRUE(isOwnFileInsideDirectory(tmp.sub("alias/file"), tmp.sub("alias")));
  // Named outside the directory: refused, wherever it really lies.
  EXPECT_FALSE(isOwnFileInsideDirectory(tmp.sub("real/file"), tmp.sub("alias")));
}

} // namespace
