// The resolution contexts a search of the tool runs in: the command line's
// own settings, an optional result directory and the user-wide context.
#pragma once

#include <memory>
#include <string>

#include "vell/context.h"

namespace vell_tool {

// Client id under which the tool registers its callbacks and settings.
extern const char *const CLIENT_ID;
// Key of the user's persistent search directories in the user-wide context.
extern const char *const USER_DIRS_KEY;
// Key of the --dir directories in the command-line context.
extern const char *const COMMAND_LINE_DIRS_KEY;

// The chain command line -> [result directory ->] user-wide, child first: the
// command line's directories come before the result directory's, and those
// before the user's own.
struct SearchContexts {
  // The command line's identity, no other running search's (given back last).
  std::shared_ptr<const std::string> commandLineIdentity;
  VELL_2_13::ObjectPtr<VELL_2_13::IResolutionContextMgr> mgr;
  VELL_2_13::ObjectPtr<VELL_2_13::IResolutionContext> userWide;
  VELL_2_13::ObjectPtr<VELL_2_13::IResolutionContext> resultDir; // null without --result-dir
  VELL_2_13::ObjectPtr<VELL_2_13::IResolutionContext> commandLine;
};

// Creates the chain. userDirs (may be null) is registered in the user-wide
// context under USER_DIRS_KEY; resultDir may be empty.
SearchContexts createSearchContexts(const VELL_2_13::ObjectPtr<VELL_2_13::ISearchDirContainer> &userDirs,
                                    const std::string &resultDir);

} // namespace vell_tool
