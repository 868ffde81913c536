// The lz4 legacy frame (what the kernel's build writes with "lz4 -l"):
// blocks of at most 8 MiB, each decoded with liblz4.
#include <cstdint>
#include <vector>

#include <lz4.h>

#include "vell_decompress/decoder.h"

namespace VELL_2_13 {
namespace decompress {

namespace {

constexpr size_t kMagicSize = 4;
constexpr size_t kLegacyBlock = 8u << 20;

uint32_t readLe32(const unsigned char *p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

} // namespace

DecodeResult decodeLz4Legacy(const unsigned char *data, size_t size, OutputSink &sink) {
  if (size < kMagicSize)
    return DecodeResult::truncated;
  const uint32_t bound = static_cast<uint32_t>(LZ4_compressBound(static_cast<int>(kLegacyBlock)));
  std::vector<char> block(kLegacyBlock);
  size_t pos = kMagicSize;
  bool any = false;
  for (;;) {
    // The frame has no end marker: it ends with the input, or where the next
    // word cannot be a block size (the kernel appends the image size there).
    if (size - pos < 4)
      return any ? DecodeResult::complete : DecodeResult::truncated;
    const uint32_t compressed = readLe32(data + pos);
    if (compressed == 0 || compressed > bound || compressed == readLe32(data))
      return any ? DecodeResult::complete : DecodeResult::corrupt;
    pos += 4;
    if (compressed > size - pos)
      return DecodeResult::truncated;
    const int produced = LZ4_decompress_safe(reinterpret_cast<const char *>(data + pos), block.data(),
                                             static_cast<int>(compressed), static_cast<int>(block.size()));
    if (produced < 0)
      return DecodeResult::corrupt;
    pos += compressed;
    any = true;
    if (produced > 0 &&
        !sink.write(reinterpret_cast<const unsigned char *>(block.data()), static_cast<size_t>(produced)))
      return DecodeResult::stopped;
    // Only the last block is shorter than the block size.
    if (static_cast<size_t>(produced) < kLegacyBlock)
      return DecodeResult::complete;
  }
}

} // namespace decompress
} // namespace VELL_2_13
