// Extraction of an uncompressed kernel image from gzip streams inside a file.
#include <gtest/gtest.h>

#include <zlib.h>

#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <string>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"

using namespace VELL_2_13;

namespace {

constexpr int kInfo = 20000;
constexpr int kError = 40000;

// A complete gzip member (header 1f 8b 08 00, no flags) holding data.
std::string gzipped(const std::string &data) {
  z_stream stream{};
  EXPECT_EQ(Z_OK, deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY));
  std::string out(deflateBound(&stream, data.size()) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data.data()));
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = reinterpret_cast<Bytef *>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(Z_STREAM_END, deflate(&stream, Z_FINISH));
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

std::string randomBytes(size_t size, unsigned seed) {
  std::mt19937 generator(seed);
  std::string bytes(size, '\0');
  for (char &c : bytes)
    c = static_cast<char>(generator() & 0xff);
  return bytes;
}

// Garbage that holds no gzip header start.
std::string garbage(size_t size) {
  std::string bytes = randomBytes(size, 7);
  for (char &c : bytes)
    if (static_cast<unsigned char>(c) == 0x1f)
      c = 0x20;
  return bytes;
}

std::string readAll(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

bool exists(const std::string &path) { return std::ifstream(path).good(); }

const std::string kHeader("\x1f\x8b\x08\x00", 4);

class ExtractVmlinuxTest : public ::testing::Test {
protected:
  std::string write(const std::string &name, const std::string &content) { return dir.write(name, content); }
  bool extract(const std::string &in) { return utils::extractVmlinux(in.c_str(), out().c_str()); }
  std::string out() const { return dir.sub("vmlinux"); }

  // The single error line, checked for its exact shape.
  void expectFailureLine(const std::string &in) {
    std::vector<std::string> errors = log.texts(kError);
    ASSERT_EQ(1u, errors.size());
    std::regex shape("Failed to extract vmlinux from " +
                     std::regex_replace(in, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)") +
                     ", at file: src/vell_utils:[0-9]+");
    EXPECT_TRUE(std::regex_match(errors[0], shape)) << errors[0];
  }

  vell_test::TempDir dir;
  vell_test::LogCapture log;
};

TEST_F(ExtractVmlinuxTest, PlainGzipFile) {
  const std::string payload = "kernel image payload";
  std::string in = write("vmlinuz", gzipped(payload));
  ASSERT_TRUE(extract(in));
  EXPECT_EQ(payload, readAll(out()));
  std::vector<std::string> info = log.texts(kInfo);
  ASSERT_EQ(1u, info.size());
  EXPECT_EQ(out() + " was extracted from " + in, info[0]);
  EXPECT_TRUE(log.texts(kError).empty());
}

TEST_F(ExtractVmlinuxTest, GarbageBeforeTheHeaderIsSkipped) {
  const std::string payload = randomBytes(300000, 1);
  std::string in = write("vmlinuz", garbage(17000) + gzipped(payload));
  ASSERT_TRUE(extract(in));
  EXPECT_EQ(payload, readAll(out()));
}

TEST_F(ExtractVmlinuxTest, HeaderSplitAcrossReadBlocksIsFound) {
  const std::string payload = "split";
  for (size_t before : {65533u, 65534u, 65535u, 65536u, 131070u}) {
    std::string in = write("vmlinuz" + std::to_string(before), garbage(before) + gzipped(payload));
    ASSERT_TRUE(extract(in)) << before;
    EXPECT_EQ(payload, readAll(out())) << before;
  }
}

TEST_F(ExtractVmlinuxTest, FalseHeaderFollowedByARealStream) {
  const std::string payload = "the real one";
  std::string falseHeader = kHeader + std::string("\x00\x00\x00\x00\x00\x03", 6) + std::string(64, '\xff');
  std::string in = write("vmlinuz", garbage(100) + falseHeader + garbage(50) + gzipped(payload));
  ASSERT_TRUE(extract(in));
  EXPECT_EQ(payload, readAll(out()));
  EXPECT_TRUE(log.texts(kError).empty());
}

TEST_F(ExtractVmlinuxTest, FirstStreamCorruptSecondValid) {
  std::string first = gzipped(randomBytes(5000, 3));
  for (size_t i = 20; i < 60; ++i)
    first[i] = static_cast<char>(first[i] ^ 0x5a); // damage the compressed data
  const std::string payload = randomBytes(70000, 4);
  std::string in = write("vmlinuz", first + garbage(10) + gzipped(payload));
  ASSERT_TRUE(extract(in));
  EXPECT_EQ(payload, readAll(out()));
}

TEST_F(ExtractVmlinuxTest, HeaderAfterALoneMagicByteIsFound) {
  const std::string payload = "after a lone magic byte";
  std::string in = write("vmlinuz", std::string("\x1f", 1) + gzipped(payload));
  ASSERT_TRUE(extract(in));
  EXPECT_EQ(payload, readAll(out()));
}

TEST_F(ExtractVmlinuxTest, FileEndingInsideTheHeader) {
  for (const std::string &tail :
       {std::string("\x1f\x8b", 2), std::string("\x1f", 1), std::string("\x1f\x8b\x08", 3)}) {
    log.clear();
    std::string in = write("vmlinuz", garbage(40) + tail);
    EXPECT_FALSE(extract(in));
    expectFailureLine(in);
    EXPECT_FALSE(exists(out()));
  }
}

TEST_F(ExtractVmlinuxTest, NoHeaderAtAll) {
  std::string in = write("vmlinuz", garbage(1000));
  EXPECT_FALSE(extract(in));
  expectFailureLine(in);
  EXPECT_TRUE(log.texts(kInfo).empty());
}

TEST_F(ExtractVmlinuxTest, EmptyFile) {
  std::string in = write("vmlinuz", "");
  EXPECT_FALSE(extract(in));
  expectFailureLine(in);
}

TEST_F(ExtractVmlinuxTest, OnlyCorruptStreamsRemoveTheOutput) {
  std::string stream = gzipped(randomBytes(5000, 5));
  for (size_t i = 20; i < 60; ++i)
    stream[i] = static_cast<char>(stream[i] ^ 0x5a);
  std::string truncated = gzipped(randomBytes(5000, 6));
  truncated.resize(truncated.size() / 2);
  std::string in = write("vmlinuz", stream + truncated);
  write("vmlinux", "stale output");
  EXPECT_FALSE(extract(in));
  expectFailureLine(in);
  EXPECT_FALSE(exists(out()));
}

TEST_F(ExtractVmlinuxTest, RealElfImageIsExtractedByteForByte) {
  const std::string elf = readAll("/bin/true");
  ASSERT_GT(elf.size(), 1000u);
  ASSERT_EQ("\x7f"
            "ELF",
            elf.substr(0, 4));
  // A compressed kernel starts with setup code before the gzip stream.
  std::string in = write("vmlinuz-test", garbage(4096) + gzipped(elf) + garbage(512));
  ASSERT_TRUE(extract(in));
  EXPECT_EQ(elf, readAll(out()));
}

TEST_F(ExtractVmlinuxTest, OutputIsTruncated) {
  write("vmlinux", std::string(100000, 'x'));
  std::string in = write("vmlinuz", gzipped("short"));
  ASSERT_TRUE(extract(in));
  EXPECT_EQ("short", readAll(out()));
}

TEST_F(ExtractVmlinuxTest, MissingInputGivesFalse) {
  EXPECT_FALSE(utils::extractVmlinux(dir.sub("none").c_str(), out().c_str()));
  EXPECT_FALSE(exists(out()));
  EXPECT_FALSE(utils::extractVmlinux(nullptr, out().c_str()));
  EXPECT_FALSE(utils::extractVmlinux(dir.sub("none").c_str(), nullptr));
}

TEST_F(ExtractVmlinuxTest, ReadErrorIsAnIoError) {
  std::string in = dir.mkdir("a-directory");
  EXPECT_FALSE(extract(in));
  std::vector<std::string> errors = log.texts(kError);
  ASSERT_EQ(1u, errors.size());
  EXPECT_TRUE(std::regex_match(errors[0], std::regex("I/O error when extracting: " + out() + " from " + in +
                                                     ", at file: src/vell_utils:[0-9]+")))
      << errors[0];
}

TEST_F(ExtractVmlinuxTest, UnwritableOutputIsAnIoError) {
  std::string in = write("vmlinuz", gzipped("data"));
  std::string target = dir.sub("no/such/dir/vmlinux");
  EXPECT_FALSE(utils::extractVmlinux(in.c_str(), target.c_str()));
  std::vector<std::string> errors = log.texts(kError);
  ASSERT_EQ(1u, errors.size());
  EXPECT_TRUE(std::regex_match(errors[0], std::regex("I/O error when extracting: " + target + " from " + in +
                                                     ", at file: src/vell_utils:[0-9]+")))
      << errors[0];
}

} // namespace
