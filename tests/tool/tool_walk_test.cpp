// vell find's recursive walks with directories read ahead (the default) and
// with --plain-walk: the same files, in the same order, reported alike.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tool/tool_runner.h"

using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;

namespace fs = std::filesystem;

namespace {

// A tree with the name in several places, a directory of that name (a
// rejected candidate), a link back to the root and a closed directory.
void buildTree(const TempDir &dir) {
  for (int a = 0; a < 5; ++a)
    for (int b = 0; b < 4; ++b) {
      const std::string leaf = "tree/a" + std::to_string(a) + "/b" + std::to_string(b);
      dir.write(leaf + "/other.so", "other");
      if ((a * 4 + b) % 6 == 1)
        dir.write(leaf + "/libz.so", "copy " + std::to_string(a * 4 + b));
    }
  dir.mkdir("tree/a3/libz.so");
  fs::create_directory_symlink(dir.sub("tree"), dir.sub("tree/a2/b2/up"));
  dir.write("tree/closed/libz.so", "closed");
  for (const auto &entry : fs::recursive_directory_iterator(dir.sub("tree")))
    fs::permissions(entry.path(), fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
  vell_test::openForOthers(dir.sub("tree/a0/b0/other.so"));
  ::chmod(dir.sub("tree/closed").c_str(), 0700);
}

// -v reports how long each step took.
std::string withoutTimes(const std::string &text) {
  return std::regex_replace(text, std::regex("[0-9.]+ ms"), "N ms");
}

TEST(ToolWalkTest, ReadAheadAndPlainWalkReportTheSameFilesInTheSameOrder) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  buildTree(dir);
  ToolRunner tool;
  // As nobody, the closed directory cannot be read: both walks report it.
  tool.runUnprivileged();
  vell_test::openForOthers(tool.home());
  const std::string dirSpec = "bin:r=" + dir.sub("tree");
  for (const std::vector<std::string> &request :
       {std::vector<std::string>{"find", "bin", "libz.so", "--dir", dirSpec, "--all", "--explain"},
        std::vector<std::string>{"--json", "find", "bin", "libz.so", "--dir", dirSpec, "--explain"},
        std::vector<std::string>{"find", "bin", "missing.so", "--dir", dirSpec, "--explain"},
        std::vector<std::string>{"-v", "find", "bin", "missing.so", "--dir", dirSpec}}) {
    SCOPED_TRACE(request[request[0] == "find" ? 2 : 3]);
    ToolResult ahead = tool.run(request);
    std::vector<std::string> plainRequest = request;
    plainRequest.push_back("--plain-walk");
    ToolResult plain = tool.run(plainRequest);
    EXPECT_EQ(plain.status, ahead.status) << ahead.err;
    EXPECT_EQ(plain.out, ahead.out);
    EXPECT_EQ(withoutTimes(plain.err), withoutTimes(ahead.err));
  }
  // What the runs above compared: the copy the walk meets first, and a walk
  // through the whole tree that reports the closed directory.
  ToolResult found = tool.run({"find", "bin", "libz.so", "--dir", dirSpec});
  EXPECT_EQ(0, found.status) << found.err;
  EXPECT_NE(std::string::npos, found.out.find("/libz.so")) << found.out;
  ToolResult missing = tool.run({"find", "bin", "missing.so", "--dir", dirSpec, "--explain"});
  EXPECT_EQ(1, missing.status) << missing.err;
  if (::geteuid() == 0) {
    EXPECT_NE(std::string::npos, (missing.out + missing.err).find(dir.sub("tree/closed")))
        << missing.out << missing.err;
  }
}

} // namespace
