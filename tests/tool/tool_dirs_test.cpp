// vell dirs run as separate processes: the user's own search directories in
// the configuration file, their use by vell find, bad input and concurrent adds.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

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

std::string defaultConfig(const ToolRunner &tool) { return tool.home() + "/.config/vell/searchdirs.json"; }

TEST(ToolDirsTest, AddListAndClear) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string debug = dir.mkdir("debug");
  std::string sources = dir.mkdir("sources");
  ToolRunner tool;
  ToolResult added = tool.run({"dirs", "add", "sym:rp=" + debug, "src:r=" + sources, "all=" + dir.path()});
  EXPECT_EQ(0, added.status) << added.err;
  EXPECT_EQ((std::vector<std::string>{"added: sym:rp=" + debug, "added: src:r=" + sources,
                                      "added: all=" + dir.path()}),
            lines(added.out));
  EXPECT_TRUE(fs::is_regular_file(defaultConfig(tool)));

  ToolResult listed = tool.run({"dirs", "list"});
  EXPECT_EQ(0, listed.status) << listed.err;
  EXPECT_EQ((std::vector<std::string>{"sym:rp=" + debug, "src:r=" + sources, "all=" + dir.path()}),
            lines(listed.out));

  ToolResult cleared = tool.run({"dirs", "clear", "sym"});
  EXPECT_EQ(0, cleared.status) << cleared.err;
  EXPECT_EQ(std::vector<std::string>{"cleared: sym"}, lines(cleared.out));
  EXPECT_EQ((std::vector<std::string>{"src:r=" + sources, "all=" + dir.path()}),
            lines(tool.run({"dirs", "list"}).out));

  // "all" is the list serving every kind of file, not a wildcard.
  tool.run({"dirs", "clear", "all"});
  EXPECT_EQ(std::vector<std::string>{"src:r=" + sources}, lines(tool.run({"dirs", "list"}).out));
}

TEST(ToolDirsTest, ListAsJson) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  ToolRunner tool;
  ASSERT_EQ(0, tool.run({"dirs", "add", "bin:p=" + dir.path()}).status);
  ToolResult listed = tool.run({"dirs", "list", "--json"});
  ASSERT_EQ(0, listed.status) << listed.err;
  json out = json::parse(listed.out);
  EXPECT_EQ(defaultConfig(tool), out["config"]);
  ASSERT_EQ(1u, out["directories"].size());
  EXPECT_EQ("bin", out["directories"][0]["category"]);
  EXPECT_EQ(dir.path(), out["directories"][0]["directory"]);
  EXPECT_EQ(false, out["directories"][0]["recursive"]);
  EXPECT_EQ(true, out["directories"][0]["highPriority"]);
  EXPECT_EQ("bin:p=" + dir.path(), out["directories"][0]["spec"]);
}

TEST(ToolDirsTest, RelativeDirectoryIsStoredAbsolute) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  dir.mkdir("sub/debug");
  ToolRunner tool;
  tool.setWorkingDirectory(dir.sub("sub"));
  ToolResult added = tool.run({"dirs", "add", "sym=debug/"});
  EXPECT_EQ(0, added.status) << added.err;
  EXPECT_EQ(std::vector<std::string>{"sym=" + dir.sub("sub/debug")}, lines(tool.run({"dirs", "list"}).out));
}

TEST(ToolDirsTest, MissingDirectoryIsAddedWithAWarning) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  ToolRunner tool;
  ToolResult added = tool.run({"dirs", "add", "sym=" + dir.sub("not-yet")});
  EXPECT_EQ(0, added.status);
  EXPECT_EQ(std::vector<std::string>{"vell: warning: directory '" + dir.sub("not-yet") +
                                     "' does not exist (added anyway)"},
            lines(added.err));
}

