// vell find: resolves one binary, symbol file or source file.
#pragma once

#include <string>
#include <vector>

#include "global_options.h"

namespace vell_tool {

struct FindOptions {
  std::string category; // bin, sym or src
  std::string name;
  std::string binary;
  std::string checksum;
  std::string mtime;
  std::string size;
  bool notNewerThanBinary = false;
  std::vector<std::string> timeCheckExceptions;
  std::vector<std::string> dirs;
  std::string archive;
  std::string cache;
  std::string resultDir;
  std::string kernelRelease;
  std::string suggest;
  std::string steps;
  bool all = false;
  bool explain = false;
  std::string sysroot;      // a copy of the recorded system's files
  bool plainKernel = false; // no kernel handling beyond the library's default
};

// Runs the search and prints its outcome; returns the exit status. Throws
// BadInput for bad input, before anything is searched.
int runFind(const GlobalOptions &global, const FindOptions &options);

} // namespace vell_tool
