// The resolution contexts a search of the tool runs in: the command line's
// own settings, an optional result directory and the user-wide context.
#include "search_contexts.h"

#include <stdexcept>

using namespace VELL_2_13;

namespace vell_tool {

const char *const CLIENT_ID = "vell-tool";
const char *const USER_DIRS_KEY = "user";
const char *const COMMAND_LINE_DIRS_KEY = "command-line";

namespace {

// Identity of the command line's context: not a path of any real place, so it
// can meet neither a result directory nor a user name.
const char *const COMMAND_LINE_CONTEXT = "<vell command line>";

ObjectPtr<IResolutionContext> checked(const ObjectPtr<IResolutionContext> &context, const char *what) {
  if (!context)
    throw std::runtime_error(std::string("cannot create the ") + what + " context");
  return context;
}

} // namespace

SearchContexts createSearchContexts(const ObjectPtr<ISearchDirContainer> &userDirs,
                                    const std::string &resultDir) {
  SearchContexts contexts;
  contexts.mgr = IResolutionContextMgr::create();
  contexts.userWide = checked(contexts.mgr->createUserWideContext(), "user-wide");
  if (userDirs)
    contexts.mgr->registerSearchDirs(*contexts.userWide, userDirs, USER_DIRS_KEY);
  ObjectPtr<IResolutionContext> parent = contexts.userWide;
  if (!resultDir.empty()) {
    contexts.resultDir =
        checked(contexts.mgr->createResultDirectoryContext(resultDir.c_str()), "result-directory");
    contexts.mgr->addInheritance(*contexts.resultDir, *contexts.userWide);
    parent = contexts.resultDir;
  }
  contexts.commandLine =
      checked(contexts.mgr->createFileSystemContext(COMMAND_LINE_CONTEXT, false), "command-line");
  contexts.mgr->addInheritance(*contexts.commandLine, *parent);
  return contexts;
}

} // namespace vell_tool