TEST(ToolDirsTest, XdgConfigHomeAndConfigOption) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string xdg = dir.mkdir("xdg");
  ToolRunner tool;
  tool.setEnv("XDG_CONFIG_HOME", xdg);
  ASSERT_EQ(0, tool.run({"dirs", "add", "src=" + dir.path()}).status);
  EXPECT_TRUE(fs::is_regular_file(xdg + "/vell/searchdirs.json"));
  EXPECT_FALSE(fs::exists(defaultConfig(tool)));

  std::string own = dir.sub("own/config.json");
  ASSERT_EQ(0, tool.run({"--config", own, "dirs", "add", "bin=" + dir.path()}).status);
  EXPECT_TRUE(fs::is_regular_file(own));
  EXPECT_EQ(std::vector<std::string>{"bin=" + dir.path()},
            lines(tool.run({"dirs", "list", "--config", own}).out));
  EXPECT_EQ(std::vector<std::string>{"src=" + dir.path()}, lines(tool.run({"dirs", "list"}).out));
}

TEST(ToolDirsTest, FindUsesTheUsersDirectories) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string symbols = dir.write("mine/deep/libu.so.debug", "symbols");
  ToolRunner tool;
  EXPECT_EQ(1, tool.run({"find", "sym", "libu.so.debug"}).status);
  ASSERT_EQ(0, tool.run({"dirs", "add", "sym:r=" + dir.sub("mine")}).status);
  ToolResult found = tool.run({"find", "sym", "libu.so.debug"});
  EXPECT_EQ(0, found.status) << found.err;
  EXPECT_EQ((std::vector<std::string>{"path: " + symbols, "confidence: 1 (probable)",
                                      "step: ssLowPrioritySearchDirs"}),
            lines(found.out));
}

TEST(ToolDirsTest, CommandLineDirectoriesComeBeforeTheUsersOwn) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string mine = dir.write("mine/libu.so.debug", "mine");
  std::string given = dir.write("given/libu.so.debug", "given");
  ToolRunner tool;
  ASSERT_EQ(0, tool.run({"dirs", "add", "sym=" + dir.sub("mine")}).status);
  ToolResult found = tool.run({"--json", "find", "sym", "libu.so.debug", "--dir", "sym=" + dir.sub("given")});
  ASSERT_EQ(0, found.status) << found.err;
  EXPECT_EQ(given, json::parse(found.out)["path"]);
  // A user's directory of high priority comes before a plain one given on the command line.
  ASSERT_EQ(0, tool.run({"dirs", "add", "sym:p=" + dir.sub("mine")}).status);
  ToolResult high = tool.run({"--json", "find", "sym", "libu.so.debug", "--dir", "sym=" + dir.sub("given")});
  ASSERT_EQ(0, high.status) << high.err;
  EXPECT_EQ(mine, json::parse(high.out)["path"]);
  EXPECT_EQ("ssHighPrioritySearchDirs", json::parse(high.out)["step"]);
}

// Every bad input: exit status 2, one line on standard error naming the
// problem, and the configuration file unchanged.
class ToolDirsBadInputTest : public ::testing::Test {
protected:
  void SetUp() override {
    if (vell_test::toolPath().empty())
      GTEST_SKIP() << "the vell tool is not built";
    ASSERT_EQ(0, m_tool.run({"dirs", "add", "sym=" + m_dir.path()}).status);
    m_before = readFile(defaultConfig(m_tool));
  }
  void expectRejected(const std::vector<std::string> &args, const std::string &named) {
    ToolResult result = m_tool.run(args);
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("", result.out);
    std::vector<std::string> errorLines = lines(result.err);
    ASSERT_EQ(1u, errorLines.size()) << result.err;
    EXPECT_EQ(0u, errorLines[0].find("vell: ")) << errorLines[0];
    EXPECT_NE(std::string::npos, errorLines[0].find(named)) << errorLines[0];
    EXPECT_EQ(m_before, readFile(defaultConfig(m_tool)));
  }

  TempDir m_dir;
  ToolRunner m_tool;
  std::string m_before;
};

TEST_F(ToolDirsBadInputTest, MalformedSpecAmongGoodOnesAddsNothing) {
  expectRejected({"dirs", "add", "bin=" + m_dir.path(), "sym:x=" + m_dir.path()}, "sym:x=");
  expectRejected({"dirs", "add", "src" + m_dir.path()}, "src" + m_dir.path());
}

