// vell find with a copy of a target's modules in an arbitrary directory given
// with --dir: compressed modules and '-'/'_' spellings are found there, run
// as separate processes.
#include <gtest/gtest.h>

#include "support/kernel_payloads.h"
#include "tool/tool_runner.h"

using vell_test::lines;
using vell_test::printedPath;
using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;

namespace {

std::string smallElf() { return vell_test::elfPayload().substr(0, 100000); }

TEST(ToolKernelModuleDirsTest, CompressedModuleInACopiedTreeByKernelNameAndRecordedPath) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  const std::string module =
      dir.write("copy/kernel/net/openvswitch/vport-gre.ko.xz", vell_test::compressWith("xz -c", smallElf()));
  const std::string zst =
      dir.write("copy/kernel/fs/xfs/xfs.ko.zst", vell_test::compressWith("zstd -q -c", smallElf()));
  const std::string copy = dir.sub("copy");
  ToolRunner tool;
  // Recursive: the kernel's name, with '_' where the file has '-'.
  ToolResult bare = tool.run({"find", "bin", "vport_gre", "--dir", "bin:r=" + copy});
  ASSERT_EQ(0, bare.status) << bare.err;
  EXPECT_EQ(module, printedPath(bare));
  ToolResult xfs = tool.run({"find", "bin", "xfs", "--dir", "bin:r=" + copy});
  ASSERT_EQ(0, xfs.status) << xfs.err;
  EXPECT_EQ(zst, printedPath(xfs));
  // The walk without read-ahead, and a batch (answered through the
  // directory index) and the same batch without the index.
  ToolResult unhelped = tool.run({"find", "bin", "vport_gre", "--dir", "bin:r=" + copy, "--plain-walk"});
  ASSERT_EQ(0, unhelped.status) << unhelped.err;
  EXPECT_EQ(module, printedPath(unhelped));
  const std::string input = "{\"category\": \"bin\", \"name\": \"vport_gre\"}\n"
                            "{\"category\": \"bin\", \"name\": \"xfs\"}\n";
  ToolRunner batch;
  batch.setInput(input);
  const ToolResult indexed = batch.run({"--json", "find", "--batch", "--dir", "bin:r=" + copy});
  ToolRunner unindexed;
  unindexed.setInput(input);
  const ToolResult walked =
      unindexed.run({"--json", "find", "--batch", "--no-index", "--dir", "bin:r=" + copy});
  ASSERT_EQ(0, indexed.status) << indexed.err;
  ASSERT_EQ(2u, lines(indexed.out).size()) << indexed.out;
  EXPECT_NE(std::string::npos, lines(indexed.out)[0].find(module)) << indexed.out;
  EXPECT_NE(std::string::npos, lines(indexed.out)[1].find(zst)) << indexed.out;
  EXPECT_EQ(walked.out, indexed.out);
  // Non-recursive: the recorded path's tail under the copy.
  ToolResult recorded =
      tool.run({"find", "bin", "/lib/modules/6.1.0-vell-t/kernel/net/openvswitch/vport-gre.ko", "--dir",
                "bin=" + copy});
  ASSERT_EQ(0, recorded.status) << recorded.err;
  EXPECT_EQ(module, printedPath(recorded));
  // The plain search matches the exact name only.
  ToolResult plain = tool.run({"find", "bin", "vport_gre", "--dir", "bin:r=" + copy, "--plain-kernel"});
  EXPECT_EQ(1, plain.status);
  EXPECT_EQ(std::vector<std::string>{"not found: vport_gre"}, lines(plain.out));
}

} // namespace
