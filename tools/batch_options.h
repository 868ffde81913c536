// The command-line side of vell find --batch: its options, their help and the
// checks made before the first request is read.
#pragma once

#include "find_command.h"
#include "global_options.h"

namespace vell_tool {

// Requests of a batch worked on at once unless --jobs says otherwise.
constexpr unsigned kDefaultBatchJobs = 4;

struct BatchOptions {
  bool enabled = false;
  bool noIndex = false;
  unsigned jobs = kDefaultBatchJobs;
};

extern const char *const BATCH_OPTION_HELP;
extern const char *const JOBS_OPTION_HELP;

// Answers the requests on standard input (see runFindBatch). Throws BadInput
// when the command line names a file to find as well.
int runBatchCommand(const GlobalOptions &global, const FindOptions &find, const BatchOptions &batch);

} // namespace vell_tool
