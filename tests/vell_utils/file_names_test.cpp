// Taking file names apart, joining, comparing and canonicalising them.
#include <string>

#include <gtest/gtest.h>

#include "vell/file_search.h"
#include "vell_utils/canonical_name.h"

namespace {

using namespace VELL_2_13;

TEST(FileNames, PartsOfASharedLibraryName) {
  EXPECT_EQ(utils::getFileNameOnly("/usr/lib/libx.so.1"), "libx.so.1");
  EXPECT_EQ(utils::getFileNamePath("/usr/lib/libx.so.1"), "/usr/lib");
  EXPECT_EQ(utils::getFileNameBase("libx.so.1"), "libx.so");
  EXPECT_EQ(utils::getFileNameExtension("libx.so.1"), ".1");
  EXPECT_EQ(utils::getFileNameBase("/usr/lib/libx.so.1"), "libx.so");
}

TEST(FileNames, PartsOfNamesWithoutExtensionOrDirectory) {
  EXPECT_EQ(utils::getFileNameOnly("vmlinux"), "vmlinux");
  EXPECT_EQ(utils::getFileNamePath("vmlinux"), "");
  EXPECT_EQ(utils::getFileNameBase("vmlinux"), "vmlinux");
  EXPECT_EQ(utils::getFileNameExtension("vmlinux"), "");
  // Boost's v3 path takes everything from a leading dot as the extension.
  EXPECT_EQ(utils::getFileNameBase(".bashrc"), "");
  EXPECT_EQ(utils::getFileNameExtension(".bashrc"), ".bashrc");
  EXPECT_EQ(utils::getFileNameOnly("/"), "/");
}

TEST(FileNames, LastComponentOfADirectoryWithTrailingSlashIsDot) {
  EXPECT_EQ(utils::getFileNameOnly("dir/"), ".");
  EXPECT_EQ(utils::getFileNamePath("dir/"), "dir");
  EXPECT_EQ(utils::getFileNameOnly("/usr/lib/"), ".");
}

TEST(FileNames, NullNamesGiveEmptyStrings) {
  EXPECT_EQ(utils::getFileNameOnly(nullptr), "");
  EXPECT_EQ(utils::getFileNamePath(nullptr), "");
  EXPECT_EQ(utils::getFileNameBase(nullptr), "");
  EXPECT_EQ(utils::getFileNameExtension(nullptr), "");
  EXPECT_EQ(utils::getCanonicalName(nullptr, false), "");
  EXPECT_EQ(utils::getCanonicalName(nullptr, true), "");
  EXPECT_EQ(utils::toUpper(nullptr), "");
  EXPECT_FALSE(utils::isAbsolutePath(nullptr));
}

TEST(FileNames, ChangeExtension) {
  EXPECT_EQ(utils::changeFileNameExtension("/usr/lib/libx.so", ".debug"), "/usr/lib/libx.debug");
  EXPECT_EQ(utils::changeFileNameExtension("libx.so.1", ".debug"), "libx.so.debug");
  EXPECT_EQ(utils::changeFileNameExtension("/boot/vmlinux", ".gz"), "/boot/vmlinux.gz");
  EXPECT_EQ(utils::changeFileNameExtension("/usr/lib/libx.so", ""), "/usr/lib/libx");
  // The extension is appended as text, without a separator of its own.
  EXPECT_EQ(utils::changeFileNameExtension("/a/b.c", "d"), "/a/bd");
}

TEST(FileNames, AddSubPartAppendsWithOneSeparator) {
  EXPECT_EQ(utils::addSubPart("/usr/lib", "libx.so"), "/usr/lib/libx.so");
  EXPECT_EQ(utils::addSubPart("/usr/lib/", "libx.so"), "/usr/lib/libx.so");
  EXPECT_EQ(utils::addSubPart("", "libx.so"), "libx.so");
  EXPECT_EQ(utils::addSubPart("/usr/lib", ".debug/libx.so"), "/usr/lib/.debug/libx.so");
}

TEST(FileNames, AbsolutePathNeedsARootDirectory) {
  EXPECT_TRUE(utils::isAbsolutePath("/a"));
  EXPECT_TRUE(utils::isAbsolutePath("/"));
  EXPECT_TRUE(utils::isAbsolutePath("//server/share"));
  EXPECT_FALSE(utils::isAbsolutePath("a/b"));
  EXPECT_FALSE(utils::isAbsolutePath(""));
  // A drive letter has no root directory on this system.
  EXPECT_FALSE(utils::isAbsolutePath("C:\\a"));
  EXPECT_FALSE(utils::isAbsolutePath("C:a"));
  EXPECT_FALSE(utils::isAbsolutePath("\\usr\\lib"));
}

TEST(FileNames, ByteComparisonIsCaseSensitive) {
  EXPECT_EQ(utils::compareCanonicalFileNames("/usr/lib/x.so", "/usr/lib/x.so"), 0);
  EXPECT_NE(utils::compareCanonicalFileNames("/usr/lib/X.so", "/usr/lib/x.so"), 0);
  EXPECT_EQ(utils::compareCanonicalFileNames("A", "a"), -1);
  EXPECT_EQ(utils::compareCanonicalFileNames("a", "A"), 1);
}

TEST(FileNames, ByteComparisonOrdersByFirstDifferingUnsignedByte) {
  EXPECT_EQ(utils::compareCanonicalFileNames("abc", "abd"), -1);
  EXPECT_EQ(utils::compareCanonicalFileNames("abd", "abc"), 1);
  EXPECT_EQ(utils::compareCanonicalFileNames("ab", "abc"), -1);
  EXPECT_EQ(utils::compareCanonicalFileNames("abc", "ab"), 1);
  EXPECT_EQ(utils::compareCanonicalFileNames("", ""), 0);
  EXPECT_EQ(utils::compareCanonicalFileNames("\xff", "a"), 1);
  EXPECT_EQ(utils::compareCanonicalFileNames("a", "\xe9"), -1);
}

TEST(FileNames, ToUpperPassesEveryByteThroughToupper) {
  EXPECT_EQ(utils::toUpper("libx.so.1"), "LIBX.SO.1");
  EXPECT_EQ(utils::toUpper("MiXeD_123"), "MIXED_123");
  EXPECT_EQ(utils::toUpper(""), "");
  EXPECT_EQ(utils::toUpper("a\xe9z"), "A\xe9Z");
}

TEST(CanonicalName, DriveLetterNameGetsForwardSlashesAndLosesDots) {
  EXPECT_EQ(utils::getCanonicalName("C:\\a\\.\\b\\.", false), "C:/a/b");
  EXPECT_EQ(utils::getCanonicalName("C:\\a\\.\\b\\.", true), "C:/a/b");
}

TEST(CanonicalName, NetworkNameGetsForwardSlashes) {
  EXPECT_EQ(utils::getCanonicalName("\\\\server\\share\\dir\\x.pdb", false), "//server/share/dir/x.pdb");
}

TEST(CanonicalName, LinuxNameWithOneBackslashIsLeftAlone) {
  EXPECT_EQ(utils::getCanonicalName("\\usr\\lib\\x.so", false), "\\usr\\lib\\x.so");
  // Only a backslash right after the colon marks a drive letter.
  EXPECT_EQ(utils::getCanonicalName("C:a\\b", false), "C:a\\b");
}

TEST(CanonicalName, TrailingSlashGivesTheSameResultWithAndWithoutFlag) {
  EXPECT_EQ(utils::getCanonicalName("a/b/", true), utils::getCanonicalName("a/b/", false));
  EXPECT_EQ(utils::getCanonicalName("a/b/", false), "a/b");
  EXPECT_EQ(utils::getCanonicalName("/usr/lib/", true), "/usr/lib");
}

TEST(CanonicalName, LexicalNormalisation) {
  EXPECT_EQ(utils::getCanonicalName("/a/b/../c", false), "/a/c");
  EXPECT_EQ(utils::getCanonicalName("/a/./b", false), "/a/b");
  EXPECT_EQ(utils::getCanonicalName("/a//b", false), "/a/b");
  EXPECT_EQ(utils::getCanonicalName("/a/b/.", false), "/a/b");
  EXPECT_EQ(utils::getCanonicalName("/usr/lib/libx.so", false), "/usr/lib/libx.so");
  EXPECT_EQ(utils::getCanonicalName("/", false), "/");
  EXPECT_EQ(utils::getCanonicalName("", false), "");
}

TEST(CanonicalName, InternalRoutineMatchesThePublicOne) {
  for (const char *p : {"C:\\a\\.\\b\\.", "\\\\srv\\x", "a/b/", "/a/b/../c/", "/x/./y/.", "rel/../x", "/"})
    EXPECT_EQ(utils::canonicalPath(p), utils::getCanonicalName(p, false)) << p;
}

} // namespace
