// The validator a file search builds for one find call: an optional checksum
// pre-check for cache candidates, the decorated host check, and the mapping of
// the verdict to a valid file (with confidence) or an invalid file.
#pragma once

#include <string>

#include "vell/search_env.h"
#include "vell/validation.h"
#include "vell_search/search_interfaces.h"
#include "vell_validation/validator_callback_decorator.h"

namespace VELL_2_13 {

class Validator : public IValidatorInternal, public IValidator {
public:
  // Severity and message of one validation; starts at severity 2 and no text.
  class ErrorInfoContainer : public IErrorInfoContainer {
  public:
    void setSeverity(severity_t severity) override { m_severity = severity; }
    void setErrorMessage(const char *message) override { m_message = message ? message : ""; }
    severity_t severity() const { return m_severity; }
    const std::string &message() const { return m_message; }

  private:
    severity_t m_severity = severity_t(2);
    std::string m_message;
  };

  // userCallback: the host's check (may be null, not owned); policy: the
  // search's confidence policy (outlives the validator); expected: the
  // checksum the file must have (may be null); retriever: the environment's
  // file retriever (may be null, not owned); requestedName: the name the
  // caller asked for.
  Validator(IValidatorCallback *userCallback, IConfidenceLevelPolicyCallback &policy,
            search_category_t category, const ObjectPtr<IChecksum> &expected, IFileRetriever *retriever,
            const char *requestedName);

  // validateInternal(fileName, ssAskUser).
  ObjectPtr<IValidatedFile> validate(const char *fileName) override;
  ObjectPtr<IValidatedFile> validateInternal(const char *fileName, unsigned int searchStep) override;

private:
  // The rejection of a cache candidate whose checksum differs from the
  // expected one; null when the candidate passes this check.
  ObjectPtr<IInvalidFile> checkCachedFileChecksum(const char *fileName, search_step_t step);

  ValidatorCallbackDecorator m_decorator;
  IConfidenceLevelPolicyCallback &m_policy;
  search_category_t m_category;
  ObjectPtr<IChecksum> m_expected;
  IFileRetriever *m_retriever;
  std::string m_requestedName;
};

} // namespace VELL_2_13
