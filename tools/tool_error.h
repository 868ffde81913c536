// Errors and exit statuses of the vell command-line tool.
#pragma once

#include <stdexcept>
#include <string>

namespace vell_tool {

// Exit statuses of every command.
enum ExitStatus {
  kExitSuccess = 0,  // found, or done
  kExitNotFound = 1, // nothing found, or the operation failed
  kExitBadInput = 2, // bad usage or bad input; nothing was changed on disk
};

// Bad usage or bad input: reported as one line on standard error, exit status 2.
class BadInput : public std::runtime_error {
public:
  explicit BadInput(const std::string &message) : std::runtime_error(message) {}
};

} // namespace vell_tool