TEST_F(ToolDirsBadInputTest, UnknownCategory) {
  expectRejected({"dirs", "add", "lib=" + m_dir.path()}, "lib=");
  expectRejected({"dirs", "clear", "sym", "symbols"}, "'symbols'");
  expectRejected({"find", "library", "x"}, "'library'");
  expectRejected({"archive", m_dir.path() + "/../x", "--category", "debug", "--result-dir", m_dir.path()},
                 "'debug'");
}

TEST_F(ToolDirsBadInputTest, MalformedDirSpecOfFind) {
  expectRejected({"find", "sym", "x", "--dir", "sym"}, "'sym'");
}

TEST_F(ToolDirsBadInputTest, MissingBinary) {
  expectRejected({"find", "sym", "x.debug", "--binary", m_dir.sub("no-such-binary")},
                 m_dir.sub("no-such-binary"));
}

TEST_F(ToolDirsBadInputTest, UnknownStep) {
  expectRejected({"find", "bin", "x", "--steps", "-ssSystemDirs,+everything"}, "'everything'");
  expectRejected({"find", "bin", "x", "--steps", "+ssAskUser"}, "ssAskUser");
}

TEST_F(ToolDirsBadInputTest, OptionsOfAnotherCategory) {
  expectRejected({"find", "bin", "x", "--mtime", "10"}, "--mtime");
  expectRejected({"find", "bin", "x", "--binary", m_dir.path()}, "--binary");
  expectRejected({"find", "src", "x", "--not-newer-than-binary"}, "--binary");
  expectRejected({"find", "src", "x", "--size", "ten"}, "'ten'");
}

TEST_F(ToolDirsBadInputTest, MissingDirectories) {
  expectRejected({"find", "bin", "x", "--result-dir", m_dir.sub("none")}, m_dir.sub("none"));
  expectRejected({"find", "bin", "x", "--cache", m_dir.sub("none")}, m_dir.sub("none"));
  expectRejected({"find", "bin", "x", "--archive", m_dir.sub("none")}, m_dir.sub("none"));
}

TEST_F(ToolDirsBadInputTest, MalformedChecksum) {
  const std::string sha1Digits = "a9993e364706816aba3e25717850c26c9cd0d89d";
  const std::string md5Digits = "900150983cd24fb0d6963f7d28e17f72";
  // SHA-1 digits without their prefix, a non-hexadecimal digit, the prefix
  // before MD5 digits, a digit too few, another prefix.
  const std::vector<std::string> malformed{sha1Digits, "9001509g3cd24fb0d6963f7d28e17f72",
                                           "sha1:" + md5Digits, md5Digits.substr(1), "md5:" + md5Digits};
  for (const std::string &checksum : malformed)
    expectRejected({"find", "sym", "x.debug", "--checksum", checksum}, "--checksum: '" + checksum + "'");
  expectRejected({"find", "bin", "x", "--checksum", "sha1:" + sha1Digits + "0"},
                 "is neither an MD5 checksum (32 hexadecimal digits) nor sha1: and a SHA-1 checksum");
}

TEST_F(ToolDirsBadInputTest, EmptyValuesAreRejectedRatherThanTakenAsNotGiven) {
  expectRejected({"find", "sym", "x.debug", "--checksum", ""}, "--checksum: empty value");
  expectRejected({"find", "sym", "x.debug", "--binary", ""}, "--binary: empty value");
  expectRejected({"find", "bin", ""}, "name: empty value");
  expectRejected({"dirs", "add", "bin=" + m_dir.path(), ""}, "empty value");
  expectRejected({"--lang", "", "dirs", "list"}, "--lang: empty value");
}

TEST_F(ToolDirsBadInputTest, UnknownLanguage) { expectRejected({"--lang", "xx", "dirs", "list"}, "'xx'"); }

TEST_F(ToolDirsBadInputTest, UnknownCommandOrOption) {
  expectRejected({"find", "bin", "x", "--no-such-option"}, "--no-such-option");
  expectRejected({}, "subcommand");
}

