// vell find with build IDs and debug links: real distribution debug packages
// (libc6-dbg, binutils-x86-64-linux-gnu-dbg) and files built by the tests.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "support/elf_fixture.h"
#include "tool/tool_runner.h"
#include "vell/elf_identity.h"

using namespace VELL_2_13;
using nlohmann::json;
using vell_test::lines;
using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;
namespace fs = std::filesystem;

namespace {

std::string buildIdOf(const std::string &path) {
  std::optional<ElfIdentity> identity = readElfIdentity(path);
  return identity ? identity->buildId : std::string();
}

std::string debianDebugFile(const std::string &buildId) {
  return "/usr/lib/debug/.build-id/" + buildId.substr(0, 2) + "/" + buildId.substr(2) + ".debug";
}

// A real binary of the system and the path of its installed debug file, or a
// reason to skip when the debug package is missing.
struct RealPackage {
  std::string binary;
  std::string buildId;
  std::string debugFile;
  std::string missing;
};

RealPackage realPackage(const std::string &binary, const std::string &package) {
  RealPackage real;
  real.binary = binary;
  real.buildId = buildIdOf(binary);
  if (real.buildId.empty()) {
    real.missing = binary + " has no build ID";
    return real;
  }
  real.debugFile = debianDebugFile(real.buildId);
  if (!fs::exists(real.debugFile))
    real.missing = real.debugFile + " is missing: install " + package + " (scripts/install-deps.sh)";
  return real;
}

// Skips a test whose debug package is missing, or fails it when the run
// demands the packages (VELL_REQUIRE_DEBUG_PACKAGES=1, as the CI script sets).
#define VELL_REQUIRE_PACKAGE(missing)                                                                        \
  do {                                                                                                       \
    if (!(missing).empty()) {                                                                                \
      const char *required = std::getenv("VELL_REQUIRE_DEBUG_PACKAGES");                                     \
      if (required && std::string(required) == "1")                                                          \
        FAIL() << (missing);                                                                                 \
      GTEST_SKIP() << (missing);                                                                             \
    }                                                                                                        \
  } while (0)

std::string firstLine(const std::string &text) { return text.substr(0, text.find('\n')); }

} // namespace

TEST(ToolBuildIdTest, RealLibcFindsItsBuildIdDebugFile) {
  VELL_REQUIRE_TOOL();
  RealPackage libc = realPackage("/lib/x86_64-linux-gnu/libc.so.6", "libc6-dbg");
  VELL_REQUIRE_PACKAGE(libc.missing);
  ToolRunner tool;
  ToolResult result = tool.run({"find", "sym", "libc.so.6", "--binary", libc.binary});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(
      (std::vector<std::string>{"path: " + libc.debugFile, "confidence: 0 (confirmed)", "step: ssAskUser"}),
      lines(result.out));
  EXPECT_EQ(libc.buildId, buildIdOf(libc.debugFile));
}

TEST(ToolBuildIdTest, RealLibcExplainAndJsonShowTheBuildIds) {
  VELL_REQUIRE_TOOL();
  RealPackage libc = realPackage("/lib/x86_64-linux-gnu/libc.so.6", "libc6-dbg");
  VELL_REQUIRE_PACKAGE(libc.missing);
  ToolRunner tool;
  ToolResult text = tool.run({"find", "sym", "libc.so.6", "--binary", libc.binary, "--explain"});
  EXPECT_EQ(0, text.status) << text.err;
  std::vector<std::string> out = lines(text.out);
  ASSERT_GE(out.size(), 5u);
  EXPECT_EQ("build ID looked for: " + libc.buildId + " (from the binary)", out[3]);
  EXPECT_EQ("build ID found: " + libc.buildId, out[4]);

  ToolResult asJson = tool.run({"--json", "find", "sym", "libc.so.6", "--binary", libc.binary});
  EXPECT_EQ(0, asJson.status) << asJson.err;
  json parsed = json::parse(asJson.out);
  EXPECT_EQ(libc.debugFile, parsed["path"]);
  EXPECT_EQ(libc.buildId, parsed["buildId"]["expected"]);
  EXPECT_EQ("binary", parsed["buildId"]["source"]);
  EXPECT_EQ(libc.buildId, parsed["buildId"]["found"]);
}

