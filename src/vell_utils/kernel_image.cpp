// Extraction of an uncompressed kernel image from a file that holds it as a
// gzip stream somewhere inside (a compressed kernel such as vmlinuz).
#include <algorithm>
#include <cstring>
#include <fstream>
#include <ios>
#include <vector>

#include <boost/filesystem.hpp>

#include "platform/log.h"
#include "vell/file_search.h"
#include "vell/kernel.h"
#include "vell_decompress/output_file.h"

namespace VELL_2_13 {
namespace utils {

namespace {

const char *const kUnit = "src/vell_utils";
// Gzip magic, deflate method, no flags.
const unsigned char kGzipHeader[4] = {0x1f, 0x8b, 0x08, 0x00};
constexpr std::streamsize kScanBlock = 65536;

// Offset of the first gzip header start at or after from; -1 when the file
// holds none (a header cut off by the end of the file does not count).
std::streamoff findGzipHeader(std::ifstream &in, std::streamoff from) {
  in.clear();
  in.seekg(from);
  std::vector<char> buffer(kScanBlock + sizeof kGzipHeader);
  size_t carried = 0;         // bytes kept from the previous block
  std::streamoff base = from; // file offset of buffer[0]
  for (;;) {
    in.read(buffer.data() + carried, kScanBlock);
    const size_t size = carried + static_cast<size_t>(in.gcount());
    const unsigned char *data = reinterpret_cast<const unsigned char *>(buffer.data());
    for (size_t i = 0; i + sizeof kGzipHeader <= size; ++i) {
      const void *magic = std::memchr(data + i, kGzipHeader[0], size - i);
      if (!magic)
        break;
      i = static_cast<const unsigned char *>(magic) - data;
      if (i + sizeof kGzipHeader <= size && std::memcmp(data + i, kGzipHeader, sizeof kGzipHeader) == 0)
        return base + static_cast<std::streamoff>(i);
    }
    if (!in.good())
      return -1;
    // Keep the tail that may hold the start of a header split by the block end.
    const size_t keep = std::min(size, sizeof kGzipHeader - 1);
    std::memmove(buffer.data(), buffer.data() + size - keep, keep);
    base += static_cast<std::streamoff>(size - keep);
    carried = keep;
  }
}

void removeQuietly(const char *path) {
  boost::system::error_code ignored;
  boost::filesystem::remove(path, ignored);
}

} // namespace

bool extractVmlinux(const char *compressedPath, const char *outputPath) {
  if (!compressedPath || !outputPath)
    return false;
  // The image is written under a temporary name beside outputPath and renamed
  // when complete, so that no reader ever takes a partial image for the kernel.
  decompress::AtomicOutputFile temporary;
  try {
    std::ifstream in(compressedPath, std::ios::in | std::ios::binary);
    if (!in.is_open())
      return false;
    in.exceptions(std::ios::badbit);
    // A compressed kernel may hold several gzip headers (some of them false
    // positives inside other data): the first that decompresses wins.
    for (std::streamoff header = findGzipHeader(in, 0); header >= 0;
         header = findGzipHeader(in, header + static_cast<std::streamoff>(sizeof kGzipHeader))) {
      in.clear();
      in.seekg(header);
      if (temporary.tempPath().empty()) {
        const std::string directory = boost::filesystem::path(outputPath).parent_path().string();
        removeStaleExtractionFiles(directory.empty() ? "." : directory.c_str());
        if (!temporary.open(outputPath))
          throw std::ios_base::failure("cannot open the output file");
      }
      bool extracted = false;
      {
        std::ofstream out(temporary.tempPath(), std::ios::out | std::ios::binary | std::ios::trunc);
        if (!out.is_open())
          throw std::ios_base::failure("cannot open the output file");
        out.exceptions(std::ios::badbit);
        extracted = uncompress(in, out);
        out.close();
      }
      if (extracted && temporary.commit()) {
        VELL_LOG_INFO(outputPath << " was extracted from " << compressedPath);
        return true;
      }
      removeQuietly(outputPath);
    }
    temporary.discard();
    VELL_LOG_ERROR_AT(kUnit, "Failed to extract vmlinux from " << compressedPath);
    return false;
  } catch (const std::ios_base::failure &) {
    temporary.discard();
    removeQuietly(outputPath);
    VELL_LOG_ERROR_AT(kUnit, "I/O error when extracting: " << outputPath << " from " << compressedPath);
    return false;
  }
}

} // namespace utils
} // namespace VELL_2_13
