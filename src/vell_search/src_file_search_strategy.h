// The strategy for source files: never fetched, never looked for next to
// the binary.
#pragma once

#include <string>

#include "vell_search/basic_file_search_strategy.h"

namespace VELL_2_13 {

class SrcFileSearchStrategy : public BasicFileSearchStrategy {
public:
  // name2 and name3 are passed to the callbacks after the file name;
  // validator is not owned.
  SrcFileSearchStrategy(ISearchEnv *env, const std::string &fileName, IValidator *validator,
                        const std::string &name2, const std::string &name3);

  bool callSearchStarted(ISearchStartedCallback &callback, IStringContainer &suggestions) override;
  ObjectPtr<IValidFile> callFilesFound(IFilesFoundCallback &callback, IValidFileIterator &files) override;
  ObjectPtr<IValidFile> callNoFilesFound(INoFilesFoundCallback &callback, IInvalidFileIterator &rejected,
                                         IValidFileIterator &files) override;
  search_category_t getCategorySpecific() override { return scSourceFiles; }
  void fillSystemDirs(ISearchDirectoryContainer &container) override;

private:
  std::string m_name2;
  std::string m_name3;
  IValidator *m_validator;
};

} // namespace VELL_2_13
