// Directories whose files are exempt from time checks, matched by file-system
// identity rather than by spelling.
#include <boost/filesystem.hpp>

#include "vell/validation.h"

namespace VELL_2_13 {

namespace fs = boost::filesystem;

void ExceptionDirsHelper::addTimeCheckExceptionDir(std::string &dir) { m_dirs.push_back(dir); }

bool ExceptionDirsHelper::isTimeCheckException(const char *fileName) const {
  if (m_dirs.empty() || !fileName)
    return false;
  // Walk from the file's directory up to the root; any ancestor that is the
  // same file-system object as a listed directory exempts the file.
  for (fs::path current = fs::path(fileName).parent_path(); !current.empty();
       current = current.parent_path()) {
    for (const std::string &dir : m_dirs) {
      boost::system::error_code error;
      if (fs::equivalent(fs::path(dir), current, error) && !error)
        return true;
    }
  }
  return false;
}

} // namespace VELL_2_13
