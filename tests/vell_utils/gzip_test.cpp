// Decompression of gzip streams.
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <zlib.h>

#include "support/temp_dir.h"
#include "vell/file_search.h"

namespace {

using namespace VELL_2_13;

// Compresses data with the given zlib window bits (31: gzip wrapper, 15: zlib wrapper).
std::string compress(const std::string &data, int windowBits = 31) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string result(deflateBound(&stream, data.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data.data()));
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = reinterpret_cast<Bytef *>(result.data());
  stream.avail_out = static_cast<uInt>(result.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  result.resize(stream.total_out);
  deflateEnd(&stream);
  return result;
}

// Data of the given size that does not compress to nothing.
std::string sample(size_t size) {
  std::string data(size, '\0');
  unsigned int state = 12345;
  for (size_t i = 0; i < size; ++i) {
    state = state * 1103515245u + 12345u;
    data[i] = static_cast<char>((i % 64 < 32) ? 'a' + (i % 7) : (state >> 16) & 0xFF);
  }
  return data;
}

std::string readAll(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct Outcome {
  bool result;
  std::string output;
};

Outcome run(const vell_test::TempDir &dir, const std::string &compressed) {
  const std::string input = dir.write("input.gz", compressed);
  const std::string output = dir.sub("output");
  bool result;
  {
    std::ifstream in(input, std::ios::binary);
    std::ofstream out(output, std::ios::binary | std::ios::trunc);
    result = utils::uncompress(in, out);
  }
  return {result, readAll(output)};
}

TEST(Gzip, SmallStream) {
  vell_test::TempDir dir;
  const Outcome outcome = run(dir, compress("Linux version 6.1.0"));
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.output, "Linux version 6.1.0");
}

TEST(Gzip, StreamLargerThanOneBuffer) {
  vell_test::TempDir dir;
  const std::string data = sample(3 * 262144 + 1234);
  const std::string compressed = compress(data);
  ASSERT_GT(compressed.size(), 262144u); // the input needs more than one read as well
  const Outcome outcome = run(dir, compressed);
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.output.size(), data.size());
  EXPECT_TRUE(outcome.output == data);
}

TEST(Gzip, HighlyCompressibleStreamFillsTheOutputBufferManyTimes) {
  vell_test::TempDir dir;
  const std::string data(2 * 1024 * 1024, 'z');
  const Outcome outcome = run(dir, compress(data));
  EXPECT_TRUE(outcome.result);
  EXPECT_TRUE(outcome.output == data);
}

TEST(Gzip, EmptyPayload) {
  vell_test::TempDir dir;
  const Outcome outcome = run(dir, compress(""));
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.output, "");
}

TEST(Gzip, StopsAtTheEndOfTheGzipStream) {
  vell_test::TempDir dir;
  const Outcome outcome = run(dir, compress("first") + "trailing garbage");
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.output, "first");
}

TEST(Gzip, TruncatedStreamFails) {
  vell_test::TempDir dir;
  const std::string compressed = compress(sample(100000));
  const Outcome outcome = run(dir, compressed.substr(0, compressed.size() / 2));
  EXPECT_FALSE(outcome.result);
}

TEST(Gzip, StreamMissingItsTrailerFails) {
  vell_test::TempDir dir;
  const std::string compressed = compress("some kernel bytes");
  const Outcome outcome = run(dir, compressed.substr(0, compressed.size() - 4));
  EXPECT_FALSE(outcome.result);
}

TEST(Gzip, CorruptDataFails) {
  vell_test::TempDir dir;
  EXPECT_FALSE(run(dir, "this is not gzip data at all").result);
  std::string compressed = compress(sample(10000));
  for (size_t i = 20; i < 60; ++i)
    compressed[i] = static_cast<char>(~compressed[i]);
  EXPECT_FALSE(run(dir, compressed).result);
}

TEST(Gzip, ZlibWrapperIsNotAccepted) {
  vell_test::TempDir dir;
  EXPECT_FALSE(run(dir, compress("zlib wrapped", 15)).result);
}

TEST(Gzip, EmptyInputFails) {
  vell_test::TempDir dir;
  EXPECT_FALSE(run(dir, "").result);
}

TEST(Gzip, UnopenedInputFails) {
  vell_test::TempDir dir;
  std::ifstream in(dir.sub("missing.gz"), std::ios::binary);
  std::ofstream out(dir.sub("out"), std::ios::binary);
  EXPECT_FALSE(utils::uncompress(in, out));
}

TEST(Gzip, InputStreamThatThrowsGivesFalse) {
  vell_test::TempDir dir;
  // The short last read sets the fail bit, which this stream turns into an exception.
  const std::string input = dir.write("input.gz", compress("payload"));
  std::ifstream in(input, std::ios::binary);
  in.exceptions(std::ios::failbit | std::ios::badbit);
  std::ofstream out(dir.sub("out"), std::ios::binary);
  EXPECT_NO_THROW(EXPECT_FALSE(utils::uncompress(in, out)));
}

} // namespace
