// The directory walker: tail look-ups under each directory and a recursive
// walk that offers one constructed candidate per directory.
#include "vell_search/files_finder.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

#include <boost/filesystem/path.hpp>

#include "vell_index/directory_index.h"
#include "vell_search/directory_reader.h"
#include "vell_search/search_observer.h"
#include "vell_search/walk_read_ahead.h"

namespace VELL_2_13 {

namespace walker {

bool classifyEntry(int dirFd, unsigned char type, const char *name, bool &isDirectory, ino_t *inode) {
  isDirectory = false;
  switch (type) {
  case DT_DIR:
    isDirectory = true;
    return true;
  case DT_LNK:
  case DT_UNKNOWN:
    break;
  default:
    return true;
  }
  struct stat st;
  if (::fstatat(dirFd, name, &st, 0) == 0) {
    isDirectory = S_ISDIR(st.st_mode);
    if (inode)
      *inode = st.st_ino;
    return true;
  }
  // A dangling link is simply not a directory; any other failure (a link
  // loop, no permission) is an error of the listing.
  return errno == ENOENT || errno == ENOTDIR;
}

bool listSubdirectories(const std::string &dir, std::vector<std::string> &subdirectories,
                        std::vector<ino_t> *inodes, int &error, const EntryFilter *filter,
                        std::vector<std::string> *kept) {
  error = 0;
  const ScopedFd fd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() < 0) {
    error = errno;
    return false;
  }
  const boost::filesystem::path base(dir);
  const bool complete = readEntries(fd.get(), [&](const char *name, unsigned char type, ino_t inode) {
    if (filter && filter->keep(name))
      kept->push_back(name);
    bool isDirectory = false;
    if (!classifyEntry(fd.get(), type, name, isDirectory, &inode))
      return false;
    if (isDirectory) {
      subdirectories.push_back((base / name).string());
      if (inodes)
        inodes->push_back(inode);
    }
    return true;
  });
  if (!complete)
    error = errno;
  return complete;
}

} // namespace walker

FilesFinder::FilesFinder(unsigned int step, ISearchDirectoryFindCallback *findCallback)
    : m_step(step), m_findCallback(findCallback) {}

void FilesFinder::addSearchDirectory(const char *dir, bool recursive) {
  m_directories.push_back(search_dir{dir ? dir : "", recursive});
}

bool FilesFinder::find(const char *name, ISearchResultsContainer &container) {
  const std::string fileName = name ? name : "";
  for (const search_dir &record : m_directories) {
    if (m_findCallback) {
      bool skipDir = false;
      if (m_findCallback->find(record.path, record.recursive, fileName, container, skipDir))
        return true;
      if (skipDir)
        continue;
    }
    if (findIteratively(record.path, fileName, container))
      return true;
    if (record.recursive) {
      m_visitedDirectories.clear();
      const std::string bareName = boost::filesystem::path(fileName).filename().string();
      std::vector<std::string> companionNames;
      const bool indexed = m_directoryIndex && DirectoryIndex::answers(bareName) &&
                           (!m_companions || m_companions->companionNames(companionNames));
      if (indexed && m_companions) {
        if (m_directoryIndex->findRecursively(record.path, bareName, companionNames, *m_companions, container,
                                              m_step))
          return true;
      } else if (indexed) {
        if (m_directoryIndex->findRecursively(record.path, bareName, container, m_step))
          return true;
      } else if (findRecursively(record.path, bareName, container)) {
        return true;
      }
    }
  }
  return false;
}

bool FilesFinder::findIteratively(const std::string &dir, const std::string &name,
                                  ISearchResultsContainer &container) {
  const boost::filesystem::path namePath(name);
  for (auto start = namePath.begin(); start != namePath.end(); ++start) {
    // The name with the elements before start dropped, under dir.
    boost::filesystem::path candidate(dir);
    for (auto element = start; element != namePath.end(); ++element)
      candidate /= *element;
    const boost::filesystem::path normal = candidate.lexically_normal();
    if (container.validateAndAdd(normal.string().c_str(), m_step))
      return true;
    if (m_companions && m_companions->offerCompanions(normal.parent_path().string(), container, m_step))
      return true;
  }
  return false;
}

bool FilesFinder::findRecursively(const std::string &dir, const std::string &fileName,
                                  ISearchResultsContainer &container) {
  if (m_readAheadThreads > 0 && !m_readAhead) {
    // The outermost call of a walk owns its read-ahead, which ends with it:
    // no helper thread outlives the walk.
    WalkReadAhead readAhead(m_readAheadThreads, WalkReadAhead::threadBlockReads, m_companions);
    m_readAhead = &readAhead;
    struct Detach {
      WalkReadAhead *&readAhead;
      ~Detach() { readAhead = nullptr; }
    } detach{m_readAhead};
    return findRecursively(dir, fileName, container);
  }

  // One status query per directory serves both the loop guard and the type
  // test below.
  struct stat st;
  if (::stat(dir.c_str(), &st) != 0)
    return false;
  // A directory reached twice through links is walked once; only the inode
  // number is compared.
  if (!m_visitedDirectories.insert(static_cast<unsigned long>(st.st_ino)).second)
    return false;
  ISearchObserver *observer = searchObserver();
  if (observer && S_ISDIR(st.st_mode))
    observer->directoryWalked(dir.c_str());

  // The one candidate of this directory: the name right under it.
  boost::filesystem::path candidate(dir);
  candidate /= fileName;
  if (container.validateAndAdd(candidate.string().c_str(), m_step))
    return true;

  if (!S_ISDIR(st.st_mode))
    return false;
  std::vector<std::string> subdirectories;
  std::vector<std::string> companions;
  int error = 0;
  const bool listed = m_readAhead ? m_readAhead->take(dir, st.st_ino, subdirectories, error, &companions)
                                  : walker::listSubdirectories(dir, subdirectories, nullptr, error,
                                                               m_companions, &companions);
  if (m_companions) {
    // The name's companions here come right after its candidate, found in
    // the listing the walk makes anyway; only a directory that cannot be
    // listed is asked for them one by one.
    if (listed ? m_companions->offerListed(dir, companions, container, m_step)
               : m_companions->offerCompanions(dir, container, m_step))
      return true;
  }
  if (!listed) {
    if (observer)
      observer->directoryUnreadable(dir.c_str(), error);
    return false;
  }
  for (const std::string &subdirectory : subdirectories) {
    if (findRecursively(subdirectory, fileName, container))
      return true;
  }
  return false;
}

} // namespace VELL_2_13
