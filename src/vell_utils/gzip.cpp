// Decompression of a whole gzip stream with zlib.
#include <memory>
#include <vector>

#include <zlib.h>

#include "vell/file_search.h"

namespace VELL_2_13 {
namespace utils {

namespace {

constexpr size_t BUFFER_SIZE = 262144;
// 15 bits of window plus 16: accept the gzip wrapper only.
constexpr int GZIP_WINDOW_BITS = 31;

// Owns an initialised inflate stream.
class InflateStream {
public:
  InflateStream() : m_stream(), m_initialised(inflateInit2(&m_stream, GZIP_WINDOW_BITS) == Z_OK) {}
  ~InflateStream() {
    if (m_initialised)
      inflateEnd(&m_stream);
  }
  InflateStream(const InflateStream &) = delete;
  InflateStream &operator=(const InflateStream &) = delete;

  bool initialised() const { return m_initialised; }
  z_stream &get() { return m_stream; }

private:
  z_stream m_stream;
  bool m_initialised;
};

bool isFailure(int code) {
  return code == Z_NEED_DICT || code == Z_DATA_ERROR || code == Z_MEM_ERROR || code == Z_STREAM_ERROR;
}

// Feeds one filled input buffer to inflate, writing everything produced.
// Returns the last inflate code, or Z_ERRNO when the output could not be written.
int inflateChunk(z_stream &stream, std::vector<unsigned char> &output, std::ofstream &out) {
  int code = Z_OK;
  do {
    stream.next_out = output.data();
    stream.avail_out = static_cast<uInt>(output.size());
    code = inflate(&stream, Z_NO_FLUSH);
    if (isFailure(code))
      return code;
    const size_t produced = output.size() - stream.avail_out;
    if (produced > 0 && !out.write(reinterpret_cast<const char *>(output.data()), produced))
      return Z_ERRNO;
  } while (code != Z_STREAM_END && stream.avail_out == 0);
  return code;
}

bool inflateAll(std::ifstream &in, std::ofstream &out) {
  std::vector<unsigned char> input(BUFFER_SIZE, 0);
  std::vector<unsigned char> output(BUFFER_SIZE, 0);
  InflateStream stream;
  if (!stream.initialised())
    return false;
  while (in.good()) {
    in.read(reinterpret_cast<char *>(input.data()), static_cast<std::streamsize>(input.size()));
    const std::streamsize got = in.gcount();
    if (got <= 0)
      break;
    stream.get().next_in = input.data();
    stream.get().avail_in = static_cast<uInt>(got);
    const int code = inflateChunk(stream.get(), output, out);
    if (code == Z_STREAM_END)
      return true;
    if (isFailure(code) || code == Z_ERRNO)
      return false;
  }
  // The input ended before the gzip stream did.
  return false;
}

} // namespace

bool uncompress(std::ifstream &in, std::ofstream &out) {
  try {
    return inflateAll(in, out);
  } catch (...) {
    // Streams with exceptions enabled or a failed allocation: not decompressed.
    return false;
  }
}

} // namespace utils
} // namespace VELL_2_13
