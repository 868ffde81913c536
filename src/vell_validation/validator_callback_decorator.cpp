// Existence, type and readability checks ahead of the host's validator.
#include "vell_validation/validator_callback_decorator.h"

#include <fstream>

#include <boost/filesystem.hpp>

namespace VELL_2_13 {

namespace fs = boost::filesystem;

namespace {

// Present means: the status (following links) is known and not "not found",
// and a second query says regular file. Errors of the queries count as absent.
bool isPresentAsRegularFile(const char *fileName) {
  try {
    fs::file_status status = fs::status(fileName);
    if (!fs::status_known(status) || status.type() == fs::file_not_found)
      return false;
    return fs::status(fileName).type() == fs::regular_file;
  } catch (const fs::filesystem_error &) {
    return false;
  }
}

bool isDirectoryNow(const char *fileName) {
  try {
    return fs::status(fileName).type() == fs::directory_file;
  } catch (const fs::filesystem_error &) {
    return false;
  }
}

bool isRegularFileNow(const char *fileName) {
  try {
    return fs::status(fileName).type() == fs::regular_file;
  } catch (const fs::filesystem_error &) {
    return false;
  }
}

bool canBeOpenedForReading(const char *fileName) {
  std::ifstream in(fileName, std::ios::in);
  return in.good();
}

// The text a message object produces, or fallbackId when there is no object
// or it produces nothing.
template <class Message>
std::string textOr(const ObjectPtr<Message> &message, const char *fileName, const char *fallbackId) {
  if (message) {
    MsgContainer container;
    message->fillMessage(container, fileName);
    if (const char *text = container.get())
      return text;
  }
  return fallbackId;
}

} // namespace

ObjectPtr<IValidatorCallbackDecorator> IValidatorCallbackDecorator::create(IValidatorCallback *userCallback) {
  return ObjectPtr<IValidatorCallbackDecorator>(new ValidatorCallbackDecorator(userCallback));
}

ValidatorCallbackDecorator::ValidatorCallbackDecorator(IValidatorCallback *userCallback)
    : m_userCallback(userCallback) {
  m_messageMgr = IMessageMgr::create();
  if (m_messageMgr) {
    m_fileIsDirectoryMessage = m_messageMgr->getFileIsDirectoryMessage();
    m_fileIsNotReadableMessage = m_messageMgr->getFileIsNotReadableMessage();
    m_fileDoesNotExistMessage = m_messageMgr->getFileDoesNotExistMessage();
  }
}

int ValidatorCallbackDecorator::validate(const char *fileName, IErrorInfoContainer &errorInfo) {
  if (!fileName)
    fileName = "";
  // A directory, device, pipe or socket is reported as not existing.
  if (!isPresentAsRegularFile(fileName)) {
    errorInfo.setSeverity(severity_t(0));
    errorInfo.setErrorMessage(getFileDoesntExistErrMessage(fileName).c_str());
    return vvReject;
  }
  // Reached only when the file changed since the first query.
  if (isDirectoryNow(fileName))
    return vvReject;
  if (!isRegularFileNow(fileName)) {
    errorInfo.setSeverity(severity_t(0));
    errorInfo.setErrorMessage(getFileIsNotRegularErrMessage(fileName).c_str());
    return vvReject;
  }
  if (!canBeOpenedForReading(fileName)) {
    errorInfo.setSeverity(severity_t(0));
    errorInfo.setErrorMessage(getFileIsNotReadableErrMessage(fileName).c_str());
    return vvReject;
  }
  if (!m_userCallback)
    return vvNoDecision;
  return m_userCallback->validate(fileName, errorInfo);
}

std::string ValidatorCallbackDecorator::getFileDoesntExistErrMessage(const char *fileName) {
  return textOr(m_fileDoesNotExistMessage, fileName, "%FileDoesNotExist");
}

std::string ValidatorCallbackDecorator::getFileIsNotRegularErrMessage(const char *fileName) {
  // Asked of the manager at each use, so that a replacement is seen at once.
  ObjectPtr<IFileIsNotRegularMessage> message;
  if (m_messageMgr)
    message = m_messageMgr->getFileIsNotRegularMessage();
  return textOr(message, fileName, "%FileIsNotRegular");
}

std::string ValidatorCallbackDecorator::getFileIsNotReadableErrMessage(const char *fileName) {
  return textOr(m_fileIsNotReadableMessage, fileName, "%CantOpenFile");
}

std::string ValidatorCallbackDecorator::getFileIsDirErrMessage() {
  if (m_fileIsDirectoryMessage) {
    MsgContainer container;
    m_fileIsDirectoryMessage->fillMessage(container);
    if (const char *text = container.get())
      return text;
  }
  return "%FileIsDirectory";
}

} // namespace VELL_2_13
