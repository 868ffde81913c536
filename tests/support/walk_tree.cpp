// Trees and file searches for the tests that compare recursive walks.
#include "support/walk_tree.h"

#include <sys/stat.h>

#include <filesystem>

#include "vell/search_steps.h"
#include "vell_search/search_test_support.h"

using namespace VELL_2_13;

namespace vell_test {

void buildLibTree(const TempDir &dir, const std::vector<std::string> &files) {
  for (const std::string &file : files)
    dir.write(file);
  dir.write("root/lib.so");
  dir.mkdir("root/lib.so.d/lib.so"); // a directory named like the file
  dir.mkdir("root/empty");
}

void limitTreeForOthers(const std::string &root, const std::string &searchOnly, const std::string &closed) {
  namespace fs = std::filesystem;
  openForOthers(root);
  for (const auto &entry : fs::recursive_directory_iterator(root))
    fs::permissions(entry.path(), fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
  ::chmod(searchOnly.c_str(), 0711);
  ::chmod(closed.c_str(), 0700);
}

ObjectPtr<IEditableSearchEnv> recursiveSearchEnv(const std::string &dir, bool highPriority,
                                                 TestFilesFound &found) {
  ObjectPtr<IEditableSearchEnv> env = IEditableSearchEnv::create();
  env->setSearchDirs(makeDirContainer({{scAllFiles, dir, true, highPriority}}));
  env->setFilesFoundCallback(CallbackHolder<IFilesFoundCallback>(&found));
  const search_step_t step = highPriority ? ssHighPrioritySearchDirs : ssLowPrioritySearchDirs;
  env->setSearchStepsConfigurator(ObjectPtr<ISearchStepsConfigurator>(new FixedStepsConfigurator({step})));
  return env;
}

CollectingSearchEnv::CollectingSearchEnv(const std::string &dir, bool highPriority) {
  found.chooser = [this](IValidFileIterator &files) {
    collected.clear();
    files.reset();
    ObjectPtr<IValidFile> first;
    while (ObjectPtr<IValidFile> file = files.next()) {
      collected.push_back(file->name());
      if (!first)
        first = file;
    }
    return first;
  };
  env = recursiveSearchEnv(dir, highPriority, found);
}

std::string nameOf(const ObjectPtr<IValidFile> &file) { return file ? std::string(file->name()) : ""; }

} // namespace vell_test
