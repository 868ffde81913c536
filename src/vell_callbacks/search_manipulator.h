// The search manipulator: per key, the default callbacks with their behaviours
// and own callbacks, the search-directory behaviours and the shared history.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "vell/callbacks.h"
#include "vell/context.h"
#include "vell/search_env.h"

namespace VELL_2_13 {

// Created for a resolution context (or none). Each default callback it creates
// for a key is registered once in that context, for the client id equal to the
// key, with the process-wide context manager; the manipulator keeps that
// manager alive so that the registrations last as long as the manipulator.
// Its maps are not locked: hosts configure a manipulator before searching.
class SearchManipulator : public RefCountImpl<ISearchManipulator> {
public:
  explicit SearchManipulator(IResolutionContext *context);
  ~SearchManipulator() override;

  ObjectPtr<IEditableSearchDirContainer> getUserDefinedSearchDirs() override;
  ObjectPtr<ISearchHistory> getHistory() override;
  int setSearchStartedBehavior(const char *key, search_started_behavior_t behavior) override;
  int setOwnSearchStartedCallback(const char *key, ISearchStartedCallback *callback) override;
  int setFilesFoundBehavior(const char *key, files_found_behavior_t behavior) override;
  int setOwnFilesFoundCallback(const char *key, IFilesFoundCallback *callback) override;
  int setNoFilesFoundBehavior(const char *key, no_files_found_behavior_t behavior) override;
  int setOwnNoFilesFoundCallback(const char *key, INoFilesFoundCallback *callback) override;
  int setSearchDirsBehavior(const char *key, search_dirs_behavior_t behavior) override;

  // Find or create the default callback of a kind for a key (null is "").
  DefaultSearchStartedCallback &getSearchStartedCallback(const char *key);
  DefaultFilesFoundCallback &getFilesFoundCallback(const char *key);
  DefaultNoFilesFoundCallback &getNoFilesFoundCallback(const char *key);

  // The stored search-directory behaviour of a key; sdbDefault when none.
  search_dirs_behavior_t getSearchDirsBehavior(const char *key) const;
  // The identity copy of the context, or null.
  ObjectPtr<IResolutionContext> context() const { return m_context; }

private:
  ObjectPtr<IResolutionContext> m_context;
  ObjectPtr<IResolutionContextMgr> m_contextMgr;
  ObjectPtr<IEditableSearchDirContainer> m_userDefinedSearchDirs;
  ObjectPtr<ISearchHistory> m_history;
  // Declared after the history and the manager: the callbacks die first, so
  // their holders in the context are disconnected before either goes.
  std::map<std::string, std::unique_ptr<DefaultSearchStartedCallback>> m_searchStartedCallbacks;
  std::map<std::string, std::unique_ptr<DefaultFilesFoundCallback>> m_filesFoundCallbacks;
  std::map<std::string, std::unique_ptr<DefaultNoFilesFoundCallback>> m_noFilesFoundCallbacks;
  std::map<std::string, search_dirs_behavior_t> m_searchDirsBehaviors;
};

} // namespace VELL_2_13
