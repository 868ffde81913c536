// The lzop container (header, then blocks of LZO1X data) with every block
// decoded by liblzo2.
#include <cstdint>
#include <vector>

#include <lzo/lzo1x.h>

#include "vell_decompress/decoder.h"

namespace VELL_2_13 {
namespace decompress {

namespace {

constexpr size_t kMagicSize = 9;
// Header flags that add fields.
constexpr uint32_t kAdler32Decompressed = 0x1;
constexpr uint32_t kAdler32Compressed = 0x2;
constexpr uint32_t kExtraField = 0x40;
constexpr uint32_t kCrc32Decompressed = 0x100;
constexpr uint32_t kCrc32Compressed = 0x200;
constexpr uint32_t kFilter = 0x800;
// lzop never writes larger blocks.
constexpr uint32_t kMaxBlock = 64u << 20;
// From this version on the header holds the needed version, the level and
// the high half of the time.
constexpr unsigned kVersionWithLevel = 0x0940;

// Reads big-endian fields from the input, remembering a read past its end.
class Reader {
public:
  Reader(const unsigned char *data, size_t size, size_t pos) : m_data(data), m_size(size), m_pos(pos) {}
  bool skip(size_t count) {
    if (count > m_size - m_pos) {
      m_short = true;
      return false;
    }
    m_pos += count;
    return true;
  }
  uint32_t be(size_t bytes) {
    if (!skip(bytes))
      return 0;
    uint32_t value = 0;
    for (size_t i = m_pos - bytes; i < m_pos; ++i)
      value = value << 8 | m_data[i];
    return value;
  }
  const unsigned char *here() const { return m_data + m_pos; }
  bool isShort() const { return m_short; }

private:
  const unsigned char *m_data;
  size_t m_size;
  size_t m_pos;
  bool m_short = false;
};

// Skips the file header; the flags it declares go to flags.
bool readHeader(Reader &in, uint32_t &flags) {
  const unsigned version = in.be(2);
  in.skip(2); // library version
  if (version >= kVersionWithLevel)
    in.skip(2); // version needed to extract
  const unsigned method = in.be(1);
  if (version >= kVersionWithLevel)
    in.skip(1); // level
  flags = in.be(4);
  if (flags & kFilter)
    in.skip(4);
  in.skip(8); // mode, time
  if (version >= kVersionWithLevel)
    in.skip(4);
  in.skip(in.be(1)); // file name
  in.skip(4);        // header checksum
  if (flags & kExtraField) {
    in.skip(in.be(4));
    in.skip(4);
  }
  // Methods 1 to 3 are the LZO1X variants.
  return !in.isShort() && method >= 1 && method <= 3;
}

} // namespace

DecodeResult decodeLzop(const unsigned char *data, size_t size, OutputSink &sink) {
  static const bool initialised = lzo_init() == LZO_E_OK;
  if (!initialised || size < kMagicSize)
    return DecodeResult::corrupt;
  Reader in(data, size, kMagicSize);
  uint32_t flags = 0;
  if (!readHeader(in, flags))
    return in.isShort() ? DecodeResult::truncated : DecodeResult::corrupt;
  std::vector<unsigned char> block;
  for (;;) {
    const uint32_t plain = in.be(4);
    if (in.isShort())
      return DecodeResult::truncated;
    // A zero length ends the stream.
    if (plain == 0)
      return DecodeResult::complete;
    const uint32_t packed = in.be(4);
    if (plain > kMaxBlock || packed > plain)
      return in.isShort() ? DecodeResult::truncated : DecodeResult::corrupt;
    const uint32_t expectedAdler = (flags & kAdler32Decompressed) ? in.be(4) : 0;
    if (flags & kCrc32Decompressed)
      in.skip(4);
    if (packed < plain) {
      if (flags & kAdler32Compressed)
        in.skip(4);
      if (flags & kCrc32Compressed)
        in.skip(4);
    }
    const unsigned char *source = in.here();
    if (!in.skip(packed))
      return DecodeResult::truncated;
    const unsigned char *output = source; // a block lzop could not shrink is stored as it is
    if (packed < plain) {
      block.resize(plain);
      lzo_uint produced = plain;
      if (lzo1x_decompress_safe(source, packed, block.data(), &produced, nullptr) != LZO_E_OK ||
          produced != plain)
        return DecodeResult::corrupt;
      output = block.data();
    }
    if ((flags & kAdler32Decompressed) && lzo_adler32(1, output, plain) != expectedAdler)
      return DecodeResult::corrupt;
    if (!sink.write(output, plain))
      return DecodeResult::stopped;
  }
}

} // namespace decompress
} // namespace VELL_2_13
