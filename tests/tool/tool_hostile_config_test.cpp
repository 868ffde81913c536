// vell dirs and find over hostile configuration files: deep nesting and symbolic links.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tool/tool_runner.h"

using vell_test::lines;
using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;
namespace fs = std::filesystem;

namespace {

std::string configPath(const ToolRunner &tool) { return tool.home() + "/.config/vell/searchdirs.json"; }

// A well-formed storage file whose "searchDirs" bag nests levels child bags.
std::string nestedDocument(int levels) {
  std::string text = R"({"format":"vell-property-storage","version":1,"bags":[{"name":"searchDirs","bag":)";
  for (int i = 0; i < levels; ++i)
    text += R"({"values":[],"children":[{"name":"searchCategory","bag":)";
  text += R"({"values":[],"children":[]})";
  for (int i = 0; i < levels; ++i)
    text += "}]}";
  return text + "}]}";
}

bool anyCorruptCopy(const std::string &config) {
  for (const auto &entry : fs::directory_iterator(fs::path(config).parent_path()))
    if (entry.path().filename().string().find(".corrupt-") != std::string::npos)
      return true;
  return false;
}

TEST(ToolHostileConfigTest, DeeplyNestedConfigurationNeverCrashesAndIsMovedAsideByTheNextAdd) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  ToolRunner tool;
  const std::string config = configPath(tool);
  fs::create_directories(fs::path(config).parent_path());
  std::ofstream(config, std::ios::binary) << nestedDocument(100000);

  const ToolResult listed = tool.run({"dirs", "list"});
  EXPECT_EQ(0, listed.status) << listed.err;
  EXPECT_EQ("", listed.out);
  const ToolResult found = tool.run({"find", "bin", "nothing-of-that-name"});
  EXPECT_EQ(1, found.status) << found.err;

  const ToolResult added = tool.run({"dirs", "add", "bin=" + dir.path()});
  EXPECT_EQ(0, added.status) << added.err;
  EXPECT_TRUE(anyCorruptCopy(config));
  EXPECT_EQ(std::vector<std::string>{"bin=" + dir.path()}, lines(tool.run({"dirs", "list"}).out));
}

TEST(ToolHostileConfigTest, ConfigurationThatIsALinkStaysALink) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  ToolRunner tool;
  const std::string config = configPath(tool);
  const std::string target = dir.sub("dotfiles/vell.json");
  fs::create_directories(fs::path(config).parent_path());
  fs::create_directories(fs::path(target).parent_path());
  fs::create_symlink(target, config);

  ASSERT_EQ(0, tool.run({"dirs", "add", "sym=" + dir.path()}).status);
  ASSERT_EQ(0, tool.run({"dirs", "add", "bin=" + dir.path()}).status);
  EXPECT_TRUE(fs::is_symlink(config));
  EXPECT_TRUE(fs::is_regular_file(target));
  std::vector<std::string> listed = lines(tool.run({"--config", target, "dirs", "list"}).out);
  std::sort(listed.begin(), listed.end());
  EXPECT_EQ((std::vector<std::string>{"bin=" + dir.path(), "sym=" + dir.path()}), listed);
}

} // namespace
