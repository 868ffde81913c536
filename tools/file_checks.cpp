// Checks of the files and directories named on the command line.
#include "file_checks.h"

#include <filesystem>
#include <system_error>

#include "tool_error.h"

namespace fs = std::filesystem;

namespace vell_tool {

namespace {

bool windowsShaped(const std::string &path) {
  return path.rfind("\\\\", 0) == 0 || (path.size() >= 3 && path[1] == ':' && path[2] == '\\');
}

std::string prefix(const std::string &what) { return what.empty() ? std::string() : what + ": "; }

} // namespace

std::string absolutePath(const std::string &path) {
  if (path.empty() || windowsShaped(path))
    return path;
  std::error_code error;
  fs::path absolute = fs::absolute(path, error);
  if (error)
    return path;
  std::string text = absolute.lexically_normal().string();
  // "/a/b/" and "/a/b/." name the directory /a/b.
  while (text.size() > 1 && text.back() == '/')
    text.pop_back();
  return text;
}

void requireDirectory(const std::string &what, const std::string &path) {
  std::error_code error;
  fs::file_status status = fs::status(path, error);
  if (!fs::exists(status))
    throw BadInput(prefix(what) + "directory '" + path + "' does not exist");
  if (!fs::is_directory(status))
    throw BadInput(prefix(what) + "'" + path + "' is not a directory");
}

void requireFile(const std::string &what, const std::string &path) {
  std::error_code error;
  fs::file_status status = fs::status(path, error);
  if (!fs::exists(status))
    throw BadInput(prefix(what) + "file '" + path + "' does not exist");
  if (fs::is_directory(status))
    throw BadInput(prefix(what) + "'" + path + "' is a directory, not a file");
}

} // namespace vell_tool
