// The search history: remembered answers per category, keyed by the strings
// that identify a request.
#pragma once

#include <map>
#include <string>

#include "vell/callbacks.h"

namespace VELL_2_13 {

// The resolved file name of one remembered answer; fixed at construction.
class FileAssociation : public RefCountImpl<IFileAssociation> {
public:
  explicit FileAssociation(const char *resolvedName) : m_resolvedName(resolvedName ? resolvedName : "") {}
  const char *resolvedName() const override { return m_resolvedName.c_str(); }

private:
  std::string m_resolvedName;
};

class SearchHistory : public RefCountImpl<ISearchHistory> {
public:
  // The identifying strings of a request; null strings are stored as empty.
  // Binary requests use the binary name as first string and empty others.
  struct AssociationKey {
    AssociationKey(const char *first, const char *second, const char *third);

    std::string first;
    std::string second;
    std::string third;

    // Byte-wise, case-sensitive: first string, then second, then third.
    bool operator<(const AssociationKey &other) const;
  };

  using Table = std::map<AssociationKey, ObjectPtr<IFileAssociation>>;

  SearchHistory() = default;

  ObjectPtr<IFileAssociation> addBinFileAssociation(const char *binName, const char *resolvedName) override;
  ObjectPtr<IFileAssociation> addSymFileAssociation(const char *key1, const char *key2, const char *key3,
                                                    const char *resolvedName) override;
  ObjectPtr<IFileAssociation> addSrcFileAssociation(const char *key1, const char *key2, const char *key3,
                                                    const char *resolvedName) override;
  void clear(search_category_t category) override;
  ObjectPtr<IFileAssociation> findBinFileAssociation(const char *binName) override;
  ObjectPtr<IFileAssociation> findSymFileAssociation(const char *key1, const char *key2,
                                                     const char *key3) override;
  ObjectPtr<IFileAssociation> findSrcFileAssociation(const char *key1, const char *key2,
                                                     const char *key3) override;

  // Number of entries of a category's table (1 to 3); 0 for any other value.
  size_t size(search_category_t category);

private:
  ObjectPtr<IFileAssociation> add(Table &table, AssociationKey key, const char *resolvedName);
  ObjectPtr<IFileAssociation> find(const Table &table, const AssociationKey &key);

  Table m_binTable;
  Table m_symTable;
  Table m_srcTable;
  // Finds take it shared; adds and clear take it exclusively.
  VellSpinSharedLock m_lock;
};

} // namespace VELL_2_13
