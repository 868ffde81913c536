// One zstd frame decoded with libzstd.
#include <vector>

#include <zstd.h>

#include "vell_decompress/decoder.h"

namespace VELL_2_13 {
namespace decompress {

namespace {

// Kernels are compressed with --ultra -22: a window of 2^27 bytes. A larger
// window is no kernel's and would only cost memory.
constexpr int kMaxWindowLog = 27;

class ZstdStream {
public:
  ZstdStream() : m_stream(ZSTD_createDStream()) {}
  ~ZstdStream() { ZSTD_freeDStream(m_stream); }
  ZstdStream(const ZstdStream &) = delete;
  ZstdStream &operator=(const ZstdStream &) = delete;
  ZSTD_DStream *get() { return m_stream; }

private:
  ZSTD_DStream *m_stream;
};

} // namespace

DecodeResult decodeZstd(const unsigned char *data, size_t size, OutputSink &sink) {
  ZstdStream stream;
  if (!stream.get() || ZSTD_isError(ZSTD_initDStream(stream.get())) ||
      ZSTD_isError(ZSTD_DCtx_setParameter(stream.get(), ZSTD_d_windowLogMax, kMaxWindowLog)))
    return DecodeResult::corrupt;
  std::vector<unsigned char> output(kOutputChunk);
  ZSTD_inBuffer in{data, size, 0};
  for (;;) {
    ZSTD_outBuffer out{output.data(), output.size(), 0};
    const size_t code = ZSTD_decompressStream(stream.get(), &out, &in);
    if (ZSTD_isError(code))
      return DecodeResult::corrupt;
    if (out.pos > 0 && !sink.write(output.data(), out.pos))
      return DecodeResult::stopped;
    // 0: the frame is complete and flushed.
    if (code == 0)
      return DecodeResult::complete;
    if (in.pos == in.size && out.pos < out.size)
      return DecodeResult::truncated;
  }
}

} // namespace decompress
} // namespace VELL_2_13
