// Atomic output files and the removal of the ones a killed process left.
#include "vell_decompress/output_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>

#include "vell/kernel.h"

namespace VELL_2_13 {
namespace decompress {

namespace {

const char kTempMarker[] = ".tmp-";
// A temporary file this old belongs to no running extraction, whatever its
// process number says (numbers are reused).
constexpr time_t kStaleAge = 24 * 60 * 60;

std::string directoryOf(const std::string &path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos)
    return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string fileNameOf(const std::string &path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string randomHex() {
  static thread_local std::mt19937_64 generator(std::random_device{}());
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(generator()));
  return text;
}

} // namespace

std::string temporaryPrefix(const std::string &fileName) { return "." + fileName + kTempMarker; }

bool isTemporaryName(const std::string &name, long &pid) {
  // .<name>.tmp-<pid>-<16 hex digits>
  if (name.empty() || name[0] != '.')
    return false;
  const size_t marker = name.rfind(kTempMarker);
  if (marker == std::string::npos || marker == 0)
    return false;
  const char *digits = name.c_str() + marker + sizeof kTempMarker - 1;
  char *end = nullptr;
  pid = std::strtol(digits, &end, 10);
  return end != digits && *end == '-' && std::string(end + 1).size() == 16 && pid > 0;
}

AtomicOutputFile::~AtomicOutputFile() { discard(); }

bool AtomicOutputFile::open(const std::string &finalPath) {
  discard();
  m_finalPath = finalPath;
  const std::string prefix = directoryOf(finalPath) + "/" + temporaryPrefix(fileNameOf(finalPath)) +
                             std::to_string(::getpid()) + "-";
  for (int attempt = 0; attempt < 8 && m_fd < 0; ++attempt) {
    m_tempPath = prefix + randomHex();
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
  if (!directory || !*directory)
    return 0;
  DIR *dir = ::opendir(directory);
  if (!dir)
    return 0;
  unsigned removed = 0;
  const time_t now = std::time(nullptr);
  while (const dirent *entry = ::readdir(dir)) {
    long pid = 0;
    const std::string name = entry->d_name;
    if (!decompress::isTemporaryName(name, pid))
      continue;
    const std::string path = std::string(directory) + "/" + name;
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
      continue;
    const bool ownerGone = ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
    if ((ownerGone || now - st.st_mtime > decompress::kStaleAge) && ::unlink(path.c_str()) == 0)
      ++removed;
  }
  ::closedir(dir);
  return removed;
}

} // namespace VELL_2_13
