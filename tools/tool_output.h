// How the tool reports errors and warnings, and the words it shows next to a
// confidence level.
#pragma once

#include <string>
#include <vector>

namespace vell_tool {

// True when the command line asks for JSON output (--json before any "--"),
// known even when the rest of the command line cannot be parsed.
bool jsonRequested(const std::vector<std::string> &args);

// Reports an error that ends the tool with status: one line "vell: <message>"
// on standard error and, with json, a document {"error": <message>,
// "status": <status>} on standard output as well. Returns status.
int reportError(bool json, int status, const std::string &message);

// One warning line "vell: warning: <message>" on standard error.
void reportWarning(const std::string &message);

// Writes text to standard error in one piece: the searches of a batch run on
// several threads, and their lines must not mix.
void writeToStderr(const std::string &text);

// The meaning of a confidence level in a word: 0 "confirmed" (a requested
// check, such as a matching checksum, accepted the file), 1 "probable" (the
// confidence policy accepted it), 2 "possible" (accepted with the policy's
// lower trust).
std::string confidenceWord(unsigned confidence);

} // namespace vell_tool
