// What the tool prints in every case: JSON for any file name and for errors,
// warnings for unusable directories, the -v summary, the progress line, and
// the small things a new user meets first.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "json_writer.h"
#include "tool/tool_runner.h"

using nlohmann::json;
using vell_test::lines;
using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;

namespace fs = std::filesystem;

namespace {

bool contains(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

// A tree of count directories below root (nested in groups of ten).
void makeTree(const TempDir &dir, const std::string &root, int count) {
  for (int i = 0; i < count; ++i)
    dir.mkdir(root + "/d" + std::to_string(i / 10) + "/e" + std::to_string(i % 10));
}

} // namespace

TEST(ToolJsonTest, NameThatIsNotUtf8ComesOutExactly) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  const std::string name = "lib\xFF\xFE\xC3-odd.so";
  const std::string file = dir.write("tree/sub/" + name, "binary");
  ToolRunner tool;
  ToolResult result = tool.run({"--json", "find", "bin", name, "--dir", "bin:r=" + dir.sub("tree")});
  ASSERT_EQ(0, result.status) << result.err;
  json out = json::parse(result.out); // strict: throws on invalid UTF-8
  std::string path;
  ASSERT_TRUE(vell_tool::getText(out, "path", path));
  EXPECT_EQ(file, path);
  std::string back;
  ASSERT_TRUE(vell_tool::getText(out, "name", back));
  EXPECT_EQ(name, back);
  EXPECT_TRUE(out.contains("pathBase64"));
}

TEST(ToolJsonTest, RejectedNamesThatAreNotUtf8ComeOutExactly) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  const std::string name = "\xE9t\xE9.debug"; // Latin-1
  const std::string file = dir.write("syms/" + name, "not the one");
  ToolRunner tool;
  ToolResult result = tool.run({"--json", "find", "sym", name, "--checksum", std::string(32, '0'), "--dir",
                                "sym=" + dir.sub("syms"), "--explain", "--steps", "-system"});
  ASSERT_EQ(1, result.status) << result.err;
  json out = json::parse(result.out);
  ASSERT_EQ(1u, out["rejected"].size()) << result.out;
  std::string path;
  ASSERT_TRUE(vell_tool::getText(out["rejected"][0], "path", path));
  EXPECT_EQ(file, path);
}

TEST(ToolJsonTest, ErrorIsAJsonDocumentWithTheSameStatus) {
  VELL_REQUIRE_TOOL();
  ToolRunner tool;
  ToolResult bad = tool.run({"--json", "find", "sym", "x.debug", "--checksum", "123"});
  EXPECT_EQ(2, bad.status);
  json out = json::parse(bad.out);
  EXPECT_EQ(2, out["status"]);
  EXPECT_TRUE(contains(out["error"].get<std::string>(), "--checksum"));
  EXPECT_EQ(1u, lines(bad.err).size());

  ToolResult usage = tool.run({"--json", "find", "sym"});
  EXPECT_EQ(2, usage.status);
  EXPECT_EQ(2, json::parse(usage.out)["status"]);

  ToolResult unknown = tool.run({"--json", "frobnicate"});
  EXPECT_EQ(2, unknown.status);
  EXPECT_TRUE(contains(json::parse(unknown.out)["error"].get<std::string>(), "frobnicate"));
}

TEST(ToolJsonTest, WithoutJsonAnErrorLeavesStandardOutputEmpty) {
  VELL_REQUIRE_TOOL();
  ToolRunner tool;
  ToolResult bad = tool.run({"find", "sym", "x.debug", "--checksum", "123"});
  EXPECT_EQ(2, bad.status);
  EXPECT_EQ("", bad.out);
}

TEST(ToolJsonTest, ConfidenceComesWithItsWord) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  dir.write("bin/tool-x", "binary");
  ToolRunner tool;
  ToolResult result = tool.run({"--json", "find", "bin", "tool-x", "--dir", "bin=" + dir.sub("bin")});
  ASSERT_EQ(0, result.status) << result.err;
  json out = json::parse(result.out);
  EXPECT_EQ(1, out["confidence"]);
  EXPECT_EQ("probable", out["confidenceText"]);
}