TEST(ToolBuildIdTest, RealLibcPlainSearchKeepsTheSpecifiedAnswer) {
  VELL_REQUIRE_TOOL();
  RealPackage libc = realPackage("/lib/x86_64-linux-gnu/libc.so.6", "libc6-dbg");
  VELL_REQUIRE_PACKAGE(libc.missing);
  ToolRunner tool;
  // The plain search looks beside the binary and takes the binary itself.
  ToolResult result =
      tool.run({"--json", "find", "sym", "libc.so.6", "--binary", libc.binary, "--no-build-id"});
  EXPECT_EQ(0, result.status) << result.err;
  json parsed = json::parse(result.out);
  EXPECT_EQ(libc.binary, parsed["path"]);
  EXPECT_EQ("ssAroundBinaryLookup", parsed["step"]);
  EXPECT_FALSE(parsed.contains("buildId"));
}

TEST(ToolBuildIdTest, RealLibcByRecordedBuildIdAlone) {
  VELL_REQUIRE_TOOL();
  RealPackage libc = realPackage("/lib/x86_64-linux-gnu/libc.so.6", "libc6-dbg");
  VELL_REQUIRE_PACKAGE(libc.missing);
  ToolRunner tool;
  std::string upper = libc.buildId;
  for (char &c : upper)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  ToolResult result = tool.run({"--json", "find", "sym", "libc.so.6", "--build-id", upper});
  EXPECT_EQ(0, result.status) << result.err;
  json parsed = json::parse(result.out);
  EXPECT_EQ(libc.debugFile, parsed["path"]);
  EXPECT_EQ("recorded", parsed["buildId"]["source"]);
  EXPECT_EQ(libc.buildId, parsed["buildId"]["expected"]);
}

TEST(ToolBuildIdTest, RealBinutilsObjdumpFindsItsBuildIdDebugFile) {
  VELL_REQUIRE_TOOL();
  RealPackage objdump = realPackage("/usr/bin/x86_64-linux-gnu-objdump", "binutils-x86-64-linux-gnu-dbg");
  VELL_REQUIRE_PACKAGE(objdump.missing);
  ToolRunner tool;
  ToolResult result = tool.run({"find", "sym", "x86_64-linux-gnu-objdump", "--binary", objdump.binary});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ("path: " + objdump.debugFile, firstLine(result.out));
}

TEST(ToolBuildIdTest, RealLibcDebugFileIsNotTakenForObjdump) {
  VELL_REQUIRE_TOOL();
  RealPackage libc = realPackage("/lib/x86_64-linux-gnu/libc.so.6", "libc6-dbg");
  RealPackage objdump = realPackage("/usr/bin/x86_64-linux-gnu-objdump", "binutils-x86-64-linux-gnu-dbg");
  VELL_REQUIRE_PACKAGE(libc.missing + objdump.missing);
  // libc's debug file offered as objdump's: another build, rejected.
  ToolRunner tool;
  TempDir emptyDebugDir;
  ToolResult result =
      tool.run({"find", "sym", "objdump.debug", "--binary", objdump.binary, "--suggest", libc.debugFile,
                "--steps", "-all", "--explain", "--debug-dir", emptyDebugDir.path()});
  EXPECT_EQ(1, result.status) << result.out << result.err;
  EXPECT_NE(std::string::npos, result.out.find("The build ID of " + libc.debugFile + " differs (expected " +
                                               objdump.buildId + ", found " + libc.buildId + ")"))
      << result.out;
}

// --- Files built by the tests -------------------------------------------------------------

class ToolBuildIdBuiltTest : public ::testing::Test {
protected:
  void SetUp() override {
    binary = dir.sub("app/bin/prog");
    vell_test::copyFile(fixture.prog.stripped, binary);
    debugDir = dir.mkdir("debug");
    symbols = dir.mkdir("symbols");
  }
  std::string underBuildId(const std::string &root, const std::string &id, const std::string &suffix) const {
    return root + "/.build-id/" + id.substr(0, 2) + "/" + id.substr(2) + suffix;
  }

  const vell_test::ElfFixture &fixture = vell_test::elfFixture();
  TempDir dir;
  std::string binary;
  std::string debugDir;
  std::string symbols;
  ToolRunner tool;
};

TEST_F(ToolBuildIdBuiltTest, BuildIdTreeUnderTheDebugDirAndUnderASymbolDirectory) {
  VELL_REQUIRE_TOOL();
  std::string inSymbols = underBuildId(symbols, fixture.prog.buildId, ".debug");
  vell_test::copyFile(fixture.prog.debug, inSymbols);
  ToolResult result = tool.run(
      {"find", "sym", "prog", "--binary", binary, "--debug-dir", debugDir, "--dir", "sym=" + symbols});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ("path: " + inSymbols, firstLine(result.out));

  // The global debug directory comes first.
  std::string inDebugDir = underBuildId(debugDir, fixture.prog.buildId, ".debug");
  vell_test::copyFile(fixture.prog.debug, inDebugDir);
  result = tool.run(
      {"find", "sym", "prog", "--binary", binary, "--debug-dir", debugDir, "--dir", "sym=" + symbols});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ("path: " + inDebugDir, firstLine(result.out));
}

