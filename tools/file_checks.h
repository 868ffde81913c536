// Checks of the files and directories named on the command line.
#pragma once

#include <string>

namespace vell_tool {

// path made absolute against the current directory and normalised; a
// Windows-shaped path (drive letter or two leading backslashes) is returned as is.
std::string absolutePath(const std::string &path);

// Throws BadInput "<what>: directory '<path>' does not exist" (or "is not a
// directory") unless path is a directory.
void requireDirectory(const std::string &what, const std::string &path);

// Throws BadInput unless path names an existing file that is not a directory.
void requireFile(const std::string &what, const std::string &path);

} // namespace vell_tool
