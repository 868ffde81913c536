// A search-directory container whose contents live in a property storage.
#pragma once

#include <memory>

#include "vell/platform.h"
#include "vell/search_env.h"

namespace VELL_2_13 {

namespace internal {

// Appends the "searchCategory" bag of one category to root; writes nothing
// when the container has no list for the category.
void saveSearchDirsForCategory(const ISearchDirContainer &container, search_category_t category,
                               platform::PropertyBag &root);

} // namespace internal

// Reloads its working copy from the storage before every operation and writes
// all four categories back after every change. Without a storage it is a plain
// editable container. It takes no lock of its own: callers that must not lose
// a concurrent change hold the storage's lockForUpdate() around the call.
class PersistentSearchDirContainer : public RefCountImpl<IPersistentSearchDirContainer> {
public:
  explicit PersistentSearchDirContainer(std::shared_ptr<platform::IPropertyStorage> storage);

  ObjectPtr<ISearchDirIterator> enumerate(search_category_t category) const override;
  bool addDirectory(search_category_t category, const char *name, bool recursive, bool highPriority) override;
  bool clear(search_category_t category) override;

private:
  void reload() const;
  void writeBack() const;

  ObjectPtr<IEditableSearchDirContainer> m_dirs;
  std::shared_ptr<platform::IPropertyStorage> m_storage;
};

} // namespace VELL_2_13
