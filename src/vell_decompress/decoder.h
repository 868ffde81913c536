// Stream decoders for the compressions Linux kernels and modules are shipped
// with, each a thin loop around the format's own library.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vell/kernel.h"

namespace VELL_2_13 {
namespace decompress {

// Receives decompressed bytes; false stops the decoder at once (output cap
// reached, payload not what the caller wants, write failure).
class OutputSink {
public:
  virtual bool write(const unsigned char *data, size_t size) = 0;

protected:
  ~OutputSink() = default;
};

enum class DecodeResult {
  complete,  // the end of the stream was reached
  corrupt,   // the library rejected the data
  truncated, // the input ended inside the stream
  stopped,   // the sink asked to stop
};

// True when the bytes at data (avail of them readable) start a stream of format.
bool magicAt(kernel_compression_t format, const unsigned char *data, size_t avail);

// The format whose stream starts at data, kcUnknown when none does.
kernel_compression_t formatAt(const unsigned char *data, size_t avail);

// Decodes one stream of format starting at data; bytes after its end are
// ignored.
DecodeResult decode(kernel_compression_t format, const unsigned char *data, size_t size, OutputSink &sink);

DecodeResult decodeGzip(const unsigned char *data, size_t size, OutputSink &sink);
DecodeResult decodeXz(const unsigned char *data, size_t size, OutputSink &sink);
DecodeResult decodeLzma(const unsigned char *data, size_t size, OutputSink &sink);
DecodeResult decodeBzip2(const unsigned char *data, size_t size, OutputSink &sink);
DecodeResult decodeLz4Legacy(const unsigned char *data, size_t size, OutputSink &sink);
DecodeResult decodeZstd(const unsigned char *data, size_t size, OutputSink &sink);
DecodeResult decodeLzop(const unsigned char *data, size_t size, OutputSink &sink);

// Size of the output buffers the decoders fill before handing bytes on.
constexpr size_t kOutputChunk = 1 << 20;

} // namespace decompress
} // namespace VELL_2_13
