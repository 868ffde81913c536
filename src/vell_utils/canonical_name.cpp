// Canonical form of caller-given paths.
#include "vell_utils/canonical_name.h"

#include <algorithm>

#include <boost/filesystem/path.hpp>

#include "vell/file_search.h"

namespace VELL_2_13 {
namespace utils {

namespace {

// A network name ("\\server\share") or a drive-letter name ("C:\dir").
bool isWindowsShaped(const std::string &path) {
  if (path.size() >= 2 && path[0] == '\\' && path[1] == '\\')
    return true;
  return path.size() >= 3 && path[1] == ':' && path[2] == '\\';
}

// The path with the backslashes of a Windows-shaped name replaced and a last
// "." component dropped.
boost::filesystem::path withoutLastDot(const std::string &path) {
  std::string text = path;
  if (isWindowsShaped(text))
    std::replace(text.begin(), text.end(), '\\', '/');
  boost::filesystem::path result(text);
  if (result.filename() == ".")
    result = result.parent_path();
  return result;
}

} // namespace

std::string canonicalPath(const std::string &path) {
  return withoutLastDot(path).lexically_normal().string();
}

std::string getCanonicalName(const char *p, bool flag) {
  if (!p)
    return std::string();
  boost::filesystem::path result = withoutLastDot(p);
  // Appending an empty element leaves the path unchanged; kept for callers
  // that ask for a directory form.
  if (flag)
    result /= "";
  return result.lexically_normal().string();
}

} // namespace utils
} // namespace VELL_2_13
