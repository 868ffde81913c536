// Host callbacks around a search, their default behaviours with the search
// history, and the search manipulator that configures them.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "vell/objects.h"
#include "vell/results.h"
#include "vell/search_steps.h"

namespace VELL_2_13 {

class IEditableSearchDirContainer;
class IResolutionContext;

// --- Search history ------------------------------------------------------------

class IFileAssociation : public IVellObject {
public:
  virtual const char *resolvedName() const = 0;
};

class ISearchHistory : public IVellObject {
public:
  virtual ObjectPtr<IFileAssociation> addBinFileAssociation(const char *binName,
                                                            const char *resolvedName) = 0;
  virtual ObjectPtr<IFileAssociation> addSymFileAssociation(const char *key1, const char *key2,
                                                            const char *key3, const char *resolvedName) = 0;
  virtual ObjectPtr<IFileAssociation> addSrcFileAssociation(const char *key1, const char *key2,
                                                            const char *key3, const char *resolvedName) = 0;
  virtual void clear(search_category_t category) = 0;
  virtual ObjectPtr<IFileAssociation> findBinFileAssociation(const char *binName) = 0;
  virtual ObjectPtr<IFileAssociation> findSymFileAssociation(const char *key1, const char *key2,
                                                             const char *key3) = 0;
  virtual ObjectPtr<IFileAssociation> findSrcFileAssociation(const char *key1, const char *key2,
                                                             const char *key3) = 0;

  static VELL_API ObjectPtr<ISearchHistory> create();
};

// --- Callback interfaces ---------------------------------------------------------

class ISearchStartedCallback : public EventGenerator {
public:
  virtual bool binFileSearchStarted(const char *binName, IStringContainer &names) = 0;
  virtual bool symFileSearchStarted(const char *key1, const char *key2, const char *key3,
                                    IStringContainer &names) = 0;
  virtual bool srcFileSearchStarted(const char *key1, const char *key2, const char *key3,
                                    IStringContainer &names) = 0;
};

class IFilesFoundCallback : public EventGenerator {
public:
  virtual ObjectPtr<IValidFile> binFilesFound(const char *binName, IValidFileIterator &files) = 0;
  virtual ObjectPtr<IValidFile> symFilesFound(const char *key1, const char *key2, const char *key3,
                                              IValidFileIterator &files) = 0;
  virtual ObjectPtr<IValidFile> srcFilesFound(const char *key1, const char *key2, const char *key3,
                                              IValidFileIterator &files) = 0;
};

class INoFilesFoundCallback : public EventGenerator {
public:
  virtual ObjectPtr<IValidFile> noBinFilesFound(const char *binName, IValidator &validator,
                                                IInvalidFileIterator &rejected,
                                                IValidFileIterator &files) = 0;
  virtual ObjectPtr<IValidFile> noSymFilesFound(const char *key1, const char *key2, const char *key3,
                                                IValidator &validator, IInvalidFileIterator &rejected,
                                                IValidFileIterator &files) = 0;
  virtual ObjectPtr<IValidFile> noSrcFilesFound(const char *key1, const char *key2, const char *key3,
                                                IValidator &validator, IInvalidFileIterator &rejected,
                                                IValidFileIterator &files) = 0;
};

// Progress of symbol-server downloads; passed through a search untouched.
class ISymSrvDownloadProgressCallback {
public:
  virtual ~ISymSrvDownloadProgressCallback() = default;
  virtual void progress(const char *fileName, uint64_t done, uint64_t total) = 0;
};

// The progress callback given to the symbol-file search (findSymFile) that
// runs on the calling thread, or null outside one: a file retriever reports
// the transfers it makes for that search to it. A search started from inside
// another one has its own; the outer one's returns when it ends.
VELL_API ISymSrvDownloadProgressCallback *currentDownloadProgressCallback();

// --- Behaviours ------------------------------------------------------------------

enum search_started_behavior_t : uint32_t {
  ssbIgnoreHistory = 0,
  ssbSuggestFromHistory = 1,
  ssbUseHistory = 2,
};

enum files_found_behavior_t : uint32_t {
  ffbIgnoreHistory = 0,
  ffbUpdateHistory = 1,
};

enum no_files_found_behavior_t : uint32_t {
  nfbIgnoreHistory = 0,
  nfbKeepHistory = 1,
  nfbUpdateHistory = 2,
};

// Stored per key for the search-directory machinery.
enum search_dirs_behavior_t : uint32_t {
  sdbDefault = 0,
};

// --- Default callbacks -------------------------------------------------------------

// Built on the stack for one call of a default callback: the host's own
// callback of that kind, the history and the call's arguments.
class ISearchStartedHandler;
class IFilesFoundHandler;
class INoFilesFoundHandler;

// The default callbacks combine the host's own callback of the same kind with
// the search history, as their behaviour says. The own callback is held in a
// CallbackHolder (host callbacks are not reference-counted) and read under its
// lock for the length of one call. Behaviours and own callbacks may be changed
// at any time; the setters take this callback's own lock exclusively, so a
// change waits for the calls that a search is making through an environment
// and applies to the next call. A setter must therefore not be called from
// inside a callback of the same default callback.

// Combines the host's own search-started callback with the history.
class VELL_API DefaultSearchStartedCallback : public ISearchStartedCallback {
public:
  explicit DefaultSearchStartedCallback(ISearchHistory *history);
  ~DefaultSearchStartedCallback() override;
  bool binFileSearchStarted(const char *binName, IStringContainer &names) override;
  bool symFileSearchStarted(const char *key1, const char *key2, const char *key3,
                            IStringContainer &names) override;
  bool srcFileSearchStarted(const char *key1, const char *key2, const char *key3,
                            IStringContainer &names) override;

