// One gzip member decoded with zlib; the gzip wrapper with any header flags
// (file name, comment, extra field, header CRC) is parsed by zlib itself.
#include <algorithm>
#include <vector>

#include <zlib.h>

#include "vell_decompress/decoder.h"

namespace VELL_2_13 {
namespace decompress {

namespace {

// 15 bits of window plus 16: the gzip wrapper only.
constexpr int kGzipWindowBits = 31;
constexpr size_t kMaxInputStep = 1u << 30;

class Inflater {
public:
  Inflater() : m_stream(), m_ready(inflateInit2(&m_stream, kGzipWindowBits) == Z_OK) {}
  ~Inflater() {
    if (m_ready)
      inflateEnd(&m_stream);
  }
  Inflater(const Inflater &) = delete;
  Inflater &operator=(const Inflater &) = delete;
  bool ready() const { return m_ready; }
  z_stream &stream() { return m_stream; }

private:
  z_stream m_stream;
  bool m_ready;
};

} // namespace

DecodeResult decodeGzip(const unsigned char *data, size_t size, OutputSink &sink) {
  Inflater inflater;
  if (!inflater.ready())
    return DecodeResult::corrupt;
  z_stream &stream = inflater.stream();
  std::vector<unsigned char> output(kOutputChunk);
  size_t consumed = 0;
  for (;;) {
    if (stream.avail_in == 0) {
      if (consumed == size)
        return DecodeResult::truncated;
      const size_t step = std::min(size - consumed, kMaxInputStep);
      stream.next_in = const_cast<unsigned char *>(data + consumed);
      stream.avail_in = static_cast<uInt>(step);
      consumed += step;
    }
    stream.next_out = output.data();
    stream.avail_out = static_cast<uInt>(output.size());
    const int code = inflate(&stream, Z_NO_FLUSH);
    if (code != Z_OK && code != Z_STREAM_END && code != Z_BUF_ERROR)
      return DecodeResult::corrupt;
    const size_t produced = output.size() - stream.avail_out;
    if (produced > 0 && !sink.write(output.data(), produced))
      return DecodeResult::stopped;
    if (code == Z_STREAM_END)
      return DecodeResult::complete;
    if (code == Z_BUF_ERROR && stream.avail_in == 0 && consumed == size)
      return DecodeResult::truncated;
  }
}

} // namespace decompress
} // namespace VELL_2_13
