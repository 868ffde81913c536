// What vell find prints: the file found, every valid file, the rejected
// candidates; as text or as JSON.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vell/results.h"

#include "build_id_search.h"
#include "search_activity.h"
#include "server_retrieval.h"
#include "validators.h"

namespace vell_tool {

struct FindReport {
  VELL_2_13::search_category_t category = VELL_2_13::scBinaryFiles;
  std::string name;
  VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> found;
  bool listAll = false;
  std::vector<VELL_2_13::ObjectPtr<VELL_2_13::IValidFile>> files;
  bool explain = false;
  std::vector<Rejection> rejected;
  // Directories a recursive walk could not read (shown with explain).
  std::vector<UnreadableDirectory> unreadable;
  std::optional<BuildIdReport> buildId; // set when build IDs took part in the search
  RetrievalNote retrieval;              // where a file fetched from a server came from

  // The search's own rejections (complete, but only reported when nothing was
  // found) first, then those the tool's checks saw that are not among them.
  void setRejections(const std::vector<VELL_2_13::ObjectPtr<VELL_2_13::IInvalidFile>> &fromSearch,
                     const std::vector<Rejection> &fromChecks);
};

void printFindReport(const FindReport &report, bool json);
// The report as the JSON object that --json prints.
nlohmann::json findReportJson(const FindReport &report);

} // namespace vell_tool
