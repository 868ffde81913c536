// Search environments assembled along a context's inheritance chain, file
// searches over them, and frozen search directories per client.
#include "platform/log.h"
#include "vell_context/context_layout.h"
#include "vell_context/context_search_dirs.h"
#include "vell_context/resolution_context_mgr.h"

namespace VELL_2_13 {

namespace {

const search_category_t ALL_CATEGORIES[] = {scBinaryFiles, scSymbolFiles, scSourceFiles, scAllFiles};

// Everything a walk collects besides the directories, first level wins.
struct CollectedValues {
  std::string cacheDir;
  IFileRetriever *fileRetriever = nullptr;
  ObjectPtr<ISearchStepsConfigurator> configurator;
  IMessenger *messenger = nullptr;
  ObjectPtr<IEnvironmentInfo> environmentInfo;
};

// The level's archive directory, divided per category.
void addArchiveDirs(IMetadata &metadata, IEditableSearchDirContainer &archiveDirs) {
  const std::string archiveDir = metadata.getArchiveDir();
  if (archiveDir.empty())
    return;
  for (search_category_t category : ALL_CATEGORIES) {
    const std::string dir = utils::addSubPart(archiveDir.c_str(), context_layout::subDirName(category));
    archiveDirs.addDirectory(category, dir.c_str(), true, true);
  }
}

// The callbacks of a level, each only while the environment has none. The
// default client's record serves the no-files-found and the confidence-policy
// callbacks only; search-started and files-found callbacks must be the
// client's own.
void addCallbacks(IMetadata &metadata, const char *clientId, IEditableSearchEnv &env) {
  const vell_callbacks_t own = metadata.getCallbacks(clientId);
  const vell_callbacks_t fallback = metadata.getCallbacks(context_layout::DEFAULT_CLIENT_ID);
  if (!env.searchStartedCallback().hasCallback() && own.searchStarted.hasCallback())
    env.setSearchStartedCallback(own.searchStarted);
  if (!env.filesFoundCallback().hasCallback() && own.filesFound.hasCallback())
    env.setFilesFoundCallback(own.filesFound);
  if (!env.noFilesFoundCallback().hasCallback()) {
    if (own.noFilesFound.hasCallback())
      env.setNoFilesFoundCallback(own.noFilesFound);
    else if (fallback.noFilesFound.hasCallback())
      env.setNoFilesFoundCallback(fallback.noFilesFound);
  }
  if (!env.confidenceLevelPolicyCallback().hasCallback()) {
    if (own.confidenceLevelPolicy.hasCallback())
      env.setConfidenceLevelPolicyCallback(own.confidenceLevelPolicy);
    else if (fallback.confidenceLevelPolicy.hasCallback())
      env.setConfidenceLevelPolicyCallback(fallback.confidenceLevelPolicy);
  }
}

// Retriever, configurator, messenger, environment info and cache directory of
// a level, each only while still unset; the client's own value first, then
// the default client's (the cache directory belongs to the level).
void addClientValues(IMetadata &metadata, const char *clientId, CollectedValues &values) {
  const char *fallback = context_layout::DEFAULT_CLIENT_ID;
  if (!values.fileRetriever) {
    values.fileRetriever = metadata.getFileRetriever(clientId);
    if (!values.fileRetriever)
      values.fileRetriever = metadata.getFileRetriever(fallback);
  }
  if (!values.configurator) {
    values.configurator = metadata.getSearchStepsConfigurator(clientId);
    if (!values.configurator)
      values.configurator = metadata.getSearchStepsConfigurator(fallback);
  }
  if (!values.messenger) {
    values.messenger = metadata.getMessenger(clientId);
    if (!values.messenger)
      values.messenger = metadata.getMessenger(fallback);
  }
  if (!values.environmentInfo) {
    values.environmentInfo = metadata.getEnvironmentInfo(clientId);
    if (!values.environmentInfo)
      values.environmentInfo = metadata.getEnvironmentInfo(fallback);
  }
  if (values.cacheDir.empty())
    values.cacheDir = metadata.getCacheDir();
}

} // namespace

ObjectPtr<ISearchEnv> ResolutionContextMgr::createSearchEnv(IResolutionContext &context, const char *clientId,
                                                            const ObjectPtr<IEnvironmentInfo> &envInfo) {
  VELL_TRACE_FUNCTION();
  VELL_LOG_INFO("Context: " << context.getUniqueID() << " ClientId: " << platform::orNull(clientId));
  ObjectPtr<IEditableSearchEnv> env = IEditableSearchEnv::create();
  ObjectPtr<ISearchDirChain> searchDirs = ISearchDirChain::create();
  ObjectPtr<IEditableSearchDirContainer> archiveDirs = IEditableSearchDirContainer::create();
  CollectedValues values;
  values.environmentInfo = envInfo;
  bool captured = false;

  walkInheritanceChain(context, [&](IResolutionContext &level) {
    ObjectPtr<IMetadata> metadata = getMetadataForContext(level);
    // Search directories: the client's captured directories replace the live
    // registrations of this level and of every level above it.
    if (!captured) {
      ObjectPtr<ICapturedSearchDirs> capturedDirs;
      if (clientId)
        capturedDirs = metadata->getCapturedSearchDirs(clientId);
      if (capturedDirs) {
        searchDirs->addItem(capturedDirs);
        captured = true;
      } else {
        // The level's containers in key order, looked up afresh whenever the
        // environment enumerates its directories.
        searchDirs->addItem(ObjectPtr<ISearchDirContainer>(new ContextSearchDirs(metadata)));
      }
    }
    // Archive directories of all levels accumulate.
    addArchiveDirs(*metadata, *archiveDirs);
    if (!clientId)
      return true;
    addCallbacks(*metadata, clientId, *env);
    addClientValues(*metadata, clientId, values);
    return true;
  });

  env->setArchiveDirs(archiveDirs);
  env->setCacheDir(values.cacheDir.c_str());
  env->setSearchDirs(searchDirs);
  env->setEnvironmentInfo(values.environmentInfo);
  if (values.fileRetriever)
    values.fileRetriever->setEnvironmentInfo(values.environmentInfo);
  env->setFileRetriever(values.fileRetriever);
  env->setSearchStepsConfigurator(values.configurator);
  env->setMessenger(values.messenger);
  return env;
}

ObjectPtr<IFileSearch> ResolutionContextMgr::createFileSearch(IResolutionContext &context,
                                                              const char *clientId,
                                                              const ObjectPtr<IEnvironmentInfo> &envInfo) {
  return IFileSearch::create(createSearchEnv(context, clientId, envInfo));
}

void ResolutionContextMgr::captureSearchDirs(IResolutionContext &context, const char *clientId) {
  VELL_TRACE_FUNCTION();
  VELL_LOG_INFO("Context: " << context.getUniqueID() << " ClientId: " << platform::orNull(clientId));
  // A null client id cannot name the captured entry.
  if (!clientId)
    return;
  ObjectPtr<IMetadata> metadata = getMetadataForContext(context);
  releaseSearchDirs(context, clientId);
  ObjectPtr<ISearchEnv> env = createSearchEnv(context, clientId, ObjectPtr<IEnvironmentInfo>());
  metadata->setCapturedSearchDirs(clientId, ICapturedSearchDirs::create(env));
}

void ResolutionContextMgr::releaseSearchDirs(IResolutionContext &context, const char *clientId) {
  VELL_TRACE_FUNCTION();
  VELL_LOG_INFO("Context: " << context.getUniqueID() << " ClientId: " << platform::orNull(clientId));
  if (!clientId)
    return;
  getMetadataForContext(context)->setCapturedSearchDirs(clientId, ObjectPtr<ICapturedSearchDirs>());
}

} // namespace VELL_2_13
