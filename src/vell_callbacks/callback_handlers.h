// The per-call handlers through which the default callbacks reach the host's
// own callback and the search history.
#pragma once

#include <string>

#include "vell/callbacks.h"

namespace VELL_2_13 {

class ISearchStartedHandler {
public:
  // The own callback's go-on answer; true when there is none.
  virtual bool callUserCallback(IStringContainer &names) = 0;
  // The history's association for the request, or null.
  virtual ObjectPtr<IFileAssociation> lookupHistory() = 0;

protected:
  ~ISearchStartedHandler() = default;
};

class IFilesFoundHandler {
public:
  // The own callback's choice; null when there is none (the files are then
  // rewound to the first one).
  virtual ObjectPtr<IValidFile> callUserCallback(IValidFileIterator &files) = 0;
  // Remembers resolvedName as the answer to the request.
  virtual void updateHistory(const char *resolvedName) = 0;

protected:
  ~IFilesFoundHandler() = default;
};

class INoFilesFoundHandler {
public:
  // The file the own callback supplies; null when there is none.
  virtual ObjectPtr<IValidFile> callUserCallback() = 0;
  // Remembers resolvedName (null: the empty name) as the answer to the request.
  virtual void updateHistory(const char *resolvedName) = 0;

protected:
  ~INoFilesFoundHandler() = default;
};

namespace callback_handlers {

// What every handler holds: the own callback, read under its lock for the
// handler's whole life (so it cannot die during the call), and the history.
template <class T> class HandlerBase {
protected:
  HandlerBase(const CallbackHolder<T> &ownCallback, ISearchHistory *history)
      : m_ownCallback(ownCallback), m_history(history) {}

  CallbackAccessor<T> m_ownCallback;
  ISearchHistory *m_history;
};

// The files-found answer when there is no own callback: no choice, and since
// nobody has looked at the files, they are offered again from the first one
// (a search hands over its iterator positioned after the file it found first).
ObjectPtr<IValidFile> noOwnChoice(IValidFileIterator &files);

// The three identifying strings of a symbol or source request, passed on
// unchanged (null stays null).
struct RequestKeys {
  const char *key1;
  const char *key2;
  const char *key3;
};

} // namespace callback_handlers

class BinSearchStartedHandler : public ISearchStartedHandler,
                                callback_handlers::HandlerBase<ISearchStartedCallback> {
public:
  BinSearchStartedHandler(const CallbackHolder<ISearchStartedCallback> &ownCallback, ISearchHistory *history,
                          const char *binName);
  bool callUserCallback(IStringContainer &names) override;
  ObjectPtr<IFileAssociation> lookupHistory() override;

private:
  const char *m_binName;
};

class SymSearchStartedHandler : public ISearchStartedHandler,
                                callback_handlers::HandlerBase<ISearchStartedCallback> {
public:
  SymSearchStartedHandler(const CallbackHolder<ISearchStartedCallback> &ownCallback, ISearchHistory *history,
                          callback_handlers::RequestKeys keys);
  bool callUserCallback(IStringContainer &names) override;
  ObjectPtr<IFileAssociation> lookupHistory() override;

private:
  callback_handlers::RequestKeys m_keys;
};

class SrcSearchStartedHandler : public ISearchStartedHandler,
                                callback_handlers::HandlerBase<ISearchStartedCallback> {
public:
  SrcSearchStartedHandler(const CallbackHolder<ISearchStartedCallback> &ownCallback, ISearchHistory *history,
                          callback_handlers::RequestKeys keys);
  bool callUserCallback(IStringContainer &names) override;
  ObjectPtr<IFileAssociation> lookupHistory() override;

private:
  callback_handlers::RequestKeys m_keys;
};

class BinFilesFoundHandler : public IFilesFoundHandler, callback_handlers::HandlerBase<IFilesFoundCallback> {
public:
  BinFilesFoundHandler(const CallbackHolder<IFilesFoundCallback> &ownCallback, ISearchHistory *history,
                       const char *binName);
  ObjectPtr<IValidFile> callUserCallback(IValidFileIterator &files) override;
  void updateHistory(const char *resolvedName) override;

private:
  const char *m_binName;
};

class SymFilesFoundHandler : public IFilesFoundHandler, callback_handlers::HandlerBase<IFilesFoundCallback> {
public:
  SymFilesFoundHandler(const CallbackHolder<IFilesFoundCallback> &ownCallback, ISearchHistory *history,
                       callback_handlers::RequestKeys keys);
  ObjectPtr<IValidFile> callUserCallback(IValidFileIterator &files) override;
  void updateHistory(const char *resolvedName) override;

private:
  callback_handlers::RequestKeys m_keys;
};

class SrcFilesFoundHandler : public IFilesFoundHandler, callback_handlers::HandlerBase<IFilesFoundCallback> {
public:
  SrcFilesFoundHandler(const CallbackHolder<IFilesFoundCallback> &ownCallback, ISearchHistory *history,
                       callback_handlers::RequestKeys keys);
  ObjectPtr<IValidFile> callUserCallback(IValidFileIterator &files) override;
  void updateHistory(const char *resolvedName) override;

private:
  callback_handlers::RequestKeys m_keys;
};

namespace callback_handlers {

// The arguments of a no-files-found call besides the request's strings.
struct NoFilesFoundArguments {
  IValidator &validator;
  IInvalidFileIterator &rejected;
  IValidFileIterator &files;
};

} // namespace callback_handlers

class BinNoFilesFoundHandler : public INoFilesFoundHandler,
                               callback_handlers::HandlerBase<INoFilesFoundCallback> {
public:
  BinNoFilesFoundHandler(const CallbackHolder<INoFilesFoundCallback> &ownCallback, ISearchHistory *history,
                         const char *binName, callback_handlers::NoFilesFoundArguments arguments);
  ObjectPtr<IValidFile> callUserCallback() override;
  void updateHistory(const char *resolvedName) override;

private:
  const char *m_binName;
  callback_handlers::NoFilesFoundArguments m_arguments;
};

class SymNoFilesFoundHandler : public INoFilesFoundHandler,
                               callback_handlers::HandlerBase<INoFilesFoundCallback> {
public:
  SymNoFilesFoundHandler(const CallbackHolder<INoFilesFoundCallback> &ownCallback, ISearchHistory *history,
                         callback_handlers::RequestKeys keys,
                         callback_handlers::NoFilesFoundArguments arguments);
  ObjectPtr<IValidFile> callUserCallback() override;
  void updateHistory(const char *resolvedName) override;

private:
  callback_handlers::RequestKeys m_keys;
  callback_handlers::NoFilesFoundArguments m_arguments;
};

class SrcNoFilesFoundHandler : public INoFilesFoundHandler,
                               callback_handlers::HandlerBase<INoFilesFoundCallback> {
public:
  SrcNoFilesFoundHandler(const CallbackHolder<INoFilesFoundCallback> &ownCallback, ISearchHistory *history,
                         callback_handlers::RequestKeys keys,
                         callback_handlers::NoFilesFoundArguments arguments);
  ObjectPtr<IValidFile> callUserCallback() override;
  void updateHistory(const char *resolvedName) override;

private:
  callback_handlers::RequestKeys m_keys;
  callback_handlers::NoFilesFoundArguments m_arguments;
};

} // namespace VELL_2_13
