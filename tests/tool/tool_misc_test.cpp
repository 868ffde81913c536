// vell checksum, extract-kernel, archive and the help texts, run as separate processes.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

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
  const std::string image = "\x7f"
                            "ELF the kernel image";
  writeGzip(compressed, "setup code", image);
  std::string output = dir.sub("vmlinux");
  ToolRunner tool;
  ToolResult result = tool.run({"extract-kernel", compressed, output});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(std::vector<std::string>{"extracted: " + output + " (gzip at offset 10, 21 bytes)"},
            lines(result.out));
  EXPECT_EQ(image, readFile(output));
  ToolResult json = tool.run({"--json", "extract-kernel", compressed, output});
  EXPECT_EQ(0, json.status) << json.err;
  EXPECT_EQ("gzip", nlohmann::json::parse(json.out)["format"]);
  EXPECT_EQ(10, nlohmann::json::parse(json.out)["offset"]);
}

TEST(ToolExtractKernelTest, PlainExtractionTakesAnyGzipPayload) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string compressed = dir.sub("vmlinuz");
  writeGzip(compressed, "setup code", "the kernel image");
  std::string output = dir.sub("vmlinux");
  ToolRunner tool;
  ToolResult result = tool.run({"extract-kernel", "--plain-kernel", compressed, output});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ(std::vector<std::string>{"extracted: " + output}, lines(result.out));
  EXPECT_EQ("the kernel image", readFile(output));
  // Not an ELF image: no kernel for the default extraction, and no file left.
  ToolResult strict = tool.run({"extract-kernel", compressed, dir.sub("strict")});
  EXPECT_EQ(1, strict.status);
  EXPECT_EQ(std::vector<std::string>{"vell: no kernel image could be extracted from " + compressed +
                                     ": its compressed data do not hold an ELF image"},
            lines(strict.err));
  EXPECT_FALSE(fs::exists(dir.sub("strict")));
}

TEST(ToolExtractKernelTest, NoImageInsideFailsWithOne) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  std::string plain = dir.write("not-compressed", "plain text, no gzip stream");
  ToolRunner tool;
  ToolResult result = tool.run({"extract-kernel", "--plain-kernel", plain, dir.sub("out")});
  EXPECT_EQ(1, result.status);
  EXPECT_EQ(std::vector<std::string>{"vell: no kernel image could be extracted from " + plain},
            lines(result.err));
  EXPECT_FALSE(fs::exists(dir.sub("out")));
  ToolResult json = tool.run({"--json", "extract-kernel", plain, dir.sub("out")});
  EXPECT_EQ(1, json.status);
  EXPECT_EQ(false, nlohmann::json::parse(json.out)["extracted"]);
  EXPECT_EQ("it holds no stream of a known compression (gzip, xz, lzma, bzip2, lz4, zstd, lzo)",
            nlohmann::json::parse(json.out)["error"]);
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

// The entries of one section ("Options:", "Positionals:", "Subcommands:") of a
// help text: each name (both spellings of "-v,--verbose") with its description,
// which may stand on the next line when the names are long.
std::map<std::string, std::string> helpSection(const std::string &help, const std::string &title) {
  std::map<std::string, std::string> entries;
  std::vector<std::string> text = lines(help);
  auto line = std::find(text.begin(), text.end(), title);
  if (line == text.end())
    return entries;
  std::vector<std::string> names;
  for (++line; line != text.end() && !line->empty(); ++line) {
    std::string entry = *line;
    size_t start = entry.find_first_not_of(' ');
    if (start == std::string::npos)
      break;
    // Columns are separated by at least two blanks; a wrapped description is
    // indented far beyond the names.
    if (start > 10) {
      for (const std::string &name : names)
        entries[name] = entry.substr(start);
      continue;
    }
    size_t nameEnd = entry.find(' ', start);
    std::string spellings = entry.substr(start, nameEnd - start);
    names.clear();
    for (size_t from = 0; from <= spellings.size();) {
      size_t comma = spellings.find(',', from);
      names.push_back(spellings.substr(from, comma - from));
      if (comma == std::string::npos)
        break;
      from = comma + 1;
    }
    size_t gap = entry.find("  ", start);
    std::string description;
    if (gap != std::string::npos) {
      size_t column = entry.find_first_not_of(' ', gap);
      if (column != std::string::npos)
        description = entry.substr(column);
    }
    for (const std::string &name : names)
      entries[name] = description;
  }
  return entries;
}

std::set<std::string> namesOf(const std::map<std::string, std::string> &entries) {
  std::set<std::string> result;
  for (const auto &[name, description] : entries)
    result.insert(name);
  return result;
}

// Every entry of a section has a description.
void expectDescribed(const std::map<std::string, std::string> &entries, const std::string &command) {
  for (const auto &[name, description] : entries)
    EXPECT_FALSE(description.empty()) << command << ": " << name;
}

