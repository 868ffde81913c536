// vell archive: files a copy of a file into a result directory's archive.
#include "archive_command.h"

#include <filesystem>
#include <iostream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "vell/context.h"
#include "vell/file_search.h"
#include "vell/validation.h"

#include "categories.h"
#include "file_checks.h"
#include "json_writer.h"
#include "search_contexts.h"
#include "tool_error.h"

namespace fs = std::filesystem;
using namespace VELL_2_13;
using nlohmann::json;

namespace vell_tool {

namespace {

const char *statusText(unsigned status) {
  switch (status) {
  case 0:
    return "archived";
  case 2:
    return "no checksum calculator";
  case 3:
    return "the file's checksum could not be computed";
  case 4:
    return "a directory of the archive could not be created";
  case 6:
    return "already archived";
  case 8:
    return "no archive directory";
  default:
    return "unknown status";
  }
}

// Subdirectory of the archive that holds a category's files.
const char *archiveSubdirectory(search_category_t category) {
  switch (category) {
  case scBinaryFiles:
    return "binaries";
  case scSymbolFiles:
    return "symbols";
  case scSourceFiles:
    return "sources";
  default:
    return "all";
  }
}

// Where the archive keeps the file: archive/<subdirectory>/<name>/<md5>/<name>;
// empty when the checksum cannot be computed.
std::string archivedPath(const std::string &resultDir, const std::string &file, search_category_t category) {
  ObjectPtr<IChecksum> md5 = IChecksumCalculator::create()->calculateChecksum(file.c_str(), ctMd5);
  if (!md5)
    return "";
  std::string name = utils::getFileNameOnly(file.c_str());
  fs::path path =
      fs::path(resultDir) / "archive" / archiveSubdirectory(category) / name / md5->value() / name;
  return path.string();
}

} // namespace

int runArchive(const GlobalOptions &global, const ArchiveOptions &options) {
  search_category_t category = parseCategory(options.category, true);
  requireFile("archive", options.file);
  if (options.resultDir.empty())
    throw BadInput("archive: --result-dir is required");
  requireDirectory("--result-dir", options.resultDir);
  std::string file = absolutePath(options.file);
  std::string resultDir = absolutePath(options.resultDir);

  ObjectPtr<IResolutionContextMgr> mgr = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> context = mgr->createResultDirectoryContext(resultDir.c_str());
  if (!context)
    throw std::runtime_error("cannot create the result-directory context");
  unsigned status = mgr->archiveFile(*context, file.c_str(), category);
  bool archived = status == 0 || status == 6;
  std::string path = archived ? archivedPath(resultDir, file, category) : "";

  if (global.json) {
    nlohmann::json out{
        {"category", categoryName(category)}, {"status", status}, {"statusText", statusText(status)}};
    putText(out, "file", file);
    if (archived)
      putText(out, "path", path);
    else
      out["path"] = nullptr;
    std::cout << documentText(out) << "\n";
  } else {
    std::cout << "status: " << status << " (" << statusText(status) << ")\n";
    if (archived)
      std::cout << "path: " << path << "\n";
  }
  return archived ? kExitSuccess : kExitNotFound;
}

} // namespace vell_tool
