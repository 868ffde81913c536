// CapturedSearchDirs: the environment's iterators, captured once and shared.
#include "vell_searchenv/captured_search_dirs.h"

namespace VELL_2_13 {

ObjectPtr<ICapturedSearchDirs> ICapturedSearchDirs::create(const ObjectPtr<ISearchEnv> &env) {
  return ObjectPtr<ICapturedSearchDirs>(new CapturedSearchDirs(env));
}

CapturedSearchDirs::CapturedSearchDirs(const ObjectPtr<ISearchEnv> &env) {
  if (!env)
    return;
  // The categories are asked in this order: sources, symbols, binaries, all.
  for (search_category_t category : {scSourceFiles, scSymbolFiles, scBinaryFiles, scAllFiles})
    m_iterators[category] = env->searchDirs(category);
}

ObjectPtr<ISearchDirIterator> CapturedSearchDirs::enumerate(search_category_t category) const {
  // Only 1..4 are meaningful; anything else yields null rather than reading out of bounds.
  if (category < scBinaryFiles || category > scAllFiles)
    return ObjectPtr<ISearchDirIterator>();
  return m_iterators[category];
}

} // namespace VELL_2_13
