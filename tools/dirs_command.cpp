// vell dirs add|list|clear: the user's own search directories.
#include "dirs_command.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <system_error>

#include <nlohmann/json.hpp>

#include "vell/search_env.h"

#include "categories.h"
#include "dir_warnings.h"
#include "file_checks.h"
#include "json_writer.h"
#include "tool_error.h"
#include "user_config.h"

namespace fs = std::filesystem;
using namespace VELL_2_13;
using nlohmann::json;

namespace vell_tool {

namespace {

const search_category_t kCategories[] = {scBinaryFiles, scSymbolFiles, scSourceFiles, scAllFiles};

// The configuration file, checked to be readable.
std::string checkedConfigPath(const GlobalOptions &global) {
  std::string path = userConfigPath(global.config);
  if (path.empty())
    throw BadInput("no configuration file: neither HOME nor XDG_CONFIG_HOME is set (use --config FILE)");
  checkConfigReadable(path);
  return path;
}

// Creates the directory that will hold the configuration file.
void createConfigDirectory(const std::string &path) {
  fs::path parent = fs::path(path).parent_path();
  if (parent.empty())
    return;
  std::error_code error;
  fs::create_directories(parent, error);
  if (error)
    throw BadInput("cannot create directory " + parent.string() +
                   " for the configuration file: " + error.message());
}

std::string normalised(const std::string &path) {
  std::string text = fs::path(path).lexically_normal().string();
  while (text.size() > 1 && text.back() == '/')
    text.pop_back();
  return text;
}

// The directories of category as stored (normalised): the storage reports no
// write errors of its own, so a change is read back to see that it was kept.
std::vector<std::string> storedDirectories(IEditableSearchDirContainer &dirs, search_category_t category) {
  std::vector<std::string> names;
  ObjectPtr<ISearchDirIterator> records = dirs.enumerate(category);
  if (!records)
    return names;
  records->reset();
  const char *name = nullptr;
  bool recursive = false;
  bool highPriority = false;
  for (; records->getCurrentRecord(name, recursive, highPriority); records->next())
    if (name)
      names.push_back(normalised(name));
  return names;
}

bool stored(IEditableSearchDirContainer &dirs, search_category_t category, const std::string &directory) {
  const std::vector<std::string> names = storedDirectories(dirs, category);
  return std::find(names.begin(), names.end(), normalised(directory)) != names.end();
}

BadInput notWritten(const std::string &path) {
  return BadInput("cannot write configuration file " + path + " (run with -v for the reason)");
}

std::string commandLineForm(const SearchDirSpec &spec) {
  std::string text = categoryName(spec.category);
  if (spec.recursive || spec.highPriority)
    text += std::string(":") + (spec.recursive ? "r" : "") + (spec.highPriority ? "p" : "");
  return text + "=" + spec.directory;
}

} // namespace

int runDirsAdd(const GlobalOptions &global, const std::vector<std::string> &specs) {
  std::vector<SearchDirSpec> parsed;
  for (const std::string &text : specs) {
    SearchDirSpec spec;
    std::string error;
    if (!parseSearchDirCommandLine(text, spec, error))
      // NOLINTNEXTLINE(performance-inefficient-string-concatenation): one message, built once
      throw BadInput("dirs add '" + text + "': " + error);
    spec.directory = absolutePath(spec.directory);
    parsed.push_back(spec);
  }
  if (parsed.empty())
    throw BadInput("dirs add: no directory given");
  std::string path = checkedConfigPath(global);
  createConfigDirectory(path);

  UserSearchDirs userDirs = openUserSearchDirs(path);
  // Which of the directories were there before: those are not "added".
  std::vector<bool> present;
  {
    // Held across every addition, so that a concurrent writer neither
    // interleaves with us nor loses its own directories.
    std::unique_ptr<platform::IStorageLock> lock = userDirs.storage->lockForUpdate();
    for (const SearchDirSpec &spec : parsed)
      present.push_back(stored(*userDirs.dirs, spec.category, spec.directory));
    for (const SearchDirSpec &spec : parsed)
      userDirs.dirs->addDirectory(spec.category, spec.directory.c_str(), spec.recursive, spec.highPriority);
    for (const SearchDirSpec &spec : parsed)
      if (!stored(*userDirs.dirs, spec.category, spec.directory))
        throw notWritten(path);
  }

  for (const SearchDirSpec &spec : parsed)
    warnUnusableDirectory("", spec.directory, " (added anyway)");
  if (global.json) {
    json out = json::object();
    putText(out, "config", path);
    out["added"] = json::array();
    out["present"] = json::array();
    for (size_t i = 0; i < parsed.size(); ++i)
      out[present[i] ? "present" : "added"].push_back(textArrayElement(commandLineForm(parsed[i])));
    std::cout << documentText(out) << "\n";
  } else {
    for (size_t i = 0; i < parsed.size(); ++i)
      std::cout << (present[i] ? "already present: " : "added: ") << commandLineForm(parsed[i]) << "\n";
  }
  return kExitSuccess;
}

int runDirsList(const GlobalOptions &global) {
  std::string path = checkedConfigPath(global);
  UserSearchDirs userDirs = openUserSearchDirs(path);
  json out = json::object();
  putText(out, "config", path);
  out["directories"] = json::array();
  for (search_category_t category : kCategories) {
    ObjectPtr<ISearchDirIterator> dirs = userDirs.dirs->enumerate(category);
    if (!dirs)
      continue;
    dirs->reset();
    // The command-line form, as the library renders it.
    TextIterator spec = getSearchDirCommandLine(category, dirs);
    dirs->reset();
    const char *name = nullptr;
    bool recursive = false;
    bool highPriority = false;
    while (dirs->getCurrentRecord(name, recursive, highPriority) && !spec.atEnd()) {
      if (global.json) {
        json entry{
            {"category", categoryName(category)}, {"recursive", recursive}, {"highPriority", highPriority}};
        putText(entry, "directory", name ? name : "");
        putText(entry, "spec", *spec);
        out["directories"].push_back(entry);
      } else
        std::cout << *spec << "\n";
      ++spec;
      dirs->next();
    }
  }
  if (global.json)
    std::cout << documentText(out) << "\n";
  return kExitSuccess;
}

int runDirsClear(const GlobalOptions &global, const std::vector<std::string> &categories) {
  std::vector<search_category_t> parsed;
  parsed.reserve(categories.size());
  for (const std::string &text : categories)
    parsed.push_back(parseCategory(text, true));
  if (parsed.empty())
    throw BadInput("dirs clear: no category given");
  std::string path = checkedConfigPath(global);
  createConfigDirectory(path);

  UserSearchDirs userDirs = openUserSearchDirs(path);
  {
    std::unique_ptr<platform::IStorageLock> lock = userDirs.storage->lockForUpdate();
    for (search_category_t category : parsed)
      userDirs.dirs->clear(category);
    for (search_category_t category : parsed)
      if (!storedDirectories(*userDirs.dirs, category).empty())
        throw notWritten(path);
  }
  if (global.json) {
    json out = json::object();
    putText(out, "config", path);
    out["cleared"] = json::array();
    for (search_category_t category : parsed)
      out["cleared"].push_back(categoryName(category));
    std::cout << documentText(out) << "\n";
  } else {
    for (search_category_t category : parsed)
      std::cout << "cleared: " << categoryName(category) << "\n";
  }
  return kExitSuccess;
}

} // namespace vell_tool
