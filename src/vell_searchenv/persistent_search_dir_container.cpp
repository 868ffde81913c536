// PersistentSearchDirContainer: the "searchDirs" bag read before and written after every change.
#include "vell_searchenv/persistent_search_dir_container.h"

#include <vector>

#include "vell_searchenv/editable_search_dir_container.h"

namespace VELL_2_13 {

namespace {

const char *const ROOT_BAG = "searchDirs";
const char *const CATEGORY_BAG = "searchCategory";
const char *const CATEGORY_BAG_FALLBACK = "SearchCategory";
const char *const DIRECTORY_BAG = "searchDirectory";
const char *const DIRECTORY_BAG_FALLBACK = "SearchDirectory";
const char *const CATEGORY_VALUE = "category";
const char *const NAME_VALUE = "name";
const char *const RECURSIVE_VALUE = "recursive";
const char *const PRIORITY_VALUE = "priority";

const search_category_t ALL_CATEGORIES[] = {scBinaryFiles, scSymbolFiles, scSourceFiles, scAllFiles};

// The children of the preferred name, or those of the fallback name when there are none.
std::vector<const platform::PropertyBag *> childrenWithFallback(const platform::PropertyBag &bag,
                                                                const char *preferred, const char *fallback) {
  if (bag.hasChildren(preferred))
    return bag.children(preferred);
  return bag.children(fallback);
}

bool isText(const platform::Variant *value) {
  return value && value->type() == platform::Variant::Type::Text;
}

bool isBool(const platform::Variant *value) {
  return value && value->type() == platform::Variant::Type::Bool;
}

// Adds the well-formed directory entries of one category bag to dirs.
void loadCategory(const platform::PropertyBag &categoryBag, IEditableSearchDirContainer &dirs) {
  const platform::Variant *category = categoryBag.findValue(CATEGORY_VALUE);
  if (!category || category->type() != platform::Variant::Type::UInt8)
    return;
  // A number outside 1..4 would be refused by addDirectory anyway; it is not
  // even a value of the enumeration, so it is not converted to one.
  const uint8_t number = category->getUInt8();
  if (number < scBinaryFiles || number > scAllFiles)
    return;
  const auto searchCategory = static_cast<search_category_t>(number);
  for (const platform::PropertyBag *entry :
       childrenWithFallback(categoryBag, DIRECTORY_BAG, DIRECTORY_BAG_FALLBACK)) {
    const platform::Variant *name = entry->findValue(NAME_VALUE);
    const platform::Variant *recursive = entry->findValue(RECURSIVE_VALUE);
    const platform::Variant *priority = entry->findValue(PRIORITY_VALUE);
    if (!isText(name) || !isBool(recursive) || !isBool(priority))
      continue;
    dirs.addDirectory(searchCategory, name->getText().c_str(), recursive->getBool(), priority->getBool());
  }
}

} // namespace

namespace internal {

void saveSearchDirsForCategory(const ISearchDirContainer &container, search_category_t category,
                               platform::PropertyBag &root) {
  ObjectPtr<ISearchDirIterator> records = container.enumerate(category);
  if (!records)
    return;
  platform::PropertyBag categoryBag;
  categoryBag.setValue(CATEGORY_VALUE, platform::Variant(static_cast<uint8_t>(category)));
  records->reset();
  const char *name = nullptr;
  bool recursive = false;
  bool highPriority = false;
  while (records->getCurrentRecord(name, recursive, highPriority)) {
    platform::PropertyBag directoryBag;
    directoryBag.setValue(NAME_VALUE, platform::Variant(name));
    directoryBag.setValue(RECURSIVE_VALUE, platform::Variant(recursive));
    directoryBag.setValue(PRIORITY_VALUE, platform::Variant(highPriority));
    categoryBag.addChild(DIRECTORY_BAG, std::move(directoryBag));
    records->next();
  }
  root.addChild(CATEGORY_BAG, std::move(categoryBag));
}

} // namespace internal

ObjectPtr<IPersistentSearchDirContainer>
IPersistentSearchDirContainer::create(std::shared_ptr<platform::IPropertyStorage> storage) {
  return ObjectPtr<IPersistentSearchDirContainer>(new PersistentSearchDirContainer(std::move(storage)));
}

PersistentSearchDirContainer::PersistentSearchDirContainer(
    std::shared_ptr<platform::IPropertyStorage> storage)
    : m_dirs(IEditableSearchDirContainer::create()), m_storage(std::move(storage)) {}

void PersistentSearchDirContainer::reload() const {
  if (!m_storage)
    return;
  for (search_category_t category : ALL_CATEGORIES)
    m_dirs->clear(category);
  const platform::PropertyBag root = m_storage->read(ROOT_BAG);
  for (const platform::PropertyBag *categoryBag :
       childrenWithFallback(root, CATEGORY_BAG, CATEGORY_BAG_FALLBACK))
    loadCategory(*categoryBag, *m_dirs);
}

void PersistentSearchDirContainer::writeBack() const {
  if (!m_storage)
    return;
  platform::PropertyBag root;
  for (search_category_t category : ALL_CATEGORIES)
    internal::saveSearchDirsForCategory(*m_dirs, category, root);
  m_storage->store(ROOT_BAG, root);
}

ObjectPtr<ISearchDirIterator> PersistentSearchDirContainer::enumerate(search_category_t category) const {
  reload();
  return m_dirs->enumerate(category);
}

bool PersistentSearchDirContainer::addDirectory(search_category_t category, const char *name, bool recursive,
                                                bool highPriority) {
  reload();
  const bool result = m_dirs->addDirectory(category, name, recursive, highPriority);
  writeBack();
  return result;
}

bool PersistentSearchDirContainer::clear(search_category_t category) {
  reload();
  const bool result = m_dirs->clear(category);
  writeBack();
  return result;
}

} // namespace VELL_2_13
