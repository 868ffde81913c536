// The checks every candidate must pass before the host's own validator
// callback is asked: present as a regular file, and readable.
#pragma once

#include <string>

#include "vell/validation.h"

namespace VELL_2_13 {

class ValidatorCallbackDecorator : public RefCountImpl<IValidatorCallbackDecorator> {
public:
  // userCallback may be null; it is not owned.
  explicit ValidatorCallbackDecorator(IValidatorCallback *userCallback);
  ~ValidatorCallbackDecorator() override = default;

  // 1 with severity 0 and a message when a check fails; otherwise the user
  // callback's verdict, or 2 when there is none.
  int validate(const char *fileName, IErrorInfoContainer &errorInfo) override;

  std::string getFileDoesntExistErrMessage(const char *fileName);
  std::string getFileIsNotRegularErrMessage(const char *fileName);
  std::string getFileIsNotReadableErrMessage(const char *fileName);
  std::string getFileIsDirErrMessage();

  IValidatorCallback *userCallback() const { return m_userCallback; }

private:
  IValidatorCallback *m_userCallback;
  ObjectPtr<IFileIsDirectoryMessage> m_fileIsDirectoryMessage;
  ObjectPtr<IFileIsNotReadableMessage> m_fileIsNotReadableMessage;
  ObjectPtr<IFileDoesNotExistMessage> m_fileDoesNotExistMessage;
  ObjectPtr<IMessageMgr> m_messageMgr;
};

} // namespace VELL_2_13
