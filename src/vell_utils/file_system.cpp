// File-system queries and directory creation that never throw.
#include <boost/filesystem/operations.hpp>

#include "vell/file_search.h"
#include "vell_utils/canonical_name.h"

namespace VELL_2_13 {
namespace utils {

namespace {

// Status of p following symbolic links; an error counts as a missing file.
boost::filesystem::file_status statusOf(const char *p) {
  boost::system::error_code error;
  boost::filesystem::file_status status = boost::filesystem::status(p, error);
  if (error)
    return boost::filesystem::file_status(boost::filesystem::file_not_found);
  return status;
}

} // namespace

bool fileExists(const char *p) {
  if (!p)
    return false;
  try {
    return boost::filesystem::is_regular_file(statusOf(p));
  } catch (const boost::filesystem::filesystem_error &) {
    return false;
  }
}

bool isDirectory(const char *p) {
  if (!p)
    return false;
  try {
    return boost::filesystem::is_directory(statusOf(p));
  } catch (const boost::filesystem::filesystem_error &) {
    return false;
  }
}

bool createDir(const char *p) {
  if (!p)
    return false;
  try {
    // Only the last directory is made; a missing parent is a failure.
    return boost::filesystem::create_directory(canonicalPath(p));
  } catch (const boost::filesystem::filesystem_error &) {
    return false;
  }
}

} // namespace utils
} // namespace VELL_2_13
