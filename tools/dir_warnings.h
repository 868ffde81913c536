// Warnings for search directories that a search cannot use.
#pragma once

#include <string>

namespace vell_tool {

// What is wrong with dir as a search directory ("does not exist", "is not a
// directory", "cannot be read: <reason>"), or empty when it can be searched.
std::string unusableDirectoryReason(const std::string &dir);

// Warns on standard error "vell: warning: <what>directory '<dir>' <reason><suffix>"
// when dir cannot be searched; true when it warned.
bool warnUnusableDirectory(const std::string &what, const std::string &dir, const std::string &suffix = "");

} // namespace vell_tool
