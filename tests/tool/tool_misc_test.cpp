// vell checksum, extract-kernel, archive and the help texts, run as separate processes.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>
#include <zlib.h>

#include "tool/tool_runner.h"

using nlohmann::json;
using vell_test::lines;
using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;
namespace fs = std::filesystem;

namespace {

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(ToolChecksumTest, Md5AndSha1OfAKnownText) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string file = dir.write("abc.txt", "abc");
  ToolRunner tool;
  ToolResult md5 = tool.run({"checksum", file});
  EXPECT_EQ(0, md5.status) << md5.err;
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72\n", md5.out);
  ToolResult sha1 = tool.run({"checksum", file, "--sha1"});
  EXPECT_EQ(0, sha1.status) << sha1.err;
  EXPECT_EQ("sha1:a9993e364706816aba3e25717850c26c9cd0d89d\n", sha1.out);
  ToolResult asJson = tool.run({"checksum", file, "--json"});
  json out = json::parse(asJson.out);
  EXPECT_EQ(file, out["file"]);
  EXPECT_EQ("md5", out["type"]);
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", out["checksum"]);
}

TEST(ToolChecksumTest, MissingFileIsBadInput) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  ToolRunner tool;
  ToolResult result = tool.run({"checksum", dir.sub("none")});
  EXPECT_EQ(2, result.status);
  EXPECT_EQ(std::vector<std::string>{"vell: checksum: file '" + dir.sub("none") + "' does not exist"},
            lines(result.err));
}

void writeGzip(const std::string &path, const std::string &prefix, const std::string &content) {
  std::string part = path + ".part";
  gzFile file = gzopen(part.c_str(), "wb");
  ASSERT_NE(nullptr, file);
  gzwrite(file, content.data(), static_cast<unsigned>(content.size()));
  ASSERT_EQ(Z_OK, gzclose(file));
  std::ofstream out(path, std::ios::binary);
  out << prefix << readFile(part);
  out.close();
  fs::remove(part);
}

TEST(ToolExtractKernelTest, ExtractsTheImage) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string compressed = dir.sub("vmlinuz");
  writeGzip(compressed, "setup code", "the kernel image");
  std::string output = dir.sub("vmlinux");
  ToolRunner tool;
  ToolResult result = tool.run({"extract-kernel", compressed, output});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(std::vector<std::string>{"extracted: " + output}, lines(result.out));
  EXPECT_EQ("the kernel image", readFile(output));
}

TEST(ToolExtractKernelTest, NoImageInsideFailsWithOne) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string plain = dir.write("not-compressed", "plain text, no gzip stream");
  ToolRunner tool;
  ToolResult result = tool.run({"extract-kernel", plain, dir.sub("out")});
  EXPECT_EQ(1, result.status);
  EXPECT_EQ(std::vector<std::string>{"vell: no kernel image could be extracted from " + plain},
            lines(result.err));
  EXPECT_FALSE(fs::exists(dir.sub("out")));
}

TEST(ToolExtractKernelTest, MissingInputIsBadInput) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  ToolRunner tool;
  ToolResult result = tool.run({"extract-kernel", dir.sub("none"), dir.sub("out")});
  EXPECT_EQ(2, result.status);
  EXPECT_EQ(1u, lines(result.err).size());
  EXPECT_FALSE(fs::exists(dir.sub("out")));
}

TEST(ToolArchiveTest, SecondArchiveOfTheSameFileIsAlreadyArchived) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string file = dir.write("src/main.c", "int main() {}");
  std::string results = dir.mkdir("results");
  ToolRunner tool;
  ToolResult first = tool.run({"--json", "archive", file, "--category", "src", "--result-dir", results});
  ASSERT_EQ(0, first.status) << first.err;
  json out = json::parse(first.out);
  EXPECT_EQ(0, out["status"]);
  EXPECT_EQ("archived", out["statusText"]);
  EXPECT_EQ("src", out["category"]);
  std::string path = out["path"];
  EXPECT_EQ(0u, path.find(results + "/archive/sources/main.c/"));
  EXPECT_EQ("int main() {}", readFile(path));

  ToolResult second = tool.run({"archive", file, "--category", "src", "--result-dir", results});
  EXPECT_EQ(0, second.status) << second.err;
  EXPECT_EQ((std::vector<std::string>{"status: 6 (already archived)", "path: " + path}), lines(second.out));

  ToolResult all = tool.run({"archive", file, "--category", "all", "--result-dir", results});
  EXPECT_EQ(0, all.status);
  EXPECT_TRUE(fs::is_directory(results + "/archive/all/main.c"));
}

TEST(ToolArchiveTest, BadInputChangesNothing) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string file = dir.write("lib.so", "x");
  std::string results = dir.mkdir("results");
  ToolRunner tool;
  EXPECT_EQ(2, tool.run({"archive", file, "--category", "lib", "--result-dir", results}).status);
  EXPECT_EQ(2, tool.run({"archive", dir.sub("none"), "--category", "bin", "--result-dir", results}).status);
  EXPECT_EQ(2, tool.run({"archive", file, "--category", "bin"}).status);
  EXPECT_TRUE(fs::is_empty(results));
}

TEST(ToolHelpTest, EveryCommandHasHelp) {
  VELL_REQUIRE_TOOL();
  ToolRunner tool;
  ToolResult main = tool.run({"--help"});
  EXPECT_EQ(0, main.status);
  for (const char *command : {"find", "dirs", "archive", "checksum", "extract-kernel"})
    EXPECT_NE(std::string::npos, main.out.find(command)) << command;
  ToolResult find = tool.run({"find", "--help"});
  EXPECT_EQ(0, find.status);
  for (const char *option : {"--binary", "--checksum", "--mtime", "--size", "--not-newer-than-binary",
                             "--time-check-exception", "--dir", "--archive", "--cache", "--result-dir",
                             "--kernel-release", "--suggest", "--steps", "--all", "--explain"})
    EXPECT_NE(std::string::npos, find.out.find(option)) << option;
  for (std::vector<std::string> args : std::vector<std::vector<std::string>>{{"dirs", "--help"},
                                                                             {"dirs", "add", "--help"},
                                                                             {"dirs", "list", "--help"},
                                                                             {"dirs", "clear", "--help"},
                                                                             {"archive", "--help"},
                                                                             {"checksum", "--help"},
                                                                             {"extract-kernel", "--help"}}) {
    ToolResult help = tool.run(args);
    EXPECT_EQ(0, help.status) << args[0];
    EXPECT_NE(std::string::npos, help.out.find("Usage: vell " + args[0])) << help.out;
  }
}

} // namespace
