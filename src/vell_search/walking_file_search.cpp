// The factories of file searches whose recursive walks read ahead.
#include "vell/walk_options.h"
#include "vell_search/file_search_driver.h"

namespace VELL_2_13 {

ObjectPtr<IFileSearch> createFileSearch(const ObjectPtr<ISearchEnv> &env, const WalkOptions &options) {
  FileSearch *search = new FileSearch(env);
  ObjectPtr<IFileSearch> result(search);
  search->setReadAheadThreads(options.readAheadThreads);
  return result;
}

ObjectPtr<IFileSearch> createKernelAwareFileSearch(const ObjectPtr<ISearchEnv> &env,
                                                   const KernelSearchOptions &options,
                                                   const WalkOptions &walkOptions) {
  FileSearch *search = new FileSearch(env, options, ObjectPtr<IDirectoryIndex>());
  ObjectPtr<IFileSearch> result(search);
  search->setReadAheadThreads(walkOptions.readAheadThreads);
  return result;
}

} // namespace VELL_2_13
