// vell checksum and vell extract-kernel: single-file utilities.
#pragma once

#include <string>

#include "global_options.h"

namespace vell_tool {

// Prints the MD5 checksum of file, or "sha1:" and its SHA-1 checksum: the
// form that --checksum takes.
int runChecksum(const GlobalOptions &global, const std::string &file, bool sha1);

// Extracts the uncompressed kernel image of a gzip-compressed one into output.
int runExtractKernel(const GlobalOptions &global, const std::string &compressed, const std::string &output);

} // namespace vell_tool
