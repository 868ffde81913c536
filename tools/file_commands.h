// vell checksum: the checksum of one file.
#pragma once

#include <string>

#include "global_options.h"

namespace vell_tool {

// Prints the MD5 checksum of file, or "sha1:" and its SHA-1 checksum: the
// form that --checksum takes.
int runChecksum(const GlobalOptions &global, const std::string &file, bool sha1);

} // namespace vell_tool
