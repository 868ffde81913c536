// The ready-made validator callback that accepts only a file of the binary's
// own build: same build ID (or debug-link CRC-32) and, for a debug file,
// debug information.
#include "vell/debug_files.h"

#include <sys/stat.h>

#include <cstdio>

#include "platform/log.h"
#include "vell/platform.h"

namespace VELL_2_13 {
namespace {

// The catalog of this check's messages.
const char *const kCatalog = "vell_debug_files";

// A file of another build: the wrong answer a host must never get.
constexpr severity_t kOtherBuild = severity_t(1);
// The right build, but a file that cannot serve (stripped, not ELF).
constexpr severity_t kUnusable = severity_t(0);

// The catalog text of id with the file name as "arg1" and the further
// arguments; "%<id>" when the catalog has no such text.
std::string catalogText(const char *id, const char *fileName, platform::MessageArguments arguments = {}) {
  std::shared_ptr<const platform::Catalog> catalog = platform::getMessageCatalog(kCatalog);
  platform::Message message = catalog ? catalog->message(id) : platform::Message();
  if (message.size() == 0)
    return std::string("%") + id;
  arguments.emplace_back("arg1", fileName);
  return message.asText(arguments);
}

int reject(IErrorInfoContainer &errorInfo, severity_t severity, const std::string &message) {
  errorInfo.setSeverity(severity);
  errorInfo.setErrorMessage(message.c_str());
  VELL_LOG_DEBUG("Identity check rejects: " << message);
  return vvReject;
}

std::string crcText(uint32_t crc) {
  char text[9];
  std::snprintf(text, sizeof text, "%08x", crc);
  return text;
}

bool sameFile(const std::string &a, const char *b) {
  struct stat first;
  struct stat second;
  return !a.empty() && ::stat(a.c_str(), &first) == 0 && ::stat(b, &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

} // namespace

ElfIdentityValidator::ElfIdentityValidator(search_category_t category, const std::string &binaryPath,
                                           const std::string &recordedBuildId, IValidatorCallback *inner)
    : m_category(category), m_binaryPath(binaryPath), m_inner(inner) {
  if (!binaryPath.empty())
    m_binary = readElfIdentity(binaryPath);
  // What was recorded on the profiling machine outranks the local binary.
  m_expectedBuildId = normalizeBuildId(recordedBuildId).value_or("");
  if (m_expectedBuildId.empty() && m_binary)
    m_expectedBuildId = m_binary->buildId;
}

int ElfIdentityValidator::validate(const char *fileName, IErrorInfoContainer &errorInfo) {
  if (!fileName)
    fileName = "";
  int verdict = judge(fileName, errorInfo);
  if (verdict == vvReject || !m_inner)
    return verdict;
  int innerVerdict = m_inner->validate(fileName, errorInfo);
  if (innerVerdict == vvReject)
    return vvReject;
  return verdict == vvAccept ? vvAccept : innerVerdict;
}

int ElfIdentityValidator::judge(const char *fileName, IErrorInfoContainer &errorInfo) const {
  if (m_category != scSymbolFiles && m_category != scBinaryFiles)
    return vvNoDecision;
  bool crcKnown = m_category == scSymbolFiles && m_binary && m_binary->debugLinkCrc;
  if (m_expectedBuildId.empty() && !crcKnown)
    return vvNoDecision;
  std::optional<ElfIdentity> candidate = readElfIdentity(fileName);
  if (!candidate)
    return reject(errorInfo, kUnusable, catalogText("NotAnElfFile", fileName));
  if (m_category == scSymbolFiles)
    return judgeSymbolFile(fileName, *candidate, errorInfo);
  if (candidate->buildId.empty())
    return reject(errorInfo, kOtherBuild,
                  catalogText("BuildIdMissing", fileName, {{"expected", m_expectedBuildId}}));
  if (candidate->buildId != m_expectedBuildId)
    return reject(errorInfo, kOtherBuild,
                  catalogText("BuildIdMismatch", fileName,
                              {{"expected", m_expectedBuildId}, {"found", candidate->buildId}}));
  return vvAccept;
}

int ElfIdentityValidator::judgeSymbolFile(const char *fileName, const ElfIdentity &candidate,
                                          IErrorInfoContainer &errorInfo) const {
  if (!m_expectedBuildId.empty()) {
    if (candidate.buildId.empty())
      return reject(errorInfo, kOtherBuild,
                    catalogText("BuildIdMissing", fileName, {{"expected", m_expectedBuildId}}));
    if (candidate.buildId != m_expectedBuildId)
      return reject(errorInfo, kOtherBuild,
                    catalogText("BuildIdMismatch", fileName,
                                {{"expected", m_expectedBuildId}, {"found", candidate.buildId}}));
  } else {
    // No build ID on either side: the debug link's CRC-32 of the whole file decides.
    std::optional<uint32_t> crc = debugLinkCrcOfFile(fileName);
    if (!crc || *crc != *m_binary->debugLinkCrc)
      return reject(errorInfo, kOtherBuild,
                    catalogText("DebugLinkCrcMismatch", fileName,
                                {{"expected", crcText(*m_binary->debugLinkCrc)},
                                 {"found", crc ? crcText(*crc) : std::string("-")}}));
  }
  if (candidate.hasDebugInfo)
    return vvAccept;
  if (sameFile(m_binaryPath, fileName))
    return reject(errorInfo, kUnusable, catalogText("BinaryIsNotItsDebugFile", fileName));
  return reject(errorInfo, kUnusable, catalogText("NoDebugInformation", fileName));
}

} // namespace VELL_2_13
