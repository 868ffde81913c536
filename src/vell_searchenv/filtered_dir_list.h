// The directories of one category: insertion order, no duplicates, flags merged.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "vell/file_search.h"
#include "vell/objects.h"
#include "vell_searchenv/dir.h"

namespace VELL_2_13 {

// Orders canonical directory texts byte by byte (unsigned, case-sensitive).
struct CanonicalFileNameLess {
  bool operator()(const std::string &a, const std::string &b) const {
    return utils::compareCanonicalFileNames(a.c_str(), b.c_str()) < 0;
  }
};

class FilteredDirList : public RefCountImpl<IVellObject> {
public:
  FilteredDirList() = default;

  // Appends a record and returns true; a null name returns false, and a name
  // whose canonical text is already present returns false after OR-ing the
  // flags into the existing record (which keeps its first text).
  bool add(const char *name, bool recursive, bool highPriority);
  // Removes every record.
  void clear();
  // A copy of the records, in order.
  std::vector<Dir> snapshot() const;
  size_t size() const;

private:
  std::vector<Dir> m_dirs;
  std::map<std::string, uint64_t, CanonicalFileNameLess> m_index;
  mutable VellLock m_lock;
};

} // namespace VELL_2_13
