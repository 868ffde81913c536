// One context level's search directories, merged in key order on demand.
#include "vell_context/context_search_dirs.h"

namespace VELL_2_13 {

ObjectPtr<ISearchDirIterator> ContextSearchDirs::enumerate(search_category_t category) const {
  ObjectPtr<ISearchDirChain> chain = ISearchDirChain::create();
  {
    // The key iterator holds the metadata's lock shared; it is gone before
    // the containers are enumerated.
    ObjectPtr<ISearchDirKeyIterator> keys = m_metadata->searchDirsKeyIterator();
    const char *key = nullptr;
    ObjectPtr<ISearchDirContainer> container;
    while (keys->getCurrentRecord(key, container)) {
      chain->addItem(container);
      keys->next();
    }
  }
  return chain->enumerate(category);
}

} // namespace VELL_2_13
