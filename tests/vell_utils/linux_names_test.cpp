// Kernel image names and Linux paths written with backslashes.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "vell/file_search.h"

namespace {

using namespace VELL_2_13;

std::string fixed(std::string s, bool expected) {
  EXPECT_EQ(fixLinuxName(s), expected) << s;
  return s;
}

TEST(LinuxNames, KernelImageNames) {
  EXPECT_STREQ(VMLINUX, "vmlinux");
  EXPECT_STREQ(VMLINUZ, "vmlinuz");
}

TEST(LinuxNames, OneLeadingBackslashMakesALinuxPath) {
  EXPECT_EQ(fixed("\\usr\\lib\\x.so", true), "/usr/lib/x.so");
  EXPECT_EQ(fixed("\\a", true), "/a");
}

TEST(LinuxNames, OneLeadingSlashMakesALinuxPath) {
  EXPECT_EQ(fixed("/usr\\lib\\x.so", true), "/usr/lib/x.so");
  EXPECT_EQ(fixed("/usr/lib/x.so", true), "/usr/lib/x.so");
  EXPECT_EQ(fixed("/", true), "/");
}

TEST(LinuxNames, NetworkNamesAreLeftAlone) {
  EXPECT_EQ(fixed("\\\\server\\share\\x.so", false), "\\\\server\\share\\x.so");
  EXPECT_EQ(fixed("//server/share\\x.so", false), "//server/share\\x.so");
}

TEST(LinuxNames, OtherNamesAreLeftAlone) {
  EXPECT_EQ(fixed("", false), "");
  EXPECT_EQ(fixed("\\", false), "\\");
  EXPECT_EQ(fixed("lib\\x.so", false), "lib\\x.so");
  EXPECT_EQ(fixed("C:\\dir\\x.dll", false), "C:\\dir\\x.dll");
  EXPECT_EQ(fixed("x.so", false), "x.so");
}

} // namespace
