// What vell find prints: the file found, every valid file, the rejected
// candidates; as text or as JSON.
#include "find_report.h"

#include <filesystem>
#include <iostream>

#include <nlohmann/json.hpp>

#include "categories.h"
#include "json_writer.h"
#include "tool_output.h"

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
  json out{{"confidence", file->confidence()},
           {"confidenceText", confidenceWord(file->confidence())},
           {"step", dump(file->searchStep())}};
  putText(out, "path", file->name());
  return out;
}

json rejectionJson(const Rejection &rejection) {
  json out{{"step", dump(rejection.step)}, {"severity", rejection.severity}};
  putText(out, "path", rejection.path);
  putText(out, "message", rejection.message);
  return out;
}

json unreadableJson(const UnreadableDirectory &dir) {
  json out{{"step", dump(dir.step)}};
  putText(out, "path", dir.path);
  out["reason"] = dir.reason;
  return out;
}

// "1 (probable)": the level and what it means.
std::string confidenceText(unsigned confidence) {
  return std::to_string(confidence) + " (" + confidenceWord(confidence) + ")";
}

json retrievalJson(const RetrievalNote &note) {
  json out{{"used", note.used}, {"buildId", note.buildId.empty() ? json(nullptr) : json(note.buildId)}};
  if (note.error.empty()) {
    out["origin"] = note.origin;
    out["from"] = note.from;
  } else {
    out["error"] = note.error;
  }
  return out;
}

json reportJson(const FindReport &report) {
  json out{{"category", categoryName(report.category)}, {"found", bool(report.found)}};
  putText(out, "name", report.name);
  if (report.found) {
    putText(out, "path", report.found->name());
    out["confidence"] = report.found->confidence();
    out["confidenceText"] = confidenceWord(report.found->confidence());
    out["step"] = dump(report.found->searchStep());
  } else {
    out["path"] = nullptr;
    out["confidence"] = nullptr;
    out["confidenceText"] = nullptr;
    out["step"] = nullptr;
  }
  if (report.buildId)
    out["buildId"] =
        json{{"expected", report.buildId->expected.empty() ? json() : json(report.buildId->expected)},
             {"source", report.buildId->source},
             {"found", report.buildId->found.empty() ? json() : json(report.buildId->found)}};
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
    out["unreadableDirectories"] = json::array();
    for (const UnreadableDirectory &dir : report.unreadable)
      out["unreadableDirectories"].push_back(unreadableJson(dir));
  }
  if (report.retrieval.attempted)
    out["retrieved"] = retrievalJson(report.retrieval);
  return out;
}

void printText(const FindReport &report) {
  if (report.found) {
    std::cout << "path: " << report.found->name() << "\n"
              << "confidence: " << confidenceText(report.found->confidence()) << "\n"
              << "step: " << dump(report.found->searchStep()) << "\n";
  } else {
    std::cout << "not found: " << report.name << "\n";
  }
  if (report.retrieval.attempted) {
    if (report.retrieval.error.empty())
      std::cout << "retrieved: " << report.retrieval.origin << " " << report.retrieval.from << "\n";
    else
      std::cout << "not retrieved: " << report.retrieval.error << "\n";
  }
  if (report.listAll) {
    std::cout << "valid files: " << report.files.size() << "\n";
    for (const auto &file : report.files)
      std::cout << "  " << file->name() << " (confidence " << confidenceText(file->confidence()) << ", step "
                << dump(file->searchStep()) << ")\n";
  }
  // Shown when a build ID was looked for (a binary without one adds nothing).
  if (report.explain && report.buildId && !report.buildId->expected.empty()) {
    const BuildIdReport &ids = *report.buildId;
    std::cout << "build ID looked for: " << ids.expected
              << (ids.source == "recorded" ? " (recorded)" : " (from the binary)") << "\n";
    if (report.found)
      std::cout << "build ID found: " << (ids.found.empty() ? "none" : ids.found) << "\n";
  }
  if (report.explain) {
    std::cout << (report.found ? "rejected candidates seen by the requested checks: "
                               : "rejected candidates: ")
              << report.rejected.size() << "\n";
    for (const Rejection &rejection : report.rejected)
      std::cout << "  " << rejection.path << " (step " << dump(rejection.step) << ", severity "
                << rejection.severity << "): " << rejection.message << "\n";
    if (!report.unreadable.empty()) {
      std::cout << "directories that could not be read: " << report.unreadable.size() << "\n";
      for (const UnreadableDirectory &dir : report.unreadable)
        std::cout << "  " << dir.path << " (step " << dump(dir.step) << "): " << dir.reason << "\n";
    }
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
    std::cout << documentText(reportJson(report)) << "\n";
  else
    printText(report);
}

json findReportJson(const FindReport &report) { return reportJson(report); }

} // namespace vell_tool
