// Per-context metadata: search directories, callbacks, directories and
// per-client registrations, all under one spin shared lock.
#include "vell_context/metadata.h"

#include "vell_callbacks/spin_lock_guard.h"

namespace VELL_2_13 {

namespace {

// The value stored under key, or an empty value.
template <class Map> typename Map::mapped_type valueOf(const Map &map, const std::string &key) {
  auto found = map.find(key);
  if (found == map.end())
    return typename Map::mapped_type();
  return found->second;
}

} // namespace

// --- Search directories ------------------------------------------------------------

ObjectPtr<ISearchDirContainer> Metadata::getSearchDirs(const char *key) {
  if (!key)
    return ObjectPtr<ISearchDirContainer>();
  VellSpinSharedLockWrap guard(&m_lock);
  return valueOf(m_searchDirs, key);
}

void Metadata::setSearchDirs(const ObjectPtr<ISearchDirContainer> &container, const char *key) {
  if (!key)
    return;
  SpinExclusiveLockGuard guard(&m_lock);
  m_searchDirs[key] = container;
}

ObjectPtr<ISearchDirKeyIterator> Metadata::searchDirsKeyIterator() {
  return ObjectPtr<ISearchDirKeyIterator>(new SearchDirKeyIterator(*this));
}

SearchDirKeyIterator::SearchDirKeyIterator(Metadata &metadata)
    : m_metadata(&metadata), m_lock(metadata.lock()) {
  m_lock.sharedLock();
  m_position = metadata.m_searchDirs.cbegin();
  m_end = metadata.m_searchDirs.cend();
}

SearchDirKeyIterator::~SearchDirKeyIterator() { m_lock.sharedUnlock(); }

void SearchDirKeyIterator::next() {
  if (m_position != m_end)
    ++m_position;
}

bool SearchDirKeyIterator::getCurrentRecord(const char *&key, ObjectPtr<ISearchDirContainer> &container) {
  if (m_position == m_end)
    return false;
  key = m_position->first.c_str();
  container = m_position->second;
  return true;
}

// --- Callbacks -------------------------------------------------------------------------

// Each registration changes the one holder it names in the client's record
// (created empty when the client has none); the other three keep their
// callbacks. The whole change happens under the exclusive lock.

void Metadata::registerSearchStartedCallback(const std::string &clientId, ISearchStartedCallback *callback) {
  SpinExclusiveLockGuard guard(&m_lock);
  m_callbacks[clientId].searchStarted.set(callback);
}

void Metadata::registerFilesFoundCallback(const std::string &clientId, IFilesFoundCallback *callback) {
  SpinExclusiveLockGuard guard(&m_lock);
  m_callbacks[clientId].filesFound.set(callback);
}

void Metadata::registerNoFilesFoundCallback(const std::string &clientId, INoFilesFoundCallback *callback) {
  SpinExclusiveLockGuard guard(&m_lock);
  m_callbacks[clientId].noFilesFound.set(callback);
}

void Metadata::registerConfidenceLevelPolicyCallback(const std::string &clientId,
                                                     IConfidenceLevelPolicyCallback *callback) {
  SpinExclusiveLockGuard guard(&m_lock);
  m_callbacks[clientId].confidenceLevelPolicy.set(callback);
}

vell_callbacks_t Metadata::getCallbacks(const std::string &clientId) {
  VellSpinSharedLockWrap guard(&m_lock);
  auto found = m_callbacks.find(clientId);
  if (found == m_callbacks.end())
    return vell_callbacks_t();
  return found->second;
}

// --- Archive and cache directories ---------------------------------------------------

void Metadata::setArchiveDir(const char *dir) {
  if (!dir)
    return;
  SpinExclusiveLockGuard guard(&m_lock);
  m_archiveDir = dir;
}

std::string Metadata::getArchiveDir() {
  VellSpinSharedLockWrap guard(&m_lock);
  return m_archiveDir;
}

// The cache directory is not guarded: it is set before concurrent use.
void Metadata::setCacheDir(const char *dir) {
  if (dir)
    m_cacheDir = dir;
}

std::string Metadata::getCacheDir() { return m_cacheDir; }

// --- Per-client registrations ----------------------------------------------------------

void Metadata::setCapturedSearchDirs(const std::string &clientId, ObjectPtr<ICapturedSearchDirs> dirs) {
  SpinExclusiveLockGuard guard(&m_lock);
  m_capturedSearchDirs[clientId] = dirs;
}

ObjectPtr<ICapturedSearchDirs> Metadata::getCapturedSearchDirs(const std::string &clientId) {
  VellSpinSharedLockWrap guard(&m_lock);
  return valueOf(m_capturedSearchDirs, clientId);
}

// Retrievers and messengers are read under the exclusive lock as well.

void Metadata::registerFileRetriever(const std::string &clientId, IFileRetriever *retriever) {
  SpinExclusiveLockGuard guard(&m_lock);
  m_fileRetrievers[clientId] = retriever;
}

IFileRetriever *Metadata::getFileRetriever(const std::string &clientId) {
  SpinExclusiveLockGuard guard(&m_lock);
  return valueOf(m_fileRetrievers, clientId);
}

void Metadata::registerMessenger(const char *clientId, IMessenger *messenger) {
  if (!clientId)
    return;
  SpinExclusiveLockGuard guard(&m_lock);
  m_messengers[clientId] = messenger;
}

IMessenger *Metadata::getMessenger(const char *clientId) {
  if (!clientId)
    return nullptr;
  SpinExclusiveLockGuard guard(&m_lock);
  return valueOf(m_messengers, clientId);
}

void Metadata::registerSearchStepsConfigurator(const char *clientId,
                                               ObjectPtr<ISearchStepsConfigurator> configurator) {
  if (!clientId)
    return;
  SpinExclusiveLockGuard guard(&m_lock);
  m_searchStepsConfigurators[clientId] = configurator;
}

ObjectPtr<ISearchStepsConfigurator> Metadata::getSearchStepsConfigurator(const char *clientId) {
  if (!clientId)
    return ObjectPtr<ISearchStepsConfigurator>();
  VellSpinSharedLockWrap guard(&m_lock);
  return valueOf(m_searchStepsConfigurators, clientId);
}

void Metadata::registerEnvironmentInfo(const char *clientId, ObjectPtr<IEnvironmentInfo> info) {
  if (!clientId)
    return;
  SpinExclusiveLockGuard guard(&m_lock);
  m_environmentInfos[clientId] = info;
}

ObjectPtr<IEnvironmentInfo> Metadata::getEnvironmentInfo(const char *clientId) {
  if (!clientId)
    return ObjectPtr<IEnvironmentInfo>();
  VellSpinSharedLockWrap guard(&m_lock);
  return valueOf(m_environmentInfos, clientId);
}

} // namespace VELL_2_13
