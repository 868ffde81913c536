// A chain of directory containers merged afresh on every enumeration.
#pragma once

#include <vector>

#include "vell/search_env.h"

namespace VELL_2_13 {

class SearchDirChain : public RefCountImpl<ISearchDirChain> {
public:
  SearchDirChain() = default;

  // The items' directories in item order, duplicates merged into their first
  // occurrence; null when no item has a list for the category.
  ObjectPtr<ISearchDirIterator> enumerate(search_category_t category) const override;
  // Appends a container (the same one may be added twice); false for null.
  bool addItem(const ObjectPtr<ISearchDirContainer> &container) override;

private:
  std::vector<ObjectPtr<ISearchDirContainer>> m_items;
  mutable VellLock m_lock;
};

} // namespace VELL_2_13
