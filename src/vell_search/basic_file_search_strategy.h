// The step handlers shared by every category of file: archive, search,
// cache and system directories and the absolute-name look-up.
#pragma once

#include <string>

#include "vell_search/file_search_strategy.h"
#include "vell_search/files_finder.h"

namespace VELL_2_13 {

class BasicFileSearchStrategy : public IFileSearchStrategy, public ISearchDirectoryFindCallback {
public:
  // env may be null; it is not owned and must outlive the strategy.
  BasicFileSearchStrategy(ISearchEnv *env, const std::string &fileName);
  virtual ~BasicFileSearchStrategy() = default;

  bool findInArchiveDirs(ISearchResultsContainer &container) override;
  bool findInHighPriorityDirs(ISearchResultsContainer &container) override;
  bool lookUpAbsoluteName(ISearchResultsContainer &container) override;
  bool lookUpAroundBinary(ISearchResultsContainer &container) override;
  bool findInLowPriorityDirs(ISearchResultsContainer &container) override;
  bool findInSystemDirs(ISearchResultsContainer &container) override;
  bool findInCacheDir(ISearchResultsContainer &container) override;
  ISearchEnv *getSearchEnv() const override { return m_searchEnv; }
  const char *fileToSearch() override { return m_fileName.c_str(); }
  ObjectPtr<ISearchStepsIterator> getSearchStepsIterator(unsigned long long mask) override;
  // Claims nothing and skips nothing.
  bool find(const std::string &dir, bool recursive, const std::string &name,
            ISearchResultsContainer &container, bool &skipDir) override;
  virtual search_category_t getCategorySpecific() = 0;
  virtual void fillSystemDirs(ISearchDirectoryContainer &container) = 0;
  // Recursive walks of every step are answered by index from now on; null
  // (the default) walks the file system. Not owned.
  void setDirectoryIndex(DirectoryIndex *index) { m_directoryIndex = index; }
  // Recursive walks of every step have threads helpers list directories
  // ahead of them (FilesFinder::setReadAheadThreads); 0, the default, none.
  void setReadAheadThreads(unsigned int threads) { m_readAheadThreads = threads; }

protected:
  const std::string &fileName() const { return m_fileName; }
  DirectoryIndex *directoryIndex() const { return m_directoryIndex; }
  // Gives finder the index and the read-ahead of this strategy's walks.
  void configureWalk(FilesFinder &finder) const;
  // What the search-directory steps offer in each directory besides the
  // name (FilesFinder::setCompanionFiles); none by default.
  virtual ICompanionFiles *searchDirCompanions() { return nullptr; }

private:
  bool findInSearchDirs(ISearchResultsContainer &container, bool highPriority);
  bool searchDirPass(const ObjectPtr<ISearchDirIterator> &dirs, bool highPriority,
                     ISearchResultsContainer &container);

  ISearchEnv *m_searchEnv;
  std::string m_fileName;
  DirectoryIndex *m_directoryIndex = nullptr;
  unsigned int m_readAheadThreads = 0;
};

// Marks a file of a guest system kept under a search directory.
extern const char *const GUEST_MARKER; // "[guest]"

// Whether name holds the guest marker.
bool isGuestName(const std::string &name);

} // namespace VELL_2_13
