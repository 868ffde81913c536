// Recognition of the stream formats by their leading bytes, and dispatch to
// the format's decoder.
#include <cstring>

#include "vell_decompress/decoder.h"

namespace VELL_2_13 {
namespace decompress {

namespace {

bool startsWith(const unsigned char *data, size_t avail, const unsigned char *magic, size_t size) {
  return avail >= size && std::memcmp(data, magic, size) == 0;
}

const unsigned char kXz[] = {0xfd, '7', 'z', 'X', 'Z', 0x00};
const unsigned char kZstd[] = {0x28, 0xb5, 0x2f, 0xfd};
const unsigned char kLz4Legacy[] = {0x02, 0x21, 0x4c, 0x18};
const unsigned char kLzop[] = {0x89, 'L', 'Z', 'O', 0x00, 0x0d, 0x0a, 0x1a, 0x0a};
// Block header of the first block, or the end-of-stream marker of an empty one.
const unsigned char kBzip2Block[] = {0x31, 0x41, 0x59, 0x26, 0x53, 0x59};
const unsigned char kBzip2End[] = {0x17, 0x72, 0x45, 0x38, 0x50, 0x90};

} // namespace

bool magicAt(kernel_compression_t format, const unsigned char *data, size_t avail) {
  switch (format) {
  case kcGzip:
    // Deflate method; any header flags, but the reserved bits clear.
    return avail >= 4 && data[0] == 0x1f && data[1] == 0x8b && data[2] == 0x08 && (data[3] & 0xe0) == 0;
  case kcXz:
    return startsWith(data, avail, kXz, sizeof kXz);
  case kcLzma:
    // The properties byte lc=3 lp=0 pb=2 every lzma encoder writes by default,
    // and a dictionary below 16 MiB: what the kernel's own loader looks for.
    return avail >= 13 && data[0] == 0x5d && data[1] == 0x00 && data[2] == 0x00;
  case kcBzip2:
    return avail >= 10 && data[0] == 'B' && data[1] == 'Z' && data[2] == 'h' && data[3] >= '1' &&
           data[3] <= '9' &&
           (std::memcmp(data + 4, kBzip2Block, 6) == 0 || std::memcmp(data + 4, kBzip2End, 6) == 0);
  case kcLz4:
    return startsWith(data, avail, kLz4Legacy, sizeof kLz4Legacy);
  case kcZstd:
    return startsWith(data, avail, kZstd, sizeof kZstd);
  case kcLzo:
    return startsWith(data, avail, kLzop, sizeof kLzop);
  case kcNone:
    break;
  }
  return false;
}

kernel_compression_t formatAt(const unsigned char *data, size_t avail) {
  for (kernel_compression_t format : {kcGzip, kcXz, kcLzma, kcBzip2, kcLz4, kcZstd, kcLzo}) {
    if (magicAt(format, data, avail))
      return format;
  }
  return kcNone;
}

DecodeResult decode(kernel_compression_t format, const unsigned char *data, size_t size, OutputSink &sink) {
  switch (format) {
  case kcGzip:
    return decodeGzip(data, size, sink);
  case kcXz:
    return decodeXz(data, size, sink);
  case kcLzma:
    return decodeLzma(data, size, sink);
  case kcBzip2:
    return decodeBzip2(data, size, sink);
  case kcLz4:
    return decodeLz4Legacy(data, size, sink);
  case kcZstd:
    return decodeZstd(data, size, sink);
  case kcLzo:
    return decodeLzop(data, size, sink);
  case kcNone:
    break;
  }
  return DecodeResult::corrupt;
}

} // namespace decompress
} // namespace VELL_2_13
