// How a file search walks its recursive search directories: an opt-in
// read-ahead that lists directories on helper threads while the search walks.
#pragma once

#include "vell/export.h"
#include "vell/file_search.h"
#include "vell/kernel.h"
#include "vell/objects.h"
#include "vell/search_env.h"

namespace VELL_2_13 {

struct VELL_API WalkOptions {
  // The most helper threads that list the directories of each recursive walk
  // ahead of it, depth first, while the searching thread walks. The search
  // offers the same candidates in the same order, with the same observer
  // calls, as without them; it only waits less for the file system (most of
  // all when the directories are not in the page cache yet). A walk starts
  // two helpers when it meets its first subdirectory and adds one, up to this
  // number, each time a listing reads from the disk; every helper is joined
  // before the walk returns, also when it ends early. 0, the default, starts
  // no thread.
  unsigned int readAheadThreads = 0;
};

// A file search like IFileSearch::create's that walks as options say.
VELL_API ObjectPtr<IFileSearch> createFileSearch(const ObjectPtr<ISearchEnv> &env,
                                                 const WalkOptions &options);

// A kernel-aware file search (vell/kernel.h) that walks as walkOptions say.
VELL_API ObjectPtr<IFileSearch> createKernelAwareFileSearch(const ObjectPtr<ISearchEnv> &env,
                                                            const KernelSearchOptions &options,
                                                            const WalkOptions &walkOptions);

} // namespace VELL_2_13
