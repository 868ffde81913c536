// The CRC-32 a .gnu_debuglink section records for its debug file.
#include "vell/elf_identity.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include <zlib.h>

namespace VELL_2_13 {

std::optional<uint32_t> debugLinkCrcOfFile(const std::string &path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return std::nullopt;
  std::vector<unsigned char> buffer(1 << 16);
  uLong crc = crc32(0L, Z_NULL, 0);
  for (;;) {
    ssize_t count = ::read(fd, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR)
      continue;
    if (count < 0) {
      ::close(fd);
      return std::nullopt;
    }
    if (count == 0)
      break;
    crc = crc32_z(crc, buffer.data(), static_cast<size_t>(count));
  }
  ::close(fd);
  return static_cast<uint32_t>(crc);
}

} // namespace VELL_2_13
