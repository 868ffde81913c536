// The editable container: one de-duplicating directory list per search category.
#pragma once

#include <map>

#include "vell/search_env.h"
#include "vell_searchenv/filtered_dir_list.h"

namespace VELL_2_13 {

class EditableSearchDirContainer : public RefCountImpl<IEditableSearchDirContainer> {
public:
  EditableSearchDirContainer() = default;

  // A snapshot iterator over the category's list; null when the category is
  // invalid or its list was never created.
  ObjectPtr<ISearchDirIterator> enumerate(search_category_t category) const override;
  // False only for an invalid category; a duplicate or null name still counts as success.
  bool addDirectory(search_category_t category, const char *name, bool recursive, bool highPriority) override;
  // Empties the category's list (creating it if needed); false for an invalid category.
  bool clear(search_category_t category) override;

  // The list of the category, or null if the category is invalid or untouched.
  ObjectPtr<FilteredDirList> getDirListForCategory(search_category_t category) const;
  // The list of the category, created empty if needed; null for an invalid category.
  ObjectPtr<FilteredDirList> getEditableDirListForCategory(search_category_t category);

private:
  std::map<search_category_t, ObjectPtr<FilteredDirList>> m_lists;
  mutable VellLock m_lock;
};

// Whether category is one of the four search categories (1..4).
inline bool isValidSearchCategory(search_category_t category) {
  return category >= scBinaryFiles && category <= scAllFiles;
}

} // namespace VELL_2_13
