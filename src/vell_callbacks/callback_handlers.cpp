// Handlers of the default callbacks: one per category and callback kind.
#include "vell_callbacks/callback_handlers.h"

namespace VELL_2_13 {

using callback_handlers::NoFilesFoundArguments;
using callback_handlers::RequestKeys;

// --- Search started ------------------------------------------------------------------

BinSearchStartedHandler::BinSearchStartedHandler(const CallbackHolder<ISearchStartedCallback> &ownCallback,
                                                 ISearchHistory *history, const char *binName)
    : HandlerBase(ownCallback, history), m_binName(binName) {}

bool BinSearchStartedHandler::callUserCallback(IStringContainer &names) {
  if (!m_ownCallback)
    return true;
  return m_ownCallback->binFileSearchStarted(m_binName, names);
}

ObjectPtr<IFileAssociation> BinSearchStartedHandler::lookupHistory() {
  if (!m_history)
    return ObjectPtr<IFileAssociation>();
  return m_history->findBinFileAssociation(m_binName);
}

SymSearchStartedHandler::SymSearchStartedHandler(const CallbackHolder<ISearchStartedCallback> &ownCallback,
                                                 ISearchHistory *history, RequestKeys keys)
    : HandlerBase(ownCallback, history), m_keys(keys) {}

bool SymSearchStartedHandler::callUserCallback(IStringContainer &names) {
  if (!m_ownCallback)
    return true;
  return m_ownCallback->symFileSearchStarted(m_keys.key1, m_keys.key2, m_keys.key3, names);
}

ObjectPtr<IFileAssociation> SymSearchStartedHandler::lookupHistory() {
  if (!m_history)
    return ObjectPtr<IFileAssociation>();
  return m_history->findSymFileAssociation(m_keys.key1, m_keys.key2, m_keys.key3);
}

SrcSearchStartedHandler::SrcSearchStartedHandler(const CallbackHolder<ISearchStartedCallback> &ownCallback,
                                                 ISearchHistory *history, RequestKeys keys)
    : HandlerBase(ownCallback, history), m_keys(keys) {}

bool SrcSearchStartedHandler::callUserCallback(IStringContainer &names) {
  if (!m_ownCallback)
    return true;
  return m_ownCallback->srcFileSearchStarted(m_keys.key1, m_keys.key2, m_keys.key3, names);
}

ObjectPtr<IFileAssociation> SrcSearchStartedHandler::lookupHistory() {
  if (!m_history)
    return ObjectPtr<IFileAssociation>();
  return m_history->findSrcFileAssociation(m_keys.key1, m_keys.key2, m_keys.key3);
}

// --- Files found ---------------------------------------------------------------------

ObjectPtr<IValidFile> callback_handlers::noOwnChoice(IValidFileIterator &files) {
  files.reset();
  return ObjectPtr<IValidFile>();
}

BinFilesFoundHandler::BinFilesFoundHandler(const CallbackHolder<IFilesFoundCallback> &ownCallback,
                                           ISearchHistory *history, const char *binName)
    : HandlerBase(ownCallback, history), m_binName(binName) {}

ObjectPtr<IValidFile> BinFilesFoundHandler::callUserCallback(IValidFileIterator &files) {
  if (!m_ownCallback)
    return callback_handlers::noOwnChoice(files);
  return m_ownCallback->binFilesFound(m_binName, files);
}

void BinFilesFoundHandler::updateHistory(const char *resolvedName) {
  if (m_history)
    m_history->addBinFileAssociation(m_binName, resolvedName);
}

SymFilesFoundHandler::SymFilesFoundHandler(const CallbackHolder<IFilesFoundCallback> &ownCallback,
                                           ISearchHistory *history, RequestKeys keys)
    : HandlerBase(ownCallback, history), m_keys(keys) {}

ObjectPtr<IValidFile> SymFilesFoundHandler::callUserCallback(IValidFileIterator &files) {
  if (!m_ownCallback)
    return callback_handlers::noOwnChoice(files);
  return m_ownCallback->symFilesFound(m_keys.key1, m_keys.key2, m_keys.key3, files);
}

void SymFilesFoundHandler::updateHistory(const char *resolvedName) {
  if (m_history)
    m_history->addSymFileAssociation(m_keys.key1, m_keys.key2, m_keys.key3, resolvedName);
}

SrcFilesFoundHandler::SrcFilesFoundHandler(const CallbackHolder<IFilesFoundCallback> &ownCallback,
                                           ISearchHistory *history, RequestKeys keys)
    : HandlerBase(ownCallback, history), m_keys(keys) {}

ObjectPtr<IValidFile> SrcFilesFoundHandler::callUserCallback(IValidFileIterator &files) {
  if (!m_ownCallback)
    return callback_handlers::noOwnChoice(files);
  return m_ownCallback->srcFilesFound(m_keys.key1, m_keys.key2, m_keys.key3, files);
}

void SrcFilesFoundHandler::updateHistory(const char *resolvedName) {
  if (m_history)
    m_history->addSrcFileAssociation(m_keys.key1, m_keys.key2, m_keys.key3, resolvedName);
}

// --- No files found ------------------------------------------------------------------

BinNoFilesFoundHandler::BinNoFilesFoundHandler(const CallbackHolder<INoFilesFoundCallback> &ownCallback,
                                               ISearchHistory *history, const char *binName,
                                               NoFilesFoundArguments arguments)
    : HandlerBase(ownCallback, history), m_binName(binName), m_arguments(arguments) {}

ObjectPtr<IValidFile> BinNoFilesFoundHandler::callUserCallback() {
  if (!m_ownCallback)
    return ObjectPtr<IValidFile>();
  return m_ownCallback->noBinFilesFound(m_binName, m_arguments.validator, m_arguments.rejected,
                                        m_arguments.files);
}

void BinNoFilesFoundHandler::updateHistory(const char *resolvedName) {
  if (m_history)
    m_history->addBinFileAssociation(m_binName, resolvedName);
}

SymNoFilesFoundHandler::SymNoFilesFoundHandler(const CallbackHolder<INoFilesFoundCallback> &ownCallback,
                                               ISearchHistory *history, RequestKeys keys,
                                               NoFilesFoundArguments arguments)
    : HandlerBase(ownCallback, history), m_keys(keys), m_arguments(arguments) {}

ObjectPtr<IValidFile> SymNoFilesFoundHandler::callUserCallback() {
  if (!m_ownCallback)
    return ObjectPtr<IValidFile>();
  return m_ownCallback->noSymFilesFound(m_keys.key1, m_keys.key2, m_keys.key3, m_arguments.validator,
                                        m_arguments.rejected, m_arguments.files);
}

void SymNoFilesFoundHandler::updateHistory(const char *resolvedName) {
  if (m_history)
    m_history->addSymFileAssociation(m_keys.key1, m_keys.key2, m_keys.key3, resolvedName);
}

SrcNoFilesFoundHandler::SrcNoFilesFoundHandler(const CallbackHolder<INoFilesFoundCallback> &ownCallback,
                                               ISearchHistory *history, RequestKeys keys,
                                               NoFilesFoundArguments arguments)
    : HandlerBase(ownCallback, history), m_keys(keys), m_arguments(arguments) {}

ObjectPtr<IValidFile> SrcNoFilesFoundHandler::callUserCallback() {
  if (!m_ownCallback)
    return ObjectPtr<IValidFile>();
  return m_ownCallback->noSrcFilesFound(m_keys.key1, m_keys.key2, m_keys.key3, m_arguments.validator,
                                        m_arguments.rejected, m_arguments.files);
}

void SrcNoFilesFoundHandler::updateHistory(const char *resolvedName) {
  if (m_history)
    m_history->addSrcFileAssociation(m_keys.key1, m_keys.key2, m_keys.key3, resolvedName);
}

} // namespace VELL_2_13
