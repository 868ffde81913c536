// The seams between the file search driver, the search strategies and the
// validator. None of them is reference-counted: the objects implementing them
// live on the stack of one find call.
#pragma once

#include "vell/results.h"
#include "vell/search_steps.h"

namespace VELL_2_13 {

// Judges one existing path for the running search.
class IValidatorInternal {
public:
  // Equals validateInternal(path, ssAskUser).
  virtual ObjectPtr<IValidatedFile> validate(const char *path) = 0;
  // A validated file holding a valid or an invalid file, tagged with the low
  // 16 bits of searchStep.
  virtual ObjectPtr<IValidatedFile> validateInternal(const char *path, unsigned int searchStep) = 0;

protected:
  ~IValidatorInternal() = default;
};

// Where the search steps report their candidate paths.
class ISearchResultsContainer {
public:
  // Validates path and files it; true when a new valid file was added.
  virtual bool validateAndAdd(const char *path, unsigned int searchStep) = 0;

protected:
  ~ISearchResultsContainer() = default;
};

} // namespace VELL_2_13