TEST(ToolDirWarningTest, MissingAndUnreadableDirectoriesAreWarnedAbout) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  dir.write("bin/tool-x", "binary");
  const std::string missing = dir.sub("missing");
  ToolRunner tool;
  ToolResult result =
      tool.run({"find", "bin", "tool-x", "--dir", "bin=" + missing, "--dir", "bin=" + dir.sub("bin")});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(std::vector<std::string>{"vell: warning: --dir: directory '" + missing + "' does not exist"},
            lines(result.err));

  const std::string closed = dir.mkdir("closed");
  ASSERT_EQ(0, ::chmod(closed.c_str(), 0700));
  vell_test::openForOthers(dir.sub("bin/tool-x"));
  ToolRunner nobody;
  nobody.runUnprivileged();
  vell_test::openForOthers(nobody.home());
  // Not root: the owner's own rights must go too.
  if (::geteuid() != 0) {
    ASSERT_EQ(0, ::chmod(closed.c_str(), 0));
  }
  ToolResult asNobody =
      nobody.run({"find", "bin", "tool-x", "--dir", "bin=" + closed, "--dir", "bin=" + dir.sub("bin")});
  EXPECT_EQ(0, asNobody.status) << asNobody.err;
  EXPECT_EQ(std::vector<std::string>{"vell: warning: --dir: directory '" + closed +
                                     "' cannot be read: Permission denied"},
            lines(asNobody.err));
}

TEST(ToolDirWarningTest, DirsAddWarnsAndSaysWhatWasAlreadyThere) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  const std::string there = dir.mkdir("there");
  const std::string missing = dir.sub("missing");
  ToolRunner tool;
  ToolResult first = tool.run({"dirs", "add", "sym=" + there});
  ASSERT_EQ(0, first.status) << first.err;
  EXPECT_EQ(std::vector<std::string>{"added: sym=" + there}, lines(first.out));
  ToolResult second = tool.run({"dirs", "add", "sym=" + there, "src=" + missing});
  ASSERT_EQ(0, second.status) << second.err;
  EXPECT_EQ((std::vector<std::string>{"already present: sym=" + there, "added: src=" + missing}),
            lines(second.out));
  EXPECT_EQ(
      std::vector<std::string>{"vell: warning: directory '" + missing + "' does not exist (added anyway)"},
      lines(second.err));
  ToolResult asJson = tool.run({"--json", "dirs", "add", "sym=" + there});
  json out = json::parse(asJson.out);
  EXPECT_EQ(json::array(), out["added"]);
  EXPECT_EQ(json::array({"sym=" + there}), out["present"]);
}

TEST(ToolExplainTest, UnreadableDirectoriesOfAWalkAreCountedAndNamed) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  dir.mkdir("tree/open/inside");
  const std::string closed = dir.mkdir("tree/closed");
  dir.mkdir("tree/closed/inside");
  vell_test::openForOthers(dir.sub("tree/open/inside"));
  ASSERT_EQ(0, ::chmod(closed.c_str(), 0700));
  ToolRunner tool;
  tool.runUnprivileged();
  vell_test::openForOthers(tool.home());
  // Not root: the owner's own rights must go too.
  if (::geteuid() != 0) {
    ASSERT_EQ(0, ::chmod(closed.c_str(), 0));
  }
  ToolResult text = tool.run({"find", "bin", "libnowhere.so", "--dir", "bin:r=" + dir.sub("tree"),
                              "--explain", "--steps", "-system"});
  EXPECT_EQ(1, text.status) << text.err;
  std::vector<std::string> out = lines(text.out);
  ASSERT_GE(out.size(), 2u);
  EXPECT_EQ("directories that could not be read: 1", out[out.size() - 2]);
  EXPECT_EQ("  " + closed + " (step ssLowPrioritySearchDirs): Permission denied", out.back());

  ToolResult asJson = tool.run({"--json", "find", "bin", "libnowhere.so", "--dir", "bin:r=" + dir.sub("tree"),
                                "--explain", "--steps", "-system"});
  json unreadable = json::parse(asJson.out)["unreadableDirectories"];
  ASSERT_EQ(1u, unreadable.size());
  EXPECT_EQ(closed, unreadable[0]["path"]);
  EXPECT_EQ("Permission denied", unreadable[0]["reason"]);
}

