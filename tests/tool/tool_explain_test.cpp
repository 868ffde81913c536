// vell find --explain run as a separate process: rejected candidates with
// their step, severity and localised message, in English and German.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "tool/tool_runner.h"
#include "vell/validation.h"

using namespace VELL_2_13;
using nlohmann::json;
using vell_test::lines;
using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;

namespace {

const std::string kWrongMd5 = "00000000000000000000000000000000";

std::string md5Of(const std::string &path) {
  return IChecksumCalculator::create()->calculateChecksum(path.c_str(), ctMd5)->value();
}

void setMtime(const std::string &path, long seconds) {
  namespace fs = std::filesystem;
  fs::last_write_time(path, fs::file_time_type::clock::now() + std::chrono::seconds(seconds));
}

std::string symMismatch(const std::string &language, const std::string &path) {
  if (language == "de")
    return "Die Prüfsumme der Symboldatei " + path + " stimmt nicht mit der erwarteten Prüfsumme überein.";
  return "The checksum of the symbol file " + path + " does not match the expected checksum.";
}

// The up-to-date validator fills its message through the form without a file
// name, so the catalog's file-name argument stays empty; the tool prints the
// path in front of the message.
std::string newerThanBinary(const std::string &language, const std::string &) {
  if (language == "de")
    return "Die Quelldatei ist neuer als ihre Binärdatei.";
  return "The source file is newer than its binary file.";
}

class ToolExplainTest : public ::testing::TestWithParam<std::string> {
protected:
  std::vector<std::string> languageArgs() const {
    return {"--lang", GetParam(), "--catalogs", VELL_SOURCE_CATALOG_DIR};
  }
  ToolResult run(std::vector<std::string> args) {
    std::vector<std::string> full = languageArgs();
    full.insert(full.end(), args.begin(), args.end());
    return m_tool.run(full);
  }

  ToolRunner m_tool;
};

TEST_P(ToolExplainTest, ChecksumMismatchOfTheOnlyCandidate) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string binary = dir.write("bin/libx.so", "binary");
  std::string symbols = dir.write("bin/libx.so.debug", "symbols");
  ToolResult result =
      run({"find", "sym", "libx.so.debug", "--binary", binary, "--checksum", kWrongMd5, "--explain"});
  EXPECT_EQ(1, result.status) << result.err;
  EXPECT_EQ((std::vector<std::string>{"not found: libx.so.debug", "rejected candidates: 1",
                                      "  " + symbols + " (step ssAroundBinaryLookup, severity 0): " +
                                          symMismatch(GetParam(), symbols)}),
            lines(result.out));

  ToolResult asJson = run(
      {"--json", "find", "sym", "libx.so.debug", "--binary", binary, "--checksum", kWrongMd5, "--explain"});
  EXPECT_EQ(1, asJson.status);
  json out = json::parse(asJson.out);
  EXPECT_EQ(false, out["found"]);
  EXPECT_EQ(true, out["rejectedComplete"]);
  ASSERT_EQ(1u, out["rejected"].size());
  EXPECT_EQ(symbols, out["rejected"][0]["path"]);
  EXPECT_EQ("ssAroundBinaryLookup", out["rejected"][0]["step"]);
  EXPECT_EQ(0, out["rejected"][0]["severity"]);
  EXPECT_EQ(symMismatch(GetParam(), symbols), out["rejected"][0]["message"]);
}

TEST_P(ToolExplainTest, SourceFileNewerThanItsBinary) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string binary = dir.write("bin/app", "binary");
  std::string source = dir.write("src/module/app.c", "source");
  setMtime(binary, -100);
  setMtime(source, 0);
  ToolResult result = run({"find", "src", "app.c", "--binary", binary, "--not-newer-than-binary", "--dir",
                           "src:r=" + dir.sub("src"), "--explain"});
  EXPECT_EQ(1, result.status) << result.err;
  EXPECT_EQ((std::vector<std::string>{"not found: app.c", "rejected candidates: 1",
                                      "  " + source + " (step ssLowPrioritySearchDirs, severity 1): " +
                                          newerThanBinary(GetParam(), source)}),
            lines(result.out));
}

TEST_P(ToolExplainTest, RejectionsSeenBeforeAFileWasFound) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string binary = dir.write("bin/libx.so", "binary");
  std::string beside = dir.write("bin/libx.so.debug", "wrong symbols");
  std::string dotDebug = dir.write("bin/.debug/libx.so.debug", "right symbols");
  ToolResult result =
      run({"find", "sym", "libx.so.debug", "--binary", binary, "--checksum", md5Of(dotDebug), "--explain"});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(
      (std::vector<std::string>{
          "path: " + dotDebug, "confidence: 0 (confirmed)", "step: ssAroundBinaryLookup",
          "rejected candidates seen by the requested checks: 1",
          "  " + beside + " (step ssAroundBinaryLookup, severity 0): " + symMismatch(GetParam(), beside)}),
      lines(result.out));

  ToolResult asJson = run({"--json", "find", "sym", "libx.so.debug", "--binary", binary, "--checksum",
                           md5Of(dotDebug), "--explain"});
  json out = json::parse(asJson.out);
  EXPECT_EQ(true, out["found"]);
  EXPECT_EQ(false, out["rejectedComplete"]);
  ASSERT_EQ(1u, out["rejected"].size());
  EXPECT_EQ(beside, out["rejected"][0]["path"]);
}

