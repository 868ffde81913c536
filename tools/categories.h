// Category names of the command line: bin, sym, src and all.
#pragma once

#include <string>

#include "vell/search_steps.h"

namespace vell_tool {

// The category of "bin", "sym", "src" (and "all" when allowAll); throws
// BadInput naming the text otherwise.
VELL_2_13::search_category_t parseCategory(const std::string &text, bool allowAll);

// "bin", "sym", "src" or "all".
const char *categoryName(VELL_2_13::search_category_t category);

} // namespace vell_tool