TEST(ToolVerboseTest, OneVSummarisesEveryStepForAUser) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  makeTree(dir, "tree", 30);
  ToolRunner tool;
  ToolResult result =
      tool.run({"-v", "find", "bin", "libz-x.so", "--dir", "bin:r=" + dir.sub("tree"), "--steps", "-system"});
  ASSERT_EQ(1, result.status) << result.err;
  std::string low;
  for (const std::string &line : lines(result.err)) {
    EXPECT_FALSE(contains(line, "DO__NOT__EXIST")) << line;
    if (contains(line, "step ssLowPrioritySearchDirs:"))
      low = line;
  }
  // The tail look-up tries one candidate, then the walk one per directory: the
  // root, 3 groups and 30 leaves.
  EXPECT_TRUE(contains(low, ": 35 candidates tried, 0 present, 34 directories walked, ")) << result.err;
  EXPECT_EQ(" ms", low.substr(low.size() - 3)) << low;

  const std::string file = dir.write("tree/d2/e9/libz-x.so", "binary");
  ToolResult found =
      tool.run({"-v", "find", "bin", "libz-x.so", "--dir", "bin:r=" + dir.sub("tree"), "--steps", "-system"});
  ASSERT_EQ(0, found.status) << found.err;
  EXPECT_TRUE(contains(found.err, "vell:   found " + file + " (confidence 1, probable)")) << found.err;
}

TEST(ToolVerboseTest, OneVNamesRejectionsAndTheirReasons) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  const std::string wrong = dir.write("syms/x.debug", "not the one");
  ToolRunner tool;
  ToolResult result = tool.run({"-v", "find", "sym", "x.debug", "--checksum", std::string(32, '0'), "--dir",
                                "sym=" + dir.sub("syms"), "--steps", "-system"});
  EXPECT_EQ(1, result.status);
  EXPECT_TRUE(contains(result.err, "vell:   rejected " + wrong + " (severity 0): ")) << result.err;
}

TEST(ToolVerboseTest, TwoVAddsTheLibraryTrace) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  ToolRunner tool;
  ToolResult result =
      tool.run({"-vv", "find", "bin", "libnowhere.so", "--dir", "bin=" + dir.path(), "--steps", "-system"});
  EXPECT_EQ(1, result.status);
  EXPECT_TRUE(contains(result.err, "DO__NOT__EXIST")) << result.err;
  EXPECT_TRUE(contains(result.err, "vell: step ssLowPrioritySearchDirs: ")) << result.err;
}

TEST(ToolProgressTest, LongWalkShowsAProgressLineOnATerminalAndErasesIt) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  makeTree(dir, "tree", 3000);
  const std::string out = dir.sub("stdout");
  int master = -1;
  pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    // Standard error stays on the terminal; standard output goes to a file.
    int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0 || ::dup2(fd, 1) < 0)
      _exit(127);
    ::setenv("VELL_PROGRESS_DELAY_MS", "0", 1);
    ::setenv("HOME", dir.path().c_str(), 1);
    const std::string tool = vell_test::toolPath();
    const std::string spec = "bin:r=" + dir.sub("tree");
    ::execl(tool.c_str(), tool.c_str(), "find", "bin", "libnowhere.so", "--dir", spec.c_str(), "--steps",
            "-system", static_cast<char *>(nullptr));
    _exit(127);
  }
  std::string terminal;
  char buffer[4096];
  for (;;) {
    ssize_t got = ::read(master, buffer, sizeof buffer);
    if (got <= 0)
      break; // EIO once the child has gone
    terminal.append(buffer, static_cast<size_t>(got));
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  ::close(master);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(1, WEXITSTATUS(status));
  const size_t shown = terminal.find("vell: searching, ");
  ASSERT_NE(std::string::npos, shown) << terminal;
  EXPECT_TRUE(contains(terminal, " directories walked: " + dir.sub("tree"))) << terminal;
  // Erased at the end: nothing follows the last erase sequence.
  const std::string erase = "\r\033[K";
  ASSERT_GE(terminal.size(), erase.size());
  EXPECT_EQ(erase, terminal.substr(terminal.size() - erase.size())) << terminal;
}

