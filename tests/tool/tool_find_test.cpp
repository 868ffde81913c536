// vell find run as a separate process: symbol, source, binary and kernel-image
// look-ups, their text and JSON output and exit statuses.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/utsname.h>

#include <nlohmann/json.hpp>
#include <zlib.h>

#include "tool/tool_runner.h"
#include "vell/validation.h"

using namespace VELL_2_13;
using nlohmann::json;
using vell_test::lines;
using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;

namespace {

std::string md5Of(const std::string &path) {
  return IChecksumCalculator::create()->calculateChecksum(path.c_str(), ctMd5)->value();
}

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> foundLines(const std::string &path, int confidence, const std::string &step) {
  const char *const words[] = {"confirmed", "probable", "possible"};
  return {"path: " + path, "confidence: " + std::to_string(confidence) + " (" + words[confidence] + ")",
          "step: " + step};
}

json parse(const ToolResult &result) { return json::parse(result.out); }

// A binary with its symbol file beside it and another in its .debug directory.
struct SymbolTree {
  TempDir dir;
  std::string binary = dir.write("bin/libx.so", "binary");
  std::string beside = dir.write("bin/libx.so.debug", "symbols beside");
  std::string dotDebug = dir.write("bin/.debug/libx.so.debug", "symbols in .debug");
};

TEST(ToolFindTest, SymbolFileBesideTheBinary) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  ToolRunner tool;
  ToolResult result = tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(tree.beside, 1, "ssAroundBinaryLookup"), lines(result.out));
  EXPECT_EQ("", result.err);
}

TEST(ToolFindTest, SymbolFileInTheDotDebugDirectory) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  std::filesystem::remove(tree.beside);
  ToolRunner tool;
  ToolResult result = tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(tree.dotDebug, 1, "ssAroundBinaryLookup"), lines(result.out));
}

TEST(ToolFindTest, RelativeBinaryIsTakenFromTheWorkingDirectory) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  ToolRunner tool;
  tool.setWorkingDirectory(tree.dir.path());
  ToolResult result = tool.run({"find", "sym", "libx.so.debug", "--binary", "bin/libx.so"});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(tree.beside, 1, "ssAroundBinaryLookup"), lines(result.out));
}

TEST(ToolFindTest, AllListsEveryValidFileAndAnswersTheFirst) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  std::string inTree = tree.dir.write("debug/deep/er/libx.so.debug", "symbols in a tree");
  ToolRunner tool;
  ToolResult result = tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary, "--dir",
                                "sym:r=" + tree.dir.sub("debug"), "--all"});
  EXPECT_EQ(0, result.status) << result.err;
  // A step ends at its first valid file; --all goes on with the later steps.
  std::vector<std::string> expected = foundLines(tree.beside, 1, "ssAroundBinaryLookup");
  expected.push_back("valid files: 2");
  expected.push_back("  " + tree.beside + " (confidence 1 (probable), step ssAroundBinaryLookup)");
  expected.push_back("  " + inTree + " (confidence 1 (probable), step ssLowPrioritySearchDirs)");
  EXPECT_EQ(expected, lines(result.out));
}

TEST(ToolFindTest, AllAsJson) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  std::string high = tree.dir.write("high/libx.so.debug", "high priority");
  std::string inTree = tree.dir.write("debug/deep/er/libx.so.debug", "symbols in a tree");
  ToolRunner tool;
  ToolResult result =
      tool.run({"--json", "find", "sym", "libx.so.debug", "--binary", tree.binary, "--dir",
                "sym:r=" + tree.dir.sub("debug"), "--dir", "sym:p=" + tree.dir.sub("high"), "--all"});
  ASSERT_EQ(0, result.status) << result.err;
  json out = parse(result);
  EXPECT_EQ(high, out["path"]);
  EXPECT_EQ("ssHighPrioritySearchDirs", out["step"]);
  ASSERT_EQ(3u, out["files"].size());
  EXPECT_EQ(high, out["files"][0]["path"]);
  EXPECT_EQ("ssHighPrioritySearchDirs", out["files"][0]["step"]);
  EXPECT_EQ(tree.beside, out["files"][1]["path"]);
  EXPECT_EQ("ssAroundBinaryLookup", out["files"][1]["step"]);
  EXPECT_EQ(inTree, out["files"][2]["path"]);
  EXPECT_EQ("ssLowPrioritySearchDirs", out["files"][2]["step"]);
  EXPECT_EQ(1, out["files"][2]["confidence"]);
}

