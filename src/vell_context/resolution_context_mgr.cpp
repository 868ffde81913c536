// The context manager singleton, inheritance, metadata look-up and the thin
// registrations that land in a context's metadata.
#include "vell_context/resolution_context_mgr.h"

#include "platform/log.h"
#include "vell_callbacks/spin_lock_guard.h"
#include "vell_context/metadata.h"

namespace VELL_2_13 {

using platform::orNull;

ResolutionContextMgr *ResolutionContextMgr::s_instance = nullptr;

bool ResolutionContextKeyLess::operator()(const ResolutionContextKey &a,
                                          const ResolutionContextKey &b) const {
  return utils::compareCanonicalFileNames(a.text().c_str(), b.text().c_str()) < 0;
}

ObjectPtr<IResolutionContextMgr> IResolutionContextMgr::create() {
  VellLockWrap guard(&g_resoulutionContextMgrLock);
  // The stored manager may have lost its last reference on another thread and
  // be waiting for the lock in its destructor: reuse it only if a reference
  // can still be added, otherwise build a fresh, empty one.
  ResolutionContextMgr *instance = ResolutionContextMgr::s_instance;
  if (instance && instance->tryAddRef()) {
    ObjectPtr<IResolutionContextMgr> result(instance);
    instance->release(); // drops the reference taken by tryAddRef
    return result;
  }
  ResolutionContextMgr::s_instance = new ResolutionContextMgr();
  return ObjectPtr<IResolutionContextMgr>(ResolutionContextMgr::s_instance);
}

ResolutionContextMgr::~ResolutionContextMgr() {
  VellLockWrap guard(&g_resoulutionContextMgrLock);
  // A newer manager may already have taken the slot.
  if (s_instance == this)
    s_instance = nullptr;
}

// --- Inheritance and metadata --------------------------------------------------------

bool ResolutionContextMgr::addInheritance(IResolutionContext &child, IResolutionContext &parent) {
  VELL_TRACE_FUNCTION();
  VELL_LOG_INFO("Child: " << child.getUniqueID() << " Parent: " << parent.getUniqueID());
  ObjectPtr<IResolutionContext> parentCopy(new BasicResolutionContext(parent));
  SpinExclusiveLockGuard guard(&m_lock);
  m_parents[ResolutionContextKey(child)] = parentCopy;
  return true;
}

ObjectPtr<IResolutionContext> ResolutionContextMgr::getParentContext(IResolutionContext &context) {
  VellSpinSharedLockWrap guard(&m_lock);
  auto found = m_parents.find(ResolutionContextKey(context));
  if (found == m_parents.end())
    return ObjectPtr<IResolutionContext>();
  return found->second;
}

ObjectPtr<IMetadata> ResolutionContextMgr::getMetadataForContext(IResolutionContext &context) {
  {
    VellSpinSharedLockWrap guard(&m_lock);
    auto found = m_metadata.find(ResolutionContextKey(context));
    if (found != m_metadata.end())
      return found->second;
  }
  return addEmptyMetadata(context);
}

ObjectPtr<IMetadata> ResolutionContextMgr::addEmptyMetadata(IResolutionContext &context) {
  ResolutionContextKey key(context);
  SpinExclusiveLockGuard guard(&m_lock);
  auto found = m_metadata.find(key);
  if (found != m_metadata.end())
    return found->second;
  ObjectPtr<IMetadata> metadata(new Metadata());
  m_metadata.emplace(std::move(key), metadata);
  return metadata;
}

size_t ResolutionContextMgr::contextCount() {
  VellSpinSharedLockWrap guard(&m_lock);
  return m_metadata.size();
}

ObjectPtr<ISearchDirContainer> ResolutionContextMgr::getSearchDirs(IResolutionContext &context,
                                                                   const char *key) {
  return getMetadataForContext(context)->getSearchDirs(key);
}

std::string ResolutionContextMgr::getArchiveDir(IResolutionContext &context) {
  return getMetadataForContext(context)->getArchiveDir();
}

// --- Registrations ---------------------------------------------------------------------

void ResolutionContextMgr::registerSearchDirs(IResolutionContext &context,
                                              const ObjectPtr<ISearchDirContainer> &dirs, const char *key) {
  VELL_TRACE_FUNCTION();
  VELL_LOG_INFO("Context: " << context.getUniqueID() << " Key: " << orNull(key));
  getMetadataForContext(context)->setSearchDirs(dirs, key);
}

void ResolutionContextMgr::registerArchiveDir(IResolutionContext &context, const char *dir) {
  VELL_TRACE_FUNCTION();
  VELL_LOG_INFO("Context: " << context.getUniqueID() << " Dir: " << orNull(dir));
  getMetadataForContext(context)->setArchiveDir(dir);
}

void ResolutionContextMgr::registerCacheDir(IResolutionContext &context, const char *dir) {
  VELL_TRACE_FUNCTION();
  VELL_LOG_INFO("Context: " << context.getUniqueID() << " Dir: " << orNull(dir));
  getMetadataForContext(context)->setCacheDir(dir);
}

bool ResolutionContextMgr::registerSearchStartedCallback(IResolutionContext &context, const char *clientId,
                                                         ISearchStartedCallback *callback) {
  if (!clientId)
    return false;
  getMetadataForContext(context)->registerSearchStartedCallback(clientId, callback);
  return true;
}

bool ResolutionContextMgr::registerFilesFoundCallback(IResolutionContext &context, const char *clientId,
                                                      IFilesFoundCallback *callback) {
  if (!clientId)
    return false;
  getMetadataForContext(context)->registerFilesFoundCallback(clientId, callback);
  return true;
}

bool ResolutionContextMgr::registerNoFilesFoundCallback(IResolutionContext &context, const char *clientId,
                                                        INoFilesFoundCallback *callback) {
  if (!clientId)
    return false;
  getMetadataForContext(context)->registerNoFilesFoundCallback(clientId, callback);
  return true;
}

bool ResolutionContextMgr::registerConfidenceLevelPolicyCallback(IResolutionContext &context,
                                                                 const char *clientId,
                                                                 IConfidenceLevelPolicyCallback *callback) {
  if (!clientId)
    return false;
  getMetadataForContext(context)->registerConfidenceLevelPolicyCallback(clientId, callback);
  return true;
}

// A null client id cannot name an entry; these four store nothing for it
// (the metadata ignores it) and still answer true.

bool ResolutionContextMgr::registerFileRetriever(IResolutionContext &context, const char *clientId,
                                                 IFileRetriever *retriever) {
  if (clientId)
    getMetadataForContext(context)->registerFileRetriever(clientId, retriever);
  return true;
}

bool ResolutionContextMgr::registerSearchStepsConfigurator(IResolutionContext &context, const char *clientId,
                                                           ObjectPtr<ISearchStepsConfigurator> configurator) {
  getMetadataForContext(context)->registerSearchStepsConfigurator(clientId, configurator);
  return true;
}

bool ResolutionContextMgr::registerMessenger(IResolutionContext &context, const char *clientId,
                                             IMessenger *messenger) {
  getMetadataForContext(context)->registerMessenger(clientId, messenger);
  return true;
}

bool ResolutionContextMgr::registerEnvironmentInfo(IResolutionContext &context, const char *clientId,
                                                   ObjectPtr<IEnvironmentInfo> info) {
  getMetadataForContext(context)->registerEnvironmentInfo(clientId, info);
  return true;
}

} // namespace VELL_2_13