  // The own callback runs first and may veto; a remembered answer is then
  // added to names (behaviour 1 goes on, 2 and above skip the search steps).
  bool processSearchStarted(ISearchStartedHandler &handler, IStringContainer &names);

  void setOwnCallback(ISearchStartedCallback *callback);
  void setBehavior(search_started_behavior_t behavior);
  search_started_behavior_t behavior() const;
  ObjectPtr<ISearchHistory> history() const { return m_history; }

private:
  CallbackHolder<ISearchStartedCallback> m_ownCallback;
  ObjectPtr<ISearchHistory> m_history;
  std::atomic<uint32_t> m_behavior;
};

// Combines the host's own files-found callback with the history.
class VELL_API DefaultFilesFoundCallback : public IFilesFoundCallback {
public:
  explicit DefaultFilesFoundCallback(ISearchHistory *history);
  ~DefaultFilesFoundCallback() override;
  ObjectPtr<IValidFile> binFilesFound(const char *binName, IValidFileIterator &files) override;
  ObjectPtr<IValidFile> symFilesFound(const char *key1, const char *key2, const char *key3,
                                      IValidFileIterator &files) override;
  ObjectPtr<IValidFile> srcFilesFound(const char *key1, const char *key2, const char *key3,
                                      IValidFileIterator &files) override;

  // The own callback's choice; with a non-zero behaviour the next valid file
  // when it chose none (the first file when there is no own callback), and
  // the chosen file is remembered.
  ObjectPtr<IValidFile> processFilesFound(IFilesFoundHandler &handler, IValidFileIterator &files);

  void setOwnCallback(IFilesFoundCallback *callback);
  void setBehavior(files_found_behavior_t behavior);
  files_found_behavior_t behavior() const;
  ObjectPtr<ISearchHistory> history() const { return m_history; }

private:
  CallbackHolder<IFilesFoundCallback> m_ownCallback;
  ObjectPtr<ISearchHistory> m_history;
  std::atomic<uint32_t> m_behavior;
};

// Combines the host's own no-files-found callback with the history.
class VELL_API DefaultNoFilesFoundCallback : public INoFilesFoundCallback {
public:
  explicit DefaultNoFilesFoundCallback(ISearchHistory *history);
  ~DefaultNoFilesFoundCallback() override;
  ObjectPtr<IValidFile> noBinFilesFound(const char *binName, IValidator &validator,
                                        IInvalidFileIterator &rejected, IValidFileIterator &files) override;
  ObjectPtr<IValidFile> noSymFilesFound(const char *key1, const char *key2, const char *key3,
                                        IValidator &validator, IInvalidFileIterator &rejected,
                                        IValidFileIterator &files) override;
  ObjectPtr<IValidFile> noSrcFilesFound(const char *key1, const char *key2, const char *key3,
                                        IValidator &validator, IInvalidFileIterator &rejected,
                                        IValidFileIterator &files) override;

  // The own callback's file; with behaviour 2 and above its name (or the empty
  // name when there is none) is remembered.
  ObjectPtr<IValidFile> processNoFilesFound(INoFilesFoundHandler &handler);

  void setOwnCallback(INoFilesFoundCallback *callback);
  void setBehavior(no_files_found_behavior_t behavior);
  no_files_found_behavior_t behavior() const;
  ObjectPtr<ISearchHistory> history() const { return m_history; }

private:
  CallbackHolder<INoFilesFoundCallback> m_ownCallback;
  ObjectPtr<ISearchHistory> m_history;
  std::atomic<uint32_t> m_behavior;
};

// --- Search manipulator ------------------------------------------------------------

class ISearchManipulator : public IVellObject {
public:
  virtual ObjectPtr<IEditableSearchDirContainer> getUserDefinedSearchDirs() = 0;
  virtual ObjectPtr<ISearchHistory> getHistory() = 0;
  virtual int setSearchStartedBehavior(const char *key, search_started_behavior_t behavior) = 0;
  virtual int setOwnSearchStartedCallback(const char *key, ISearchStartedCallback *callback) = 0;
  virtual int setFilesFoundBehavior(const char *key, files_found_behavior_t behavior) = 0;
  virtual int setOwnFilesFoundCallback(const char *key, IFilesFoundCallback *callback) = 0;
  virtual int setNoFilesFoundBehavior(const char *key, no_files_found_behavior_t behavior) = 0;
  virtual int setOwnNoFilesFoundCallback(const char *key, INoFilesFoundCallback *callback) = 0;
  virtual int setSearchDirsBehavior(const char *key, search_dirs_behavior_t behavior) = 0;

  // A manipulator for a resolution context (null for none). The setters
  // find or create, per key, the default callback of their kind (behaviour 0,
  // no own callback, this manipulator's history) and change it; a null key
  // does nothing. They return 0.
  //
  // Each default callback created for a key is registered once, when it is
  // created, in the manipulator's context for the client id equal to the key,
  // through IResolutionContextMgr::create()->register<Kind>Callback(context,
  // key, callback); environments created for that context and client then use
  // it. The manipulator keeps a copy of the context's identity and a reference
  // on the manager, so the registrations last as long as the manipulator; its
  // default callbacks die with it and every environment forgets them. With a
  // null context nothing is registered.
  static VELL_API ObjectPtr<ISearchManipulator> create(IResolutionContext *context);
};

} // namespace VELL_2_13