TEST(ToolProgressTest, NoProgressLineWhenStandardErrorIsNotATerminal) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  makeTree(dir, "tree", 300);
  ToolRunner tool;
  tool.setEnv("VELL_PROGRESS_DELAY_MS", "0");
  ToolResult result =
      tool.run({"find", "bin", "libnowhere.so", "--dir", "bin:r=" + dir.sub("tree"), "--steps", "-system"});
  EXPECT_EQ(1, result.status);
  EXPECT_EQ("", result.err);
}

TEST(ToolUsageTest, UnknownCommandIsNamedWithTheCommands) {
  VELL_REQUIRE_TOOL();
  ToolRunner tool;
  ToolResult result = tool.run({"--lang", "en", "frobnicate"});
  EXPECT_EQ(2, result.status);
  EXPECT_EQ(
      std::vector<std::string>{"vell: unknown command 'frobnicate'; the commands are find, dirs, archive, "
                               "checksum, extract-kernel (see vell --help)"},
      lines(result.err));
}

TEST(ToolUsageTest, MtimeAndSizeRejectNegativeNumbersAlike) {
  VELL_REQUIRE_TOOL();
  ToolRunner tool;
  ToolResult mtime = tool.run({"find", "src", "a.c", "--mtime=-5"});
  ToolResult size = tool.run({"find", "src", "a.c", "--size=-1"});
  EXPECT_EQ(2, mtime.status);
  EXPECT_EQ(2, size.status);
  EXPECT_EQ(std::vector<std::string>{"vell: --mtime: '-5' is not a whole number of 0 or more"},
            lines(mtime.err));
  EXPECT_EQ(std::vector<std::string>{"vell: --size: '-1' is not a whole number of 0 or more"},
            lines(size.err));
}

TEST(ToolUsageTest, ExtractKernelBlamesAnOutputThatCannotBeWritten) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  const std::string input = dir.write("vmlinuz", "whatever");
  ToolRunner tool;
  ToolResult result = tool.run({"extract-kernel", input, dir.path()});
  EXPECT_EQ(2, result.status);
  EXPECT_EQ(std::vector<std::string>{"vell: extract-kernel: the output '" + dir.path() +
                                     "' is a directory; name the file to write"},
            lines(result.err));
}

TEST(ToolUsageTest, LanguageComesFromTheLocale) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  const std::string wrong = dir.write("syms/x.debug", "not the one");
  const std::vector<std::string> args{"--json",     "find",
                                      "sym",        "x.debug",
                                      "--checksum", std::string(32, '0'),
                                      "--dir",      "sym=" + dir.sub("syms"),
                                      "--explain",  "--steps",
                                      "-system"};
  ToolRunner english;
  ToolRunner german;
  german.setEnv("LC_ALL", "");
  german.setEnv("LC_MESSAGES", "de_DE.UTF-8");
  german.setEnv("LANG", "en_US.UTF-8");
  const std::string inEnglish = json::parse(english.run(args).out)["rejected"][0]["message"];
  const std::string inGerman = json::parse(german.run(args).out)["rejected"][0]["message"];
  EXPECT_NE(inEnglish, inGerman);
  std::vector<std::string> withLang = args;
  withLang.insert(withLang.begin(), {"--lang", "de"});
  EXPECT_EQ(inGerman, json::parse(english.run(withLang).out)["rejected"][0]["message"]);
  // --lang wins over the locale.
  withLang[1] = "en";
  EXPECT_EQ(inEnglish, json::parse(german.run(withLang).out)["rejected"][0]["message"]);
}
