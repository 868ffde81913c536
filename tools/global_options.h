// Options that every command of the tool accepts.
#pragma once

#include <string>

namespace vell_tool {

struct GlobalOptions {
  int verbosity = 0;    // -v: information, -vv: trace lines of the "VELL" log on standard error
  bool json = false;    // machine-readable output
  std::string language; // catalog language; empty: English
  std::string catalogs; // catalog directory given on the command line
  std::string config;   // configuration file given on the command line
};

} // namespace vell_tool
