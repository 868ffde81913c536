// A file search whose only step walks one directory recursively.
#include "support/recursive_search.h"

#include "vell/search_env.h"
#include "vell/search_steps.h"
#include "vell/walk_options.h"

using namespace VELL_2_13;

namespace vell_bench {

ObjectPtr<IFileSearch> recursiveSearch(const std::string &root, const ObjectPtr<IDirectoryIndex> &index,
                                       unsigned int readAheadThreads) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scAllFiles, root.c_str(), true, false);
  ObjectPtr<DefaultSearchStepsConfigurator> steps(new DefaultSearchStepsConfigurator());
  for (search_category_t category : {scBinaryFiles, scSymbolFiles, scSourceFiles}) {
    steps->setStep(search_step_t(0xFF), category, false);
    steps->setStep(ssLowPrioritySearchDirs, category, true);
  }
  auto env = IEditableSearchEnv::create();
  env->setSearchDirs(dirs);
  env->setSearchStepsConfigurator(ObjectPtr<ISearchStepsConfigurator>(steps));
  if (index)
    return createIndexedFileSearch(env, index);
  if (readAheadThreads > 0) {
    WalkOptions walk;
    walk.readAheadThreads = readAheadThreads;
    return createFileSearch(env, walk);
  }
  return IFileSearch::create(env);
}

} // namespace vell_bench
