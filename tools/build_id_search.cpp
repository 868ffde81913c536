// vell find's build-ID and debug-link extension.
#include "build_id_search.h"

#include "file_checks.h"
#include "tool_error.h"

using namespace VELL_2_13;

namespace vell_tool {

std::string checkBuildIdOptions(const std::string &buildId, bool switchedOff, const std::string &debugDir) {
  if (!debugDir.empty())
    requireDirectory("--debug-dir", debugDir);
  if (buildId.empty())
    return {};
  if (switchedOff)
    throw BadInput("--build-id and --no-build-id exclude each other");
  std::optional<std::string> normal = normalizeBuildId(buildId);
  if (!normal || normal->size() < 3)
    throw BadInput("--build-id: '" + buildId + "' is not a build ID (hexadecimal digits, two per byte)");
  return *normal;
}

bool BuildIdSearch::applies(search_category_t category, const std::string &binary, const std::string &buildId,
                            bool switchedOff) {
  if (switchedOff)
    return false;
  if (category == scSymbolFiles)
    return !binary.empty() || !buildId.empty();
  return category == scBinaryFiles && !buildId.empty();
}

BuildIdSearch::BuildIdSearch(IResolutionContextMgr &mgr, IResolutionContext &context, const char *clientId,
                             search_category_t category, const std::string &binary,
                             const std::string &buildId, const std::string &debugDir)
    : m_recorded(buildId) {
  // The roots are the directories this search would search anyway.
  ObjectPtr<ISearchEnv> env = mgr.createSearchEnv(context, clientId, ObjectPtr<IEnvironmentInfo>());
  DebugFileLocations symbolPlaces;
  DebugFileLocations binaryPlaces;
  if (!debugDir.empty()) {
    symbolPlaces.globalDebugDir = debugDir;
    binaryPlaces.globalDebugDir = debugDir;
  }
  symbolPlaces.directories = searchDirectoriesOf(env, scSymbolFiles);
  binaryPlaces.directories = searchDirectoriesOf(env, scBinaryFiles);
  m_started = std::make_unique<BuildIdSearchStartedCallback>(symbolPlaces, binaryPlaces);
  m_started->setRecordedBuildId(buildId);
  mgr.registerSearchStartedCallback(context, clientId, m_started.get());
  m_check = std::make_unique<ElfIdentityValidator>(category, binary, buildId);
}

BuildIdReport BuildIdSearch::report(const ObjectPtr<IValidFile> &found) const {
  BuildIdReport report;
  report.expected = m_check->expectedBuildId();
  report.source = m_recorded.empty() ? "binary" : "recorded";
  if (found) {
    std::optional<ElfIdentity> identity = readElfIdentity(found->name());
    if (identity)
      report.found = identity->buildId;
  }
  return report;
}

} // namespace vell_tool
