// What vell find prints: the file found, every valid file, the rejected
// candidates; as text or as JSON.
#include "find_report.h"

#include <filesystem>
#include <iostream>

#include <nlohmann/json.hpp>

#include "categories.h"

using namespace VELL_2_13;
using nlohmann::json;

namespace vell_tool {

namespace {

std::string comparable(const std::string &path) {
  return std::filesystem::path(path).lexically_normal().string();
}

bool listed(const std::vector<Rejection> &rejected, const std::string &path) {
  for (const Rejection &rejection : rejected)
    if (comparable(rejection.path) == comparable(path))
      return true;
  return false;
}

json fileJson(const ObjectPtr<IValidFile> &file) {
  return json{{"path", file->name()}, {"confidence", file->confidence()}, {"step", dump(file->searchStep())}};
}

json rejectionJson(const Rejection &rejection) {
  return json{{"path", rejection.path},
              {"step", dump(rejection.step)},
              {"severity", rejection.severity},
              {"message", rejection.message}};
}

json reportJson(const FindReport &report) {
  json out{{"name", report.name}, {"category", categoryName(report.category)}, {"found", bool(report.found)}};
  if (report.found) {
    out["path"] = report.found->name();
    out["confidence"] = report.found->confidence();
    out["step"] = dump(report.found->searchStep());
  } else {
    out["path"] = nullptr;
    out["confidence"] = nullptr;
    out["step"] = nullptr;
  }
  if (report.listAll) {
    out["files"] = json::array();
    for (const auto &file : report.files)
      out["files"].push_back(fileJson(file));
  }
  if (report.explain) {
    out["rejected"] = json::array();
    for (const Rejection &rejection : report.rejected)
      out["rejected"].push_back(rejectionJson(rejection));
    // Without a result the search reports every rejection; with one, only
    // those of the requested checks can be seen.
    out["rejectedComplete"] = !report.found;
  }
  return out;
}

void printText(const FindReport &report) {
  if (report.found) {
    std::cout << "path: " << report.found->name() << "\n"
              << "confidence: " << report.found->confidence() << "\n"
              << "step: " << dump(report.found->searchStep()) << "\n";
  } else {
    std::cout << "not found: " << report.name << "\n";
  }
  if (report.listAll) {
    std::cout << "valid files: " << report.files.size() << "\n";
    for (const auto &file : report.files)
      std::cout << "  " << file->name() << " (confidence " << file->confidence() << ", step "
                << dump(file->searchStep()) << ")\n";
  }
  if (report.explain) {
    std::cout << (report.found ? "rejected candidates seen by the requested checks: "
                               : "rejected candidates: ")
              << report.rejected.size() << "\n";
    for (const Rejection &rejection : report.rejected)
      std::cout << "  " << rejection.path << " (step " << dump(rejection.step) << ", severity "
                << rejection.severity << "): " << rejection.message << "\n";
  }
}

} // namespace

void FindReport::setRejections(const std::vector<ObjectPtr<IInvalidFile>> &fromSearch,
                               const std::vector<Rejection> &fromChecks) {
  rejected.clear();
  for (const auto &file : fromSearch)
    if (!listed(rejected, file->name()))
      rejected.push_back({file->name(), file->searchStep(), file->severity(), file->errorMessage()});
  for (const Rejection &rejection : fromChecks)
    if (!listed(rejected, rejection.path))
      rejected.push_back(rejection);
}

void printFindReport(const FindReport &report, bool json) {
  if (json)
    std::cout << reportJson(report).dump(2) << "\n";
  else
    printText(report);
}

json findReportJson(const FindReport &report) { return reportJson(report); }

} // namespace vell_tool
