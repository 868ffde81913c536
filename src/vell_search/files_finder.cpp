// The directory walker: tail look-ups under each directory and a recursive
// walk that offers one constructed candidate per directory.
#include "vell_search/files_finder.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <boost/filesystem/path.hpp>

#include "vell_search/search_observer.h"

namespace VELL_2_13 {

namespace {

// Closes a file descriptor when it goes out of scope.
class ScopedFd {
public:
  explicit ScopedFd(int fd) : m_fd(fd) {}
  ~ScopedFd() { ::close(m_fd); }
  ScopedFd(const ScopedFd &) = delete;
  ScopedFd &operator=(const ScopedFd &) = delete;

private:
  int m_fd;
};

// Whether an entry of an open directory is a directory once symbolic links
// are followed. The listing's own file type answers for everything but links
// and unknown types, which alone cost a status query. Returns false on an
// error other than "not found", which ends the walk of the directory.
bool classifyEntry(int dirFd, unsigned char type, const char *name, bool &isDirectory) {
  isDirectory = false;
  switch (type) {
  case DT_DIR:
    isDirectory = true;
    return true;
  case DT_LNK:
  case DT_UNKNOWN:
    break;
  default:
    return true;
  }
  struct stat st;
  if (::fstatat(dirFd, name, &st, 0) == 0) {
    isDirectory = S_ISDIR(st.st_mode);
    return true;
  }
  // A dangling link is simply not a directory; any other failure (a link
  // loop, no permission) is an error of the listing.
  return errno == ENOENT || errno == ENOTDIR;
}

// Collects the paths of the subdirectories of dir in listing order. False when
// the directory cannot be read completely. The entries are read straight from
// the kernel: the C library's directory streams query the directory's status
// once more when they open it, which would add a system call per directory.
bool listSubdirectories(const std::string &dir, std::vector<std::string> &subdirectories) {
  const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    return false;
  ScopedFd closer(fd);
  const boost::filesystem::path base(dir);
  // Records are laid out as struct dirent64, each starting at an 8-byte
  // boundary; only the fixed fields are read through the structure.
  alignas(struct dirent64) char buffer[32768];
  for (;;) {
    const long filled = ::syscall(SYS_getdents64, fd, buffer, sizeof buffer);
    if (filled == 0)
      return true;
    if (filled < 0) {
      if (errno == EINTR)
        continue;
      return false;
    }
    for (long offset = 0; offset < filled;) {
      const char *record = buffer + offset;
      unsigned short length = 0;
      std::memcpy(&length, record + offsetof(struct dirent64, d_reclen), sizeof length);
      const unsigned char type = static_cast<unsigned char>(record[offsetof(struct dirent64, d_type)]);
      const char *name = record + offsetof(struct dirent64, d_name);
      offset += length;
      if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
        continue;
      bool isDirectory = false;
      if (!classifyEntry(fd, type, name, isDirectory))
        return false;
      if (isDirectory)
        subdirectories.push_back((base / name).string());
    }
  }
}

} // namespace

FilesFinder::FilesFinder(unsigned int step, ISearchDirectoryFindCallback *findCallback)
    : m_step(step), m_findCallback(findCallback) {}

void FilesFinder::addSearchDirectory(const char *dir, bool recursive) {
  m_directories.push_back(search_dir{dir ? dir : "", recursive});
}

bool FilesFinder::find(const char *name, ISearchResultsContainer &container) {
  const std::string fileName = name ? name : "";
  for (const search_dir &record : m_directories) {
    if (m_findCallback) {
      bool skipDir = false;
      if (m_findCallback->find(record.path, record.recursive, fileName, container, skipDir))
        return true;
      if (skipDir)
        continue;
    }
    if (findIteratively(record.path, fileName, container))
      return true;
    if (record.recursive) {
      m_visitedDirectories.clear();
      const std::string bareName = boost::filesystem::path(fileName).filename().string();
      if (findRecursively(record.path, bareName, container))
        return true;
    }
  }
  return false;
}

bool FilesFinder::findIteratively(const std::string &dir, const std::string &name,
                                  ISearchResultsContainer &container) {
  const boost::filesystem::path namePath(name);
  for (auto start = namePath.begin(); start != namePath.end(); ++start) {
    // The name with the elements before start dropped, under dir.
    boost::filesystem::path candidate(dir);
    for (auto element = start; element != namePath.end(); ++element)
      candidate /= *element;
    if (container.validateAndAdd(candidate.lexically_normal().string().c_str(), m_step))
      return true;
  }
  return false;
}

bool FilesFinder::findRecursively(const std::string &dir, const std::string &fileName,
                                  ISearchResultsContainer &container) {
  // One status query per directory serves both the loop guard and the type
  // test below.
  struct stat st;
  if (::stat(dir.c_str(), &st) != 0)
    return false;
  // A directory reached twice through links is walked once; only the inode
  // number is compared.
  const unsigned long inode = st.st_ino;
  if (std::find(m_visitedDirectories.begin(), m_visitedDirectories.end(), inode) !=
      m_visitedDirectories.end())
    return false;
  m_visitedDirectories.push_back(inode);
  ISearchObserver *observer = searchObserver();
  if (observer && S_ISDIR(st.st_mode))
    observer->directoryWalked(dir.c_str());

  // The one candidate of this directory: the name right under it.
  boost::filesystem::path candidate(dir);
  candidate /= fileName;
  if (container.validateAndAdd(candidate.string().c_str(), m_step))
    return true;

  if (!S_ISDIR(st.st_mode))
    return false;
  std::vector<std::string> subdirectories;
  if (!listSubdirectories(dir, subdirectories)) {
    const int error = errno;
    if (observer)
      observer->directoryUnreadable(dir.c_str(), error);
    return false;
  }
  for (const std::string &subdirectory : subdirectories) {
    if (findRecursively(subdirectory, fileName, container))
      return true;
  }
  return false;
}

} // namespace VELL_2_13
