// Diagnostic text of the search directories of an environment for one category.
#include <string>

#include "vell/search_env.h"

namespace VELL_2_13 {

std::string dump(const ObjectPtr<ISearchEnv> &env, search_category_t category) {
  std::string text = "[ISearchEnv: searchDirs = ";
  if (!env)
    return text + "NULL pointer]";
  ObjectPtr<ISearchDirIterator> dirs = env->searchDirs(category);
  if (dirs) {
    dirs->reset();
    const char *name = nullptr;
    bool recursive = false;
    bool highPriority = false;
    while (dirs->getCurrentRecord(name, recursive, highPriority)) {
      text += name ? name : "";
      text += recursive ? " (Recursive, " : " (";
      text += highPriority ? " HighPriority)" : " )";
      text += ", ";
      dirs->next();
    }
    dirs->reset();
  }
  return text + "]";
}

} // namespace VELL_2_13
