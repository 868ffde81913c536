// DefaultSearchDirIterator: reading protocol over its own copy of the records.
#include "vell_searchenv/default_search_dir_iterator.h"

namespace VELL_2_13 {

DefaultSearchDirIterator::DefaultSearchDirIterator(const FilteredDirList &list)
    : m_records(list.snapshot()), m_current(0) {}

void DefaultSearchDirIterator::reset() { m_current = 0; }

bool DefaultSearchDirIterator::next() {
  if (m_current >= m_records.size())
    return false;
  ++m_current;
  return m_current < m_records.size();
}

bool DefaultSearchDirIterator::getCurrentRecord(const char *&name, bool &recursive, bool &highPriority) {
  if (m_current >= m_records.size())
    return false;
  const Dir &record = m_records[m_current];
  name = record.name.c_str();
  recursive = record.recursive;
  highPriority = record.highPriority;
  return true;
}

} // namespace VELL_2_13
