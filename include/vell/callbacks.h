// Host callbacks around a search, their default behaviours with the search
// history, and the search manipulator that configures them.
#pragma once

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
  virtual ObjectPtr<IFileAssociation> addBinFileAssociation(const char *binName, const char *resolvedName) = 0;
  virtual ObjectPtr<IFileAssociation> addSymFileAssociation(const char *key1, const char *key2, const char *key3,
                                                            const char *resolvedName) = 0;
  virtual ObjectPtr<IFileAssociation> addSrcFileAssociation(const char *key1, const char *key2, const char *key3,
                                                            const char *resolvedName) = 0;
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
                                                IInvalidFileIterator &rejected, IValidFileIterator &files) = 0;
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

// Combines the host's own search-started callback with the history.
class VELL_API DefaultSearchStartedCallback : public ISearchStartedCallback {
public:
  explicit DefaultSearchStartedCallback(ISearchHistory *history);
  bool binFileSearchStarted(const char *binName, IStringContainer &names) override;
  bool symFileSearchStarted(const char *key1, const char *key2, const char *key3,
                            IStringContainer &names) override;
  bool srcFileSearchStarted(const char *key1, const char *key2, const char *key3,
                            IStringContainer &names) override;

  void setOwnCallback(ISearchStartedCallback *callback) { m_ownCallback.set(callback); }
  void setBehavior(search_started_behavior_t behavior) { m_behavior = behavior; }
  search_started_behavior_t behavior() const { return m_behavior; }

private:
  CallbackHolder<ISearchStartedCallback> m_ownCallback;
  ISearchHistory *m_history;
  search_started_behavior_t m_behavior;
};

class VELL_API DefaultFilesFoundCallback : public IFilesFoundCallback {
public:
  explicit DefaultFilesFoundCallback(ISearchHistory *history);
  ObjectPtr<IValidFile> binFilesFound(const char *binName, IValidFileIterator &files) override;
  ObjectPtr<IValidFile> symFilesFound(const char *key1, const char *key2, const char *key3,
                                      IValidFileIterator &files) override;
  ObjectPtr<IValidFile> srcFilesFound(const char *key1, const char *key2, const char *key3,
                                      IValidFileIterator &files) override;

  void setOwnCallback(IFilesFoundCallback *callback) { m_ownCallback.set(callback); }
  void setBehavior(files_found_behavior_t behavior) { m_behavior = behavior; }
  files_found_behavior_t behavior() const { return m_behavior; }

private:
  CallbackHolder<IFilesFoundCallback> m_ownCallback;
  ISearchHistory *m_history;
  files_found_behavior_t m_behavior;
};

class VELL_API DefaultNoFilesFoundCallback : public INoFilesFoundCallback {
public:
  explicit DefaultNoFilesFoundCallback(ISearchHistory *history);
  ObjectPtr<IValidFile> noBinFilesFound(const char *binName, IValidator &validator,
                                        IInvalidFileIterator &rejected, IValidFileIterator &files) override;
  ObjectPtr<IValidFile> noSymFilesFound(const char *key1, const char *key2, const char *key3,
                                        IValidator &validator, IInvalidFileIterator &rejected,
                                        IValidFileIterator &files) override;
  ObjectPtr<IValidFile> noSrcFilesFound(const char *key1, const char *key2, const char *key3,
                                        IValidator &validator, IInvalidFileIterator &rejected,
                                        IValidFileIterator &files) override;

  void setOwnCallback(INoFilesFoundCallback *callback) { m_ownCallback.set(callback); }
  void setBehavior(no_files_found_behavior_t behavior) { m_behavior = behavior; }
  no_files_found_behavior_t behavior() const { return m_behavior; }

private:
  CallbackHolder<INoFilesFoundCallback> m_ownCallback;
  ISearchHistory *m_history;
  no_files_found_behavior_t m_behavior;
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

  // A manipulator for a resolution context (null for none): each default
  // callback it creates for a key is registered in that context for the
  // client id equal to the key.
  static VELL_API ObjectPtr<ISearchManipulator> create(IResolutionContext *context);
};

} // namespace VELL_2_13
