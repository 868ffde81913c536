// Reads a directory's entries straight from the kernel and tells which of
// them are directories once symbolic links are followed.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include <dirent.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace VELL_2_13 {
namespace walker {

// Closes a file descriptor when it goes out of scope.
class ScopedFd {
public:
  explicit ScopedFd(int fd) : m_fd(fd) {}
  ~ScopedFd() {
    if (m_fd >= 0)
      ::close(m_fd);
  }
  ScopedFd(const ScopedFd &) = delete;
  ScopedFd &operator=(const ScopedFd &) = delete;
  int get() const { return m_fd; }

private:
  int m_fd;
};

// Whether an entry of an open directory is a directory once symbolic links
// are followed. The listing's own file type answers for everything but links
// and unknown types, which alone cost a status query. Returns false on an
// error other than "not found", which ends the walk of the directory. When
// inode is not null it receives the inode number of a directory behind a link
// or of unknown type (the listing's own number serves for the others).
bool classifyEntry(int dirFd, unsigned char type, const char *name, bool &isDirectory,
                   ino_t *inode = nullptr);

// Entries a walk keeps from each listing besides its subdirectories, so that
// it need not ask the directory for them again.
class EntryFilter {
public:
  virtual bool keep(const char *name) const = 0;

protected:
  ~EntryFilter() = default;
};

// Collects the paths of the subdirectories of dir (links followed) in listing
// order, with their inode numbers when inodes is not null, and the names of
// the entries of any type that filter keeps (when not null) into kept. False,
// with error set to the errno value, when the directory cannot be listed
// completely.
bool listSubdirectories(const std::string &dir, std::vector<std::string> &subdirectories,
                        std::vector<ino_t> *inodes, int &error, const EntryFilter *filter = nullptr,
                        std::vector<std::string> *kept = nullptr);

// Calls onEntry(name, type) for every entry of the open directory fd but "."
// and "..", in the order the file system returns them (onEntry(name, type,
// inode) when it takes the entry's inode number too). False when reading
// fails or onEntry returns false. The C library's directory streams would
// query the directory's status once more when they open it.
template <class OnEntry> bool readEntries(int fd, OnEntry &&onEntry) {
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
      if constexpr (std::is_invocable_v<OnEntry &, const char *, unsigned char, ino_t>) {
        uint64_t inode = 0;
        std::memcpy(&inode, record + offsetof(struct dirent64, d_ino), sizeof inode);
        if (!onEntry(name, type, static_cast<ino_t>(inode)))
          return false;
      } else if (!onEntry(name, type)) {
        return false;
      }
    }
  }
}

} // namespace walker
} // namespace VELL_2_13
