// One xz stream or one lzma ("alone") stream decoded with liblzma.
#include <cstdint>
#include <vector>

#include <lzma.h>

#include "vell_decompress/decoder.h"

namespace VELL_2_13 {
namespace decompress {

namespace {

// Kernels use dictionaries of at most a few tens of MiB; a false header that
// asks for more is no kernel's.
constexpr uint64_t kMemoryLimit = 1ULL << 30;

class LzmaStream {
public:
  LzmaStream() : m_stream(LZMA_STREAM_INIT) {}
  ~LzmaStream() { lzma_end(&m_stream); }
  LzmaStream(const LzmaStream &) = delete;
  LzmaStream &operator=(const LzmaStream &) = delete;
  lzma_stream &get() { return m_stream; }

private:
  lzma_stream m_stream;
};

DecodeResult run(lzma_stream &stream, const unsigned char *data, size_t size, OutputSink &sink) {
  std::vector<unsigned char> output(kOutputChunk);
  stream.next_in = data;
  stream.avail_in = size;
  for (;;) {
    stream.next_out = output.data();
    stream.avail_out = output.size();
    // LZMA_FINISH: all input is there, so a stream that does not end inside
    // it is reported as truncated instead of waiting for more.
    const lzma_ret code = lzma_code(&stream, LZMA_FINISH);
    const size_t produced = output.size() - stream.avail_out;
    if (produced > 0 && !sink.write(output.data(), produced))
      return DecodeResult::stopped;
    if (code == LZMA_STREAM_END)
      return DecodeResult::complete;
    if (code == LZMA_BUF_ERROR)
      return DecodeResult::truncated;
    if (code != LZMA_OK)
      return code == LZMA_DATA_ERROR && stream.avail_in == 0 ? DecodeResult::truncated
                                                             : DecodeResult::corrupt;
  }
}

} // namespace

DecodeResult decodeXz(const unsigned char *data, size_t size, OutputSink &sink) {
  LzmaStream stream;
  if (lzma_stream_decoder(&stream.get(), kMemoryLimit, 0) != LZMA_OK)
    return DecodeResult::corrupt;
  return run(stream.get(), data, size, sink);
}

DecodeResult decodeLzma(const unsigned char *data, size_t size, OutputSink &sink) {
  LzmaStream stream;
  if (lzma_alone_decoder(&stream.get(), kMemoryLimit) != LZMA_OK)
    return DecodeResult::corrupt;
  return run(stream.get(), data, size, sink);
}

} // namespace decompress
} // namespace VELL_2_13
