// Category names of the command line: bin, sym, src and all.
#include "categories.h"

#include "tool_error.h"

using namespace VELL_2_13;

namespace vell_tool {

search_category_t parseCategory(const std::string &text, bool allowAll) {
  if (text == "bin")
    return scBinaryFiles;
  if (text == "sym")
    return scSymbolFiles;
  if (text == "src")
    return scSourceFiles;
  if (text == "all" && allowAll)
    return scAllFiles;
  throw BadInput("unknown category '" + text + "' (expected " +
                 (allowAll ? "bin, sym, src or all)" : "bin, sym or src)"));
}

const char *categoryName(search_category_t category) {
  switch (category) {
  case scBinaryFiles:
    return "bin";
  case scSymbolFiles:
    return "sym";
  case scSourceFiles:
    return "src";
  default:
    return "all";
  }
}

} // namespace vell_tool
