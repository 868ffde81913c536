// The search history and its file associations.
#include "vell_callbacks/search_history.h"

#include <tuple>
#include <utility>

#include "vell_callbacks/spin_lock_guard.h"

namespace VELL_2_13 {

namespace {

std::string textOrEmpty(const char *text) { return text ? std::string(text) : std::string(); }

} // namespace

ObjectPtr<ISearchHistory> ISearchHistory::create() { return ObjectPtr<ISearchHistory>(new SearchHistory()); }

SearchHistory::AssociationKey::AssociationKey(const char *first, const char *second, const char *third)
    : first(textOrEmpty(first)), second(textOrEmpty(second)), third(textOrEmpty(third)) {}

bool SearchHistory::AssociationKey::operator<(const AssociationKey &other) const {
  return std::tie(first, second, third) < std::tie(other.first, other.second, other.third);
}

ObjectPtr<IFileAssociation> SearchHistory::add(Table &table, AssociationKey key, const char *resolvedName) {
  // The association is built before the lock so that writers hold it only for
  // the map operation.
  ObjectPtr<IFileAssociation> association(new FileAssociation(resolvedName));
  SpinExclusiveLockGuard guard(&m_lock);
  auto found = table.find(key);
  if (found == table.end())
    table.emplace(std::move(key), association);
  else
    found->second = association; // same node, the old association is released
  return association;
}

ObjectPtr<IFileAssociation> SearchHistory::find(const Table &table, const AssociationKey &key) {
  VellSpinSharedLockWrap guard(&m_lock);
  auto found = table.find(key);
  if (found == table.end())
    return ObjectPtr<IFileAssociation>();
  return found->second;
}

ObjectPtr<IFileAssociation> SearchHistory::addBinFileAssociation(const char *binName,
                                                                 const char *resolvedName) {
  return add(m_binTable, AssociationKey(binName, nullptr, nullptr), resolvedName);
}

ObjectPtr<IFileAssociation> SearchHistory::addSymFileAssociation(const char *key1, const char *key2,
                                                                 const char *key3, const char *resolvedName) {
  return add(m_symTable, AssociationKey(key1, key2, key3), resolvedName);
}

ObjectPtr<IFileAssociation> SearchHistory::addSrcFileAssociation(const char *key1, const char *key2,
                                                                 const char *key3, const char *resolvedName) {
  return add(m_srcTable, AssociationKey(key1, key2, key3), resolvedName);
}

ObjectPtr<IFileAssociation> SearchHistory::findBinFileAssociation(const char *binName) {
  return find(m_binTable, AssociationKey(binName, nullptr, nullptr));
}

ObjectPtr<IFileAssociation> SearchHistory::findSymFileAssociation(const char *key1, const char *key2,
                                                                  const char *key3) {
  return find(m_symTable, AssociationKey(key1, key2, key3));
}

ObjectPtr<IFileAssociation> SearchHistory::findSrcFileAssociation(const char *key1, const char *key2,
                                                                  const char *key3) {
  return find(m_srcTable, AssociationKey(key1, key2, key3));
}

void SearchHistory::clear(search_category_t category) {
  // The associations released here may be the last references; they hold no
  // lock of their own, so releasing them under ours is safe.
  SpinExclusiveLockGuard guard(&m_lock);
  switch (category) {
  case scBinaryFiles:
    m_binTable.clear();
    break;
  case scSymbolFiles:
    m_symTable.clear();
    break;
  case scSourceFiles:
    m_srcTable.clear();
    break;
  case scAllFiles:
    m_binTable.clear();
    m_symTable.clear();
    m_srcTable.clear();
    break;
  default:
    break;
  }
}

size_t SearchHistory::size(search_category_t category) {
  VellSpinSharedLockWrap guard(&m_lock);
  switch (category) {
  case scBinaryFiles:
    return m_binTable.size();
  case scSymbolFiles:
    return m_symTable.size();
  case scSourceFiles:
    return m_srcTable.size();
  default:
    return 0;
  }
}

} // namespace VELL_2_13
