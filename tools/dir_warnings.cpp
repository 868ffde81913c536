// Warnings for search directories that a search cannot use.
#include "dir_warnings.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include "tool_output.h"

namespace vell_tool {

std::string unusableDirectoryReason(const std::string &dir) {
  struct stat st {};
  if (::stat(dir.c_str(), &st) != 0)
    return errno == ENOENT ? "does not exist" : std::string("cannot be read: ") + std::strerror(errno);
  if (!S_ISDIR(st.st_mode))
    return "is not a directory";
  // Listing needs read permission, entering needs search permission.
  if (::access(dir.c_str(), R_OK | X_OK) != 0)
    return std::string("cannot be read: ") + std::strerror(errno);
  return std::string();
}

bool warnUnusableDirectory(const std::string &what, const std::string &dir, const std::string &suffix) {
  const std::string reason = unusableDirectoryReason(dir);
  if (reason.empty())
    return false;
  reportWarning(what + "directory '" + dir + "' " + reason + suffix);
  return true;
}

} // namespace vell_tool
