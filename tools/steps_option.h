// The --steps option: switches search steps off and on by name.
#pragma once

#include <string>

#include "vell/search_steps.h"

namespace vell_tool {

// Help text describing the syntax of --steps.
extern const char *const STEPS_OPTION_HELP;

// Applies a --steps text such as "-ssSystemDirs,+cache" to the masks of one
// category of configurator; throws BadInput naming a bad item. Items are
// applied from left to right.
void applyStepsOption(const std::string &text, VELL_2_13::ISearchStepsConfigurator &configurator,
                      VELL_2_13::search_category_t category);

} // namespace vell_tool
