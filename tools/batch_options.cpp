// The command-line side of vell find --batch.
#include "batch_options.h"

#include <iostream>

#include "batch_command.h"
#include "tool_error.h"

namespace vell_tool {

const char *const BATCH_OPTION_HELP =
    "Read requests from standard input, one JSON object per line (fields: id, category, name, binary, "
    "checksum, mtime, size, not_newer_than_binary, time_check_exception, kernel_release, suggest, steps, "
    "all, explain; the other options given here apply to every request), and answer each with one JSON "
    "object per line, in order ({\"line\": N, \"error\": ...} for a bad line); recursive directories are "
    "listed once for all requests";

const char *const JOBS_OPTION_HELP =
    "With --batch: work on up to N requests at once (default 4), answers still in input order, each "
    "written as soon as it and those before it are ready; a file several requests fetch from a server is "
    "downloaded once. 1: one request after another";

int runBatchCommand(const GlobalOptions &global, const FindOptions &find, const BatchOptions &batch) {
  if (!find.category.empty() || !find.name.empty())
    throw BadInput("find --batch reads its requests from standard input: give no category or name");
  std::ios::sync_with_stdio(false);
  BatchSettings settings;
  settings.useIndex = !batch.noIndex;
  settings.jobs = batch.jobs;
  return runFindBatch(global, find, settings, std::cin, std::cout);
}

} // namespace vell_tool
