// The three kinds of resolution context: a place in the file system, a result
// directory with its fixed layout, and the current user as a whole.
#include "platform/log.h"
#include "vell_context/context_layout.h"
#include "vell_context/resolution_context_mgr.h"

namespace VELL_2_13 {

ObjectPtr<IResolutionContext> ResolutionContextMgr::createFileSystemContext(const char *path,
                                                                            bool isDirectory) {
  VELL_TRACE_FUNCTION();
  VELL_LOG_INFO("ContextId: " << platform::orNull(path));
  if (!path || !*path) {
    VELL_LOG_INFO("No context created!");
    return ObjectPtr<IResolutionContext>();
  }
  // The identity is the path in the canonical form used for every
  // caller-given path, so /p/x/ and /p/./x name the same context.
  const std::string id = utils::getCanonicalName(path, isDirectory);
  if (id.empty()) {
    VELL_LOG_INFO("No context created!");
    return ObjectPtr<IResolutionContext>();
  }
  return ObjectPtr<IResolutionContext>(new BasicResolutionContext(id.c_str()));
}

ObjectPtr<IResolutionContext> ResolutionContextMgr::createUserWideContext() {
  VELL_TRACE_FUNCTION();
  // All user-wide contexts of one user are the same context.
  return ObjectPtr<IResolutionContext>(new BasicResolutionContext(utils::getUserId().c_str()));
}

ObjectPtr<IResolutionContext> ResolutionContextMgr::createResultDirectoryContext(const char *dir) {
  VELL_TRACE_FUNCTION();
  if (!dir)
    return ObjectPtr<IResolutionContext>();
  ObjectPtr<IResolutionContext> context = createFileSystemContext(dir, true);
  if (!context)
    return context;
  // Registered before: the layout is set up once per result directory.
  if (getSearchDirs(*context, context_layout::RESULT_DIR_KEY))
    return context;

  registerArchiveDir(*context, utils::addSubPart(dir, context_layout::ARCHIVE_SUBDIR).c_str());

  // The result directory's own layout, every directory high-priority.
  const std::string binaries = utils::addSubPart(dir, context_layout::subDirName(scBinaryFiles));
  const std::string symbols = utils::addSubPart(dir, context_layout::subDirName(scSymbolFiles));
  const std::string sources = utils::addSubPart(dir, context_layout::subDirName(scSourceFiles));
  const std::string all = utils::addSubPart(dir, context_layout::subDirName(scAllFiles));
  ObjectPtr<IEditableSearchDirContainer> dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scBinaryFiles, binaries.c_str(), false, true);
  dirs->addDirectory(scSymbolFiles, symbols.c_str(), false, true);
  dirs->addDirectory(scSymbolFiles, binaries.c_str(), false, true);
  dirs->addDirectory(scSourceFiles, sources.c_str(), true, true);
  dirs->addDirectory(scAllFiles, all.c_str(), true, true);
  dirs->addDirectory(scAllFiles, dir, false, true);
  registerSearchDirs(*context, dirs, context_layout::RESULT_DIR_KEY);
  return context;
}

} // namespace VELL_2_13