TEST_P(ToolExplainTest, StepOfARejectionFoundInALaterStep) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string binary = dir.write("bin/app", "binary");
  std::string newer = dir.write("high/app.c", "newer source");
  std::string older = dir.write("low/deep/app.c", "older source");
  setMtime(binary, -100);
  setMtime(newer, 0);
  setMtime(older, -200);
  ToolResult result =
      run({"--json", "find", "src", "app.c", "--binary", binary, "--not-newer-than-binary", "--dir",
           "src:p=" + dir.sub("high"), "--dir", "src:r=" + dir.sub("low"), "--explain"});
  ASSERT_EQ(0, result.status) << result.err;
  json out = json::parse(result.out);
  EXPECT_EQ(older, out["path"]);
  EXPECT_EQ("ssLowPrioritySearchDirs", out["step"]);
  ASSERT_EQ(1u, out["rejected"].size());
  EXPECT_EQ(newer, out["rejected"][0]["path"]);
  EXPECT_EQ("ssHighPrioritySearchDirs", out["rejected"][0]["step"]);
  EXPECT_EQ(1, out["rejected"][0]["severity"]);
  EXPECT_EQ(newerThanBinary(GetParam(), newer), out["rejected"][0]["message"]);
}

INSTANTIATE_TEST_SUITE_P(Languages, ToolExplainTest, ::testing::Values("en", "de"));

TEST(ToolExplainDefaultsTest, EnglishByDefaultFromTheCatalogsOfTheSourceTree) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string binary = dir.write("bin/libx.so", "binary");
  std::string symbols = dir.write("bin/libx.so.debug", "symbols");
  ToolRunner tool;
  // No --catalogs: a tool run from its build directory uses the source tree's catalogs.
  ToolResult result = tool.run(
      {"--json", "find", "sym", "libx.so.debug", "--binary", binary, "--checksum", kWrongMd5, "--explain"});
  EXPECT_EQ(1, result.status);
  json out = json::parse(result.out);
  ASSERT_EQ(1u, out["rejected"].size());
  EXPECT_EQ(symMismatch("en", symbols), out["rejected"][0]["message"]);
}

TEST(ToolExplainDefaultsTest, CombinedChecksRejectWhenAnyRejects) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string binary = dir.write("bin/app", "binary");
  std::string source = dir.write("src/app.c", "source");
  setMtime(binary, -100);
  setMtime(source, 0);
  ToolRunner tool;
  // The checksum matches, but the source is newer than the binary.
  ToolResult rejected = tool.run({"find", "src", "app.c", "--binary", binary, "--checksum", md5Of(source),
                                  "--not-newer-than-binary", "--dir", "src=" + dir.sub("src")});
  EXPECT_EQ(1, rejected.status) << rejected.out;
  // Exempt from the time check, the matching checksum accepts it outright.
  ToolResult accepted = tool.run({"find", "src", "app.c", "--binary", binary, "--checksum", md5Of(source),
                                  "--not-newer-than-binary", "--time-check-exception", dir.sub("src"),
                                  "--dir", "src=" + dir.sub("src")});
  EXPECT_EQ(0, accepted.status) << accepted.err;
  EXPECT_EQ((std::vector<std::string>{"path: " + source, "confidence: 0 (confirmed)",
                                      "step: ssLowPrioritySearchDirs"}),
            lines(accepted.out));
  // Not newer than its binary and no other check: left to the confidence policy.
  setMtime(source, -200);
  ToolResult policy = tool.run({"find", "src", "app.c", "--binary", binary, "--not-newer-than-binary",
                                "--dir", "src=" + dir.sub("src")});
  EXPECT_EQ(0, policy.status) << policy.err;
  EXPECT_EQ((std::vector<std::string>{"path: " + source, "confidence: 1 (probable)",
                                      "step: ssLowPrioritySearchDirs"}),
            lines(policy.out));
}

TEST(ToolExplainDefaultsTest, TimeAndSizeOfASourceFile) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string source = dir.write("src/app.c", "12345");
  setMtime(source, -50);
  struct stat info {};
  ASSERT_EQ(0, ::stat(source.c_str(), &info));
  long long mtime = info.st_mtime;
  ToolRunner tool;
  ToolResult match = tool.run({"find", "src", "app.c", "--mtime", std::to_string(mtime), "--size", "5",
                               "--dir", "src=" + dir.sub("src")});
  EXPECT_EQ(0, match.status) << match.err;
  EXPECT_EQ((std::vector<std::string>{"path: " + source, "confidence: 0 (confirmed)",
                                      "step: ssLowPrioritySearchDirs"}),
            lines(match.out));
  ToolResult wrongSize = tool.run({"--json", "find", "src", "app.c", "--mtime", std::to_string(mtime),
                                   "--size", "6", "--dir", "src=" + dir.sub("src"), "--explain"});
  EXPECT_EQ(1, wrongSize.status);
  json out = json::parse(wrongSize.out);
  ASSERT_EQ(1u, out["rejected"].size());
  // The library fills the time and size messages without the file's name.
  EXPECT_EQ("The size of the source file does not match the expected size.", out["rejected"][0]["message"]);
  EXPECT_EQ(1, out["rejected"][0]["severity"]);
}

} // namespace
