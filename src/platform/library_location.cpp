// Where the library's own installed data lie, found from the location of the
// shared library itself.
#include "platform/library_location.h"

#include <dlfcn.h>

#include <vector>

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
  // The directory the library was loaded from first, then the one it really
  // lies in: with a merged /usr the loader names /lib/libvell.so.2 for
  // /usr/lib/libvell.so.2, and a link may lead into another prefix.
  std::vector<boost::filesystem::path> directories;
  boost::filesystem::path loaded = boost::filesystem::absolute(libraryFile, error);
  if (!error)
    directories.push_back(loaded.parent_path());
  boost::filesystem::path real = boost::filesystem::canonical(libraryFile, error);
  if (!error)
    directories.push_back(real.parent_path());
  for (const boost::filesystem::path &directory : directories) {
    boost::filesystem::path candidate = (directory / relative).lexically_normal();
    if (boost::filesystem::is_directory(candidate, error))
      return candidate.string();
  }
  return std::string();
}

} // namespace platform
} // namespace VELL_2_13
