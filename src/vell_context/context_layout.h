// Fixed names of the resolution-context machinery: the result-directory key,
// the default client id and the subdirectories per category.
#pragma once

#include "vell/search_steps.h"

namespace VELL_2_13 {
namespace context_layout {

// Key of a result directory's own search directories; the leading blank keeps
// user keys from colliding with it and sorts it before them.
inline constexpr const char *RESULT_DIR_KEY = " hidden_result_dir_key";

// Values registered under this client id serve clients without their own (for
// the kinds of value where the manager says so).
inline constexpr const char *DEFAULT_CLIENT_ID = "";

// The archive subdirectory of a result directory.
inline constexpr const char *ARCHIVE_SUBDIR = "archive";

// "binaries", "symbols", "sources"; "all" for scAllFiles and any other value.
inline const char *subDirName(search_category_t category) {
  switch (category) {
  case scBinaryFiles:
    return "binaries";
  case scSymbolFiles:
    return "symbols";
  case scSourceFiles:
    return "sources";
  default:
    return "all";
  }
}

} // namespace context_layout
} // namespace VELL_2_13
