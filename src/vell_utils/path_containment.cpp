// Containment checks for paths built from recorded or fetched names.
#include "vell_utils/path_containment.h"

#include <climits>
#include <cstdlib>
#include <sys/stat.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

namespace VELL_2_13 {
namespace utils {

namespace {

namespace fs = boost::filesystem;

// Drops trailing "/" and "/." so that a directory compares by its plain name.
std::string withoutTrailingSeparators(std::string text) {
  for (;;) {
    if (text.size() > 1 && text.back() == '/')
      text.pop_back();
    else if (text.size() >= 2 && text.compare(text.size() - 2, 2, "/.") == 0)
      text.pop_back();
    else
      return text;
  }
}

// The path made absolute and lexically normal. Linux takes any number of
// leading slashes as the root; the path library would read "//name" as a
// network root name, so they become one first.
std::string normalised(const std::string &path) {
  std::string plain = path;
  const size_t slashes = plain.find_first_not_of('/');
  if (slashes != 0)
    plain.erase(0, (slashes == std::string::npos ? plain.size() : slashes) - 1);
  boost::system::error_code code;
  const fs::path base = fs::current_path(code);
  return withoutTrailingSeparators(fs::absolute(fs::path(plain), base).lexically_normal().string());
}

bool hasParentElement(const std::string &path) {
  for (const fs::path &element : fs::path(path))
    if (element == "..")
      return true;
  return false;
}

// inner names something below outer: outer's text, a separator and more.
bool strictlyBelow(const std::string &inner, const std::string &outer) {
  if (hasParentElement(inner) || hasParentElement(outer))
    return false;
  const std::string prefix = outer == "/" ? outer : outer + "/";
  return inner.size() > prefix.size() && inner.compare(0, prefix.size(), prefix) == 0;
}

bool realPath(const std::string &path, std::string &real) {
  char buffer[PATH_MAX];
  if (!::realpath(path.c_str(), buffer))
    return false;
  real = buffer;
  return true;
}

} // namespace

bool isPathInsideDirectory(const std::string &path, const std::string &directory) {
  if (path.empty() || directory.empty())
    return false;
  return strictlyBelow(normalised(path), normalised(directory));
}

bool isOwnFileInsideDirectory(const std::string &path, const std::string &directory) {
  if (!isPathInsideDirectory(path, directory))
    return false;
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
    return false;
  std::string realFile;
  std::string realDirectory;
  if (!realPath(path, realFile) || !realPath(directory, realDirectory))
    return false;
  return strictlyBelow(realFile, realDirectory);
}

} // namespace utils
} // namespace VELL_2_13
