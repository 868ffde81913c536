// Extraction of kernel images in every compression, built with the formats'
// own tools: outcome, format, offset, and no file left behind on failure.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include <string>

#include "support/kernel_payloads.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/kernel.h"

using namespace VELL_2_13;
using namespace vell_test;

namespace {

class KernelExtractionFormatTest : public ::testing::TestWithParam<size_t> {};

TEST_P(KernelExtractionFormatTest, ExtractsThePayloadAndNamesTheFormat) {
  size_t count = 0;
  const KernelFormat &format = kernelFormats(count)[GetParam()];
  TempDir dir;
  const std::string compressed = compressWith(format.command, elfPayload());
  const std::string input = dir.write("in/vmlinuz", kernelFile(compressed));
  const std::string output = dir.mkdir("out") + "/vmlinux";
  KernelExtraction result;
  ASSERT_TRUE(extractKernelImage(input.c_str(), output.c_str(), DEFAULT_MAX_EXTRACTED_SIZE, &result))
      << format.name;
  EXPECT_EQ(format.format, result.format);
  EXPECT_STREQ(format.name, kernelCompressionName(result.format));
  EXPECT_EQ(4096u, result.offset);
  EXPECT_EQ(elfPayload().size(), result.size);
  EXPECT_EQ(eeNone, result.error);
  EXPECT_TRUE(readFile(output) == elfPayload()) << format.name;
  EXPECT_EQ("vmlinux;", listDirectory(dir.sub("out")));
}

TEST_P(KernelExtractionFormatTest, TruncatedStreamFailsAndLeavesNothing) {
  size_t count = 0;
  const KernelFormat &format = kernelFormats(count)[GetParam()];
  TempDir dir;
  const std::string compressed = compressWith(format.command, elfPayload());
  const std::string input =
      dir.write("in/vmlinuz", kernelFile(compressed).substr(0, 4096 + compressed.size() / 2));
  const std::string output = dir.mkdir("out") + "/vmlinux";
  KernelExtraction result;
  EXPECT_FALSE(extractKernelImage(input.c_str(), output.c_str(), DEFAULT_MAX_EXTRACTED_SIZE, &result))
      << format.name;
  EXPECT_NE(eeNone, result.error);
  EXPECT_EQ(kcNone, result.format);
  EXPECT_EQ("", listDirectory(dir.sub("out"))) << format.name;
}

TEST_P(KernelExtractionFormatTest, BareStreamDecompressesAsAModule) {
  size_t count = 0;
  const KernelFormat &format = kernelFormats(count)[GetParam()];
  TempDir dir;
  const std::string input = dir.write("in/m.ko.x", compressWith(format.command, elfPayload()));
  const std::string output = dir.mkdir("out") + "/m.ko";
  KernelExtraction result;
  ASSERT_TRUE(decompressElfFile(input.c_str(), output.c_str(), DEFAULT_MAX_EXTRACTED_SIZE, &result));
  EXPECT_EQ(format.format, result.format);
  EXPECT_TRUE(readFile(output) == elfPayload());
  EXPECT_EQ("m.ko;", listDirectory(dir.sub("out")));
}

TEST_P(KernelExtractionFormatTest, NonElfPayloadIsNoKernel) {
  size_t count = 0;
  const KernelFormat &format = kernelFormats(count)[GetParam()];
  TempDir dir;
  const std::string text = elfPayload().substr(70000, 200000);
  const std::string input = dir.write("in/vmlinuz", kernelFile(compressWith(format.command, text)));
  const std::string output = dir.mkdir("out") + "/vmlinux";
  KernelExtraction result;
  EXPECT_FALSE(extractKernelImage(input.c_str(), output.c_str(), DEFAULT_MAX_EXTRACTED_SIZE, &result));
  EXPECT_EQ(eeNotElf, result.error) << format.name;
  EXPECT_EQ("", listDirectory(dir.sub("out")));
  EXPECT_FALSE(decompressElfFile(dir.write("in/t.ko.x", compressWith(format.command, text)).c_str(),
                                 output.c_str(), DEFAULT_MAX_EXTRACTED_SIZE, &result));
  EXPECT_EQ(eeNotElf, result.error) << format.name;
  EXPECT_EQ("", listDirectory(dir.sub("out")));
}

TEST_P(KernelExtractionFormatTest, BombStopsAtTheCapAndLeavesNothing) {
  size_t count = 0;
  const KernelFormat &format = kernelFormats(count)[GetParam()];
  TempDir dir;
  // 64 MiB that compress to little, starting like an ELF file.
  const std::string bomb = "\x7f"
                           "ELF" +
                           std::string(64u << 20, '\0');
  const std::string input = dir.write("in/vmlinuz", kernelFile(compressWith(format.command, bomb)));
  const std::string output = dir.mkdir("out") + "/vmlinux";
  KernelExtraction result;
  EXPECT_FALSE(extractKernelImage(input.c_str(), output.c_str(), 1u << 20, &result));
  EXPECT_EQ(eeOutputCap, result.error) << format.name;
  EXPECT_EQ("", listDirectory(dir.sub("out")));
}

std::string formatName(const ::testing::TestParamInfo<size_t> &info) {
  size_t count = 0;
  return kernelFormats(count)[info.param].name;
}

INSTANTIATE_TEST_SUITE_P(EveryCompression, KernelExtractionFormatTest, ::testing::Range<size_t>(0, 7),
                         formatName);

TEST(KernelExtractionTest, GzipWithFileNameFlagIsExtractedAfterThePlainScan) {
  TempDir dir;
  // "gzip FILE" stores the file name: flag byte 0x08.
  const std::string named = dir.write("payload", elfPayload());
  ASSERT_EQ(0, std::system(("gzip -1 -k -f " + named).c_str()));
  const std::string compressed = readFile(named + ".gz");
  ASSERT_EQ(0x08, compressed[3]);
  const std::string input = dir.write("in/vmlinuz", kernelFile(compressed));
  const std::string output = dir.mkdir("out") + "/vmlinux";
  LogCapture log;
  // The plain gzip scan finds no header without flags.
  EXPECT_FALSE(utils::extractVmlinux(input.c_str(), output.c_str()));
  EXPECT_EQ("", listDirectory(dir.sub("out")));
  KernelExtraction result;
  ASSERT_TRUE(extractKernelImage(input.c_str(), output.c_str(), DEFAULT_MAX_EXTRACTED_SIZE, &result));
  EXPECT_EQ(kcGzip, result.format);
  EXPECT_TRUE(readFile(output) == elfPayload());
  EXPECT_TRUE(log.containsPrefix("Failed to extract vmlinux from " + input + ", at file: src/vell_utils:"));
  EXPECT_TRUE(log.contains(output + " was extracted from " + input + " (gzip at offset 4096)"));
}

TEST(KernelExtractionTest, PlainGzipKeepsItsLogLines) {
  TempDir dir;
  const std::string input = dir.write("in/vmlinuz", kernelFile(compressWith("gzip -1 -n -c", elfPayload())));
  const std::string output = dir.mkdir("out") + "/vmlinux";
  LogCapture log;
  ASSERT_TRUE(extractKernelImage(input.c_str(), output.c_str()));
  EXPECT_TRUE(log.contains(output + " was extracted from " + input));
  EXPECT_FALSE(log.containsPrefix("Failed to extract"));
}

TEST(KernelExtractionTest, BrokenFirstStreamThenAGoodOne) {
  TempDir dir;
  std::string brokenGzip = compressWith("gzip -1 -n -c", elfPayload()).substr(0, 5000);
  for (size_t i = 100; i < brokenGzip.size(); i += 7)
    brokenGzip[i] = static_cast<char>(brokenGzip[i] ^ 0x55);
  std::string brokenXz = compressWith("xz -1 --check=crc32 -c", elfPayload()).substr(0, 3000);
  const std::string good = compressWith("zstd -1 -q -c", elfPayload());
  const std::string input = dir.write("in/vmlinuz", kernelFile(brokenGzip + brokenXz + good));
  const std::string output = dir.mkdir("out") + "/vmlinux";
  KernelExtraction result;
  ASSERT_TRUE(extractKernelImage(input.c_str(), output.c_str(), DEFAULT_MAX_EXTRACTED_SIZE, &result));
  EXPECT_EQ(kcZstd, result.format);
  EXPECT_EQ(4096u + brokenGzip.size() + brokenXz.size(), result.offset);
  EXPECT_TRUE(readFile(output) == elfPayload());
  EXPECT_EQ("vmlinux;", listDirectory(dir.sub("out")));
}

TEST(KernelExtractionTest, NoStreamAtAll) {
  TempDir dir;
  const std::string input = dir.write("in/vmlinuz", kernelFile("", 100000));
  const std::string output = dir.mkdir("out") + "/vmlinux";
  KernelExtraction result;
  LogCapture log;
  EXPECT_FALSE(extractKernelImage(input.c_str(), output.c_str(), DEFAULT_MAX_EXTRACTED_SIZE, &result));
  EXPECT_EQ(eeNoStream, result.error);
  EXPECT_TRUE(
      log.containsPrefix("No kernel image extracted from " + input + ": no stream of a known compression"));
  EXPECT_EQ("", listDirectory(dir.sub("out")));
}

TEST(KernelExtractionTest, UnreadableInputAndUnwritableOutput) {
  TempDir dir;
  KernelExtraction result;
  EXPECT_FALSE(extractKernelImage(dir.sub("missing").c_str(), dir.sub("out").c_str(),
                                  DEFAULT_MAX_EXTRACTED_SIZE, &result));
  EXPECT_EQ(eeUnreadable, result.error);
  const std::string input = dir.write("vmlinuz", kernelFile(compressWith("lz4 -l -q -c", elfPayload())));
  EXPECT_FALSE(extractKernelImage(input.c_str(), dir.sub("no/such/dir/vmlinux").c_str(),
                                  DEFAULT_MAX_EXTRACTED_SIZE, &result));
  EXPECT_EQ(eeOutputUnwritable, result.error);
  EXPECT_FALSE(extractKernelImage(nullptr, dir.sub("x").c_str()));
  EXPECT_FALSE(extractKernelImage(input.c_str(), nullptr));
}

TEST(KernelExtractionTest, ReplacesAnExistingImageOnlyWhenComplete) {
  TempDir dir;
  const std::string output = dir.write("out/vmlinux", "old");
  const std::string bad = dir.write("in/bad", kernelFile("", 1000));
  EXPECT_FALSE(extractKernelImage(bad.c_str(), output.c_str()));
  EXPECT_EQ("old", readFile(output));
  const std::string good = dir.write("in/good", kernelFile(compressWith("lzop -1 -c", elfPayload())));
  EXPECT_TRUE(extractKernelImage(good.c_str(), output.c_str()));
  EXPECT_TRUE(readFile(output) == elfPayload());
}

TEST(KernelExtractionTest, StaleTemporaryFilesOfDeadProcessesAreRemoved) {
  TempDir dir;
  // A process number that does not exist: a child that has been reaped.
  const pid_t child = ::fork();
  if (child == 0)
    ::_exit(0);
  ASSERT_GT(child, 0);
  int status = 0;
  ::waitpid(child, &status, 0);
  const std::string dead = ".vmlinux.tmp-" + std::to_string(child) + "-0123456789abcdef";
  const std::string alive = ".vmlinux.tmp-" + std::to_string(::getpid()) + "-fedcba9876543210";
  dir.write("out/" + dead, "partial");
  dir.write("out/" + alive, "in progress");
  dir.write("out/.vmlinux.tmp-notanumber", "other");
  const std::string input = dir.write("in/vmlinuz", kernelFile(compressWith("lz4 -l -q -c", elfPayload())));
  ASSERT_TRUE(extractKernelImage(input.c_str(), dir.sub("out/vmlinux").c_str()));
  EXPECT_EQ(alive + ";.vmlinux.tmp-notanumber;vmlinux;", listDirectory(dir.sub("out")));
  EXPECT_EQ(0u, removeStaleExtractionFiles(dir.sub("out").c_str()));
  EXPECT_EQ(0u, removeStaleExtractionFiles(nullptr));
}

TEST(KernelExtractionTest, CompressionNames) {
  EXPECT_STREQ("none", kernelCompressionName(kcNone));
  EXPECT_STREQ("lz4", kernelCompressionName(kcLz4));
  EXPECT_STREQ("lzo", kernelCompressionName(kcLzo));
  EXPECT_STREQ("none", kernelCompressionName(static_cast<kernel_compression_t>(99)));
}

} // namespace

namespace {

TEST(KernelExtractionStressTest, KilledExtractionsLeaveNothingPartial) {
  TempDir dir;
  const std::string input =
      dir.write("in/vmlinuz", kernelFile(compressWith("xz -1 --check=crc32 -c", elfPayload())));
  const std::string output = dir.mkdir("out") + "/vmlinux";
  int killedEarly = 0;
  for (int round = 0; round < 12; ++round) {
    ::unlink(output.c_str());
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      extractKernelImage(input.c_str(), output.c_str());
      ::_exit(0);
    }
    ::usleep(static_cast<useconds_t>(round * 7000));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
      ++killedEarly;
    // Either no image at all or the whole image, never a part of it.
    if (::access(output.c_str(), F_OK) == 0) {
      EXPECT_TRUE(readFile(output) == elfPayload()) << "round " << round;
    }
  }
  // The next extraction removes what the killed ones left.
  ASSERT_TRUE(extractKernelImage(input.c_str(), output.c_str()));
  EXPECT_EQ("vmlinux;", listDirectory(dir.sub("out")));
  RecordProperty("killed", killedEarly);
}

} // namespace
