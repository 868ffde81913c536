// Reads search-directory iterators into comparable records for tests.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "vell/search_env.h"

namespace vell_test {

struct DirRecord {
  std::string name;
  bool recursive = false;
  bool highPriority = false;
  bool operator==(const DirRecord &other) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const DirRecord &record) {
  return out << "{" << record.name << (record.recursive ? ", r" : "") << (record.highPriority ? ", p" : "")
             << "}";
}

// Every record of the iterator, read with the reset / getCurrentRecord / next protocol.
inline std::vector<DirRecord> readAll(const VELL_2_13::ObjectPtr<VELL_2_13::ISearchDirIterator> &records) {
  std::vector<DirRecord> result;
  records->reset();
  const char *name = nullptr;
  bool recursive = false;
  bool highPriority = false;
  while (records->getCurrentRecord(name, recursive, highPriority)) {
    result.push_back(DirRecord{name, recursive, highPriority});
    records->next();
  }
  return result;
}

} // namespace vell_test
