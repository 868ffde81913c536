// One bzip2 stream decoded with libbz2.
#include <algorithm>
#include <vector>

#include <bzlib.h>

#include "vell_decompress/decoder.h"

namespace VELL_2_13 {
namespace decompress {

namespace {

constexpr size_t kMaxInputStep = 1u << 30;

class Bunzipper {
public:
  Bunzipper() : m_stream(), m_ready(BZ2_bzDecompressInit(&m_stream, 0, 0) == BZ_OK) {}
  ~Bunzipper() {
    if (m_ready)
      BZ2_bzDecompressEnd(&m_stream);
  }
  Bunzipper(const Bunzipper &) = delete;
  Bunzipper &operator=(const Bunzipper &) = delete;
  bool ready() const { return m_ready; }
  bz_stream &stream() { return m_stream; }

private:
  bz_stream m_stream;
  bool m_ready;
};

} // namespace

DecodeResult decodeBzip2(const unsigned char *data, size_t size, OutputSink &sink) {
  Bunzipper bunzipper;
  if (!bunzipper.ready())
    return DecodeResult::corrupt;
  bz_stream &stream = bunzipper.stream();
  std::vector<char> output(kOutputChunk);
  size_t consumed = 0;
  for (;;) {
    if (stream.avail_in == 0 && consumed < size) {
      const size_t step = std::min(size - consumed, kMaxInputStep);
      stream.next_in = const_cast<char *>(reinterpret_cast<const char *>(data + consumed));
      stream.avail_in = static_cast<unsigned int>(step);
      consumed += step;
    }
    stream.next_out = output.data();
    stream.avail_out = static_cast<unsigned int>(output.size());
    const int code = BZ2_bzDecompress(&stream);
    if (code != BZ_OK && code != BZ_STREAM_END)
      return DecodeResult::corrupt;
    const size_t produced = output.size() - stream.avail_out;
    if (produced > 0 && !sink.write(reinterpret_cast<const unsigned char *>(output.data()), produced))
      return DecodeResult::stopped;
    if (code == BZ_STREAM_END)
      return DecodeResult::complete;
    if (stream.avail_in == 0 && consumed == size && produced == 0)
      return DecodeResult::truncated;
  }
}

} // namespace decompress
} // namespace VELL_2_13