TEST(ToolFindTest, AllWithASingleFile) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  ToolRunner tool;
  ToolResult result = tool.run({"--json", "find", "sym", "libx.so.debug", "--binary", tree.binary, "--all"});
  ASSERT_EQ(0, result.status) << result.err;
  json out = parse(result);
  ASSERT_EQ(1u, out["files"].size());
  EXPECT_EQ(tree.beside, out["files"][0]["path"]);
}

TEST(ToolFindTest, SymbolFileUnderADirectoryTree) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string binary = dir.write("bin/liby.so", "binary");
  std::string symbols = dir.write("debug/a/b/liby.so.debug", "symbols");
  ToolRunner tool;
  ToolResult low =
      tool.run({"find", "sym", "liby.so.debug", "--binary", binary, "--dir", "sym:r=" + dir.sub("debug")});
  EXPECT_EQ(0, low.status) << low.err;
  EXPECT_EQ(foundLines(symbols, 1, "ssLowPrioritySearchDirs"), lines(low.out));

  ToolResult high =
      tool.run({"find", "sym", "liby.so.debug", "--binary", binary, "--dir", "sym:rp=" + dir.sub("debug")});
  EXPECT_EQ(0, high.status) << high.err;
  EXPECT_EQ(foundLines(symbols, 1, "ssHighPrioritySearchDirs"), lines(high.out));
}

TEST(ToolFindTest, NonRecursiveDirectoryTriesTailsOfTheName) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string symbols = dir.write("debug/b/liby.so.debug", "symbols");
  ToolRunner tool;
  ToolResult result = tool.run({"find", "sym", "/a/b/liby.so.debug", "--dir", "all=" + dir.sub("debug")});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(symbols, 1, "ssLowPrioritySearchDirs"), lines(result.out));
}

TEST(ToolFindTest, SourceFileUnderARecursiveDirectory) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string source = dir.write("sources/project/module/parser.c", "int main;");
  ToolRunner tool;
  ToolResult result =
      tool.run({"find", "src", "/build/old/place/parser.c", "--dir", "src:r=" + dir.sub("sources")});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(source, 1, "ssLowPrioritySearchDirs"), lines(result.out));
}

TEST(ToolFindTest, RelativeDirectoryOfADirSpecIsTakenFromTheWorkingDirectory) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string source = dir.write("sources/x/parser.c", "int main;");
  ToolRunner tool;
  tool.setWorkingDirectory(dir.path());
  ToolResult result = tool.run({"find", "src", "parser.c", "--dir", "src:r=sources"});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(source, 1, "ssLowPrioritySearchDirs"), lines(result.out));
}

TEST(ToolFindTest, NothingFoundExitsWithOne) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  ToolRunner tool;
  ToolResult result = tool.run({"find", "src", "no-such-file-anywhere.c", "--dir", "src:r=" + dir.path()});
  EXPECT_EQ(1, result.status);
  EXPECT_EQ(std::vector<std::string>{"not found: no-such-file-anywhere.c"}, lines(result.out));
  EXPECT_EQ("", result.err);

  ToolResult asJson =
      tool.run({"find", "src", "no-such-file-anywhere.c", "--dir", "src:r=" + dir.path(), "--json"});
  EXPECT_EQ(1, asJson.status);
  json out = parse(asJson);
  EXPECT_EQ(false, out["found"]);
  EXPECT_TRUE(out["path"].is_null());
  EXPECT_TRUE(out["confidence"].is_null());
  EXPECT_TRUE(out["step"].is_null());
  EXPECT_EQ("no-such-file-anywhere.c", out["name"]);
  EXPECT_EQ("src", out["category"]);
  EXPECT_FALSE(out.contains("files"));
  EXPECT_FALSE(out.contains("rejected"));
}

