// Atomic output files and the removal of the ones a killed process left.
#include "vell_decompress/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "vell/kernel.h"
#include "vell_utils/stale_temporaries.h"

namespace VELL_2_13 {
namespace decompress {

AtomicOutputFile::~AtomicOutputFile() { discard(); }

bool AtomicOutputFile::open(const std::string &finalPath) {
  discard();
  m_finalPath = finalPath;
  for (int attempt = 0; attempt < 8 && m_fd < 0; ++attempt) {
    m_tempPath = utils::temporaryPathFor(finalPath);
    m_fd = ::open(m_tempPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (m_fd < 0 && errno != EEXIST)
      break;
  }
  if (m_fd < 0)
    m_tempPath.clear();
  return m_fd >= 0;
}

bool AtomicOutputFile::write(const unsigned char *data, size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(m_fd, data, size);
    if (written < 0 && errno == EINTR)
      continue;
    if (written <= 0)
      return false;
    data += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

bool AtomicOutputFile::rewind() { return ::ftruncate(m_fd, 0) == 0 && ::lseek(m_fd, 0, SEEK_SET) == 0; }

bool AtomicOutputFile::commit() {
  if (m_fd < 0)
    return false;
  const bool closed = ::close(m_fd) == 0;
  m_fd = -1;
  if (!closed || ::rename(m_tempPath.c_str(), m_finalPath.c_str()) != 0) {
    discard();
    return false;
  }
  m_tempPath.clear();
  return true;
}

void AtomicOutputFile::discard() {
  if (m_fd >= 0)
    ::close(m_fd);
  m_fd = -1;
  if (!m_tempPath.empty())
    ::unlink(m_tempPath.c_str());
  m_tempPath.clear();
}

} // namespace decompress

unsigned removeStaleExtractionFiles(const char *directory) {
  return utils::removeStaleTemporaries(directory);
}

} // namespace VELL_2_13
