// The step handlers shared by every category of file.
#include "vell_search/basic_file_search_strategy.h"

#include <boost/filesystem/path.hpp>

#include "platform/log.h"
#include "vell/file_search.h"

namespace VELL_2_13 {

const char *const GUEST_MARKER = "[guest]";

bool isGuestName(const std::string &name) { return name.find(GUEST_MARKER) != std::string::npos; }

namespace {

// The name under which a guest system's file is kept in a search directory:
// "[guest]" / the part of the name before the blank that precedes the
// marker. A marker at position 0 makes the length the unsigned maximum, so
// the whole name is taken.
std::string guestName(const std::string &name) {
  const std::string::size_type position = name.find(GUEST_MARKER);
  const std::string prefix = name.substr(0, position - 1);
  boost::filesystem::path guest(GUEST_MARKER);
  guest /= prefix;
  return guest.string();
}

} // namespace

BasicFileSearchStrategy::BasicFileSearchStrategy(ISearchEnv *env, const std::string &fileName)
    : m_searchEnv(env), m_fileName(fileName) {}

ObjectPtr<ISearchStepsIterator> BasicFileSearchStrategy::getSearchStepsIterator(unsigned long long mask) {
  if (m_searchEnv) {
    ObjectPtr<ISearchStepsConfigurator> configurator = m_searchEnv->searchStepsConfigurator();
    if (configurator)
      return configurator->getSearchStepsIterator(getCategorySpecific(), mask);
  }
  ObjectPtr<ISearchStepsConfigurator> defaults(new DefaultSearchStepsConfigurator());
  return defaults->getSearchStepsIterator(getCategorySpecific(), mask);
}

void BasicFileSearchStrategy::configureWalk(FilesFinder &finder) const {
  finder.setDirectoryIndex(m_directoryIndex);
  finder.setReadAheadThreads(m_readAheadThreads);
}

bool BasicFileSearchStrategy::find(const std::string &, bool, const std::string &, ISearchResultsContainer &,
                                   bool &skipDir) {
  skipDir = false;
  return false;
}

bool BasicFileSearchStrategy::lookUpAbsoluteName(ISearchResultsContainer &container) {
  // Only an absolute name is a candidate by itself.
  if (boost::filesystem::path(m_fileName).root_directory().empty())
    return false;
  return container.validateAndAdd(m_fileName.c_str(), ssAbsoluteNameLookup);
}

bool BasicFileSearchStrategy::lookUpAroundBinary(ISearchResultsContainer &) { return false; }

bool BasicFileSearchStrategy::findInHighPriorityDirs(ISearchResultsContainer &container) {
  return findInSearchDirs(container, true);
}

bool BasicFileSearchStrategy::findInLowPriorityDirs(ISearchResultsContainer &container) {
  return findInSearchDirs(container, false);
}

bool BasicFileSearchStrategy::findInSearchDirs(ISearchResultsContainer &container, bool highPriority) {
  if (!m_searchEnv)
    return false;
  // The category's own directories come before those serving every category.
  if (searchDirPass(m_searchEnv->searchDirs(getCategorySpecific()), highPriority, container))
    return true;
  return searchDirPass(m_searchEnv->searchDirs(scAllFiles), highPriority, container);
}

bool BasicFileSearchStrategy::searchDirPass(const ObjectPtr<ISearchDirIterator> &dirs, bool highPriority,
                                            ISearchResultsContainer &container) {
  FilesFinder finder(highPriority ? ssHighPrioritySearchDirs : ssLowPrioritySearchDirs, this);
  configureWalk(finder);
  finder.setCompanionFiles(searchDirCompanions());
  if (dirs) {
    dirs->reset();
    const char *name = nullptr;
    bool recursive = false;
    bool recordHighPriority = false;
    while (dirs->getCurrentRecord(name, recursive, recordHighPriority)) {
      // A directory of the other priority belongs to the other step.
      if (recordHighPriority == highPriority)
        finder.addSearchDirectory(name, recursive);
      dirs->next();
    }
  }
  // The name as given.
  if (finder.find(m_fileName.c_str(), container))
    return true;
  if (!isGuestName(m_fileName))
    return false;
  // A guest system's file, kept under "[guest]" in the same directories.
  return finder.find(guestName(m_fileName).c_str(), container);
}

bool BasicFileSearchStrategy::findInSystemDirs(ISearchResultsContainer &container) {
  // Files of a guest system are never looked for in this host's directories.
  if (isGuestName(m_fileName))
    return false;
  FilesFinder finder(ssSystemDirs, this);
  configureWalk(finder);
  fillSystemDirs(finder);
  return finder.find(m_fileName.c_str(), container);
}

bool BasicFileSearchStrategy::findInCacheDir(ISearchResultsContainer &container) {
  if (!m_searchEnv)
    return false;
  FilesFinder finder(ssCacheSearchDir, this);
  configureWalk(finder);
  const std::string bareName = utils::getFileNameOnly(m_fileName.c_str());
  const char *cacheDir = m_searchEnv->cacheDir();
  if (!cacheDir || !*cacheDir) {
    VELL_LOG_ERROR_AT("src/vell_search", "Empty directory name.");
    return false;
  }
  // The whole cache tree is searched for the bare name.
  finder.addSearchDirectory(cacheDir, true);
  return finder.find(bareName.c_str(), container);
}

bool BasicFileSearchStrategy::findInArchiveDirs(ISearchResultsContainer &container) {
  if (!m_searchEnv)
    return false;
  FilesFinder finder(ssArchiveSearchDirs, this);
  configureWalk(finder);
  const std::string bareName = utils::getFileNameOnly(m_fileName.c_str());
  // Every archive directory keeps one subdirectory per file name, walked
  // recursively whatever the entry's own flags say.
  for (search_category_t category : {getCategorySpecific(), scAllFiles}) {
    ObjectPtr<ISearchDirIterator> dirs = m_searchEnv->archiveDirs(category);
    if (!dirs)
      continue;
    dirs->reset();
    const char *name = nullptr;
    bool recursive = false;
    bool highPriority = false;
    while (dirs->getCurrentRecord(name, recursive, highPriority)) {
      boost::filesystem::path perFileDir(name ? name : "");
      perFileDir /= bareName;
      finder.addSearchDirectory(perFileDir.string().c_str(), true);
      dirs->next();
    }
  }
  return finder.find(bareName.c_str(), container);
}

} // namespace VELL_2_13
