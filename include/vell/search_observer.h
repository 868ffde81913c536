// A process-wide observer of the searches' work: the directories recursive
// walks enter or cannot read, and every candidate tried. For progress
// displays and diagnostics; it cannot change the course of a search.
#pragma once

#include "vell/export.h"

namespace VELL_2_13 {

class VELL_API ISearchObserver {
public:
  virtual ~ISearchObserver() = default;
  // A recursive walk entered dir; its one candidate is tried next.
  virtual void directoryWalked(const char *dir) = 0;
  // A recursive walk could not list dir completely (error: the errno value);
  // what lies below it is not searched.
  virtual void directoryUnreadable(const char *dir, int error) = 0;
  // A search tried a candidate in searchStep; exists is false when no file
  // is there (the candidate is then dropped before any validation).
  virtual void candidateTried(const char *path, unsigned int searchStep, bool exists) = 0;
};

// Installs the observer of every search in the process (null: none) and
// returns the one it replaces. The library keeps no ownership. The observer is
// called on the searching threads, concurrently when searches run in parallel;
// it must stay alive until it has been replaced and the searches that may have
// seen it have returned.
VELL_API ISearchObserver *setSearchObserver(ISearchObserver *observer);

} // namespace VELL_2_13
