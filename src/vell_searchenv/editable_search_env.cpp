// EditableSearchEnv: factory, directory getters and the callback setters.
#include "vell_searchenv/editable_search_env.h"

namespace VELL_2_13 {

ObjectPtr<IEditableSearchEnv> IEditableSearchEnv::create() {
  return ObjectPtr<IEditableSearchEnv>(new EditableSearchEnv());
}

ObjectPtr<ISearchDirIterator> EditableSearchEnv::searchDirs(search_category_t category) {
  if (!m_searchDirs)
    return ObjectPtr<ISearchDirIterator>();
  return m_searchDirs->enumerate(category);
}

ObjectPtr<ISearchDirIterator> EditableSearchEnv::archiveDirs(search_category_t category) {
  if (!m_archiveDirs)
    return ObjectPtr<ISearchDirIterator>();
  return m_archiveDirs->enumerate(category);
}

void EditableSearchEnv::setCacheDir(const char *dir) {
  if (dir)
    m_cacheDir = dir;
}

// Each holder leaves the old callback's generator and registers with the new one.
void EditableSearchEnv::setSearchStartedCallback(const CallbackHolder<ISearchStartedCallback> &callback) {
  m_searchStartedCallback.set(callback.callbackUnlocked());
}

void EditableSearchEnv::setFilesFoundCallback(const CallbackHolder<IFilesFoundCallback> &callback) {
  m_filesFoundCallback.set(callback.callbackUnlocked());
}

void EditableSearchEnv::setNoFilesFoundCallback(const CallbackHolder<INoFilesFoundCallback> &callback) {
  m_noFilesFoundCallback.set(callback.callbackUnlocked());
}

void EditableSearchEnv::setConfidenceLevelPolicyCallback(
    const CallbackHolder<IConfidenceLevelPolicyCallback> &callback) {
  m_confidenceLevelPolicyCallback.set(callback.callbackUnlocked());
}

} // namespace VELL_2_13
