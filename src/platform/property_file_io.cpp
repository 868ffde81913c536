// File operations of the JSON property storage on POSIX calls, so that every failure has its errno.
#include "platform/property_file_io.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>

namespace VELL_2_13 {
namespace platform {

namespace {

std::string describe(const std::string &what, const std::string &path, int error) {
  return what + " " + path + ": " + std::strerror(error);
}

std::string directoryOf(const std::string &path) {
  const std::string parent = boost::filesystem::path(path).parent_path().string();
  return parent.empty() ? std::string(".") : parent;
}

std::string temporaryPrefix(const std::string &path) {
  return boost::filesystem::path(path).filename().string() + ".tmp-";
}

bool writeAll(int fd, const std::string &content) {
  const char *data = content.data();
  size_t left = content.size();
  while (left > 0) {
    const ssize_t written = ::write(fd, data, left);
    if (written < 0) {
      if (errno == EINTR)
        continue;
      return false;
    }
    data += written;
    left -= static_cast<size_t>(written);
  }
  return true;
}

void syncDirectory(const std::string &directory) {
  const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    return;
  ::fsync(fd);
  ::close(fd);
}

std::string utcTimestamp() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof(text), "%Y%m%dT%H%M%SZ", &parts);
  return text;
}

// Calls visit with the full path of every temporary file of path.
template <class Visit> void forEachTemporary(const std::string &path, Visit visit) {
  const std::string directory = directoryOf(path);
  const std::string prefix = temporaryPrefix(path);
  DIR *listing = ::opendir(directory.c_str());
  if (!listing)
    return;
  while (const dirent *entry = ::readdir(listing)) {
    if (std::strncmp(entry->d_name, prefix.c_str(), prefix.size()) == 0 &&
        !visit(directory + "/" + entry->d_name))
      break;
  }
  ::closedir(listing);
}

} // namespace

std::string followLinks(const std::string &path) {
  // As many links as the kernel follows in one lookup.
  constexpr int MAX_LINKS = 40;
  std::string current = path;
  for (int hop = 0; hop < MAX_LINKS; ++hop) {
    struct stat status {};
    if (::lstat(current.c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
      return current;
    std::string target(static_cast<size_t>(status.st_size > 0 ? status.st_size : 4096) + 1, '\0');
    const ssize_t length = ::readlink(current.c_str(), target.data(), target.size());
    if (length < 0 || static_cast<size_t>(length) >= target.size())
      return path;
    target.resize(static_cast<size_t>(length));
    current = target.front() == '/' ? target : directoryOf(current) + "/" + target;
  }
  // A loop of links: writing to the path itself fails or replaces the link,
  // either way nothing outside is touched.
  return path;
}

FileReadStatus readWholeFile(const std::string &path, std::string &content, std::string &error) {
  content.clear();
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT)
      return FileReadStatus::Missing;
    error = describe("Cannot open", path, errno);
    return FileReadStatus::Failed;
  }
  char buffer[65536];
  for (;;) {
    const ssize_t count = ::read(fd, buffer, sizeof(buffer));
    if (count == 0)
      break;
    if (count < 0) {
      if (errno == EINTR)
        continue;
      error = describe("Cannot read", path, errno);
      ::close(fd);
      return FileReadStatus::Failed;
    }
    content.append(buffer, static_cast<size_t>(count));
  }
  ::close(fd);
  return FileReadStatus::Ok;
}

bool writeFileAtomically(const std::string &linkOrPath, const std::string &content, std::string &error) {
  static std::atomic<unsigned> counter{0};
  // The temporary file lives beside the file it replaces, so that the rename
  // stays within one file system and a symbolic link keeps pointing there.
  const std::string path = followLinks(linkOrPath);
  const std::string temporary =
      path + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) {
    error = describe("Cannot create", temporary, errno);
    return false;
  }
  struct stat existing {};
  if (::stat(path.c_str(), &existing) == 0)
    ::fchmod(fd, existing.st_mode & 07777);
  if (!writeAll(fd, content) || ::fsync(fd) != 0) {
    error = describe("Cannot write", temporary, errno);
    ::close(fd);
    ::unlink(temporary.c_str());
    return false;
  }
  if (::close(fd) != 0) {
    error = describe("Cannot write", temporary, errno);
    ::unlink(temporary.c_str());
    return false;
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    error = describe("Cannot rename " + temporary + " to", path, errno);
    ::unlink(temporary.c_str());
    return false;
  }
  syncDirectory(directoryOf(path));
  return true;
}

bool moveFileAside(const std::string &linkOrPath, std::string &aside, std::string &error) {
  const std::string path = followLinks(linkOrPath);
  const std::string base = path + ".corrupt-" + utcTimestamp();
  for (int attempt = 0; attempt < 1000; ++attempt) {
    aside = attempt == 0 ? base : base + "-" + std::to_string(attempt);
    struct stat taken {};
    if (::lstat(aside.c_str(), &taken) == 0)
      continue;
    if (::rename(path.c_str(), aside.c_str()) == 0) {
      syncDirectory(directoryOf(path));
      return true;
    }
    error = describe("Cannot rename " + path + " to", aside, errno);
    return false;
  }
  error = "No free name to move " + path + " aside";
  return false;
}

bool hasTemporaries(const std::string &path) {
  bool found = false;
  forEachTemporary(followLinks(path), [&](const std::string &) {
    found = true;
    return false;
  });
  return found;
}

void removeOrphanTemporaries(const std::string &path) {
  forEachTemporary(followLinks(path), [](const std::string &temporary) {
    ::unlink(temporary.c_str());
    return true;
  });
}

bool createParentDirectory(const std::string &path, std::string &error) {
  const boost::filesystem::path parent = boost::filesystem::path(path).parent_path();
  if (parent.empty())
    return true;
  boost::system::error_code code;
  boost::filesystem::create_directories(parent, code);
  if (code && !boost::filesystem::is_directory(parent)) {
    error = "Cannot create directory " + parent.string() + ": " + code.message();
    return false;
  }
  return true;
}

} // namespace platform
} // namespace VELL_2_13
