// Reading build IDs, debug links and debug-information presence from real ELF files.
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "support/elf_fixture.h"
#include "support/temp_dir.h"
#include "vell/elf_identity.h"

using namespace VELL_2_13;

namespace {

std::string contentOf(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

} // namespace

TEST(ElfIdentity, FullBinaryHasBuildIdAndDebugInfoButNoLink) {
  const auto &f = vell_test::elfFixture();
  auto identity = readElfIdentity(f.prog.full);
  ASSERT_TRUE(identity.has_value());
  EXPECT_EQ(identity->buildId, f.prog.buildId);
  EXPECT_EQ(identity->buildId.size(), 40u);
  EXPECT_TRUE(identity->hasDebugInfo);
  EXPECT_TRUE(identity->debugLinkName.empty());
  EXPECT_FALSE(identity->debugLinkCrc.has_value());
}

TEST(ElfIdentity, DetachedDebugFileKeepsTheBuildIdAndHasDebugInfo) {
  const auto &f = vell_test::elfFixture();
  auto identity = readElfIdentity(f.prog.debug);
  ASSERT_TRUE(identity.has_value());
  EXPECT_EQ(identity->buildId, f.prog.buildId);
  EXPECT_TRUE(identity->hasDebugInfo);
}

TEST(ElfIdentity, StrippedBinaryHasNoDebugInfoAndLinksToItsDebugFile) {
  const auto &f = vell_test::elfFixture();
  auto identity = readElfIdentity(f.prog.stripped);
  ASSERT_TRUE(identity.has_value());
  EXPECT_EQ(identity->buildId, f.prog.buildId);
  EXPECT_FALSE(identity->hasDebugInfo);
  EXPECT_EQ(identity->debugLinkName, "prog.debug");
  ASSERT_TRUE(identity->debugLinkCrc.has_value());
  EXPECT_EQ(*identity->debugLinkCrc, debugLinkCrcOfFile(f.prog.debug).value());
}

TEST(ElfIdentity, DifferentBuildsHaveDifferentBuildIds) {
  const auto &f = vell_test::elfFixture();
  EXPECT_NE(readElfIdentity(f.prog.full)->buildId, readElfIdentity(f.rebuilt.full)->buildId);
  EXPECT_EQ(readElfIdentity(f.rebuilt.full)->buildId, f.rebuilt.buildId);
  EXPECT_EQ(readElfIdentity(f.other.debug)->buildId, f.other.buildId);
}

TEST(ElfIdentity, FileWithoutBuildIdNote) {
  const auto &f = vell_test::elfFixture();
  auto identity = readElfIdentity(f.noBuildIdStripped);
  ASSERT_TRUE(identity.has_value());
  EXPECT_TRUE(identity->buildId.empty());
  EXPECT_EQ(identity->debugLinkName, "nobid.debug");
  EXPECT_EQ(identity->debugLinkCrc, debugLinkCrcOfFile(f.noBuildIdDebug));
}

TEST(ElfIdentity, CompressedDebugSectionsCountAsDebugInfo) {
  const auto &f = vell_test::elfFixture();
  vell_test::TempDir dir;
  std::string gabi = dir.sub("gabi.debug");
  std::string gnu = dir.sub("gnu.debug");
  vell_test::runShell("objcopy --compress-debug-sections=zlib-gabi '" + f.prog.debug + "' '" + gabi + "'");
  vell_test::runShell("objcopy --compress-debug-sections=zlib-gnu '" + f.prog.debug + "' '" + gnu + "'");
  for (const std::string &path : {gabi, gnu}) {
    auto identity = readElfIdentity(path);
    ASSERT_TRUE(identity.has_value()) << path;
    EXPECT_TRUE(identity->hasDebugInfo) << path;
    EXPECT_EQ(identity->buildId, f.prog.buildId) << path;
  }
}

TEST(ElfIdentity, BuildIdFoundThroughProgramHeadersWhenSectionHeadersAreGone) {
  const auto &f = vell_test::elfFixture();
  vell_test::TempDir dir;
  std::string content = contentOf(f.prog.stripped);
  // Zero e_shoff, e_shnum and e_shstrndx of the 64-bit little-endian header.
  ASSERT_GT(content.size(), 64u);
  for (size_t i = 0x28; i < 0x30; ++i)
    content[i] = 0;
  content[0x3c] = content[0x3d] = content[0x3e] = content[0x3f] = 0;
  std::string path = dir.write("noheaders", content);
  auto identity = readElfIdentity(path);
  ASSERT_TRUE(identity.has_value());
  EXPECT_EQ(identity->buildId, f.prog.buildId);
  EXPECT_TRUE(identity->debugLinkName.empty());
}

TEST(ElfIdentity, NonElfFilesHaveNoIdentity) {
  vell_test::TempDir dir;
  EXPECT_FALSE(readElfIdentity(dir.write("text", "just some text\n")).has_value());
  EXPECT_FALSE(readElfIdentity(dir.write("empty", "")).has_value());
  EXPECT_FALSE(readElfIdentity(dir.write("magic", "\x7f"
                                                  "ELF"))
                   .has_value());
  EXPECT_FALSE(readElfIdentity(dir.sub("missing")).has_value());
  EXPECT_FALSE(readElfIdentity(dir.mkdir("directory")).has_value());
}

TEST(ElfIdentity, TruncatedFilesNeverCrash) {
  const auto &f = vell_test::elfFixture();
  vell_test::TempDir dir;
  std::string content = contentOf(f.prog.stripped);
  // Cut inside the ELF header: not readable at all.
  EXPECT_FALSE(readElfIdentity(dir.write("cut32", content.substr(0, 32))).has_value());
  // Cut before the section headers at the end: no identity, never a crash.
  EXPECT_FALSE(readElfIdentity(dir.write("cuthalf", content.substr(0, content.size() / 2))).has_value());
  // Every other cut must at least not crash.
  for (size_t length = 0; length < content.size(); length += 97)
    (void)readElfIdentity(dir.write("cut", content.substr(0, length)));
}

TEST(ElfIdentity, CorruptedBytesNeverCrash) {
  const auto &f = vell_test::elfFixture();
  vell_test::TempDir dir;
  std::string original = contentOf(f.prog.stripped);
  unsigned state = 12345;
  for (int round = 0; round < 200; ++round) {
    std::string content = original;
    for (int flips = 0; flips < 8; ++flips) {
      state = state * 1103515245u + 12345u;
      // Aim at the headers, where damage matters most.
      size_t at = (state >> 8) % std::min<size_t>(content.size(), round % 2 ? 4096 : content.size());
      content[at] = static_cast<char>(state >> 3);
    }
    auto identity = readElfIdentity(dir.write("corrupt", content));
    if (!identity)
      continue;
    // Whatever survives the damage is still well-formed.
    EXPECT_EQ(identity->buildId.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(identity->buildId.size() % 2, 0u);
    EXPECT_LE(identity->buildId.size(), 128u);
    EXPECT_EQ(identity->debugLinkName.find('\0'), std::string::npos);
    EXPECT_EQ(identity->debugLinkName.empty(), !identity->debugLinkCrc.has_value());
  }
}

TEST(ElfIdentity, DebugLinkCrcIsZlibCrcOfTheWholeFile) {
  vell_test::TempDir dir;
  std::string text = "The quick brown fox jumps over the lazy dog";
  std::string path = dir.write("fox", text);
  EXPECT_EQ(debugLinkCrcOfFile(path), 0x414fa339u);
  EXPECT_EQ(debugLinkCrcOfFile(dir.write("empty", "")), 0u);
  EXPECT_FALSE(debugLinkCrcOfFile(dir.sub("missing")).has_value());
}

TEST(ElfIdentity, NormalizeBuildId) {
  EXPECT_EQ(normalizeBuildId("93AC0f"), "93ac0f");
  EXPECT_EQ(normalizeBuildId("0x93ac"), "93ac");
  EXPECT_FALSE(normalizeBuildId("").has_value());
  EXPECT_FALSE(normalizeBuildId("9").has_value());
  EXPECT_FALSE(normalizeBuildId("93a").has_value());
  EXPECT_FALSE(normalizeBuildId("93ag").has_value());
  EXPECT_FALSE(normalizeBuildId("93:ac").has_value());
}
