// vell dirs add|list|clear: the user's own search directories.
#pragma once

#include <string>
#include <vector>

#include "global_options.h"

namespace vell_tool {

// Adds directories given in the command-line form (sym:rp=/opt/debug).
int runDirsAdd(const GlobalOptions &global, const std::vector<std::string> &specs);
// Lists the directories in the command-line form.
int runDirsList(const GlobalOptions &global);
// Empties the lists of the given categories (bin, sym, src, all).
int runDirsClear(const GlobalOptions &global, const std::vector<std::string> &categories);

} // namespace vell_tool
