// vell find --batch: one request per line on standard input, one JSON answer
// per line on standard output, in order, in one process.
#pragma once

#include <iosfwd>

#include "find_command.h"
#include "global_options.h"

namespace vell_tool {

// Answers every line of in on out; base holds the command line's options,
// which every request starts from. With useIndex, recursive directories are
// listed once and shared by all requests. Returns 0 when every request found
// its file, 1 when one did not, 2 when a line was bad.
int runFindBatch(const GlobalOptions &global, const FindOptions &base, bool useIndex, std::istream &in,
                 std::ostream &out);

} // namespace vell_tool
