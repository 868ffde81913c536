// Message catalogs read from "<catalog>.<language>.json" files of one
// directory; every lookup is thread-safe and hands out immutable snapshots.
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <nlohmann/json.hpp>

#include "vell/platform.h"

#include "platform/library_location.h"
#include "vell/library_catalogs.h"

namespace VELL_2_13 {
namespace platform {

namespace {

const char *const kDefaultLanguage = "en";

// The catalog service's configuration and the catalogs loaded under it. A
// null entry remembers that a catalog is unavailable.
struct CatalogService {
  std::mutex mutex;
  bool configured = false; // the host chose the directory
  std::string directory;
  std::string language = kDefaultLanguage;
  std::map<std::string, std::shared_ptr<const Catalog>> loaded;
};

CatalogService &service() {
  static CatalogService *instance = new CatalogService; // lives until the process ends
  return *instance;
}

// Reads one catalog file: a JSON object of id -> text. Entries whose value is
// not a text are skipped; an unreadable or malformed file gives null.
std::shared_ptr<const Catalog> loadCatalog(const std::string &path) {
  std::ifstream in(path, std::ios::in | std::ios::binary);
  if (!in.is_open())
    return nullptr;
  nlohmann::json document = nlohmann::json::parse(in, nullptr, false);
  if (document.is_discarded() || !document.is_object())
    return nullptr;
  auto catalog = std::make_shared<Catalog>();
  for (auto it = document.begin(); it != document.end(); ++it)
    if (it.value().is_string())
      catalog->add(it.key(), it.value().get<std::string>());
  return catalog;
}

// The catalogs installed with the library: share/vell/catalogs of the prefix
// the shared library lies in. Looked up once.
const std::string &installedDirectory() {
  static const std::string directory =
      existingDirectoryBeside(loadedLibraryFile(), VELL_CATALOG_DIR_FROM_LIBDIR);
  return directory;
}

} // namespace

std::string libraryCatalogDirectory() { return installedDirectory(); }

std::string Message::asText(const MessageArguments &arguments) const {
  std::string text;
  text.reserve(m_text.size());
  size_t position = 0;
  while (position < m_text.size()) {
    size_t open = m_text.find('{', position);
    if (open == std::string::npos)
      break;
    size_t close = m_text.find('}', open + 1);
    if (close == std::string::npos)
      break;
    text.append(m_text, position, open - position);
    const std::string name = m_text.substr(open + 1, close - open - 1);
    const std::string *value = nullptr;
    for (const auto &argument : arguments)
      if (argument.first == name) {
        value = &argument.second;
        break;
      }
    if (value) {
      text += *value;
      position = close + 1;
    } else {
      // Not one of the arguments: keep the brace and look for a placeholder
      // starting after it.
      text += '{';
      position = open + 1;
    }
  }
  text.append(m_text, position, std::string::npos);
  return text;
}

Message Catalog::message(const std::string &id) const {
  for (const auto &entry : m_messages)
    if (entry.first == id)
      return Message(entry.second);
  return Message();
}

void setCatalogDirectory(const std::string &directory) {
  CatalogService &s = service();
  std::lock_guard<std::mutex> guard(s.mutex);
  s.configured = true;
  s.directory = directory;
  s.loaded.clear();
}

void setCatalogLanguage(const std::string &language) {
  CatalogService &s = service();
  std::lock_guard<std::mutex> guard(s.mutex);
  s.language = language.empty() ? kDefaultLanguage : language;
  s.loaded.clear();
}

std::shared_ptr<const Catalog> getMessageCatalog(const std::string &name) {
  CatalogService &s = service();
  std::lock_guard<std::mutex> guard(s.mutex);
  const std::string &directory = s.configured ? s.directory : installedDirectory();
  if (directory.empty() || name.empty())
    return nullptr;
  auto found = s.loaded.find(name);
  if (found != s.loaded.end())
    return found->second;
  std::shared_ptr<const Catalog> catalog = loadCatalog(directory + "/" + name + "." + s.language + ".json");
  s.loaded.emplace(name, catalog);
  return catalog;
}

} // namespace platform
} // namespace VELL_2_13
