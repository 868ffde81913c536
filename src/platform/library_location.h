// Where the library's own installed data lie, found from the location of the
// shared library itself.
#pragma once

#include <string>

namespace VELL_2_13 {
namespace platform {

// The file the library's code was loaded from (the shared library, or the
// program the objects were linked into); empty when it cannot be told.
std::string loadedLibraryFile();

// The directory "relative" taken from the directory of libraryFile, lexically
// normalised, when it exists; otherwise empty.
std::string existingDirectoryBeside(const std::string &libraryFile, const std::string &relative);

} // namespace platform
} // namespace VELL_2_13
