// Extraction of a kernel image in any of the kernel's compressions, and
// decompression of a compressed module, into an atomically written ELF file.
#include <cstring>
#include <string>

#include "platform/log.h"
#include "vell/kernel.h"
#include "vell_decompress/decoder.h"
#include "vell_decompress/mapped_file.h"
#include "vell_decompress/output_file.h"

namespace VELL_2_13 {

namespace {

using decompress::DecodeResult;

const char *const kUtilsUnit = "src/vell_utils";
const char *const kUnit = "src/vell_decompress";
const unsigned char kElfMagic[4] = {0x7f, 'E', 'L', 'F'};
// The gzip header start the plain scan looks for: magic, deflate, no flags.
const unsigned char kPlainGzipHeader[4] = {0x1f, 0x8b, 0x08, 0x00};

// Writes decoded bytes to the output file while they start like an ELF file
// and stay under the cap.
class ElfSink : public decompress::OutputSink {
public:
  ElfSink(decompress::AtomicOutputFile &file, unsigned long long cap) : m_file(file), m_cap(cap) {}

  bool write(const unsigned char *data, size_t size) override {
    const size_t headerBytes = m_written < sizeof kElfMagic ? sizeof kElfMagic - m_written : 0;
    const size_t compared = headerBytes < size ? headerBytes : size;
    if (compared && std::memcmp(data, kElfMagic + m_written, compared) != 0) {
      m_error = eeNotElf;
      return false;
    }
    if (size > m_cap - m_written) {
      m_error = eeOutputCap;
      return false;
    }
    if (!m_file.write(data, size)) {
      m_error = eeOutputUnwritable;
      return false;
    }
    m_written += size;
    return true;
  }

  // Prepares for another attempt; false when the file cannot be emptied.
  bool reset() {
    m_written = 0;
    m_error = eeNone;
    return m_file.rewind();
  }
  unsigned long long written() const { return m_written; }
  extraction_error_t error() const { return m_error; }

private:
  decompress::AtomicOutputFile &m_file;
  unsigned long long m_cap;
  unsigned long long m_written = 0;
  extraction_error_t m_error = eeNone;
};

std::string directoryOf(const std::string &path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos)
    return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// The outcome of one attempt, and what the whole extraction reports when no
// attempt succeeds: the most telling failure seen.
struct Attempts {
  extraction_error_t worst = eeNoStream;
  bool fatal = false; // cap reached or output unwritable: no further attempt

