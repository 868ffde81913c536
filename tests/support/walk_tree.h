// Trees for the tests that compare the plain recursive walk with another way
// of producing its candidates, and the file searches run over such a tree.
#pragma once

#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell/search_env.h"
#include "vell_search/search_callbacks_support.h"

namespace vell_test {

// Writes files (paths relative to dir, each holding "x"), then what every
// such tree has under dir/root: "lib.so" right in the root, a directory named
// like the file ("root/lib.so.d/lib.so") and an empty directory.
void buildLibTree(const TempDir &dir, const std::vector<std::string> &files);

// Lets others read and enter everything at and below root (and the way to
// it), except two directories: searchOnly they may enter but not list, closed
// they may not enter at all.
void limitTreeForOthers(const std::string &root, const std::string &searchOnly, const std::string &closed);

// An environment whose only search directory is dir, recursive, visited in
// ssHighPrioritySearchDirs when highPriority and in ssLowPrioritySearchDirs
// otherwise; found is its files-found callback.
VELL_2_13::ObjectPtr<VELL_2_13::IEditableSearchEnv>
recursiveSearchEnv(const std::string &dir, bool highPriority, TestFilesFound &found);

// A recursiveSearchEnv whose files-found callback puts the names of all the
// valid files of each search into collected (emptied first) and answers the
// first of them.
struct CollectingSearchEnv {
  CollectingSearchEnv(const std::string &dir, bool highPriority);
  CollectingSearchEnv(const CollectingSearchEnv &) = delete;
  CollectingSearchEnv &operator=(const CollectingSearchEnv &) = delete;

  std::vector<std::string> collected;
  TestFilesFound found;
  VELL_2_13::ObjectPtr<VELL_2_13::IEditableSearchEnv> env;
};

// The file's name, or "" for none.
std::string nameOf(const VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> &file);

} // namespace vell_test
