// The ready-made search-started callback that suggests debug files and
// binaries by build ID and debug link.
#include "vell/debug_files.h"

#include "platform/log.h"

namespace VELL_2_13 {
namespace {

// Asks the inner callback under its lock, as the search does with its own.
template <class Call> bool askInner(CallbackHolder<ISearchStartedCallback> &holder, Call call) {
  if (!holder.hasCallback())
    return true;
  VellSpinSharedLockWrap guard(holder.lock());
  ISearchStartedCallback *inner = holder.callbackUnlocked();
  return inner ? call(*inner) : true;
}

void suggest(const std::vector<std::string> &candidates, IStringContainer &names) {
  for (const std::string &candidate : candidates) {
    VELL_LOG_DEBUG("Suggesting by build ID or debug link: " << candidate);
    names.add(candidate.c_str());
  }
}

} // namespace

BuildIdSearchStartedCallback::BuildIdSearchStartedCallback(DebugFileLocations symbolLocations,
                                                           DebugFileLocations binaryLocations,
                                                           ISearchStartedCallback *inner)
    : m_symbolLocations(std::move(symbolLocations)), m_binaryLocations(std::move(binaryLocations)),
      m_inner(inner) {}

bool BuildIdSearchStartedCallback::setRecordedBuildId(const std::string &buildId) {
  if (buildId.empty()) {
    m_recordedBuildId.clear();
    return true;
  }
  std::optional<std::string> normal = normalizeBuildId(buildId);
  if (!normal)
    return false;
  m_recordedBuildId = *normal;
  return true;
}

bool BuildIdSearchStartedCallback::binFileSearchStarted(const char *binName, IStringContainer &names) {
  bool proceed = askInner(
      m_inner, [&](ISearchStartedCallback &inner) { return inner.binFileSearchStarted(binName, names); });
  if (!m_recordedBuildId.empty())
    suggest(binaryCandidatesByBuildId(m_recordedBuildId, m_binaryLocations), names);
  return proceed;
}

bool BuildIdSearchStartedCallback::symFileSearchStarted(const char *key1, const char *key2, const char *key3,
                                                        IStringContainer &names) {
  bool proceed = askInner(m_inner, [&](ISearchStartedCallback &inner) {
    return inner.symFileSearchStarted(key1, key2, key3, names);
  });
  // The second key is the local binary whose debug file is sought.
  std::string binary = key2 ? key2 : "";
  suggest(debugFileCandidates(binary, m_recordedBuildId, m_symbolLocations), names);
  return proceed;
}

bool BuildIdSearchStartedCallback::srcFileSearchStarted(const char *key1, const char *key2, const char *key3,
                                                        IStringContainer &names) {
  return askInner(m_inner, [&](ISearchStartedCallback &inner) {
    return inner.srcFileSearchStarted(key1, key2, key3, names);
  });
}

} // namespace VELL_2_13
