// The strategy for binaries: executables, shared libraries, kernel modules
// and the kernel image.
#pragma once

#include <string>

#include "vell_search/local_and_remote_strategy.h"

namespace VELL_2_13 {

class BinFileSearchStrategy : public BasicLocalAndRemoteFileSearchStrategy {
public:
  // validator: never null, not owned; handed to the no-files-found callback.
  BinFileSearchStrategy(ISearchEnv *env, const std::string &fileName, const std::string &retrievalDir,
                        IValidator *validator);

  bool callSearchStarted(ISearchStartedCallback &callback, IStringContainer &suggestions) override;
  bool lookUpAbsoluteName(ISearchResultsContainer &container) override;
  bool findInSystemDirs(ISearchResultsContainer &container) override;
  ObjectPtr<IValidFile> callFilesFound(IFilesFoundCallback &callback, IValidFileIterator &files) override;
  ObjectPtr<IValidFile> callNoFilesFound(INoFilesFoundCallback &callback, IInvalidFileIterator &rejected,
                                         IValidFileIterator &files) override;
  search_category_t getCategorySpecific() override { return scBinaryFiles; }
  void fillSystemDirs(ISearchDirectoryContainer &container) override;

private:
  IValidator *m_validator;
};

} // namespace VELL_2_13
