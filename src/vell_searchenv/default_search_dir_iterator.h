// An iterator over a snapshot of one directory list.
#pragma once

#include <vector>

#include "vell/search_env.h"
#include "vell_searchenv/dir.h"
#include "vell_searchenv/filtered_dir_list.h"

namespace VELL_2_13 {

// Copies the records of the list when constructed; later changes of the list
// do not reach it, and the names it hands out live as long as it does.
class DefaultSearchDirIterator : public RefCountImpl<ISearchDirIterator> {
public:
  explicit DefaultSearchDirIterator(const FilteredDirList &list);

  void reset() override;
  bool next() override;
  bool getCurrentRecord(const char *&name, bool &recursive, bool &highPriority) override;

private:
  std::vector<Dir> m_records;
  size_t m_current;
};

} // namespace VELL_2_13
