// What was registered for one resolution context alone, per key and client id.
#pragma once

#include <map>
#include <string>

#include "vell/context.h"

namespace VELL_2_13 {

// Every map is ordered by the plain byte order of its text keys. The empty
// client id "" is the default client; nothing here falls back to it, the
// context manager decides where it serves. A null const char* key or client
// id names no entry: setters ignore it and getters return nothing.
class Metadata : public RefCountImpl<IMetadata> {
public:
  Metadata() = default;

  ObjectPtr<ISearchDirContainer> getSearchDirs(const char *key) override;
  void setSearchDirs(const ObjectPtr<ISearchDirContainer> &container, const char *key) override;
  ObjectPtr<ISearchDirKeyIterator> searchDirsKeyIterator() override;
  void registerSearchStartedCallback(const std::string &clientId, ISearchStartedCallback *callback) override;
  void registerFilesFoundCallback(const std::string &clientId, IFilesFoundCallback *callback) override;
  void registerNoFilesFoundCallback(const std::string &clientId, INoFilesFoundCallback *callback) override;
  void registerConfidenceLevelPolicyCallback(const std::string &clientId,
                                             IConfidenceLevelPolicyCallback *callback) override;
  vell_callbacks_t getCallbacks(const std::string &clientId) override;
  void setArchiveDir(const char *dir) override;
  std::string getArchiveDir() override;
  void setCacheDir(const char *dir) override;
  std::string getCacheDir() override;
  void setCapturedSearchDirs(const std::string &clientId, ObjectPtr<ICapturedSearchDirs> dirs) override;
  ObjectPtr<ICapturedSearchDirs> getCapturedSearchDirs(const std::string &clientId) override;
  void registerFileRetriever(const std::string &clientId, IFileRetriever *retriever) override;
  IFileRetriever *getFileRetriever(const std::string &clientId) override;
  void registerSearchStepsConfigurator(const char *clientId,
                                       ObjectPtr<ISearchStepsConfigurator> configurator) override;
  ObjectPtr<ISearchStepsConfigurator> getSearchStepsConfigurator(const char *clientId) override;
  void registerMessenger(const char *clientId, IMessenger *messenger) override;
  IMessenger *getMessenger(const char *clientId) override;
  void registerEnvironmentInfo(const char *clientId, ObjectPtr<IEnvironmentInfo> info) override;
  ObjectPtr<IEnvironmentInfo> getEnvironmentInfo(const char *clientId) override;

  // The lock guarding the maps and the archive directory (the key iterator
  // holds it shared for its whole life).
  ISpinSharedLock &lock() { return m_lock; }

private:
  friend class SearchDirKeyIterator;

  using SearchDirMap = std::map<std::string, ObjectPtr<ISearchDirContainer>>;

  SearchDirMap m_searchDirs;
  std::map<std::string, vell_callbacks_t> m_callbacks;
  std::string m_archiveDir;
  std::string m_cacheDir;
  std::map<std::string, ObjectPtr<ICapturedSearchDirs>> m_capturedSearchDirs;
  std::map<std::string, IFileRetriever *> m_fileRetrievers;
  std::map<std::string, ObjectPtr<ISearchStepsConfigurator>> m_searchStepsConfigurators;
  std::map<std::string, IMessenger *> m_messengers;
  std::map<std::string, ObjectPtr<IEnvironmentInfo>> m_environmentInfos;
  VellSpinSharedLock m_lock;
};

// Walks the search-directory keys of one metadata object in byte order. Holds
// the metadata's lock shared from creation to destruction: a thread must not
// write to that metadata while it holds one of its key iterators.
class SearchDirKeyIterator : public RefCountImpl<ISearchDirKeyIterator> {
public:
  explicit SearchDirKeyIterator(Metadata &metadata);
  ~SearchDirKeyIterator() override;

  // Advances by one entry; nothing at the end.
  void next() override;
  // False at the end; otherwise the current key and its container (a new reference).
  bool getCurrentRecord(const char *&key, ObjectPtr<ISearchDirContainer> &container) override;

private:
  ObjectPtr<IMetadata> m_metadata; // keeps the map alive
  ISpinSharedLock &m_lock;
  Metadata::SearchDirMap::const_iterator m_position;
  Metadata::SearchDirMap::const_iterator m_end;
};

} // namespace VELL_2_13
