// The default files-found callback: the host's choice, remembered in the history.
#include "vell_callbacks/callback_handlers.h"
#include "vell_callbacks/spin_lock_guard.h"

namespace VELL_2_13 {

DefaultFilesFoundCallback::DefaultFilesFoundCallback(ISearchHistory *history)
    : m_history(history), m_behavior(ffbIgnoreHistory) {}

DefaultFilesFoundCallback::~DefaultFilesFoundCallback() {
  // Holders that point here are disconnected while this object is still whole.
  eventGeneratorImpl()->disconnectHandlers();
}

void DefaultFilesFoundCallback::setOwnCallback(IFilesFoundCallback *callback) {
  ObjectPtr<ISpinSharedLock> lock = getLock();
  SpinExclusiveLockGuard guard(lock.get());
  m_ownCallback.set(callback);
}

void DefaultFilesFoundCallback::setBehavior(files_found_behavior_t behavior) {
  ObjectPtr<ISpinSharedLock> lock = getLock();
  SpinExclusiveLockGuard guard(lock.get());
  m_behavior.store(behavior);
}

files_found_behavior_t DefaultFilesFoundCallback::behavior() const {
  return files_found_behavior_t(m_behavior.load());
}

ObjectPtr<IValidFile> DefaultFilesFoundCallback::processFilesFound(IFilesFoundHandler &handler,
                                                                   IValidFileIterator &files) {
  ObjectPtr<IValidFile> chosen = handler.callUserCallback(files);
  // Any non-zero behaviour acts as ffbUpdateHistory.
  if (m_behavior.load() == ffbIgnoreHistory)
    return chosen;
  // The host chose nothing: take the first file it did not consume.
  if (!chosen)
    chosen = files.next();
  if (!chosen)
    return chosen;
  handler.updateHistory(chosen->name());
  return chosen;
}

ObjectPtr<IValidFile> DefaultFilesFoundCallback::binFilesFound(const char *binName,
                                                               IValidFileIterator &files) {
  BinFilesFoundHandler handler(m_ownCallback, m_history.get(), binName);
  return processFilesFound(handler, files);
}

ObjectPtr<IValidFile> DefaultFilesFoundCallback::symFilesFound(const char *key1, const char *key2,
                                                               const char *key3, IValidFileIterator &files) {
  SymFilesFoundHandler handler(m_ownCallback, m_history.get(), {key1, key2, key3});
  return processFilesFound(handler, files);
}

ObjectPtr<IValidFile> DefaultFilesFoundCallback::srcFilesFound(const char *key1, const char *key2,
                                                               const char *key3, IValidFileIterator &files) {
  SrcFilesFoundHandler handler(m_ownCallback, m_history.get(), {key1, key2, key3});
  return processFilesFound(handler, files);
}

} // namespace VELL_2_13
