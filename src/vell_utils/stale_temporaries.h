// Temporary files written beside their final file and renamed into place, and
// the removal of the ones whose writer died before the rename.
#pragma once

#include <string>

namespace VELL_2_13 {
namespace utils {

// A fresh temporary path beside finalPath for this process:
// <directory>/.<file name>.tmp-<process id>-<16 hex digits>. The process id
// tells a later cleanup whether the writer still runs.
std::string temporaryPathFor(const std::string &finalPath);

// Whether name is such a temporary file (of any final name); pid receives its
// writer's process id.
bool isTemporaryName(const std::string &name, long &pid);

// Removes the temporary files in directory whose writer is gone (its process
// no longer exists, or the file is more than a day old: process ids are
// reused). A temporary file a running process is still filling stays.
// Returns how many were removed; writes no log line.
unsigned removeStaleTemporaries(const char *directory);

} // namespace utils
} // namespace VELL_2_13
