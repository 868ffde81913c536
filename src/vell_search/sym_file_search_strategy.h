// The strategy for debug-symbol files: also looks next to the binary, locally
// and on the remote system.
#pragma once

#include <string>

#include "vell/callbacks.h"
#include "vell_search/local_and_remote_strategy.h"

namespace VELL_2_13 {

class SymFileSearchStrategy : public BasicLocalAndRemoteFileSearchStrategy {
public:
  // binaryPath: local path of the binary (may be empty); secondName: passed
  // to the callbacks only; remoteBinaryPath: the binary's path on the system
  // the file retriever fetches from (may be empty). validator is not owned.
  SymFileSearchStrategy(ISearchEnv *env, const std::string &fileName, const std::string &retrievalDir,
                        IValidator *validator, ISymSrvDownloadProgressCallback *progressCallback,
                        const std::string &binaryPath, const std::string &secondName,
                        const std::string &remoteBinaryPath);

  bool callSearchStarted(ISearchStartedCallback &callback, IStringContainer &suggestions) override;
  bool lookUpAbsoluteName(ISearchResultsContainer &container) override;
  bool lookUpAroundBinary(ISearchResultsContainer &container) override;
  ObjectPtr<IValidFile> callFilesFound(IFilesFoundCallback &callback, IValidFileIterator &files) override;
  ObjectPtr<IValidFile> callNoFilesFound(INoFilesFoundCallback &callback, IInvalidFileIterator &rejected,
                                         IValidFileIterator &files) override;
  bool find(const std::string &dir, bool recursive, const std::string &name,
            ISearchResultsContainer &container, bool &skipDir) override;
  search_category_t getCategorySpecific() override { return scSymbolFiles; }
  void fillSystemDirs(ISearchDirectoryContainer &container) override;

  // The sym-server download progress callback the search was given.
  ISymSrvDownloadProgressCallback *progressCallback() const { return m_progressCallback; }

private:
  bool targetIsLinux() const;
  bool lookUpAroundRemoteBinary(ISearchResultsContainer &container);

  std::string m_binaryPath;
  std::string m_secondName;
  std::string m_remoteBinaryPath;
  IValidator *m_validator;
  ISymSrvDownloadProgressCallback *m_progressCallback;
};

} // namespace VELL_2_13