  void note(DecodeResult decoded, const ElfSink &sink) {
    if (decoded == DecodeResult::stopped) {
      if (sink.error() == eeOutputCap || sink.error() == eeOutputUnwritable) {
        worst = sink.error();
        fatal = true;
      } else if (worst == eeNoStream || worst == eeTruncated) {
        worst = eeNotElf;
      }
      return;
    }
    if (decoded == DecodeResult::complete && sink.written() < sizeof kElfMagic)
      worst = worst == eeNoStream ? eeNotElf : worst;
    else if (decoded == DecodeResult::truncated && worst == eeNoStream)
      worst = eeTruncated;
  }
};

// Decodes the stream of format at offset; true when it produced a whole ELF file.
bool attempt(const decompress::MappedFile &input, size_t offset, kernel_compression_t format, ElfSink &sink,
             Attempts &attempts) {
  if (!sink.reset()) {
    attempts.worst = eeOutputUnwritable;
    attempts.fatal = true;
    return false;
  }
  const DecodeResult decoded = decompress::decode(format, input.data() + offset, input.size() - offset, sink);
  if (decoded == DecodeResult::complete && sink.written() >= sizeof kElfMagic)
    return true;
  attempts.note(decoded, sink);
  return false;
}

void report(KernelExtraction *result, kernel_compression_t format, size_t offset, unsigned long long size,
            extraction_error_t error) {
  if (!result)
    return;
  result->format = format;
  result->offset = offset;
  result->size = size;
  result->error = error;
}

const char *describe(extraction_error_t error) {
  switch (error) {
  case eeNone:
    return "no error";
  case eeUnreadable:
    return "the file cannot be read";
  case eeNoStream:
    return "no stream of a known compression";
  case eeNotElf:
    return "the decompressed data is not an ELF file";
  case eeTruncated:
    return "the compressed stream is truncated";
  case eeOutputCap:
    return "the decompressed data exceed the size cap";
  case eeOutputUnwritable:
    return "the output cannot be written";
  }
  return "unknown error";
}

// The positions of the plain gzip header, then of every other stream start.
bool scanPlainGzip(const decompress::MappedFile &input, ElfSink &sink, Attempts &attempts, size_t &found) {
  const unsigned char *data = input.data();
  const size_t size = input.size();
  for (size_t pos = 0; pos + sizeof kPlainGzipHeader <= size && !attempts.fatal; ++pos) {
    const void *hit = std::memchr(data + pos, kPlainGzipHeader[0], size - pos);
    if (!hit)
      break;
    pos = static_cast<size_t>(static_cast<const unsigned char *>(hit) - data);
    if (pos + sizeof kPlainGzipHeader > size)
      break;
    if (std::memcmp(data + pos, kPlainGzipHeader, sizeof kPlainGzipHeader) != 0)
      continue;
    if (attempt(input, pos, kcGzip, sink, attempts)) {
      found = pos;
      return true;
    }
  }
  return false;
}

bool scanOtherStreams(const decompress::MappedFile &input, ElfSink &sink, Attempts &attempts, size_t &found,
                      kernel_compression_t &format) {
  const unsigned char *data = input.data();
  const size_t size = input.size();
  for (size_t pos = 0; pos < size && !attempts.fatal; ++pos) {
    // Only the first bytes of the known magics are worth a closer look.
    switch (data[pos]) {
    case 0x1f:
    case 0xfd:
    case 0x5d:
    case 'B':
    case 0x02:
    case 0x28:
    case 0x89:
      break;
    default:
      continue;
    }
    format = decompress::formatAt(data + pos, size - pos);
    // Plain gzip headers have had their turn.
    if (format == kcNone ||
        (format == kcGzip && std::memcmp(data + pos, kPlainGzipHeader, sizeof kPlainGzipHeader) == 0))
      continue;
    if (attempt(input, pos, format, sink, attempts)) {
      found = pos;
      return true;
    }
  }
  return false;
}

bool finish(decompress::AtomicOutputFile &output, ElfSink &sink, KernelExtraction *result,
            kernel_compression_t format, size_t offset) {
  if (!output.commit()) {
    report(result, kcNone, 0, 0, eeOutputUnwritable);
    return false;
  }
  report(result, format, offset, sink.written(), eeNone);
  return true;
}

} // namespace

const char *kernelCompressionName(kernel_compression_t format) {
  switch (format) {
  case kcNone:
    return "none";
  case kcGzip:
    return "gzip";
  case kcXz:
    return "xz";
  case kcLzma:
    return "lzma";
  case kcBzip2:
    return "bzip2";
  case kcLz4:
    return "lz4";
  case kcZstd:
    return "zstd";
  case kcLzo:
    return "lzo";
  }
  return "none";
}

bool extractKernelImage(const char *compressedPath, const char *outputPath, unsigned long long maxOutput,
                        KernelExtraction *result) {
  report(result, kcNone, 0, 0, eeUnreadable);
  if (!compressedPath || !outputPath || !*outputPath)
    return false;
  decompress::MappedFile input(compressedPath);
  if (!input.ok()) {
    VELL_LOG_ERROR_AT(kUnit, "Cannot read the compressed kernel " << compressedPath);
    return false;
  }
  const std::string output(outputPath);
  removeStaleExtractionFiles(directoryOf(output).c_str());
  decompress::AtomicOutputFile file;
  if (!file.open(output)) {
    report(result, kcNone, 0, 0, eeOutputUnwritable);
    VELL_LOG_ERROR_AT(kUtilsUnit, "I/O error when extracting: " << outputPath << " from " << compressedPath);
    return false;
  }
  ElfSink sink(file, maxOutput);
  Attempts attempts;
  size_t offset = 0;
  // The plain gzip headers first, with the log lines of the gzip-only extraction.
  if (scanPlainGzip(input, sink, attempts, offset)) {
    if (!finish(file, sink, result, kcGzip, offset))
      return false;
    VELL_LOG_INFO(outputPath << " was extracted from " << compressedPath);
    return true;
  }
  if (!attempts.fatal)
    VELL_LOG_ERROR_AT(kUtilsUnit, "Failed to extract vmlinux from " << compressedPath);
  kernel_compression_t format = kcNone;
  if (!attempts.fatal && scanOtherStreams(input, sink, attempts, offset, format)) {
    if (!finish(file, sink, result, format, offset))
      return false;
    VELL_LOG_INFO(outputPath << " was extracted from " << compressedPath << " ("
                             << kernelCompressionName(format) << " at offset " << offset << ")");
    return true;
  }
  file.discard();
  report(result, kcNone, 0, 0, attempts.worst);
  VELL_LOG_ERROR_AT(kUnit,
                    "No kernel image extracted from " << compressedPath << ": " << describe(attempts.worst));
  return false;
}

bool decompressElfFile(const char *compressedPath, const char *outputPath, unsigned long long maxOutput,
                       KernelExtraction *result) {
  report(result, kcNone, 0, 0, eeUnreadable);
  if (!compressedPath || !outputPath || !*outputPath)
    return false;
  decompress::MappedFile input(compressedPath);
  if (!input.ok())
    return false;
  const kernel_compression_t format = decompress::formatAt(input.data(), input.size());
  if (format == kcNone) {
    report(result, kcNone, 0, 0, eeNoStream);
    return false;
  }
  const std::string output(outputPath);
  removeStaleExtractionFiles(directoryOf(output).c_str());
  decompress::AtomicOutputFile file;
  if (!file.open(output)) {
    report(result, kcNone, 0, 0, eeOutputUnwritable);
    return false;
  }
  ElfSink sink(file, maxOutput);
  Attempts attempts;
  if (attempt(input, 0, format, sink, attempts) && finish(file, sink, result, format, 0)) {
    VELL_LOG_INFO(outputPath << " was decompressed from " << compressedPath);
    return true;
  }
  file.discard();
  report(result, format, 0, 0, attempts.fatal || attempts.worst != eeNoStream ? attempts.worst : eeNoStream);
  VELL_LOG_ERROR_AT(kUnit, "Cannot decompress " << compressedPath << ": " << describe(attempts.worst));
  return false;
}

} // namespace VELL_2_13
