// vell archive: files a copy of a file into a result directory's archive.
#pragma once

#include <string>

#include "global_options.h"

namespace vell_tool {

struct ArchiveOptions {
  std::string file;
  std::string category; // bin, sym, src or all
  std::string resultDir;
};

int runArchive(const GlobalOptions &global, const ArchiveOptions &options);

} // namespace vell_tool
