// A file search whose only step walks one directory recursively, as the tree
// benchmarks measure it.
#pragma once

#include <string>

#include "vell/directory_index.h"
#include "vell/file_search.h"

namespace vell_bench {

// The low-priority search of root, walked recursively, with every other step
// off; with an index, the walks are answered by it, else with readAheadThreads
// helpers listing ahead of the walk (0: the plain walk).
VELL_2_13::ObjectPtr<VELL_2_13::IFileSearch>
recursiveSearch(const std::string &root, const VELL_2_13::ObjectPtr<VELL_2_13::IDirectoryIndex> &index = {},
                unsigned int readAheadThreads = 0);

} // namespace vell_bench
