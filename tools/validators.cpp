// The tool's validator callbacks: several checks combined into one, and a
// recorder of the rejections they make.
#include "validators.h"

using namespace VELL_2_13;

namespace vell_tool {

namespace {

// Forwards to the search's container and keeps a copy of what was set.
class CapturingErrorInfo : public IErrorInfoContainer {
public:
  explicit CapturingErrorInfo(IErrorInfoContainer &target) : m_target(target) {}
  void setSeverity(severity_t severity) override {
    m_severity = severity;
    m_target.setSeverity(severity);
  }
  void setErrorMessage(const char *message) override {
    m_message = message ? message : "";
    m_target.setErrorMessage(message);
  }
  unsigned severity() const { return m_severity; }
  const std::string &message() const { return m_message; }

private:
  IErrorInfoContainer &m_target;
  unsigned m_severity = 2; // the neutral value a search's container starts with
  std::string m_message;
};

} // namespace

int CompositeValidator::validate(const char *fileName, IErrorInfoContainer &errorInfo) {
  bool accepted = false;
  for (IValidatorCallback *check : m_checks) {
    int verdict = check->validate(fileName, errorInfo);
    if (verdict == vvReject)
      return vvReject;
    if (verdict == vvAccept)
      accepted = true;
  }
  return accepted ? vvAccept : vvNoDecision;
}

int RecordingValidator::validate(const char *fileName, IErrorInfoContainer &errorInfo) {
  if (!m_inner)
    return vvNoDecision;
  CapturingErrorInfo captured(errorInfo);
  int verdict = m_inner->validate(fileName, captured);
  if (verdict == vvReject)
    m_rejections.push_back(
        {fileName ? fileName : "", m_tracker.current(), captured.severity(), captured.message()});
  return verdict;
}

} // namespace vell_tool
