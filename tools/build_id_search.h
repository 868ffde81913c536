// vell find's build-ID and debug-link extension: the suggestions and the
// identity check it installs, and what it reports.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "vell/context.h"
#include "vell/debug_files.h"

namespace vell_tool {

// The build ID a search looked for and the one its answer carries.
struct BuildIdReport {
  std::string expected; // empty when neither the binary nor the user gave one
  std::string source;   // "recorded" (--build-id) or "binary"
  std::string found;    // of the file found; empty when none or without a build ID
};

// Checks --build-id, --no-build-id and --debug-dir; returns the build ID as
// lowercase hex (empty when not given). Throws BadInput.
std::string checkBuildIdOptions(const std::string &buildId, bool switchedOff, const std::string &debugDir);

class BuildIdSearch {
public:
  // Whether the extension applies: symbol searches with a binary or a build
  // ID, binary searches with a build ID; never with --no-build-id.
  static bool applies(VELL_2_13::search_category_t category, const std::string &binary,
                      const std::string &buildId, bool switchedOff);

  // Registers the suggestions with the context (the directories searched
  // are read from the context's environment) and builds the check.
  BuildIdSearch(VELL_2_13::IResolutionContextMgr &mgr, VELL_2_13::IResolutionContext &context,
                const char *clientId, VELL_2_13::search_category_t category, const std::string &binary,
                const std::string &buildId, const std::string &debugDir);

  VELL_2_13::IValidatorCallback *check() { return m_check.get(); }
  BuildIdReport report(const VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> &found) const;

private:
  std::string m_recorded;
  std::unique_ptr<VELL_2_13::BuildIdSearchStartedCallback> m_started;
  std::unique_ptr<VELL_2_13::ElfIdentityValidator> m_check;
};

} // namespace vell_tool
