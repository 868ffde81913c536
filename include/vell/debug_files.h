// Separate debug files found the way Linux distributions install them (by
// GNU build ID and by .gnu_debuglink) and checked against their binary.
//
// Nothing here is active by default: a host opts in by installing the ready-
// made search-started callback, which offers the candidates as suggestions
// ahead of the search steps, and the ready-made validator callback, which
// accepts a file only when it belongs to the binary. For example:
//
//   DebugFileLocations symbolPlaces;                  // /usr/lib/debug ...
//   symbolPlaces.directories = {"/opt/symbols"};      // ... and the host's symbol directories
//   BuildIdSearchStartedCallback started(symbolPlaces);
//   mgr->registerSearchStartedCallback(*context, clientId, &started);
//   ObjectPtr<IFileSearch> search = mgr->createFileSearch(*context, clientId, ObjectPtr<IEnvironmentInfo>());
//
//   ElfIdentityValidator check(scSymbolFiles, "/usr/lib/libx.so.1");  // the binary, as on disk
//   ObjectPtr<IValidFile> debug =
//       search->findSymFile("libx.so.1", "/usr/lib/libx.so.1", nullptr, &check, nullptr, nullptr, nullptr);
//
// For a file recorded on another machine, give the recorded build ID instead:
// started.setRecordedBuildId("93ac61ec..."), and ElfIdentityValidator(scBinaryFiles, "", "93ac61ec...")
// with findBinFile finds and checks the binary of exactly that build.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vell/callbacks.h"
#include "vell/elf_identity.h"
#include "vell/export.h"
#include "vell/search_env.h"
#include "vell/validation.h"

namespace VELL_2_13 {

// The roots under which files are looked up by build ID.
struct VELL_API DebugFileLocations {
  // The system-wide debug directory: its .build-id tree comes first, and debug
  // links are also looked for under it, below the binary's own directory.
  std::string globalDebugDir = "/usr/lib/debug";
  // Further roots, in order: the symbol search directories for debug files,
  // the binary search directories for binaries.
  std::vector<std::string> directories;
};

// "<root>/.build-id/xx/yyyy...<suffix>" for a lowercase hex build ID; empty
// when the ID has fewer than three digits.
VELL_API std::string buildIdPath(const std::string &root, const std::string &buildId,
                                 const std::string &suffix);

// The places where the debug file of a binary may be, in the order to try:
//  1. <root>/.build-id/xx/yyyy.debug for the global debug directory, then for
//     every further directory (the build ID is recordedBuildId, or the
//     binary's own when none was recorded);
//  2. the binary's debug-link name beside the binary, in ".debug/" beside it,
//     and under the global debug directory followed by the binary's directory;
//     when the binary's path runs through symbolic links, the same three for
//     the directory of the file it resolves to.
// binaryPath may be empty (only a recorded build ID is known); duplicates are
// dropped; nothing is checked for existence.
VELL_API std::vector<std::string> debugFileCandidates(const std::string &binaryPath,
                                                      const std::string &recordedBuildId,
                                                      const DebugFileLocations &locations);

// The places where a binary of a recorded build ID may be: <root>/.build-id/xx/yyyy
// (no suffix) for the global debug directory, then for every further directory.
VELL_API std::vector<std::string> binaryCandidatesByBuildId(const std::string &buildId,
                                                            const DebugFileLocations &locations);

// The directories a search environment searches for a category: those of the
// category, then those for all categories, without duplicates.
VELL_API std::vector<std::string> searchDirectoriesOf(const ObjectPtr<ISearchEnv> &env,
                                                      search_category_t category);

// A ready-made search-started callback that adds the candidates above as
// suggestions, so that the search checks them before its own steps. A
// symbol search uses its binary name (the second key) as the local binary;
// a binary search is given candidates only when a build ID was recorded.
// An optional inner callback (for example the context's history callback)
// is asked first: its answer decides whether the steps run, and its
// suggestions come before these. Source searches go to the inner callback
// alone.
class VELL_API BuildIdSearchStartedCallback : public ISearchStartedCallback {
public:
  explicit BuildIdSearchStartedCallback(DebugFileLocations symbolLocations,
                                        DebugFileLocations binaryLocations = DebugFileLocations(),
                                        ISearchStartedCallback *inner = nullptr);

  // The build ID recorded on the profiling machine (hex text, any case); an
  // empty text forgets it. False, and nothing changed, for text that is not hex.
  bool setRecordedBuildId(const std::string &buildId);
  const std::string &recordedBuildId() const { return m_recordedBuildId; }

  bool binFileSearchStarted(const char *binName, IStringContainer &names) override;
  bool symFileSearchStarted(const char *key1, const char *key2, const char *key3,
                            IStringContainer &names) override;
  bool srcFileSearchStarted(const char *key1, const char *key2, const char *key3,
                            IStringContainer &names) override;

private:
  DebugFileLocations m_symbolLocations;
  DebugFileLocations m_binaryLocations;
  std::string m_recordedBuildId;
  CallbackHolder<ISearchStartedCallback> m_inner;
};

// A ready-made validator callback that accepts a file only when it belongs to
// the binary.
//  - Symbol files: accepted when the candidate's build ID equals the expected
//    one and it carries debug information; with no build ID on either side,
//    a match of the binary's debug-link CRC-32 (and debug information)
//    accepts; with neither, no decision.
//  - Binaries: accepted when the candidate's build ID equals the expected one.
// The expected build ID is the recorded one when given, otherwise the local
// binary's. Rejections carry severity 1 for a file of another build (build
// ID or CRC-32 differs) and 0 for a file of the right build that cannot serve
// (no debug information, the binary itself, not ELF), with a message from the
// "vell_debug_files" catalog. Source searches get no decision. An optional inner
// check runs after an accepting or undecided verdict: its rejection stands,
// its acceptance counts when this check had no data.
class VELL_API ElfIdentityValidator : public IValidatorCallback {
public:
  ElfIdentityValidator(search_category_t category, const std::string &binaryPath,
                       const std::string &recordedBuildId = std::string(),
                       IValidatorCallback *inner = nullptr);

  int validate(const char *fileName, IErrorInfoContainer &errorInfo) override;

  // The build ID candidates must have (lowercase hex), empty when unknown.
  const std::string &expectedBuildId() const { return m_expectedBuildId; }
  // The local binary's identity, when one was given and could be read.
  const std::optional<ElfIdentity> &binaryIdentity() const { return m_binary; }

private:
  int judge(const char *fileName, IErrorInfoContainer &errorInfo) const;
  int judgeSymbolFile(const char *fileName, const ElfIdentity &candidate,
                      IErrorInfoContainer &errorInfo) const;

  search_category_t m_category;
  std::string m_binaryPath;
  std::optional<ElfIdentity> m_binary;
  std::string m_expectedBuildId;
  IValidatorCallback *m_inner;
};

} // namespace VELL_2_13