TEST(ToolFindTest, JsonOutputOfAFoundFile) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  ToolRunner tool;
  ToolResult result = tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary, "--json"});
  ASSERT_EQ(0, result.status) << result.err;
  json out = parse(result);
  EXPECT_EQ(true, out["found"]);
  EXPECT_EQ(tree.beside, out["path"]);
  EXPECT_EQ(1, out["confidence"]);
  EXPECT_EQ("ssAroundBinaryLookup", out["step"]);
  EXPECT_EQ("sym", out["category"]);
  EXPECT_EQ("libx.so.debug", out["name"]);
}

TEST(ToolFindTest, MatchingChecksumAcceptsOutrightWithConfidenceZero) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  ToolRunner tool;
  ToolResult result =
      tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary, "--checksum", md5Of(tree.dotDebug)});
  EXPECT_EQ(0, result.status) << result.err;
  // The file beside the binary has another checksum and is passed over.
  EXPECT_EQ(foundLines(tree.dotDebug, 0, "ssAroundBinaryLookup"), lines(result.out));
}

TEST(ToolFindTest, Sha1ChecksumWithItsPrefix) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  ToolRunner tool;
  std::string sha1 = IChecksumCalculator::create()->calculateChecksum(tree.beside.c_str(), ctSha1)->value();
  ToolResult result =
      tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary, "--checksum", "sha1:" + sha1});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(tree.beside, 0, "ssAroundBinaryLookup"), lines(result.out));

  // The same digits taken as MD5 are malformed (40 digits): one line naming the option and the value.
  ToolResult bad = tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary, "--checksum", sha1});
  EXPECT_EQ(2, bad.status);
  EXPECT_EQ("", bad.out);
  EXPECT_EQ(std::vector<std::string>{"vell: --checksum: '" + sha1 +
                                     "' is neither an MD5 checksum (32 hexadecimal digits) nor sha1: and a "
                                     "SHA-1 checksum (40 hexadecimal digits)"},
            lines(bad.err));
}

TEST(ToolFindTest, ChecksumOfABinary) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string first = dir.write("one/tool.bin", "first build");
  std::string second = dir.write("two/tool.bin", "second build");
  ToolRunner tool;
  ToolResult result = tool.run({"find", "bin", "tool.bin", "--dir", "bin=" + dir.sub("one"), "--dir",
                                "bin=" + dir.sub("two"), "--checksum", md5Of(second)});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(second, 0, "ssLowPrioritySearchDirs"), lines(result.out));
}

TEST(ToolFindTest, SuggestedPathComesBeforeEveryStep) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  std::string suggested = tree.dir.write("elsewhere/libx.so.debug", "suggested");
  ToolRunner tool;
  ToolResult result =
      tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary, "--suggest", suggested});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(suggested, 1, "ssAskUser"), lines(result.out));
}

TEST(ToolFindTest, StepsSwitchedOffAndOn) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  ToolRunner tool;
  ToolResult off = tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary, "--steps", "-around"});
  EXPECT_EQ(1, off.status) << off.out << off.err;

  ToolResult fullName = tool.run(
      {"find", "sym", "libx.so.debug", "--binary", tree.binary, "--steps=-ssAroundBinaryLookup,+around"});
  EXPECT_EQ(0, fullName.status) << fullName.err;

  ToolResult only =
      tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary, "--steps", "none,around"});
  EXPECT_EQ(0, only.status) << only.err;
  EXPECT_EQ(foundLines(tree.beside, 1, "ssAroundBinaryLookup"), lines(only.out));
}

TEST(ToolFindTest, CacheStepRunsOnlyWhenSwitchedOn) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string cached = dir.write("cache/x/y/libz.so", "cached");
  ToolRunner tool;
  ToolResult off = tool.run({"find", "bin", "libz.so", "--cache", dir.sub("cache")});
  EXPECT_EQ(1, off.status) << off.out << off.err;
  ToolResult on = tool.run({"find", "bin", "libz.so", "--cache", dir.sub("cache"), "--steps", "+cache"});
  EXPECT_EQ(0, on.status) << on.err;
  EXPECT_EQ(foundLines(cached, 1, "ssCacheSearchDir"), lines(on.out));
}

