// The places, in order, where a binary's separate debug file or a binary of a
// recorded build ID may be found.
#include "vell/debug_files.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace VELL_2_13 {
namespace {

namespace fs = std::filesystem;

void addOnce(std::vector<std::string> &list, const std::string &path) {
  if (!path.empty() && std::find(list.begin(), list.end(), path) == list.end())
    list.push_back(path);
}

// The global directory first, then the further ones.
std::vector<std::string> rootsOf(const DebugFileLocations &locations) {
  std::vector<std::string> roots;
  addOnce(roots, locations.globalDebugDir);
  for (const std::string &dir : locations.directories)
    addOnce(roots, dir);
  return roots;
}

void addDebugLinkPlaces(std::vector<std::string> &list, const fs::path &binaryDir,
                        const std::string &linkName, const std::string &globalDebugDir) {
  // Try <dir>/<link>: the debug file installed beside its binary.
  addOnce(list, (binaryDir / linkName).string());
  // Try <dir>/.debug/<link>: the hidden debug directory beside the binary.
  addOnce(list, (binaryDir / ".debug" / linkName).string());
  // Try <global>/<dir>/<link>: the global debug directory mirrors the binary's place.
  if (!globalDebugDir.empty())
    addOnce(list, (fs::path(globalDebugDir) / binaryDir.relative_path() / linkName).string());
}

} // namespace

std::string buildIdPath(const std::string &root, const std::string &buildId, const std::string &suffix) {
  if (root.empty() || buildId.size() < 3)
    return {};
  return (fs::path(root) / ".build-id" / buildId.substr(0, 2) / (buildId.substr(2) + suffix)).string();
}

std::vector<std::string> debugFileCandidates(const std::string &binaryPath,
                                             const std::string &recordedBuildId,
                                             const DebugFileLocations &locations) {
  std::optional<ElfIdentity> binary;
  if (!binaryPath.empty())
    binary = readElfIdentity(binaryPath);
  std::string buildId = normalizeBuildId(recordedBuildId).value_or("");
  if (buildId.empty() && binary)
    buildId = binary->buildId;

  std::vector<std::string> candidates;
  // Try <root>/.build-id/xx/yyyy.debug: distributions name detached debug
  // files by build ID, under the global debug directory and in symbol stores.
  for (const std::string &root : rootsOf(locations))
    addOnce(candidates, buildIdPath(root, buildId, ".debug"));

  // A debug link names a file, never a path: one that would lead elsewhere is ignored.
  if (!binary || binary->debugLinkName.empty() || binary->debugLinkName.find('/') != std::string::npos ||
      binary->debugLinkName == "." || binary->debugLinkName == "..")
    return candidates;
  // The debug link names the file; it may sit in three places around the binary.
  fs::path given = fs::path(binaryPath).lexically_normal();
  const std::string &link = binary->debugLinkName;
  addDebugLinkPlaces(candidates, given.parent_path(), link, locations.globalDebugDir);
  // A binary reached through symbolic links has its debug file beside the real file.
  std::error_code error;
  fs::path real = fs::canonical(given, error);
  if (!error && real.parent_path() != given.parent_path())
    addDebugLinkPlaces(candidates, real.parent_path(), link, locations.globalDebugDir);
  return candidates;
}

std::vector<std::string> binaryCandidatesByBuildId(const std::string &buildId,
                                                   const DebugFileLocations &locations) {
  std::vector<std::string> candidates;
  std::string id = normalizeBuildId(buildId).value_or("");
  // Try <root>/.build-id/xx/yyyy: the build-ID tree links each ID to its binary.
  for (const std::string &root : rootsOf(locations))
    addOnce(candidates, buildIdPath(root, id, ""));
  return candidates;
}

std::vector<std::string> searchDirectoriesOf(const ObjectPtr<ISearchEnv> &env, search_category_t category) {
  std::vector<std::string> dirs;
  if (!env)
    return dirs;
  for (search_category_t each : {category, scAllFiles}) {
    ObjectPtr<ISearchDirIterator> it = env->searchDirs(each);
    if (!it)
      continue;
    it->reset();
    const char *name = nullptr;
    bool recursive = false;
    bool highPriority = false;
    while (it->getCurrentRecord(name, recursive, highPriority)) {
      if (name)
        addOnce(dirs, name);
      it->next();
    }
    if (category == scAllFiles)
      break;
  }
  return dirs;
}

} // namespace VELL_2_13
