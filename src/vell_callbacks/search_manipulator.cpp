// The search manipulator and its factory.
#include "vell_callbacks/search_manipulator.h"

namespace VELL_2_13 {

namespace {

// Finds the default callback of a key or creates it with the manipulator's
// history (behaviour 0, no own callback) and hands the new one to register. A
// null key is taken as the empty one.
template <class Callback, class Register>
Callback &findOrCreate(std::map<std::string, std::unique_ptr<Callback>> &callbacks, const char *key,
                       ISearchHistory *history, Register registerCallback) {
  const std::string text = key ? key : "";
  auto found = callbacks.find(text);
  if (found != callbacks.end())
    return *found->second;
  auto created = std::make_unique<Callback>(history);
  Callback &callback = *created;
  callbacks.emplace(text, std::move(created));
  registerCallback(text.c_str(), &callback);
  return callback;
}

} // namespace

ObjectPtr<ISearchManipulator> ISearchManipulator::create(IResolutionContext *context) {
  return ObjectPtr<ISearchManipulator>(new SearchManipulator(context));
}

SearchManipulator::SearchManipulator(IResolutionContext *context)
    : m_userDefinedSearchDirs(IEditableSearchDirContainer::create()), m_history(ISearchHistory::create()) {
  if (!context)
    return;
  m_context = ObjectPtr<IResolutionContext>(new BasicResolutionContext(*context));
  m_contextMgr = IResolutionContextMgr::create();
}

SearchManipulator::~SearchManipulator() = default;

ObjectPtr<IEditableSearchDirContainer> SearchManipulator::getUserDefinedSearchDirs() {
  return m_userDefinedSearchDirs;
}

ObjectPtr<ISearchHistory> SearchManipulator::getHistory() { return m_history; }

DefaultSearchStartedCallback &SearchManipulator::getSearchStartedCallback(const char *key) {
  return findOrCreate(m_searchStartedCallbacks, key, m_history.get(),
                      [this](const char *clientId, DefaultSearchStartedCallback *callback) {
                        if (m_contextMgr)
                          m_contextMgr->registerSearchStartedCallback(*m_context, clientId, callback);
                      });
}

DefaultFilesFoundCallback &SearchManipulator::getFilesFoundCallback(const char *key) {
  return findOrCreate(m_filesFoundCallbacks, key, m_history.get(),
                      [this](const char *clientId, DefaultFilesFoundCallback *callback) {
                        if (m_contextMgr)
                          m_contextMgr->registerFilesFoundCallback(*m_context, clientId, callback);
                      });
}

DefaultNoFilesFoundCallback &SearchManipulator::getNoFilesFoundCallback(const char *key) {
  return findOrCreate(m_noFilesFoundCallbacks, key, m_history.get(),
                      [this](const char *clientId, DefaultNoFilesFoundCallback *callback) {
                        if (m_contextMgr)
                          m_contextMgr->registerNoFilesFoundCallback(*m_context, clientId, callback);
                      });
}

int SearchManipulator::setSearchStartedBehavior(const char *key, search_started_behavior_t behavior) {
  if (!key)
    return 0;
  getSearchStartedCallback(key).setBehavior(behavior);
  return 0;
}

int SearchManipulator::setOwnSearchStartedCallback(const char *key, ISearchStartedCallback *callback) {
  if (!key)
    return 0;
  getSearchStartedCallback(key).setOwnCallback(callback);
  return 0;
}

int SearchManipulator::setFilesFoundBehavior(const char *key, files_found_behavior_t behavior) {
  if (!key)
    return 0;
  getFilesFoundCallback(key).setBehavior(behavior);
  return 0;
}

int SearchManipulator::setOwnFilesFoundCallback(const char *key, IFilesFoundCallback *callback) {
  if (!key)
    return 0;
  getFilesFoundCallback(key).setOwnCallback(callback);
  return 0;
}

int SearchManipulator::setNoFilesFoundBehavior(const char *key, no_files_found_behavior_t behavior) {
  if (!key)
    return 0;
  getNoFilesFoundCallback(key).setBehavior(behavior);
  return 0;
}

int SearchManipulator::setOwnNoFilesFoundCallback(const char *key, INoFilesFoundCallback *callback) {
  if (!key)
    return 0;
  getNoFilesFoundCallback(key).setOwnCallback(callback);
  return 0;
}

int SearchManipulator::setSearchDirsBehavior(const char *key, search_dirs_behavior_t behavior) {
  if (!key)
    return 0;
  m_searchDirsBehaviors[key] = behavior;
  return 0;
}

search_dirs_behavior_t SearchManipulator::getSearchDirsBehavior(const char *key) const {
  if (!key)
    return sdbDefault;
  auto found = m_searchDirsBehaviors.find(key);
  return found == m_searchDirsBehaviors.end() ? sdbDefault : found->second;
}

} // namespace VELL_2_13
