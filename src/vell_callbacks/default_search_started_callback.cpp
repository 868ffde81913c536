// The default search-started callback: the host's own callback, then the history.
#include "vell_callbacks/callback_handlers.h"
#include "vell_callbacks/spin_lock_guard.h"

namespace VELL_2_13 {

DefaultSearchStartedCallback::DefaultSearchStartedCallback(ISearchHistory *history)
    : m_history(history), m_behavior(ssbIgnoreHistory) {}

DefaultSearchStartedCallback::~DefaultSearchStartedCallback() {
  // Holders that point here are disconnected while this object is still
  // whole, so no search can enter a half-destroyed callback.
  eventGeneratorImpl()->disconnectHandlers();
}

void DefaultSearchStartedCallback::setOwnCallback(ISearchStartedCallback *callback) {
  ObjectPtr<ISpinSharedLock> lock = getLock();
  SpinExclusiveLockGuard guard(lock.get());
  m_ownCallback.set(callback);
}

void DefaultSearchStartedCallback::setBehavior(search_started_behavior_t behavior) {
  ObjectPtr<ISpinSharedLock> lock = getLock();
  SpinExclusiveLockGuard guard(lock.get());
  m_behavior.store(behavior);
}

search_started_behavior_t DefaultSearchStartedCallback::behavior() const {
  return search_started_behavior_t(m_behavior.load());
}

bool DefaultSearchStartedCallback::processSearchStarted(ISearchStartedHandler &handler,
                                                        IStringContainer &names) {
  // The own callback runs first and can veto the search; the history is read
  // only when the search would go on.
  const bool goOn = handler.callUserCallback(names);
  const uint32_t behavior = m_behavior.load();
  if (!goOn || behavior == ssbIgnoreHistory)
    return goOn;
  ObjectPtr<IFileAssociation> association = handler.lookupHistory();
  if (!association)
    return true;
  names.add(association->resolvedName());
  // Any value above ssbUseHistory acts as ssbUseHistory: skip the steps.
  return behavior == ssbSuggestFromHistory;
}

bool DefaultSearchStartedCallback::binFileSearchStarted(const char *binName, IStringContainer &names) {
  BinSearchStartedHandler handler(m_ownCallback, m_history.get(), binName);
  return processSearchStarted(handler, names);
}

bool DefaultSearchStartedCallback::symFileSearchStarted(const char *key1, const char *key2, const char *key3,
                                                        IStringContainer &names) {
  SymSearchStartedHandler handler(m_ownCallback, m_history.get(), {key1, key2, key3});
  return processSearchStarted(handler, names);
}

bool DefaultSearchStartedCallback::srcFileSearchStarted(const char *key1, const char *key2, const char *key3,
                                                        IStringContainer &names) {
  SrcSearchStartedHandler handler(m_ownCallback, m_history.get(), {key1, key2, key3});
  return processSearchStarted(handler, names);
}

} // namespace VELL_2_13