TEST(ToolHelpTest, MainHelpListsTheGlobalOptionsAndEveryCommand) {
  VELL_REQUIRE_TOOL();
  ToolRunner tool;
  ToolResult main = tool.run({"--help"});
  EXPECT_EQ(0, main.status) << main.err;
  EXPECT_EQ("", main.err);
  EXPECT_NE(std::string::npos, main.out.find("Usage: vell [OPTIONS] SUBCOMMAND")) << main.out;
  std::map<std::string, std::string> options = helpSection(main.out, "Options:");
  EXPECT_EQ((std::set<std::string>{"-h", "--help", "-v", "--verbose", "--json", "--lang", "--catalogs",
                                   "--config"}),
            namesOf(options))
      << main.out;
  expectDescribed(options, "vell");
  std::map<std::string, std::string> commands = helpSection(main.out, "Subcommands:");
  EXPECT_EQ((std::set<std::string>{"find", "dirs", "archive", "checksum", "extract-kernel"}),
            namesOf(commands))
      << main.out;
  expectDescribed(commands, "vell");
  // The exit statuses and where the configuration and the catalogs come from.
  for (const char *topic : {"Exit status: 0", "2 bad usage or", "searchdirs.json", "share/vell/catalogs"})
    EXPECT_NE(std::string::npos, main.out.find(topic)) << topic;
}

TEST(ToolHelpTest, FindHelpListsEveryOption) {
  VELL_REQUIRE_TOOL();
  ToolRunner tool;
  ToolResult find = tool.run({"find", "--help"});
  EXPECT_EQ(0, find.status) << find.err;
  EXPECT_NE(std::string::npos, find.out.find("Usage: vell find [OPTIONS] category name")) << find.out;
  std::map<std::string, std::string> options = helpSection(find.out, "Options:");
  EXPECT_EQ((std::set<std::string>{"-h",
                                   "--help",
                                   "--binary",
                                   "--checksum",
                                   "--mtime",
                                   "--size",
                                   "--not-newer-than-binary",
                                   "--time-check-exception",
                                   "--dir",
                                   "--archive",
                                   "--cache",
                                   "--result-dir",
                                   "--kernel-release",
                                   "--sysroot",
                                   "--plain-kernel",
                                   "--plain-walk",
                                   "--suggest",
                                   "--steps",
                                   "--all",
                                   "--explain",
                                   "--build-id",
                                   "--no-build-id",
                                   "--debug-dir",
                                   "--server",
                                   "--no-servers",
                                   "--server-timeout",
                                   "--ca-bundle",
                                   "--ca-path",
                                   "--batch",
                                   "--no-index",
                                   "--jobs"}),
            namesOf(options))
      << find.out;
  expectDescribed(options, "find");
  EXPECT_EQ((std::set<std::string>{"category", "name"}), namesOf(helpSection(find.out, "Positionals:")));
  // Every step can be named by --steps.
  for (const char *step :
       {"ssArchiveSearchDirs", "ssHighPrioritySearchDirs", "ssCacheSearchDir", "ssAbsoluteNameLookup",
        "ssAroundBinaryLookup", "ssLowPrioritySearchDirs", "ssSystemDirs"})
    EXPECT_NE(std::string::npos, options["--steps"].find(step)) << step;
}

TEST(ToolHelpTest, EveryCommandHelpListsItsOptions) {
  VELL_REQUIRE_TOOL();
  ToolRunner tool;
  struct Expected {
    std::vector<std::string> args;
    std::set<std::string> options;
    std::set<std::string> positionals;
    std::set<std::string> commands;
  };
  const std::set<std::string> help{"-h", "--help"};
  const std::vector<Expected> expected{
      {{"find"}, {}, {"category", "name"}, {}},
      {{"dirs"}, help, {}, {"add", "list", "clear"}},
      {{"dirs", "add"}, help, {"spec"}, {}},
      {{"dirs", "list"}, help, {}, {}},
      {{"dirs", "clear"}, help, {"category"}, {}},
      {{"archive"}, {"-h", "--help", "--category", "--result-dir"}, {"file"}, {}},
      {{"checksum"}, {"-h", "--help", "--sha1"}, {"file"}, {}},
      {{"extract-kernel"}, {"-h", "--help", "--plain-kernel"}, {"compressed", "output"}, {}},
  };
  for (const Expected &command : expected) {
    std::vector<std::string> args = command.args;
    args.push_back("--help");
    ToolResult result = tool.run(args);
    std::string name = "vell";
    for (const std::string &arg : command.args)
      name += " " + arg;
    EXPECT_EQ(0, result.status) << name;
    EXPECT_NE(std::string::npos, result.out.find("Usage: " + name + " ")) << result.out;
    std::map<std::string, std::string> options = helpSection(result.out, "Options:");
    if (!command.options.empty()) {
      EXPECT_EQ(command.options, namesOf(options)) << result.out;
    }
    expectDescribed(options, name);
    std::map<std::string, std::string> positionals = helpSection(result.out, "Positionals:");
    EXPECT_EQ(command.positionals, namesOf(positionals)) << result.out;
    expectDescribed(positionals, name);
    std::map<std::string, std::string> subcommands = helpSection(result.out, "Subcommands:");
    EXPECT_EQ(command.commands, namesOf(subcommands)) << result.out;
    expectDescribed(subcommands, name);
    // The global options are named on every command's help page.
    EXPECT_NE(std::string::npos,
              result.out.find("Every command also takes -v/-vv, --json, --lang LANG, --catalogs DIR and "
                              "--config FILE"))
        << result.out;
  }
}

} // namespace
