// The search directories of one context level, read afresh from its metadata
// at every enumeration.
#pragma once

#include "vell/context.h"

namespace VELL_2_13 {

// Enumerates, in the byte order of their keys, every container registered in
// one metadata object at the time of the enumeration, merged as a chain
// merges its items. An environment holding it therefore sees directories
// registered later under any key of that context, new keys included.
class ContextSearchDirs : public RefCountImpl<ISearchDirContainer> {
public:
  explicit ContextSearchDirs(const ObjectPtr<IMetadata> &metadata) : m_metadata(metadata) {}

  ObjectPtr<ISearchDirIterator> enumerate(search_category_t category) const override;

private:
  ObjectPtr<IMetadata> m_metadata;
};

} // namespace VELL_2_13
