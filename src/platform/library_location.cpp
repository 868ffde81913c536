// Where the library's own installed data lie, found from the location of the
// shared library itself.
#include "platform/library_location.h"

#include <dlfcn.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

namespace VELL_2_13 {
namespace platform {

std::string loadedLibraryFile() {
  Dl_info info{};
  if (::dladdr(reinterpret_cast<void *>(&loadedLibraryFile), &info) == 0 || !info.dli_fname)
    return std::string();
  return info.dli_fname;
}

std::string existingDirectoryBeside(const std::string &libraryFile, const std::string &relative) {
  if (libraryFile.empty() || relative.empty())
    return std::string();
  boost::system::error_code error;
  // A library reached through a symbolic link (libvell.so -> libvell.so.2) lies
  // where the link points only when the link is relative; the link's own
  // directory is the installation's library directory either way.
  boost::filesystem::path directory = boost::filesystem::absolute(libraryFile, error).parent_path();
  if (error)
    return std::string();
  boost::filesystem::path candidate = (directory / relative).lexically_normal();
  if (!boost::filesystem::is_directory(candidate, error))
    return std::string();
  return candidate.string();
}

} // namespace platform
} // namespace VELL_2_13
