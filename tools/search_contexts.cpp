// The resolution contexts a search of the tool runs in: the command line's
// own settings, an optional result directory and the user-wide context.
#include "search_contexts.h"

#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>

using namespace VELL_2_13;

namespace vell_tool {

const char *const CLIENT_ID = "vell-tool";
const char *const USER_DIRS_KEY = "user";
const char *const COMMAND_LINE_DIRS_KEY = "command-line";

namespace {

// Identity of the command line's context: not a path of any real place, so it
// can meet neither a result directory nor a user name.
const char *const COMMAND_LINE_CONTEXT = "<vell command line>";

// The context manager keeps the settings of a context by its identity, for
// the whole process; the searches of a batch run at the same time, each with
// settings of its own (its file retriever above all). So each running search
// holds an identity no other running search has: the first "<vell command
// line>", others "<vell command line N>", given back when the search ends and
// reused by the next one, as a search run alone reuses the one identity.
std::mutex g_identityMutex;
std::set<unsigned> g_identitiesInUse;

std::shared_ptr<const std::string> acquireCommandLineIdentity() {
  std::lock_guard<std::mutex> lock(g_identityMutex);
  unsigned number = 0;
  while (g_identitiesInUse.count(number) != 0)
    ++number;
  g_identitiesInUse.insert(number);
  auto *identity = new std::string(number == 0 ? std::string(COMMAND_LINE_CONTEXT)
                                               : "<vell command line " + std::to_string(number + 1) + ">");
  return std::shared_ptr<const std::string>(identity, [number](const std::string *text) {
    delete text;
    std::lock_guard<std::mutex> released(g_identityMutex);
    g_identitiesInUse.erase(number);
  });
}

ObjectPtr<IResolutionContext> checked(const ObjectPtr<IResolutionContext> &context, const char *what) {
  if (!context)
    throw std::runtime_error(std::string("cannot create the ") + what + " context");
  return context;
}

} // namespace

SearchContexts createSearchContexts(const ObjectPtr<ISearchDirContainer> &userDirs,
                                    const std::string &resultDir) {
  SearchContexts contexts;
  contexts.commandLineIdentity = acquireCommandLineIdentity();
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
  contexts.commandLine = checked(
      contexts.mgr->createFileSystemContext(contexts.commandLineIdentity->c_str(), false), "command-line");
  contexts.mgr->addInheritance(*contexts.commandLine, *parent);
  return contexts;
}

} // namespace vell_tool
