// The factory of file searches whose recursive walks a directory index answers.
#include "vell/directory_index.h"
#include "vell_index/directory_index.h"
#include "vell_search/file_search_driver.h"

namespace VELL_2_13 {

namespace {

// Only the library's own index can answer a walk; any other gets one.
ObjectPtr<IDirectoryIndex> usableIndex(const ObjectPtr<IDirectoryIndex> &index) {
  if (dynamic_cast<DirectoryIndex *>(index.get()))
    return index;
  return IDirectoryIndex::create();
}

} // namespace

ObjectPtr<IFileSearch> createIndexedFileSearch(const ObjectPtr<ISearchEnv> &env,
                                               const ObjectPtr<IDirectoryIndex> &index) {
  return ObjectPtr<IFileSearch>(new FileSearch(env, usableIndex(index)));
}

ObjectPtr<IFileSearch> createKernelAwareFileSearch(const ObjectPtr<ISearchEnv> &env,
                                                   const KernelSearchOptions &options,
                                                   const ObjectPtr<IDirectoryIndex> &index) {
  return ObjectPtr<IFileSearch>(new FileSearch(env, options, usableIndex(index)));
}

} // namespace VELL_2_13
