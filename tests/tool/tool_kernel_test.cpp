// vell find and extract-kernel with kernel images and modules as
// distributions ship them, run as separate processes.
#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "support/kernel_payloads.h"
#include "tool/tool_runner.h"

using vell_test::lines;
using vell_test::printedPath;
using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;
namespace fs = std::filesystem;

namespace {

std::string smallElf() { return vell_test::elfPayload().substr(0, 100000); }

TEST(ToolKernelTest, ExtractKernelNamesEveryFormat) {
  VELL_REQUIRE_TOOL();
  size_t count = 0;
  const vell_test::KernelFormat *formats = vell_test::kernelFormats(count);
  TempDir dir;
  ToolRunner tool;
  for (size_t i = 0; i < count; ++i) {
    const std::string input =
        dir.write(std::string("vmlinuz-") + formats[i].name,
                  vell_test::kernelFile(vell_test::compressWith(formats[i].command, smallElf())));
    const std::string output = dir.sub(std::string("vmlinux-") + formats[i].name);
    ToolResult result = tool.run({"--json", "extract-kernel", input, output});
    ASSERT_EQ(0, result.status) << result.err;
    nlohmann::json answer = nlohmann::json::parse(result.out);
    EXPECT_EQ(formats[i].name, answer["format"]);
    EXPECT_EQ(4096, answer["offset"]);
    EXPECT_EQ(smallElf().size(), answer["size"]);
    EXPECT_TRUE(vell_test::readFile(output) == smallElf()) << formats[i].name;
  }
}

TEST(ToolKernelTest, KernelOfTheTargetUnderTheSystemRoot) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  dir.write("root/boot/vmlinuz-6.1.0-vell-t",
            vell_test::kernelFile(vell_test::compressWith("lz4 -l -q -c", smallElf())));
  const std::string cache = dir.mkdir("cache");
  ToolRunner tool;
  ToolResult result = tool.run({"find", "bin", "vmlinux", "--kernel-release", "6.1.0-vell-t", "--sysroot",
                                dir.sub("root"), "--cache", cache});
  ASSERT_EQ(0, result.status) << result.err;
  const std::string found = printedPath(result);
  EXPECT_EQ(cache + "/vmlinux_cache/", found.substr(0, cache.size() + 15));
  EXPECT_TRUE(vell_test::readFile(found) == smallElf());
}

TEST(ToolKernelTest, KernelThatCannotBeExtractedIsNoAnswer) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  const std::string broken = dir.write("boot/vmlinuz-X", vell_test::kernelFile("", 5000));
  const std::string cache = dir.mkdir("cache");
  ToolRunner tool;
  ToolResult result =
      tool.run({"find", "bin", "vmlinuz-X", "--dir", "bin=" + dir.sub("boot"), "--cache", cache});
  EXPECT_EQ(1, result.status);
  EXPECT_EQ(std::vector<std::string>{"not found: vmlinuz-X"}, lines(result.out));
  EXPECT_EQ(
      std::vector<std::string>{"vell: the kernel image " + broken + " was found but cannot be extracted"},
      lines(result.err));
  EXPECT_TRUE(fs::is_empty(cache + "/vmlinux_cache"));
  // The library's default answer: the compressed file itself.
  ToolResult plain = tool.run(
      {"find", "bin", "vmlinuz-X", "--dir", "bin=" + dir.sub("boot"), "--cache", cache, "--plain-kernel"});
  EXPECT_EQ(0, plain.status) << plain.err;
  EXPECT_EQ(broken, printedPath(plain));
}

TEST(ToolKernelTest, ModuleByItsKernelNameAndAWarningForAnotherRelease) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  const std::string module = dir.write("root/lib/modules/6.1.0-vell-t/kernel/net/vport-gre.ko.xz",
                                       vell_test::compressWith("xz -c", smallElf()));
  ToolRunner tool;
  ToolResult result = tool.run(
      {"find", "bin", "vport_gre", "--kernel-release", "6.1.0-vell-t", "--sysroot", dir.sub("root")});
  ASSERT_EQ(0, result.status) << result.err;
  EXPECT_EQ(module, printedPath(result));
  EXPECT_EQ("", result.err);
  // A module found through a search directory, of another release than asked for.
  ToolResult other = tool.run({"find", "bin", "vport-gre.ko.xz", "--kernel-release", "6.1.0-vell-u", "--dir",
                               "bin:r=" + dir.sub("root/lib/modules")});
  ASSERT_EQ(0, other.status) << other.err;
  EXPECT_EQ(module, printedPath(other));
  EXPECT_EQ(std::vector<std::string>{"vell: warning: " + module +
                                     " is a module of kernel release 6.1.0-vell-t, not of 6.1.0-vell-u"},
            lines(other.err));
}

TEST(ToolKernelTest, SystemRootMustBeADirectory) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  ToolRunner tool;
  ToolResult result = tool.run({"find", "bin", "vmlinux", "--sysroot", dir.sub("none")});
  EXPECT_EQ(2, result.status);
  EXPECT_EQ(1u, lines(result.err).size());
}

} // namespace
