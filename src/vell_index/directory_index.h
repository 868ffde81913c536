// The directory index behind IDirectoryIndex: one tree per recursive search
// directory, answering the recursive walk's question from memory.
#pragma once

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "vell/directory_index.h"
#include "vell_index/directory_tree.h"
#include "vell_search/search_interfaces.h"

namespace VELL_2_13 {

class ICompanionFiles;

class DirectoryIndex : public RefCountImpl<IDirectoryIndex> {
public:
  explicit DirectoryIndex(const DirectoryIndexOptions &options);

  bool prepare(const char *root) override;
  void clear() override;
  DirectoryIndexStatistics statistics() const override;

  // Whether the index can stand in for the recursive walk for fileName: a
  // plain name, no path, "." or "..".
  static bool answers(const std::string &fileName);
  // Offers root/.../fileName for every directory of the recursive walk from
  // root that holds fileName, in the walk's order, with step; true as soon
  // as the container accepts one. The result is the walk's.
  bool findRecursively(const std::string &root, const std::string &fileName,
                       ISearchResultsContainer &container, unsigned int step);

  // As above, and in every directory of the walk that may hold one of
  // companionNames the companions are offered right after the candidate
  // there (or where it would be), as the walk with companions offers them.
  bool findRecursively(const std::string &root, const std::string &fileName,
                       const std::vector<std::string> &companionNames, ICompanionFiles &companions,
                       ISearchResultsContainer &container, unsigned int step);

private:
  struct Tree {
    mutable std::shared_mutex lock;
    index::DirectoryTree tree;
  };

  std::shared_ptr<Tree> treeOf(const std::string &root);
  // Under the tree's exclusive lock: checks it when it is due.
  bool bringUpToDate(Tree &tree, const std::string &root, bool force);
  bool due(const Tree &tree) const;
  // Calls read(tree) under the tree's lock once the tree of root is up to
  // date; false (read not called) when root cannot be listed.
  template <class Read> bool readTree(const std::string &root, Read &&read);

  DirectoryIndexOptions m_options;
  unsigned int m_threads;
  mutable std::mutex m_treesLock;
  std::unordered_map<std::string, std::shared_ptr<Tree>> m_trees;
};

} // namespace VELL_2_13
