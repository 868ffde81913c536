// Accepts a file whose checksum is the expected one.
#include <exception>

#include "vell/validation.h"

namespace VELL_2_13 {

int ChecksumValidator::validate(const char *fileName, IErrorInfoContainer &errorInfo) {
  if (!m_expected || !m_calculator)
    return vvNoDecision;
  ObjectPtr<IChecksum> actual;
  try {
    actual = m_calculator->calculateChecksum(fileName, m_expected->type());
  } catch (const std::exception &) {
    // A file that cannot be read has no checksum: no opinion.
    return vvNoDecision;
  }
  if (!actual)
    return vvNoDecision;
  if (actual->isEqualTo(*m_expected))
    return vvAccept;
  setErrorMessage(errorInfo, fileName);
  return vvReject;
}

void ChecksumValidator::setErrorMessage(IErrorInfoContainer &errorInfo, const char *fileName) {
  MsgContainer container;
  switch (m_category) {
  case scBinaryFiles:
    if (m_binMessage)
      fillErrorMessageForBinFile(*m_binMessage, container, fileName);
    errorInfo.setSeverity(severity_t(0));
    break;
  case scSymbolFiles:
    if (m_symMessage)
      fillErrorMessageForSymFile(*m_symMessage, container, fileName);
    errorInfo.setSeverity(severity_t(0));
    break;
  case scSourceFiles:
    if (m_srcMessage)
      fillErrorMessageForSrcFile(*m_srcMessage, container, fileName);
    errorInfo.setSeverity(severity_t(1));
    break;
  default:
    break;
  }
  const char *text = container.get();
  errorInfo.setErrorMessage(text ? text : "%ChecksumMismatch");
}

bool ChecksumValidator::fillErrorMessageForBinFile(IBinChecksumMismatchMessage &message,
                                                   IMsgContainer &container, const char *fileName) {
  return message.fillMessage(container, fileName);
}

bool ChecksumValidator::fillErrorMessageForSymFile(ISymChecksumMismatchMessage &message,
                                                   IMsgContainer &container, const char *fileName) {
  return message.fillMessage(container, fileName);
}

bool ChecksumValidator::fillErrorMessageForSrcFile(ISrcChecksumMismatchMessage &message,
                                                   IMsgContainer &container, const char *fileName) {
  return message.fillMessage(container, fileName);
}

bool ChecksumValidator::fillErrorMessageForBinFile(IBinChecksumMismatchMessage &message,
                                                   IMsgContainer &container) {
  return fillErrorMessageForBinFile(message, container, "");
}

bool ChecksumValidator::fillErrorMessageForSymFile(ISymChecksumMismatchMessage &message,
                                                   IMsgContainer &container) {
  return fillErrorMessageForSymFile(message, container, "");
}

bool ChecksumValidator::fillErrorMessageForSrcFile(ISrcChecksumMismatchMessage &message,
                                                   IMsgContainer &container) {
  return fillErrorMessageForSrcFile(message, container, "");
}

} // namespace VELL_2_13