TEST_F(ToolBuildIdBuiltTest, StrippedBinaryIsNotItsOwnDebugFile) {
  VELL_REQUIRE_TOOL();
  ToolResult result =
      tool.run({"find", "sym", "prog", "--binary", binary, "--debug-dir", debugDir, "--explain"});
  EXPECT_EQ(1, result.status) << result.out;
  EXPECT_NE(std::string::npos,
            result.out.find(binary + " (step ssAroundBinaryLookup, severity 0): The file " + binary +
                            " is the binary itself, not its debug file"))
      << result.out;
  EXPECT_NE(std::string::npos, result.out.find("build ID looked for: " + fixture.prog.buildId)) << result.out;
}

TEST_F(ToolBuildIdBuiltTest, WrongBuildInDotDebugIsRejectedInGermanToo) {
  VELL_REQUIRE_TOOL();
  std::string wrong = dir.sub("app/bin/.debug/prog.debug");
  vell_test::copyFile(fixture.rebuilt.debug, wrong);
  ToolResult result = tool.run({"--lang", "de", "find", "sym", "prog.debug", "--binary", binary,
                                "--debug-dir", debugDir, "--explain"});
  EXPECT_EQ(1, result.status) << result.out;
  EXPECT_NE(std::string::npos,
            result.out.find("Die Build-ID von " + wrong + " weicht ab (erwartet " + fixture.prog.buildId +
                            ", gefunden " + fixture.rebuilt.buildId))
      << result.out;
}

TEST_F(ToolBuildIdBuiltTest, BinaryByRecordedBuildId) {
  VELL_REQUIRE_TOOL();
  std::string binaries = dir.mkdir("binaries");
  vell_test::copyFile(fixture.rebuilt.stripped, binaries + "/prog");
  // Only another build under the name: rejected.
  ToolResult rejected = tool.run({"--json", "find", "bin", "prog", "--build-id", fixture.prog.buildId,
                                  "--dir", "bin=" + binaries, "--debug-dir", debugDir, "--explain"});
  EXPECT_EQ(1, rejected.status) << rejected.out << rejected.err;
  json out = json::parse(rejected.out);
  bool seen = false;
  for (const json &entry : out["rejected"])
    if (entry["path"] == binaries + "/prog") {
      seen = true;
      EXPECT_EQ(1, entry["severity"]);
    }
  EXPECT_TRUE(seen) << rejected.out;

  // The build-ID tree entry of the right build is found, the plain name passed over.
  std::string byId = underBuildId(binaries, fixture.prog.buildId, "");
  vell_test::copyFile(fixture.prog.stripped, byId);
  ToolResult found = tool.run({"--json", "find", "bin", "prog", "--build-id", fixture.prog.buildId, "--dir",
                               "bin=" + binaries, "--debug-dir", debugDir});
  EXPECT_EQ(0, found.status) << found.err;
  json parsed = json::parse(found.out);
  EXPECT_EQ(byId, parsed["path"]);
  EXPECT_EQ(fixture.prog.buildId, parsed["buildId"]["found"]);

  // Without --build-id the plain binary search answers with the plain name.
  ToolResult plain = tool.run({"find", "bin", "prog", "--dir", "bin=" + binaries});
  EXPECT_EQ(0, plain.status);
  EXPECT_EQ("path: " + binaries + "/prog", firstLine(plain.out));
}

TEST_F(ToolBuildIdBuiltTest, BadBuildIdOptions) {
  VELL_REQUIRE_TOOL();
  ToolResult notHex = tool.run({"find", "bin", "prog", "--build-id", "xyz1"});
  EXPECT_EQ(2, notHex.status);
  EXPECT_NE(std::string::npos, notHex.err.find("--build-id")) << notHex.err;
  ToolResult source = tool.run({"find", "src", "a.c", "--build-id", "abcd"});
  EXPECT_EQ(2, source.status);
  ToolResult both = tool.run({"find", "sym", "a", "--build-id", "abcd", "--no-build-id"});
  EXPECT_EQ(2, both.status);
  ToolResult noDir = tool.run({"find", "sym", "a", "--build-id", "abcd", "--debug-dir", dir.sub("missing")});
  EXPECT_EQ(2, noDir.status);
}
