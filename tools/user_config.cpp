// The user's own search directories, kept in a JSON property file.
#include "user_config.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <sstream>
#include <unistd.h>
#include <vector>

#include <nlohmann/json.hpp>

#include "tool_error.h"

namespace fs = std::filesystem;
using namespace VELL_2_13;

namespace vell_tool {

namespace {

std::string environmentText(const char *name) {
  const char *value = std::getenv(name);
  return value ? value : "";
}

std::string homeDirectory() {
  std::string home = environmentText("HOME");
  if (!home.empty())
    return home;
  // The searches of a batch ask at once: the reentrant look-up.
  long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<size_t>(suggested) : 16384);
  passwd entry{};
  passwd *found = nullptr;
  if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found || !found->pw_dir)
    return "";
  return found->pw_dir;
}

} // namespace

std::string userConfigPath(const std::string &override) {
  if (!override.empty())
    return override;
  // Only an absolute XDG_CONFIG_HOME counts; a relative one is ignored.
  std::string xdg = environmentText("XDG_CONFIG_HOME");
  if (!xdg.empty() && xdg[0] == '/')
    return (fs::path(xdg) / "vell" / "searchdirs.json").string();
  std::string home = homeDirectory();
  if (home.empty())
    return "";
  return (fs::path(home) / ".config" / "vell" / "searchdirs.json").string();
}

void checkConfigReadable(const std::string &path) {
  std::error_code error;
  fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found)
    return;
  if (error)
    throw BadInput("cannot read configuration file " + path + ": " + error.message());
  if (!fs::is_regular_file(status))
    throw BadInput("configuration file " + path + " is not a regular file");
  std::ifstream in(path, std::ios::binary);
  if (!in)
    throw BadInput("cannot read configuration file " + path + ": " + std::strerror(errno));
  std::stringstream content;
  content << in.rdbuf();
  if (in.bad())
    throw BadInput("cannot read configuration file " + path);
  // A file of blanks holds nothing yet; anything else must be JSON.
  if (content.str().find_first_not_of(" \t\r\n") == std::string::npos)
    return;
  nlohmann::json document = nlohmann::json::parse(content.str(), nullptr, false);
  if (document.is_discarded())
    throw BadInput("configuration file " + path + " is not valid JSON");
  if (!document.is_object())
    throw BadInput("configuration file " + path + " does not hold a JSON object");
}

UserSearchDirs openUserSearchDirs(const std::string &path) {
  UserSearchDirs result;
  result.storage = platform::createJsonFilePropertyStorage(path);
  result.dirs = IPersistentSearchDirContainer::create(result.storage);
  return result;
}

} // namespace vell_tool