TEST(ToolFindTest, AbsoluteNameOnTheRunningSystem) {
  VELL_REQUIRE_TOOL();
  if (!std::filesystem::is_regular_file("/bin/ls"))
    GTEST_SKIP() << "no /bin/ls";
  ToolRunner tool;
  ToolResult result = tool.run({"find", "bin", "/bin/ls"});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines("/bin/ls", 1, "ssAbsoluteNameLookup"), lines(result.out));
}

TEST(ToolFindTest, KernelModuleOfTheRunningSystem) {
  VELL_REQUIRE_TOOL();
  utsname info{};
  ASSERT_EQ(0, uname(&info));
  std::string modules = std::string("/lib/modules/") + info.release + "/kernel";
  std::string ext4;
  std::error_code error;
  for (auto it = std::filesystem::recursive_directory_iterator(modules, error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
    if (it->path().filename() == "ext4.ko")
      ext4 = it->path().string();
  if (ext4.empty())
    GTEST_SKIP() << "no uncompressed ext4.ko under " << modules;
  ToolRunner tool;
  ToolResult result = tool.run({"find", "bin", "ext4"});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(ext4, 1, "ssSystemDirs"), lines(result.out));
}

// Writes content gzip-compressed, behind a few bytes of boot code.
void writeCompressedKernel(const std::string &path, const std::string &content) {
  std::string gz = path + ".gz-part";
  gzFile file = gzopen(gz.c_str(), "wb");
  ASSERT_NE(nullptr, file);
  ASSERT_EQ(static_cast<int>(content.size()),
            gzwrite(file, content.data(), static_cast<unsigned>(content.size())));
  ASSERT_EQ(Z_OK, gzclose(file));
  std::ofstream out(path, std::ios::binary);
  out << "BOOTCODE" << readFile(gz);
  out.close();
  std::filesystem::remove(gz);
}

TEST(ToolFindTest, CompressedKernelImageResolvesToItsExtractedForm) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  // An ELF image: only those count as extracted kernels.
  std::string image = "\x7f"
                      "ELF";
  for (int i = 0; i < 5000; ++i)
    image += "kernel image line " + std::to_string(i) + "\n";
  std::string compressed = dir.sub("boot/vmlinuz-6.1.0-test");
  dir.mkdir("boot");
  writeCompressedKernel(compressed, image);
  std::string cache = dir.mkdir("cache");
  std::string extracted = cache + "/vmlinux_cache/" + md5Of(compressed) + "/vmlinux";

  ToolRunner tool;
  ToolResult result =
      tool.run({"find", "bin", "vmlinuz-6.1.0-test", "--dir", "bin=" + dir.sub("boot"), "--cache", cache});
  ASSERT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(extracted, 1, "ssLowPrioritySearchDirs"), lines(result.out));
  EXPECT_EQ(image, readFile(extracted));

  // A second search finds the image already extracted.
  ToolResult again = tool.run(
      {"--json", "find", "bin", "vmlinuz-6.1.0-test", "--dir", "bin=" + dir.sub("boot"), "--cache", cache});
  ASSERT_EQ(0, again.status) << again.err;
  EXPECT_EQ(extracted, parse(again)["path"]);
}

// When vmlinux itself is not found, /boot/vmlinux-RELEASE and then
// /boot/vmlinuz-RELEASE are looked for, RELEASE being --kernel-release. A plain
// --dir tries the tails of those names, so a directory of the test stands in
// for /boot.
class ToolKernelReleaseTest : public ::testing::Test {
protected:
  void SetUp() override {
    if (vell_test::toolPath().empty())
      GTEST_SKIP() << "the vell tool is not built";
    for (const char *release : {"6.1.0-vell-one", "5.10.0-vell-two", "6.6.0-vell-gz", "4.19.0-vell-none"})
      for (const char *prefix : {"/boot/vmlinux-", "/boot/vmlinuz-"})
        if (std::filesystem::exists(prefix + std::string(release)))
          GTEST_SKIP() << "the running system has " << prefix << release;
  }

