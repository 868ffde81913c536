// Validators of source files: expected modification time and size, and not
// newer than the binary they belong to.
#include <sys/stat.h>

#include "vell/platform.h"
#include "vell/validation.h"

namespace VELL_2_13 {

namespace {

struct FileTimes {
  bool known = false;
  int64_t modificationTime = 0;
  uint64_t size = 0;
};

FileTimes readStatus(const char *fileName) {
  FileTimes result;
  struct stat status;
  if (!fileName || ::stat(fileName, &status) != 0)
    return result;
  result.known = true;
  result.modificationTime = static_cast<int64_t>(status.st_mtime);
  result.size = static_cast<uint64_t>(status.st_size);
  return result;
}

void reject(IErrorInfoContainer &errorInfo, IMsgContainer &container, const char *fallbackId) {
  const char *text = container.get();
  errorInfo.setErrorMessage(text ? text : fallbackId);
  errorInfo.setSeverity(severity_t(1));
}

} // namespace

// --- SourceFileTimeAndSizeMatchValidator ----------------------------------------

int SourceFileTimeAndSizeMatchValidator::validate(const char *fileName, IErrorInfoContainer &errorInfo) {
  // An unreadable status matches no expected value.
  const FileTimes file = readStatus(fileName);
  int verdict = vvNoDecision;
  MsgContainer container;

  // The time comes first; the size is only tested when the time matched, was
  // exempt or was not given.
  if (m_time != 0) {
    if ((file.known && file.modificationTime == m_time) || m_exceptionDirs.isTimeCheckException(fileName)) {
      verdict = vvAccept;
    } else {
      if (m_timeMessage)
        fillTimeMismatchErrorMessage(*m_timeMessage, container);
      reject(errorInfo, container, "%ModificationTimeOrSizeMismatch");
      return vvReject;
    }
  }
  if (m_size == 0)
    return verdict;
  if (file.known && file.size == m_size)
    return vvAccept;
  if (m_sizeMessage)
    fillSizeMismatchErrorMessage(*m_sizeMessage, container);
  reject(errorInfo, container, "%ModificationTimeOrSizeMismatch");
  return vvReject;
}

bool SourceFileTimeAndSizeMatchValidator::fillTimeMismatchErrorMessage(
    IModificationTimeMismatchMessage &message, IMsgContainer &container) {
  return message.fillMessage(container, "");
}

bool SourceFileTimeAndSizeMatchValidator::fillSizeMismatchErrorMessage(ISizeMismatchMessage &message,
                                                                       IMsgContainer &container) {
  return message.fillMessage(container, "");
}

// --- SourceFileUpToDateCheckValidator ---------------------------------------------

SourceFileUpToDateCheckValidator::SourceFileUpToDateCheckValidator(const char *binaryPath,
                                                                   bool acceptIfNotNewer)
    : m_binaryTime(0), m_binaryTimeKnown(false), m_acceptIfNotNewer(acceptIfNotNewer) {
  const FileTimes binary = readStatus(binaryPath);
  if (binary.known) {
    m_binaryTime = binary.modificationTime;
    m_binaryTimeKnown = true;
  }
  ObjectPtr<IMessageMgr> manager = IMessageMgr::create();
  if (manager)
    m_upToDateMessage = manager->getSourceFileUpToDateMessage();
}

int SourceFileUpToDateCheckValidator::validate(const char *fileName, IErrorInfoContainer &errorInfo) {
  if (!m_binaryTimeKnown) {
    // Nothing to compare with: no opinion, but the note travels with the file
    // in case the policy rejects it.
    static const char *const kNoDataId = "NoDataForSourceFileValidation";
    std::shared_ptr<const platform::Catalog> catalog =
        platform::getMessageCatalog(VALIDATOR_MESSAGES_CATALOG);
    const std::string text = catalog ? catalog->message(kNoDataId).asText({}) : std::string(kNoDataId);
    errorInfo.setErrorMessage(text.c_str());
    errorInfo.setSeverity(severity_t(1));
    return vvNoDecision;
  }
  const FileTimes file = readStatus(fileName);
  const int64_t fileTime = file.known ? file.modificationTime : 0;
  if (fileTime > m_binaryTime && !m_exceptionDirs.isTimeCheckException(fileName)) {
    MsgContainer container;
    if (m_upToDateMessage)
      fillUpToDateErrorMessage(*m_upToDateMessage, container);
    reject(errorInfo, container, "%SourceFileUpToDate");
    return vvReject;
  }
  return m_acceptIfNotNewer ? vvAccept : vvNoDecision;
}

bool SourceFileUpToDateCheckValidator::fillUpToDateErrorMessage(ISourceFileUpToDateMessage &message,
                                                                IMsgContainer &container) {
  return message.fillMessage(container, "");
}

} // namespace VELL_2_13
