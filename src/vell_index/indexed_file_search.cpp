// The factory of file searches whose recursive walks a directory index answers.
#include "vell/directory_index.h"
#include "vell_index/directory_index.h"
#include "vell_search/file_search_driver.h"

namespace VELL_2_13 {

ObjectPtr<IFileSearch> createIndexedFileSearch(const ObjectPtr<ISearchEnv> &env,
                                               const ObjectPtr<IDirectoryIndex> &index) {
  // Only the library's own index can answer a walk; any other gets one.
  ObjectPtr<IDirectoryIndex> used = index;
  if (!dynamic_cast<DirectoryIndex *>(used.get()))
    used = IDirectoryIndex::create();
  return ObjectPtr<IFileSearch>(new FileSearch(env, used));
}

} // namespace VELL_2_13
