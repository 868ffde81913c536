// The user's own search directories, kept in a JSON property file.
#pragma once

#include <memory>
#include <string>

#include "vell/platform.h"
#include "vell/search_env.h"

namespace vell_tool {

// The configuration file: override when given, else
// $XDG_CONFIG_HOME/vell/searchdirs.json, else ~/.config/vell/searchdirs.json.
// Empty when no home directory is known.
std::string userConfigPath(const std::string &override);

// Throws BadInput when path exists but is not a readable JSON file. A missing
// file is fine: it holds no directories.
void checkConfigReadable(const std::string &path);

// The persistent search-directory container over the file at path.
struct UserSearchDirs {
  std::shared_ptr<VELL_2_13::platform::IPropertyStorage> storage;
  VELL_2_13::ObjectPtr<VELL_2_13::IPersistentSearchDirContainer> dirs;
};

// Opens the container over path; reads nothing yet. Call checkConfigReadable first.
UserSearchDirs openUserSearchDirs(const std::string &path);

} // namespace vell_tool