TEST_F(ToolDirsBadInputTest, CorruptConfigurationFile) {
  std::string config = defaultConfig(m_tool);
  {
    std::ofstream out(config, std::ios::trunc);
    out << "{ this is not json";
  }
  m_before = readFile(config);
  expectRejected({"dirs", "add", "bin=" + m_dir.path()}, config);
  expectRejected({"dirs", "clear", "bin"}, config);
  expectRejected({"dirs", "list"}, config);
  expectRejected({"find", "bin", "x"}, config);
  // Nothing was moved aside or written beside it either.
  for (const auto &entry : fs::directory_iterator(fs::path(config).parent_path()))
    EXPECT_EQ(std::string::npos, entry.path().filename().string().find("corrupt")) << entry.path();
}

TEST_F(ToolDirsBadInputTest, ConfigurationPathIsADirectory) {
  std::string config = m_dir.mkdir("config-dir");
  ToolResult result = m_tool.run({"--config", config, "dirs", "add", "bin=" + m_dir.path()});
  EXPECT_EQ(2, result.status);
  ASSERT_EQ(1u, lines(result.err).size());
  EXPECT_NE(std::string::npos, result.err.find(config));
  EXPECT_TRUE(fs::is_empty(config));
}

TEST_F(ToolDirsBadInputTest, UnreadableConfigurationFile) {
  std::string config = defaultConfig(m_tool);
  // As root, the tool runs as "nobody" here, to whom the configuration's
  // directories and the directory given are opened.
  m_tool.runUnprivileged();
  vell_test::openForOthers(fs::path(config).parent_path().string());
  vell_test::openForOthers(m_dir.path());
  ASSERT_EQ(0, ::chmod(config.c_str(), 0644));
  ToolResult readable = m_tool.run({"dirs", "list"});
  ASSERT_EQ(0, readable.status) << readable.err;
  EXPECT_EQ(std::vector<std::string>{"sym=" + m_dir.path()}, lines(readable.out));

  ASSERT_EQ(0, ::chmod(config.c_str(), 0));
  {
    // The same file-system rights as the tool's: the file cannot be opened.
    vell_test::AsUnprivilegedUser unprivileged;
    int fd = ::open(config.c_str(), O_RDONLY);
    EXPECT_EQ(-1, fd);
    if (fd >= 0)
      ::close(fd);
  }
  const std::string named = "cannot read configuration file " + config;
  expectRejected({"dirs", "add", "bin=" + m_dir.path()}, named);
  expectRejected({"dirs", "clear", "sym"}, named);
  expectRejected({"dirs", "list"}, named);
  expectRejected({"find", "bin", "x"}, named);
  ::chmod(config.c_str(), 0600);
}

TEST(ToolDirsTest, ConfigurationThatCannotBeWrittenIsReported) {
  VELL_REQUIRE_TOOL();
  if (!fs::exists("/proc/self"))
    GTEST_SKIP() << "no /proc";
  TempDir dir;
  ToolRunner tool;
  // Nobody, root included, can create files in /proc.
  ToolResult result =
      tool.run({"--config", "/proc/vell-searchdirs.json", "dirs", "add", "bin=" + dir.path()});
  EXPECT_EQ(2, result.status) << result.out;
  EXPECT_EQ(
      std::vector<std::string>{"vell: cannot write configuration file /proc/vell-searchdirs.json (run with "
                               "-v for the reason)"},
      lines(result.err));
  EXPECT_EQ("", result.out);
}

TEST(ToolDirsConcurrencyTest, ConcurrentAddsLoseNoDirectory) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  ToolRunner tool;
  const int rounds = 4;
  const int processes = 3;
  std::set<std::string> expected;
  for (int round = 0; round < rounds; ++round) {
    std::vector<pid_t> running;
    for (int p = 0; p < processes; ++p) {
      std::string spec = "src=" + dir.sub("r" + std::to_string(round) + "-p" + std::to_string(p));
      expected.insert(spec);
      running.push_back(tool.start({"dirs", "add", spec}, round * processes + p));
    }
    for (pid_t pid : running) {
      ToolResult result = tool.wait(pid);
      EXPECT_EQ(0, result.status) << result.err;
    }
  }
  std::vector<std::string> listed = lines(tool.run({"dirs", "list"}).out);
  EXPECT_EQ(expected, std::set<std::string>(listed.begin(), listed.end()));
  EXPECT_EQ(expected.size(), listed.size());
}

} // namespace
