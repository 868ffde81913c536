// The directory index: an opt-in memory of the trees that recursive search
// directories hold, so that repeated look-ups over large trees answer without
// walking them again.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vell/export.h"
#include "vell/file_search.h"
#include "vell/kernel.h"
#include "vell/objects.h"
#include "vell/search_env.h"

namespace VELL_2_13 {

// How an index lists trees and how fresh its answers are.
struct VELL_API DirectoryIndexOptions {
  // A look-up that comes this long (milliseconds) after the last check of a
  // tree first checks the tree again: every directory is queried for its
  // status once, and a directory whose modification or change time, inode
  // or device differs is listed anew (as is one modified within the time
  // stamps' granularity of its last listing). 0 checks on every look-up.
  unsigned int maxAgeMilliseconds = 1000;
  // Threads that list a tree (the calling thread included); 0 means one per
  // processor, at most 8.
  unsigned int listingThreads = 0;
};

// What an index holds; memory is what its tables take, counted by their
// capacities.
struct VELL_API DirectoryIndexStatistics {
  size_t trees = 0;
  size_t directories = 0; // directories of every tree's walk
  size_t entries = 0;     // names listed in those directories
  size_t memoryBytes = 0;
  uint64_t listings = 0; // directories read from the file system so far
  uint64_t checks = 0;   // freshness checks of a tree so far
};

// The trees of recursive search directories, keyed by the directory as the
// search names it. A search that uses an index offers, for each recursive
// directory, exactly the candidates of the plain walk that exist, in the
// walk's order; every candidate is still validated. Several file searches on
// several threads may share one index.
class IDirectoryIndex : public IVellObject {
public:
  // Lists the tree under root now (a later look-up then starts from memory).
  // False when root cannot be queried.
  virtual bool prepare(const char *root) = 0;
  // Forgets every tree.
  virtual void clear() = 0;
  virtual DirectoryIndexStatistics statistics() const = 0;

  static VELL_API ObjectPtr<IDirectoryIndex>
  create(const DirectoryIndexOptions &options = DirectoryIndexOptions());
};

// A file search like IFileSearch::create's whose recursive directory walks
// are answered by index; a null index gives the search an index of its own.
VELL_API ObjectPtr<IFileSearch> createIndexedFileSearch(const ObjectPtr<ISearchEnv> &env,
                                                        const ObjectPtr<IDirectoryIndex> &index);

// A kernel-aware file search (vell/kernel.h) whose recursive directory walks
// are answered by index; a null index gives the search an index of its own.
VELL_API ObjectPtr<IFileSearch> createKernelAwareFileSearch(const ObjectPtr<ISearchEnv> &env,
                                                            const KernelSearchOptions &options,
                                                            const ObjectPtr<IDirectoryIndex> &index);

} // namespace VELL_2_13
