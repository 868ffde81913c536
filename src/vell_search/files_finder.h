// The directory walker: turns a list of directories and a file name into
// candidate paths handed to a results container.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "vell_search/directory_reader.h"
#include "vell_search/search_interfaces.h"

namespace VELL_2_13 {

class DirectoryIndex;
class WalkReadAhead;

// Receives the directories a search step is to look in.
class ISearchDirectoryContainer {
public:
  virtual void addSearchDirectory(const char *dir, bool recursive) = 0;

protected:
  ~ISearchDirectoryContainer() = default;
};

// Asked before each directory is searched: true settles the search; skipDir
// set means the directory is not to be searched.
class ISearchDirectoryFindCallback {
public:
  virtual bool find(const std::string &dir, bool recursive, const std::string &name,
                    ISearchResultsContainer &container, bool &skipDir) = 0;

protected:
  ~ISearchDirectoryFindCallback() = default;
};

// Further files a search offers in a directory it looks in, right after the
// candidate it constructs for that directory (the kernel-aware search's
// compressed modules and '-'/'_' spellings of a module's name).
class ICompanionFiles : public walker::EntryFilter {
public:
  // keep(name) (walker::EntryFilter) tells the entries of a listing that are
  // companions; offerListed offers those of dir in their order, with step;
  // true as soon as the container accepts one.
  virtual bool offerListed(const std::string &dir, const std::vector<std::string> &entries,
                           ISearchResultsContainer &container, unsigned int step) = 0;
  // Offers the companions that exist in dir, in their order, with step; true
  // as soon as the container accepts one.
  virtual bool offerCompanions(const std::string &dir, ISearchResultsContainer &container,
                               unsigned int step) = 0;
  // Every entry name that gives a directory a companion, for a directory
  // index to find the directories to look in; false when they are too many
  // to list (recursive directories are then walked).
  virtual bool companionNames(std::vector<std::string> &names) const = 0;

protected:
  ~ICompanionFiles() = default;
};

// Walks its directories for one name; every candidate goes to the container
// with the finder's step number, and the first accepted one ends the walk.
class FilesFinder : public ISearchDirectoryContainer {
public:
  FilesFinder(unsigned int step, ISearchDirectoryFindCallback *findCallback);
  ~FilesFinder() = default;

  // Appends a record; duplicates, missing and empty directories are all kept.
  void addSearchDirectory(const char *dir, bool recursive) override;
  // Offers dir/fileName and walks the subdirectories of dir depth first.
  virtual bool findRecursively(const std::string &dir, const std::string &fileName,
                               ISearchResultsContainer &container);
  // Offers dir/a/b/c, dir/b/c, dir/c for the name a/b/c.
  virtual bool findIteratively(const std::string &dir, const std::string &name,
                               ISearchResultsContainer &container);

  // The directory pass over every record in order of addition.
  bool find(const char *name, ISearchResultsContainer &container);

  unsigned int step() const { return m_step; }
  // Recursive records are then answered by the index, which offers the
  // candidates of findRecursively that exist, in the same order. Not owned.
  void setDirectoryIndex(DirectoryIndex *index) { m_directoryIndex = index; }
  // With threads > 0, recursive walks have that many helper threads list
  // directories ahead of them; the candidates, their order and the observer
  // calls stay those of the walk on one thread. 0 (the default) starts none.
  void setReadAheadThreads(unsigned int threads) { m_readAheadThreads = threads; }
  // Each directory looked in (tail look-ups and every directory of a
  // recursive walk) also offers the companions of the name after its
  // candidate. Null (the default) offers none. Not owned.
  void setCompanionFiles(ICompanionFiles *companions) { m_companions = companions; }

private:
  struct search_dir {
    std::string path;
    bool recursive;
  };

  unsigned int m_step;
  std::vector<search_dir> m_directories;
  ISearchDirectoryFindCallback *m_findCallback;
  DirectoryIndex *m_directoryIndex = nullptr;
  unsigned int m_readAheadThreads = 0;
  ICompanionFiles *m_companions = nullptr;
  // The read-ahead of the walk under way, owned by its outermost call.
  WalkReadAhead *m_readAhead = nullptr;
  // Inode numbers of the directories entered by the recursive walk; a hash
  // set keeps the loop guard at constant time per directory.
  std::unordered_set<unsigned long> m_visitedDirectories;
};

} // namespace VELL_2_13
