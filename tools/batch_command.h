// vell find --batch: one request per line on standard input, one JSON answer
// per line on standard output, in order, in one process.
#pragma once

#include <iosfwd>

#include "find_command.h"
#include "global_options.h"

namespace vell_tool {

struct BatchSettings {
  bool useIndex = true; // recursive directories are listed once and shared by all requests
  unsigned jobs = 1;    // requests worked on at once; 1: one after another
};

// Answers every line of in on out, in the order of the lines, each answer
// written as soon as it and those before it are ready; base holds the command
// line's options, which every request starts from. The servers of base are
// shared by all requests. Returns 0 when every request found its file, 1 when
// one did not, 2 when a line was bad. Throws BadInput for bad server options.
int runFindBatch(const GlobalOptions &global, const FindOptions &base, const BatchSettings &settings,
                 std::istream &in, std::ostream &out);

} // namespace vell_tool