  ToolResult find(const std::string &release, const std::vector<std::string> &more = {}) {
    std::vector<std::string> args{"find", "bin", "vmlinux", "--dir", "bin=" + m_boot};
    if (!release.empty())
      args.insert(args.end(), {"--kernel-release", release});
    args.insert(args.end(), more.begin(), more.end());
    return m_tool.run(args);
  }

  TempDir m_dir;
  std::string m_boot = m_dir.mkdir("boot");
  ToolRunner m_tool;
};

TEST_F(ToolKernelReleaseTest, ReleaseSelectsTheKernelImage) {
  std::string one = m_dir.write("boot/vmlinux-6.1.0-vell-one", "image one");
  std::string two = m_dir.write("boot/vmlinux-5.10.0-vell-two", "image two");

  ToolResult first = find("6.1.0-vell-one");
  EXPECT_EQ(0, first.status) << first.err;
  EXPECT_EQ(foundLines(one, 1, "ssLowPrioritySearchDirs"), lines(first.out));

  ToolResult second = find("5.10.0-vell-two", {"--json"});
  ASSERT_EQ(0, second.status) << second.err;
  EXPECT_EQ(two, parse(second)["path"]);

  ToolResult none = find("4.19.0-vell-none");
  EXPECT_EQ(1, none.status) << none.out;
  EXPECT_EQ(std::vector<std::string>{"not found: vmlinux"}, lines(none.out));
}

TEST_F(ToolKernelReleaseTest, LogShowsTheNamesBuiltFromTheRelease) {
  ToolResult result = find("4.19.0-vell-none", {"-vv"});
  EXPECT_EQ(1, result.status) << result.out;
  size_t plain = result.err.find("Searching bin file:vmlinux");
  size_t image = result.err.find("Searching bin file:/boot/vmlinux-4.19.0-vell-none");
  size_t compressed = result.err.find("Searching bin file:/boot/vmlinuz-4.19.0-vell-none");
  ASSERT_NE(std::string::npos, plain) << result.err;
  ASSERT_NE(std::string::npos, image) << result.err;
  ASSERT_NE(std::string::npos, compressed) << result.err;
  EXPECT_LT(plain, image);
  EXPECT_LT(image, compressed);
  // The candidates of the tails of those names, in the directory given.
  EXPECT_NE(std::string::npos, result.err.find("*** DO__NOT__EXIST " + m_boot + "/vmlinux-4.19.0-vell-none"))
      << result.err;
  EXPECT_NE(std::string::npos, result.err.find("*** DO__NOT__EXIST " + m_boot + "/vmlinuz-4.19.0-vell-none"))
      << result.err;
}

TEST_F(ToolKernelReleaseTest, CompressedImageOfTheReleaseIsExtracted) {
  std::string image = "\x7f"
                      "ELF";
  for (int i = 0; i < 1000; ++i)
    image += "compressed kernel line " + std::to_string(i) + "\n";
  std::string compressed = m_dir.sub("boot/vmlinuz-6.6.0-vell-gz");
  writeCompressedKernel(compressed, image);
  std::string cache = m_dir.mkdir("cache");
  std::string extracted = cache + "/vmlinux_cache/" + md5Of(compressed) + "/vmlinux";

  ToolResult result = find("6.6.0-vell-gz", {"--cache", cache});
  ASSERT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(extracted, 1, "ssLowPrioritySearchDirs"), lines(result.out));
  EXPECT_EQ(image, readFile(extracted));
}

TEST_F(ToolKernelReleaseTest, RunningKernelReleaseByDefault) {
  utsname info{};
  ASSERT_EQ(0, uname(&info));
  std::string release = info.release;
  for (const char *prefix : {"/boot/vmlinux-", "/boot/vmlinuz-"})
    if (std::filesystem::exists(prefix + release))
      GTEST_SKIP() << "the running system has " << prefix << release;
  std::string running = m_dir.write("boot/vmlinux-" + release, "running kernel");
  ToolResult result = find("");
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(running, 1, "ssLowPrioritySearchDirs"), lines(result.out));
  // A release given on the command line replaces it.
  EXPECT_EQ(1, find("4.19.0-vell-none").status);
}

