// SearchDirChain: merges its items into a fresh editable container at every call.
#include "vell_searchenv/search_dir_chain.h"

#include "vell_searchenv/editable_search_dir_container.h"

namespace VELL_2_13 {

ObjectPtr<ISearchDirChain> ISearchDirChain::create() {
  return ObjectPtr<ISearchDirChain>(new SearchDirChain());
}

bool SearchDirChain::addItem(const ObjectPtr<ISearchDirContainer> &container) {
  if (!container)
    return false;
  VellLockWrap guard(&m_lock);
  m_items.push_back(container);
  return true;
}

ObjectPtr<ISearchDirIterator> SearchDirChain::enumerate(search_category_t category) const {
  VellLockWrap guard(&m_lock);
  ObjectPtr<EditableSearchDirContainer> merged(new EditableSearchDirContainer());
  for (const ObjectPtr<ISearchDirContainer> &item : m_items) {
    ObjectPtr<ISearchDirIterator> records = item->enumerate(category);
    if (!records)
      continue;
    records->reset();
    const char *name = nullptr;
    bool recursive = false;
    bool highPriority = false;
    while (records->getCurrentRecord(name, recursive, highPriority)) {
      merged->addDirectory(category, name, recursive, highPriority);
      records->next();
    }
  }
  return merged->enumerate(category);
}

} // namespace VELL_2_13
