// Read-only mapping of a whole regular file.
#include "vell_decompress/mapped_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VELL_2_13 {
namespace decompress {

MappedFile::MappedFile(const char *path) {
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return;
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return;
  }
  m_size = static_cast<size_t>(st.st_size);
  if (m_size == 0) {
    m_ok = true;
    ::close(fd);
    return;
  }
  void *mapped = ::mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, fd, 0);
  ::close(fd);
  if (mapped == MAP_FAILED) {
    m_size = 0;
    return;
  }
  ::madvise(mapped, m_size, MADV_SEQUENTIAL);
  m_data = static_cast<const unsigned char *>(mapped);
  m_ok = true;
}

MappedFile::~MappedFile() {
  if (m_data)
    ::munmap(const_cast<unsigned char *>(m_data), m_size);
}

} // namespace decompress
} // namespace VELL_2_13
