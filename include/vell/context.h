// Resolution contexts: the process-wide manager and the per-context metadata.
#pragma once

#include <string>

#include "vell/callbacks.h"
#include "vell/file_search.h"
#include "vell/objects.h"
#include "vell/search_env.h"

namespace VELL_2_13 {

class IResolutionContext : public IVellObject {
public:
  virtual const char *getUniqueID() const = 0;
};

// A context is its identity text and nothing else.
class VELL_API BasicResolutionContext : public RefCountImpl<IResolutionContext> {
public:
  explicit BasicResolutionContext(const char *id) : m_id(id ? id : "") {}
  explicit BasicResolutionContext(const IResolutionContext &other) : m_id(other.getUniqueID()) {}
  const char *getUniqueID() const override { return m_id.c_str(); }

private:
  std::string m_id;
};

// The callbacks registered under one client id.
struct vell_callbacks_t {
  CallbackHolder<ISearchStartedCallback> searchStarted;
  CallbackHolder<IFilesFoundCallback> filesFound;
  CallbackHolder<INoFilesFoundCallback> noFilesFound;
  CallbackHolder<IConfidenceLevelPolicyCallback> confidenceLevelPolicy;
};

class ISearchDirKeyIterator : public IVellObject {
public:
  virtual void next() = 0;
  virtual bool getCurrentRecord(const char *&key, ObjectPtr<ISearchDirContainer> &container) = 0;
};

// What was registered for one context alone.
class IMetadata : public IVellObject {
public:
  virtual ObjectPtr<ISearchDirContainer> getSearchDirs(const char *key) = 0;
  virtual void setSearchDirs(const ObjectPtr<ISearchDirContainer> &container, const char *key) = 0;
  virtual ObjectPtr<ISearchDirKeyIterator> searchDirsKeyIterator() = 0;
  virtual void registerSearchStartedCallback(const std::string &clientId,
                                             ISearchStartedCallback *callback) = 0;
  virtual void registerFilesFoundCallback(const std::string &clientId, IFilesFoundCallback *callback) = 0;
  virtual void registerNoFilesFoundCallback(const std::string &clientId, INoFilesFoundCallback *callback) = 0;
  virtual void registerConfidenceLevelPolicyCallback(const std::string &clientId,
                                                     IConfidenceLevelPolicyCallback *callback) = 0;
  virtual vell_callbacks_t getCallbacks(const std::string &clientId) = 0;
  virtual void setArchiveDir(const char *dir) = 0;
  virtual std::string getArchiveDir() = 0;
  virtual void setCacheDir(const char *dir) = 0;
  virtual std::string getCacheDir() = 0;
  virtual void setCapturedSearchDirs(const std::string &clientId, ObjectPtr<ICapturedSearchDirs> dirs) = 0;
  virtual ObjectPtr<ICapturedSearchDirs> getCapturedSearchDirs(const std::string &clientId) = 0;
  virtual void registerFileRetriever(const std::string &clientId, IFileRetriever *retriever) = 0;
  virtual IFileRetriever *getFileRetriever(const std::string &clientId) = 0;
  virtual void registerSearchStepsConfigurator(const char *clientId,
                                               ObjectPtr<ISearchStepsConfigurator> configurator) = 0;
  virtual ObjectPtr<ISearchStepsConfigurator> getSearchStepsConfigurator(const char *clientId) = 0;
  virtual void registerMessenger(const char *clientId, IMessenger *messenger) = 0;
  virtual IMessenger *getMessenger(const char *clientId) = 0;
  virtual void registerEnvironmentInfo(const char *clientId, ObjectPtr<IEnvironmentInfo> info) = 0;
  virtual ObjectPtr<IEnvironmentInfo> getEnvironmentInfo(const char *clientId) = 0;
};

// Process-wide manager of resolution contexts.
class IResolutionContextMgr : public IVellObject {
public:
  virtual bool addInheritance(IResolutionContext &child, IResolutionContext &parent) = 0;
  virtual void registerSearchDirs(IResolutionContext &context, const ObjectPtr<ISearchDirContainer> &dirs,
                                  const char *key) = 0;
  virtual void registerArchiveDir(IResolutionContext &context, const char *dir) = 0;
  virtual void registerCacheDir(IResolutionContext &context, const char *dir) = 0;
  virtual bool registerSearchStartedCallback(IResolutionContext &context, const char *clientId,
                                             ISearchStartedCallback *callback) = 0;
  virtual bool registerFilesFoundCallback(IResolutionContext &context, const char *clientId,
                                          IFilesFoundCallback *callback) = 0;
  virtual bool registerNoFilesFoundCallback(IResolutionContext &context, const char *clientId,
                                            INoFilesFoundCallback *callback) = 0;
  virtual bool registerConfidenceLevelPolicyCallback(IResolutionContext &context, const char *clientId,
                                                     IConfidenceLevelPolicyCallback *callback) = 0;
  virtual void captureSearchDirs(IResolutionContext &context, const char *clientId) = 0;
  virtual void releaseSearchDirs(IResolutionContext &context, const char *clientId) = 0;
  virtual ObjectPtr<ISearchEnv> createSearchEnv(IResolutionContext &context, const char *clientId,
                                                const ObjectPtr<IEnvironmentInfo> &envInfo) = 0;
  virtual ObjectPtr<IFileSearch> createFileSearch(IResolutionContext &context, const char *clientId,
                                                  const ObjectPtr<IEnvironmentInfo> &envInfo) = 0;
  virtual ObjectPtr<IResolutionContext> createResultDirectoryContext(const char *dir) = 0;
  virtual ObjectPtr<IResolutionContext> createUserWideContext() = 0;
  virtual ObjectPtr<IResolutionContext> createFileSystemContext(const char *path, bool isDirectory) = 0;
  virtual unsigned int archiveFile(IResolutionContext &context, const char *file,
                                   search_category_t category) = 0;
  virtual bool registerFileRetriever(IResolutionContext &context, const char *clientId,
                                     IFileRetriever *retriever) = 0;
  virtual bool registerSearchStepsConfigurator(IResolutionContext &context, const char *clientId,
                                               ObjectPtr<ISearchStepsConfigurator> configurator) = 0;
  virtual bool registerMessenger(IResolutionContext &context, const char *clientId,
                                 IMessenger *messenger) = 0;
  virtual bool registerEnvironmentInfo(IResolutionContext &context, const char *clientId,
                                       ObjectPtr<IEnvironmentInfo> info) = 0;

  static VELL_API ObjectPtr<IResolutionContextMgr> create();
};

} // namespace VELL_2_13
