// EditableSearchDirContainer: per-category lists created lazily under the container lock.
#include "vell_searchenv/editable_search_dir_container.h"

#include "vell_searchenv/default_search_dir_iterator.h"

namespace VELL_2_13 {

ObjectPtr<IEditableSearchDirContainer> IEditableSearchDirContainer::create() {
  return ObjectPtr<IEditableSearchDirContainer>(new EditableSearchDirContainer());
}

ObjectPtr<FilteredDirList>
EditableSearchDirContainer::getDirListForCategory(search_category_t category) const {
  if (!isValidSearchCategory(category))
    return ObjectPtr<FilteredDirList>();
  VellLockWrap guard(&m_lock);
  auto found = m_lists.find(category);
  return found == m_lists.end() ? ObjectPtr<FilteredDirList>() : found->second;
}

ObjectPtr<FilteredDirList>
EditableSearchDirContainer::getEditableDirListForCategory(search_category_t category) {
  if (!isValidSearchCategory(category))
    return ObjectPtr<FilteredDirList>();
  VellLockWrap guard(&m_lock);
  ObjectPtr<FilteredDirList> &list = m_lists[category];
  if (!list)
    list = ObjectPtr<FilteredDirList>(new FilteredDirList());
  return list;
}

ObjectPtr<ISearchDirIterator> EditableSearchDirContainer::enumerate(search_category_t category) const {
  ObjectPtr<FilteredDirList> list = getDirListForCategory(category);
  if (!list)
    return ObjectPtr<ISearchDirIterator>();
  return ObjectPtr<ISearchDirIterator>(new DefaultSearchDirIterator(*list));
}

bool EditableSearchDirContainer::addDirectory(search_category_t category, const char *name, bool recursive,
                                              bool highPriority) {
  ObjectPtr<FilteredDirList> list = getEditableDirListForCategory(category);
  if (!list)
    return false;
  list->add(name, recursive, highPriority);
  return true;
}

bool EditableSearchDirContainer::clear(search_category_t category) {
  ObjectPtr<FilteredDirList> list = getEditableDirListForCategory(category);
  if (!list)
    return false;
  list->clear();
  return true;
}

} // namespace VELL_2_13
