// FilteredDirList: de-duplication by canonical text with a logarithmic index look-up.
#include "vell_searchenv/filtered_dir_list.h"

namespace VELL_2_13 {

bool FilteredDirList::add(const char *name, bool recursive, bool highPriority) {
  if (!name)
    return false;
  // The canonical text is computed once, outside the lock.
  const std::string canonical = utils::getCanonicalName(name, true);
  VellLockWrap guard(&m_lock);
  auto found = m_index.find(canonical);
  if (found != m_index.end()) {
    Dir &existing = m_dirs[found->second];
    if (recursive)
      existing.recursive = true;
    if (highPriority)
      existing.highPriority = true;
    return false;
  }
  m_dirs.push_back(Dir{name, recursive, highPriority});
  m_index.emplace(canonical, static_cast<uint64_t>(m_dirs.size() - 1));
  return true;
}

void FilteredDirList::clear() {
  VellLockWrap guard(&m_lock);
  m_dirs.clear();
  m_index.clear();
}

std::vector<Dir> FilteredDirList::snapshot() const {
  VellLockWrap guard(&m_lock);
  return m_dirs;
}

size_t FilteredDirList::size() const {
  VellLockWrap guard(&m_lock);
  return m_dirs.size();
}

} // namespace VELL_2_13
