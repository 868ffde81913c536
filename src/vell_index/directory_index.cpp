// The directory index: trees by root, each checked for freshness at most once
// per maximal age, answering which directories of the walk hold a name.
#include "vell_index/directory_index.h"

#include <algorithm>
#include <thread>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "platform/log.h"
#include "vell_search/files_finder.h"

namespace VELL_2_13 {

namespace {

constexpr unsigned int kMaxDefaultThreads = 8;

unsigned int listingThreads(const DirectoryIndexOptions &options) {
  if (options.listingThreads > 0)
    return options.listingThreads;
  return std::clamp(std::thread::hardware_concurrency(), 1u, kMaxDefaultThreads);
}

} // namespace

ObjectPtr<IDirectoryIndex> IDirectoryIndex::create(const DirectoryIndexOptions &options) {
  return ObjectPtr<IDirectoryIndex>(new DirectoryIndex(options));
}

DirectoryIndex::DirectoryIndex(const DirectoryIndexOptions &options)
    : m_options(options), m_threads(listingThreads(options)) {}

bool DirectoryIndex::answers(const std::string &fileName) {
  return !fileName.empty() && fileName != "." && fileName != ".." && fileName.find('/') == std::string::npos;
}

std::shared_ptr<DirectoryIndex::Tree> DirectoryIndex::treeOf(const std::string &root) {
  std::lock_guard<std::mutex> guard(m_treesLock);
  std::shared_ptr<Tree> &tree = m_trees[root];
  if (!tree)
    tree = std::make_shared<Tree>();
  return tree;
}

bool DirectoryIndex::due(const Tree &tree) const {
  if (!tree.tree.valid())
    return true;
  return std::chrono::steady_clock::now() - tree.tree.lastCheck() >=
         std::chrono::milliseconds(m_options.maxAgeMilliseconds);
}

bool DirectoryIndex::bringUpToDate(Tree &tree, const std::string &root, bool force) {
  if (!force && !due(tree))
    return tree.tree.valid();
  const uint64_t before = tree.tree.listingsRead();
  const bool listed = tree.tree.refresh(root, m_threads);
  if (listed && tree.tree.listingsRead() != before)
    VELL_LOG_INFO("Directory index: " << root << ": " << tree.tree.directoryCount() << " directories, "
                                      << tree.tree.entryCount() << " entries, "
                                      << tree.tree.listingsRead() - before << " directories read");
  return listed;
}

bool DirectoryIndex::prepare(const char *root) {
  if (!root || !*root)
    return false;
  std::shared_ptr<Tree> tree = treeOf(root);
  std::unique_lock<std::shared_mutex> exclusive(tree->lock);
  return bringUpToDate(*tree, root, !tree->tree.valid());
}

void DirectoryIndex::clear() {
  std::lock_guard<std::mutex> guard(m_treesLock);
  m_trees.clear();
}

DirectoryIndexStatistics DirectoryIndex::statistics() const {
  std::vector<std::shared_ptr<Tree>> trees;
  {
    std::lock_guard<std::mutex> guard(m_treesLock);
    for (const auto &entry : m_trees)
      trees.push_back(entry.second);
  }
  DirectoryIndexStatistics result;
  result.memoryBytes = sizeof(*this);
  for (const std::shared_ptr<Tree> &tree : trees) {
    std::shared_lock<std::shared_mutex> shared(tree->lock);
    if (tree->tree.valid())
      ++result.trees;
    result.directories += tree->tree.directoryCount();
    result.entries += tree->tree.entryCount();
    result.memoryBytes += tree->tree.memoryBytes();
    result.listings += tree->tree.listingsRead();
    result.checks += tree->tree.checks();
  }
  return result;
}

template <class Read> bool DirectoryIndex::readTree(const std::string &root, Read &&read) {
  std::shared_ptr<Tree> tree = treeOf(root);
  {
    std::shared_lock<std::shared_mutex> shared(tree->lock);
    if (!due(*tree)) {
      read(tree->tree);
      return true;
    }
  }
  std::unique_lock<std::shared_mutex> exclusive(tree->lock);
  if (!bringUpToDate(*tree, root, false))
    return false;
  read(tree->tree);
  return true;
}

bool DirectoryIndex::findRecursively(const std::string &root, const std::string &fileName,
                                     ISearchResultsContainer &container, unsigned int step) {
  // The candidates are copied out under the lock and offered after it: the
  // container runs host callbacks, which may search through this index.
  std::vector<std::string> candidates;
  const bool listed = readTree(root, [&](const index::DirectoryTree &tree) {
    std::vector<const std::string *> directories;
    tree.directoriesHolding(fileName, directories);
    for (const std::string *directory : directories)
      candidates.push_back((boost::filesystem::path(*directory) / fileName).string());
  });
  if (!listed) {
    // No directory there: the plain walk says what becomes of such a root.
    FilesFinder walker(step, nullptr);
    return walker.findRecursively(root, fileName, container);
  }
  for (const std::string &candidate : candidates)
    if (container.validateAndAdd(candidate.c_str(), step))
      return true;
  return false;
}

bool DirectoryIndex::findRecursively(const std::string &root, const std::string &fileName,
                                     const std::vector<std::string> &companionNames,
                                     ICompanionFiles &companions, ISearchResultsContainer &container,
                                     unsigned int step) {
  struct Directory {
    std::string path;
    bool holdsName;
  };
  std::vector<Directory> directories;
  const bool listed = readTree(root, [&](const index::DirectoryTree &tree) {
    std::vector<const std::string *> holding;
    tree.directoriesHolding(fileName, holding);
    std::vector<const std::string *> withCompanions;
    tree.directoriesHoldingAny(companionNames, withCompanions);
    // Both lists are in walk order, and their pointers identify directories.
    auto nextHolding = holding.begin();
    for (const std::string *directory : withCompanions) {
      while (nextHolding != holding.end() && *nextHolding < directory)
        directories.push_back(Directory{**nextHolding++, true});
      const bool holds = nextHolding != holding.end() && *nextHolding == directory;
      if (holds)
        ++nextHolding;
      directories.push_back(Directory{*directory, holds});
    }
    for (; nextHolding != holding.end(); ++nextHolding)
      directories.push_back(Directory{**nextHolding, true});
  });
  if (!listed) {
    FilesFinder walker(step, nullptr);
    walker.setCompanionFiles(&companions);
    return walker.findRecursively(root, fileName, container);
  }
  for (const Directory &directory : directories) {
    // The walk's candidate of this directory, then its companions.
    if (directory.holdsName &&
        container.validateAndAdd((boost::filesystem::path(directory.path) / fileName).string().c_str(), step))
      return true;
    if (companions.offerCompanions(directory.path, container, step))
      return true;
  }
  return false;
}

} // namespace VELL_2_13
