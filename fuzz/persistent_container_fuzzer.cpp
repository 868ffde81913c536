// Fuzzes the persistent search-directory container with arbitrary stored bags: loading never crashes, and
// what it writes back loads to the same directories.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "platform/property_json_codec.h"
#include "vell/platform.h"
#include "vell/search_env.h"

using namespace VELL_2_13;

namespace {

using Record = std::tuple<int, std::string, bool, bool>;

std::vector<Record> records(const ObjectPtr<IPersistentSearchDirContainer> &dirs) {
  std::vector<Record> result;
  for (int category = scBinaryFiles; category <= scAllFiles; ++category) {
    ObjectPtr<ISearchDirIterator> list = dirs->enumerate(search_category_t(category));
    if (!list) {
      result.emplace_back(-category, std::string(), false, false);
      continue;
    }
    list->reset();
    const char *name = nullptr;
    bool recursive = false;
    bool highPriority = false;
    while (list->getCurrentRecord(name, recursive, highPriority)) {
      result.emplace_back(category, name, recursive, highPriority);
      list->next();
    }
  }
  return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  // The input is the "searchDirs" bag in the storage's JSON form.
  platform::PropertyBag stored;
  try {
    stored = platform::bagFromJson(platform::parseDocument(text));
  } catch (const std::exception &) {
    return 0;
  }
  std::shared_ptr<platform::IPropertyStorage> storage = platform::createMemoryPropertyStorage();
  storage->store("searchDirs", stored);
  ObjectPtr<IPersistentSearchDirContainer> dirs = IPersistentSearchDirContainer::create(storage);
  records(dirs);
  // A change writes everything back, and a second container on the same
  // storage sees exactly what the first one does.
  dirs->addDirectory(scSourceFiles, "/fuzz/added", true, false);
  const std::vector<Record> afterAdd = records(dirs);
  ObjectPtr<IPersistentSearchDirContainer> reopened = IPersistentSearchDirContainer::create(storage);
  if (records(reopened) != afterAdd)
    std::abort();
  // The written form is stable: writing what was loaded loads the same again.
  reopened->addDirectory(scSourceFiles, "/fuzz/added", true, false);
  if (records(IPersistentSearchDirContainer::create(storage)) != afterAdd)
    std::abort();
  return 0;
}
