// The default no-files-found callback: the host's file, and the answer (or
// its absence) remembered in the history.
#include "vell_callbacks/callback_handlers.h"
#include "vell_callbacks/spin_lock_guard.h"

namespace VELL_2_13 {

DefaultNoFilesFoundCallback::DefaultNoFilesFoundCallback(ISearchHistory *history)
    : m_history(history), m_behavior(nfbIgnoreHistory) {}

DefaultNoFilesFoundCallback::~DefaultNoFilesFoundCallback() {
  // Holders that point here are disconnected while this object is still whole.
  eventGeneratorImpl()->disconnectHandlers();
}

void DefaultNoFilesFoundCallback::setOwnCallback(INoFilesFoundCallback *callback) {
  ObjectPtr<ISpinSharedLock> lock = getLock();
  SpinExclusiveLockGuard guard(lock.get());
  m_ownCallback.set(callback);
}

void DefaultNoFilesFoundCallback::setBehavior(no_files_found_behavior_t behavior) {
  ObjectPtr<ISpinSharedLock> lock = getLock();
  SpinExclusiveLockGuard guard(lock.get());
  m_behavior.store(behavior);
}

no_files_found_behavior_t DefaultNoFilesFoundCallback::behavior() const {
  return no_files_found_behavior_t(m_behavior.load());
}

ObjectPtr<IValidFile> DefaultNoFilesFoundCallback::processNoFilesFound(INoFilesFoundHandler &handler) {
  ObjectPtr<IValidFile> supplied = handler.callUserCallback();
  // nfbKeepHistory remembers nothing either; any value above nfbUpdateHistory
  // acts as nfbUpdateHistory.
  if (m_behavior.load() < nfbUpdateHistory)
    return supplied;
  // No file is remembered as the empty name: the request had no answer.
  handler.updateHistory(supplied ? supplied->name() : nullptr);
  return supplied;
}

ObjectPtr<IValidFile> DefaultNoFilesFoundCallback::noBinFilesFound(const char *binName, IValidator &validator,
                                                                   IInvalidFileIterator &rejected,
                                                                   IValidFileIterator &files) {
  BinNoFilesFoundHandler handler(m_ownCallback, m_history.get(), binName, {validator, rejected, files});
  return processNoFilesFound(handler);
}

ObjectPtr<IValidFile> DefaultNoFilesFoundCallback::noSymFilesFound(const char *key1, const char *key2,
                                                                   const char *key3, IValidator &validator,
                                                                   IInvalidFileIterator &rejected,
                                                                   IValidFileIterator &files) {
  SymNoFilesFoundHandler handler(m_ownCallback, m_history.get(), {key1, key2, key3},
                                 {validator, rejected, files});
  return processNoFilesFound(handler);
}

ObjectPtr<IValidFile> DefaultNoFilesFoundCallback::noSrcFilesFound(const char *key1, const char *key2,
                                                                   const char *key3, IValidator &validator,
                                                                   IInvalidFileIterator &rejected,
                                                                   IValidFileIterator &files) {
  SrcNoFilesFoundHandler handler(m_ownCallback, m_history.get(), {key1, key2, key3},
                                 {validator, rejected, files});
  return processNoFilesFound(handler);
}

} // namespace VELL_2_13