TEST(ToolFindTest, ArchivedSymbolFileIsFoundInTheResultDirectory) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string symbols = dir.write("build/libw.so.debug", "archived symbols");
  std::string resultDir = dir.mkdir("results");
  std::string archived = resultDir + "/archive/symbols/libw.so.debug/" + md5Of(symbols) + "/libw.so.debug";
  ToolRunner tool;
  ToolResult filed = tool.run({"archive", symbols, "--category", "sym", "--result-dir", resultDir});
  ASSERT_EQ(0, filed.status) << filed.err;
  EXPECT_EQ((std::vector<std::string>{"status: 0 (archived)", "path: " + archived}), lines(filed.out));
  EXPECT_EQ("archived symbols", readFile(archived));

  std::filesystem::remove(symbols);
  ToolResult found = tool.run({"find", "sym", "libw.so.debug", "--result-dir", resultDir});
  EXPECT_EQ(0, found.status) << found.err;
  EXPECT_EQ(foundLines(archived, 1, "ssArchiveSearchDirs"), lines(found.out));
}

TEST(ToolFindTest, ResultDirectoryLayoutIsSearched) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string resultDir = dir.mkdir("results");
  std::string binary = dir.write("results/binaries/app", "app");
  std::string source = dir.write("results/sources/deep/main.c", "main");
  ToolRunner tool;
  ToolResult bin = tool.run({"find", "bin", "app", "--result-dir", resultDir});
  EXPECT_EQ(0, bin.status) << bin.err;
  EXPECT_EQ(foundLines(binary, 1, "ssHighPrioritySearchDirs"), lines(bin.out));
  ToolResult src = tool.run({"find", "src", "/old/main.c", "--result-dir", resultDir});
  EXPECT_EQ(0, src.status) << src.err;
  EXPECT_EQ(foundLines(source, 1, "ssHighPrioritySearchDirs"), lines(src.out));
}

TEST(ToolFindTest, ArchiveDirectoryOption) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string archived = dir.write("archive/binaries/libq.so/0123/libq.so", "archived binary");
  ToolRunner tool;
  ToolResult result = tool.run({"find", "bin", "libq.so", "--archive", dir.sub("archive")});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(foundLines(archived, 1, "ssArchiveSearchDirs"), lines(result.out));
}

TEST(ToolFindTest, VerboseLogGoesToStandardError) {
  VELL_REQUIRE_TOOL();
  SymbolTree tree;
  ToolRunner tool;
  ToolResult quiet = tool.run({"find", "sym", "libx.so.debug", "--binary", tree.binary});
  EXPECT_EQ("", quiet.err);
  // -v: the tool's summary per step, without the library's candidate lines.
  ToolResult info = tool.run({"-v", "find", "sym", "libx.so.debug", "--binary", tree.binary});
  EXPECT_EQ(0, info.status);
  EXPECT_NE(std::string::npos, info.err.find("vell:   found " + tree.beside + " (confidence 1, probable)"))
      << info.err;
  EXPECT_EQ(std::string::npos, info.err.find("INFO  VELL:")) << info.err;
  EXPECT_EQ(std::string::npos, info.err.find("TRACE")) << info.err;
  // -vv: the library's full trace as well.
  ToolResult trace = tool.run({"-vv", "find", "sym", "libx.so.debug", "--binary", tree.binary});
  EXPECT_EQ(0, trace.status);
  EXPECT_NE(std::string::npos, trace.err.find("INFO  VELL: *** VALID____ADDED " + tree.beside)) << trace.err;
  EXPECT_NE(std::string::npos, trace.err.find("TRACE VELL: ENTER: ")) << trace.err;
  // The result itself is on standard output in every case.
  EXPECT_EQ(lines(quiet.out), lines(trace.out));
}

} // namespace
