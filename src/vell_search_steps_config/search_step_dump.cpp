// Text names of the search steps.
#include "vell/search_steps.h"

namespace VELL_2_13 {

std::string dump(search_step_t step) {
  switch (static_cast<unsigned int>(step)) {
  case ssArchiveSearchDirs:
    return "ssArchiveSearchDirs";
  case ssHighPrioritySearchDirs:
    return "ssHighPrioritySearchDirs";
  case ssAbsoluteNameLookup:
    return "ssAbsoluteNameLookup";
  case ssAroundBinaryLookup:
    return "ssAroundBinaryLookup";
  case ssLowPrioritySearchDirs:
    return "ssLowPrioritySearchDirs";
  case ssSystemDirs:
    return "ssSystemDirs";
  case ssAskUser:
    return "ssAskUser";
  case ssCacheSearchDir:
    return "ssCacheSearchDir";
  default:
    break;
  }
  return "Unknown search step";
}

} // namespace VELL_2_13
