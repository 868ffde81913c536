// The process-wide manager of resolution contexts: inheritance, per-context
// metadata, and search environments assembled along the inheritance chain.
#pragma once

#include <map>
#include <set>
#include <string>

#include "vell/context.h"

namespace VELL_2_13 {

// The identity text of a context used as a map key.
class ResolutionContextKey {
public:
  explicit ResolutionContextKey(const IResolutionContext &context) : m_id(context.getUniqueID()) {}
  const std::string &text() const { return m_id; }

private:
  std::string m_id;
};

// Byte-wise, case-sensitive order of identities (utils::compareCanonicalFileNames).
struct ResolutionContextKeyLess {
  bool operator()(const ResolutionContextKey &a, const ResolutionContextKey &b) const;
};

class ResolutionContextMgr : public RefCountImpl<IResolutionContextMgr> {
public:
  ResolutionContextMgr() = default;
  ~ResolutionContextMgr() override;

  bool addInheritance(IResolutionContext &child, IResolutionContext &parent) override;
  void registerSearchDirs(IResolutionContext &context, const ObjectPtr<ISearchDirContainer> &dirs,
                          const char *key) override;
  void registerArchiveDir(IResolutionContext &context, const char *dir) override;
  void registerCacheDir(IResolutionContext &context, const char *dir) override;
  bool registerSearchStartedCallback(IResolutionContext &context, const char *clientId,
                                     ISearchStartedCallback *callback) override;
  bool registerFilesFoundCallback(IResolutionContext &context, const char *clientId,
                                  IFilesFoundCallback *callback) override;
  bool registerNoFilesFoundCallback(IResolutionContext &context, const char *clientId,
                                    INoFilesFoundCallback *callback) override;
  bool registerConfidenceLevelPolicyCallback(IResolutionContext &context, const char *clientId,
                                             IConfidenceLevelPolicyCallback *callback) override;
  void captureSearchDirs(IResolutionContext &context, const char *clientId) override;
  void releaseSearchDirs(IResolutionContext &context, const char *clientId) override;
  ObjectPtr<ISearchEnv> createSearchEnv(IResolutionContext &context, const char *clientId,
                                        const ObjectPtr<IEnvironmentInfo> &envInfo) override;
  ObjectPtr<IFileSearch> createFileSearch(IResolutionContext &context, const char *clientId,
                                          const ObjectPtr<IEnvironmentInfo> &envInfo) override;
  ObjectPtr<IResolutionContext> createResultDirectoryContext(const char *dir) override;
  ObjectPtr<IResolutionContext> createUserWideContext() override;
  ObjectPtr<IResolutionContext> createFileSystemContext(const char *path, bool isDirectory) override;
  unsigned int archiveFile(IResolutionContext &context, const char *file,
                           search_category_t category) override;
  bool registerFileRetriever(IResolutionContext &context, const char *clientId,
                             IFileRetriever *retriever) override;
  bool registerSearchStepsConfigurator(IResolutionContext &context, const char *clientId,
                                       ObjectPtr<ISearchStepsConfigurator> configurator) override;
  bool registerMessenger(IResolutionContext &context, const char *clientId, IMessenger *messenger) override;
  bool registerEnvironmentInfo(IResolutionContext &context, const char *clientId,
                               ObjectPtr<IEnvironmentInfo> info) override;

  // The stored parent of the context (a copy of its identity), or null.
  ObjectPtr<IResolutionContext> getParentContext(IResolutionContext &context);
  // The context's metadata, created empty on first use; never null.
  ObjectPtr<IMetadata> getMetadataForContext(IResolutionContext &context);
  // Creates the context's empty metadata unless it has some; returns the stored one.
  ObjectPtr<IMetadata> addEmptyMetadata(IResolutionContext &context);
  // The context's own search directories under key (parents are not consulted).
  ObjectPtr<ISearchDirContainer> getSearchDirs(IResolutionContext &context, const char *key);
  // The context's own archive directory (parents are not consulted).
  std::string getArchiveDir(IResolutionContext &context);

  // Number of contexts that have metadata; for diagnostics.
  size_t contextCount();

  // The singleton, guarded by g_resoulutionContextMgrLock; the destructor clears it.
  static ResolutionContextMgr *s_instance;

private:
  template <class Visit> void walkInheritanceChain(IResolutionContext &context, Visit visit);

  std::map<ResolutionContextKey, ObjectPtr<IMetadata>, ResolutionContextKeyLess> m_metadata;
  std::map<ResolutionContextKey, ObjectPtr<IResolutionContext>, ResolutionContextKeyLess> m_parents;
  // Shared for look-ups, exclusive for insertions; never held while calling
  // into a metadata object.
  VellSpinSharedLock m_lock;
  // Two recursive locks made with the manager and kept for its lifetime; no
  // operation takes them yet, they are kept so that the manager's layout stays
  // the same when one does.
  VellLock m_reservedLock;
  VellLock m_reservedLock2;
};

// Visits the context, then its parent, the parent's parent and so on, child
// first; visit returns false to stop. A level met a second time ends the walk,
// so a cycle of inheritance cannot make it endless.
template <class Visit>
void ResolutionContextMgr::walkInheritanceChain(IResolutionContext &context, Visit visit) {
  ObjectPtr<IResolutionContext> level(new BasicResolutionContext(context));
  std::set<std::string> visited;
  while (level) {
    if (!visited.insert(level->getUniqueID()).second)
      return;
    if (!visit(*level))
      return;
    level = getParentContext(*level);
  }
}

} // namespace VELL_2_13
