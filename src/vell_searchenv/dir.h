// One configured search directory.
#pragma once

#include <string>

namespace VELL_2_13 {

struct Dir {
  std::string name; // as the caller gave it, not normalised
  bool recursive = false;
  bool highPriority = false;
};

} // namespace VELL_2_13
