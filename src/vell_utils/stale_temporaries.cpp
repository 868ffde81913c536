// Temporary files named after their writer's process, and the removal of the
// ones whose writer died.
#include "vell_utils/stale_temporaries.h"

#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>

namespace VELL_2_13 {
namespace utils {

namespace {

const char kTempMarker[] = ".tmp-";
constexpr size_t kRandomDigits = 16;
// A temporary file this old belongs to no running writer, whatever its
// process number says (numbers are reused).
constexpr time_t kStaleAge = 24 * 60 * 60;

std::string randomHex() {
  static thread_local std::mt19937_64 generator(std::random_device{}());
  char text[kRandomDigits + 1];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(generator()));
  return text;
}

// True when no process with this id exists; a process of another user
// (EPERM) still counts as running.
bool processGone(long pid) { return ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH; }

} // namespace

std::string temporaryPathFor(const std::string &finalPath) {
  const size_t slash = finalPath.find_last_of('/');
  const std::string directory = slash == std::string::npos ? "." : finalPath.substr(0, slash);
  const std::string fileName = slash == std::string::npos ? finalPath : finalPath.substr(slash + 1);
  return directory + "/." + fileName + kTempMarker + std::to_string(::getpid()) + "-" + randomHex();
}

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
  return end != digits && *end == '-' && std::string(end + 1).size() == kRandomDigits && pid > 0;
}

unsigned removeStaleTemporaries(const char *directory) {
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
    if (!isTemporaryName(name, pid))
      continue;
    const std::string path = std::string(directory) + "/" + name;
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
      continue;
    if ((processGone(pid) || now - st.st_mtime > kStaleAge) && ::unlink(path.c_str()) == 0)
      ++removed;
  }
  ::closedir(dir);
  return removed;
}

} // namespace utils
} // namespace VELL_2_13
