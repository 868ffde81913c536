// Fuzzes path canonicalisation, de-duplication and the containment checks used for fetched names.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "vell/search_env.h"
#include "vell_utils/canonical_name.h"
#include "vell_utils/path_containment.h"

using namespace VELL_2_13;

namespace {

int recordCount(const ObjectPtr<IEditableSearchDirContainer> &dirs, search_category_t category) {
  ObjectPtr<ISearchDirIterator> list = dirs->enumerate(category);
  if (!list)
    return 0;
  int count = 0;
  list->reset();
  const char *name = nullptr;
  bool recursive = false;
  bool highPriority = false;
  while (list->getCurrentRecord(name, recursive, highPriority)) {
    ++count;
    list->next();
  }
  return count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // Two paths separated by the first NUL byte (a path cannot hold one).
  const std::string input(reinterpret_cast<const char *>(data), size);
  const size_t split = input.find('\0');
  const std::string first = input.substr(0, split);
  std::string second = split == std::string::npos ? std::string() : input.substr(split + 1);
  second = second.substr(0, second.find('\0'));

  // Canonicalising settles: a normal form may still end in a "." element or a
  // separator that a further round drops ("././" -> "./" -> "." -> ""), but a
  // fixed point comes within a few rounds.
  const std::string canonical = utils::canonicalPath(first);
  std::string settled = canonical;
  for (int round = 0;; ++round) {
    const std::string next = utils::canonicalPath(settled);
    if (next == settled)
      break;
    if (round == 8)
      std::abort();
    settled = next;
  }
  if (settled != canonical)
    return 0;

  // A path and its canonical form are one directory, whatever the flags.
  ObjectPtr<IEditableSearchDirContainer> dirs = IEditableSearchDirContainer::create();
  const bool added = dirs->addDirectory(scBinaryFiles, first.c_str(), false, true);
  dirs->addDirectory(scBinaryFiles, canonical.c_str(), true, false);
  if (added && recordCount(dirs, scBinaryFiles) != 1)
    std::abort();
  const bool secondIsSame = utils::canonicalPath(second) == canonical;
  dirs->addDirectory(scBinaryFiles, second.c_str(), false, false);
  if (added && secondIsSame && recordCount(dirs, scBinaryFiles) != 1)
    std::abort();

  // Containment: nothing is inside itself; a name with a plain last element
  // joined to a directory is inside it unless a ".." climbs out.
  if (!first.empty() && utils::isPathInsideDirectory(first, first))
    std::abort();
  if (!first.empty() && second.find('/') == std::string::npos && !second.empty() && second != "." &&
      second != ".." && !utils::isPathInsideDirectory(first + "/" + second, first)) {
    // Only a first path that itself climbs above the root can fail here.
    if (first.find("..") == std::string::npos)
      std::abort();
  }
  utils::isOwnFileInsideDirectory(first, second);
  return 0;
}
