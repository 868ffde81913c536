// The -v summary of a search on standard error: per step, what was tried, how
// many candidates, which were rejected and why, and how long it took.
#pragma once

#include <ostream>
#include <vector>

#include "vell/results.h"

#include "search_activity.h"
#include "validators.h"

namespace vell_tool {

void printStepSummary(std::ostream &out, const SearchActivity &activity,
                      const std::vector<Rejection> &rejected,
                      const VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> &found);

} // namespace vell_tool
