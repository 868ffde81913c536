// A frozen copy of the directory lists of a search environment.
#pragma once

#include "vell/search_env.h"

namespace VELL_2_13 {

// Holds one iterator per category, taken from the environment when created;
// every enumerate of a category returns that same iterator, so its holders
// share its position and must reset() it before reading.
class CapturedSearchDirs : public RefCountImpl<ICapturedSearchDirs> {
public:
  explicit CapturedSearchDirs(const ObjectPtr<ISearchEnv> &env);

  ObjectPtr<ISearchDirIterator> enumerate(search_category_t category) const override;

private:
  ObjectPtr<ISearchDirIterator> m_iterators[scAllFiles + 1]; // indexed by category 1..4
};

} // namespace VELL_2_13
