// The bundle of everything one file search runs over.
#pragma once

#include <string>

#include "vell/search_env.h"

namespace VELL_2_13 {

// Filled by one thread before use and then only read; takes no lock.
class EditableSearchEnv : public RefCountImpl<IEditableSearchEnv> {
public:
  EditableSearchEnv() = default;

  ObjectPtr<ISearchDirIterator> searchDirs(search_category_t category) override;
  ObjectPtr<ISearchDirIterator> archiveDirs(search_category_t category) override;
  const char *cacheDir() override { return m_cacheDir.c_str(); }
  CallbackHolder<ISearchStartedCallback> &searchStartedCallback() override { return m_searchStartedCallback; }
  CallbackHolder<IFilesFoundCallback> &filesFoundCallback() override { return m_filesFoundCallback; }
  CallbackHolder<INoFilesFoundCallback> &noFilesFoundCallback() override { return m_noFilesFoundCallback; }
  CallbackHolder<IConfidenceLevelPolicyCallback> &confidenceLevelPolicyCallback() override {
    return m_confidenceLevelPolicyCallback;
  }
  ObjectPtr<IEnvironmentInfo> environmentInfo() override { return m_environmentInfo; }
  IFileRetriever *fileRetriever() override { return m_fileRetriever; }
  ObjectPtr<ISearchStepsConfigurator> searchStepsConfigurator() const override {
    return m_searchStepsConfigurator;
  }
  IMessenger *messenger() override { return m_messenger; }

  void setSearchDirs(const ObjectPtr<ISearchDirContainer> &dirs) override { m_searchDirs = dirs; }
  void setArchiveDirs(const ObjectPtr<ISearchDirContainer> &dirs) override { m_archiveDirs = dirs; }
  // A null text is ignored.
  void setCacheDir(const char *dir) override;
  void setSearchStartedCallback(const CallbackHolder<ISearchStartedCallback> &callback) override;
  void setFilesFoundCallback(const CallbackHolder<IFilesFoundCallback> &callback) override;
  void setNoFilesFoundCallback(const CallbackHolder<INoFilesFoundCallback> &callback) override;
  void
  setConfidenceLevelPolicyCallback(const CallbackHolder<IConfidenceLevelPolicyCallback> &callback) override;
  void setEnvironmentInfo(const ObjectPtr<IEnvironmentInfo> &info) override { m_environmentInfo = info; }
  void setFileRetriever(IFileRetriever *const &retriever) override { m_fileRetriever = retriever; }
  void setSearchStepsConfigurator(const ObjectPtr<ISearchStepsConfigurator> &configurator) override {
    m_searchStepsConfigurator = configurator;
  }
  void setMessenger(IMessenger *messenger) override { m_messenger = messenger; }

private:
  ObjectPtr<ISearchDirContainer> m_searchDirs;
  ObjectPtr<ISearchDirContainer> m_archiveDirs;
  std::string m_cacheDir;
  CallbackHolder<ISearchStartedCallback> m_searchStartedCallback;
  CallbackHolder<IFilesFoundCallback> m_filesFoundCallback;
  CallbackHolder<INoFilesFoundCallback> m_noFilesFoundCallback;
  CallbackHolder<IConfidenceLevelPolicyCallback> m_confidenceLevelPolicyCallback;
  ObjectPtr<IEnvironmentInfo> m_environmentInfo;
  IFileRetriever *m_fileRetriever = nullptr;
  ObjectPtr<ISearchStepsConfigurator> m_searchStepsConfigurator;
  IMessenger *m_messenger = nullptr;
};

} // namespace VELL_2_13
