// The driver's seam to the search strategies: one handler per search step,
// the callback hand-overs and what the driver needs to know of the search.
#pragma once

#include "vell/callbacks.h"
#include "vell/results.h"
#include "vell/search_env.h"
#include "vell/search_steps.h"
#include "vell_search/search_interfaces.h"

namespace VELL_2_13 {

// Not reference-counted: a strategy lives on the stack of one find call.
class IFileSearchStrategy {
public:
  // Invokes the host's search-started callback; false cancels the search.
  virtual bool callSearchStarted(ISearchStartedCallback &callback, IStringContainer &suggestions) = 0;
  // The step handlers: each reports its candidates to the container and
  // returns the result of the last validateAndAdd.
  virtual bool findInArchiveDirs(ISearchResultsContainer &container) = 0;
  virtual bool findInHighPriorityDirs(ISearchResultsContainer &container) = 0;
  virtual bool lookUpAbsoluteName(ISearchResultsContainer &container) = 0;
  virtual bool lookUpAroundBinary(ISearchResultsContainer &container) = 0;
  virtual bool findInLowPriorityDirs(ISearchResultsContainer &container) = 0;
  virtual bool findInSystemDirs(ISearchResultsContainer &container) = 0;
  virtual bool findInCacheDir(ISearchResultsContainer &container) = 0;
  // Lets the host choose among the valid files.
  virtual ObjectPtr<IValidFile> callFilesFound(IFilesFoundCallback &callback, IValidFileIterator &files) = 0;
  // Lets the host supply a file when nothing valid was found.
  virtual ObjectPtr<IValidFile> callNoFilesFound(INoFilesFoundCallback &callback,
                                                 IInvalidFileIterator &rejected,
                                                 IValidFileIterator &files) = 0;
  virtual ISearchEnv *getSearchEnv() const = 0;
  virtual const char *fileToSearch() = 0;
  virtual ObjectPtr<ISearchStepsIterator> getSearchStepsIterator(unsigned long long mask) = 0;

protected:
  ~IFileSearchStrategy() = default;
};

} // namespace VELL_2_13
