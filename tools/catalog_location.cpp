// Finds the directory of the message catalogs the tool hands to the library.
#include "catalog_location.h"

#include <filesystem>
#include <system_error>

#include "tool_error.h"

namespace fs = std::filesystem;

namespace vell_tool {

namespace {

bool isDirectory(const fs::path &path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

// Directory holding the running executable, or empty.
fs::path executableDirectory() {
  std::error_code error;
  fs::path exe = fs::read_symlink("/proc/self/exe", error);
  return error ? fs::path() : exe.parent_path();
}

bool sameDirectory(const fs::path &a, const fs::path &b) {
  std::error_code error;
  return !a.empty() && fs::equivalent(a, b, error);
}

} // namespace

std::string locateCatalogDirectory(const std::string &explicitDir) {
  if (!explicitDir.empty()) {
    if (!isDirectory(explicitDir))
      throw BadInput("--catalogs: '" + explicitDir + "' is not a directory");
    return explicitDir;
  }
  fs::path exeDir = executableDirectory();
  // Run from the build tree: the catalogs of the sources it was built from.
  if (sameDirectory(exeDir, VELL_TOOL_BUILD_DIR) && isDirectory(VELL_SOURCE_TREE_CATALOG_DIR))
    return VELL_SOURCE_TREE_CATALOG_DIR;
  // Installed: <prefix>/bin/vell finds <prefix>/share/vell/catalogs.
  if (!exeDir.empty()) {
    fs::path installed = (exeDir / ".." / "share" / "vell" / "catalogs").lexically_normal();
    if (isDirectory(installed))
      return installed.string();
  }
  return VELL_DEFAULT_CATALOG_DIR;
}

void checkCatalogLanguage(const std::string &directory, const std::string &language) {
  bool plain = !language.empty();
  for (char c : language)
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-')
      plain = false;
  if (!plain)
    throw BadInput("--lang: '" + language + "' is not a language name");
  std::error_code error;
  if (!fs::exists(fs::path(directory) / ("vell_common." + language + ".json"), error))
    throw BadInput("--lang: no message catalogs for language '" + language + "' in " + directory);
}

} // namespace vell_tool
