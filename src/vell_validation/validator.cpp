// Judges one candidate of a search and wraps the outcome in a validated file.
#include "vell_validation/validator.h"

#include <exception>

#include "vell/file_search.h"
#include "vell/platform.h"

namespace VELL_2_13 {

namespace {

const char *const kCacheMessageCatalog = "vell.climgr";
const char *const kCacheChecksumMessageId = "%CannotMatchFileWithChecksumMismatch";

// Only the low 16 bits of a step value name the step.
search_step_t stepOf(unsigned int searchStep) { return static_cast<search_step_t>(searchStep & 0xffffu); }

// The text of the cache checksum rejection: the "vell.climgr" catalog's
// message with "%1" = the file name, or the id when the catalog is missing.
std::string cacheChecksumMessage(const char *fileName) {
  std::shared_ptr<const platform::Catalog> catalog = platform::getMessageCatalog(kCacheMessageCatalog);
  if (!catalog)
    return kCacheChecksumMessageId;
  // Catalog keys are the ids without their leading "%".
  platform::Message message = catalog->message(kCacheChecksumMessageId + 1);
  return message.asText({{"%1", fileName}});
}

ObjectPtr<IValidatedFile> wrap(const ObjectPtr<IValidFile> &file) {
  return ObjectPtr<IValidatedFile>(new ValidatedFile(*file));
}

ObjectPtr<IValidatedFile> wrap(const ObjectPtr<IInvalidFile> &file) {
  return ObjectPtr<IValidatedFile>(new ValidatedFile(*file));
}

} // namespace

Validator::Validator(IValidatorCallback *userCallback, IConfidenceLevelPolicyCallback &policy,
                     search_category_t category, const ObjectPtr<IChecksum> &expected,
                     IFileRetriever *retriever, const char *requestedName)
    : m_decorator(userCallback), m_policy(policy), m_category(category), m_expected(expected),
      m_retriever(retriever), m_requestedName(requestedName ? requestedName : "") {}

ObjectPtr<IValidatedFile> Validator::validate(const char *fileName) {
  return validateInternal(fileName, ssAskUser);
}

ObjectPtr<IInvalidFile> Validator::checkCachedFileChecksum(const char *fileName, search_step_t step) {
  if (!m_expected) {
    // Ask the retriever what the requested file must look like, for a name
    // that denotes one file on the target: a Linux path, an absolute path or
    // the kernel image.
    std::string name = m_requestedName;
    if (fixLinuxName(name) || utils::isAbsolutePath(name.c_str()) || m_requestedName == VMLINUX) {
      if (m_retriever->getFileChecksum(name.c_str(), m_expected) != 0 || !m_expected)
        return ObjectPtr<IInvalidFile>();
    }
    if (!m_expected)
      return ObjectPtr<IInvalidFile>();
  }
  ObjectPtr<IChecksumCalculator> calculator = IChecksumCalculator::create();
  if (!calculator)
    return ObjectPtr<IInvalidFile>();
  ObjectPtr<IChecksum> actual;
  try {
    actual = calculator->calculateChecksum(fileName, m_expected->type());
  } catch (const std::exception &) {
    // An unreadable candidate is left to the decorator, which rejects it.
    return ObjectPtr<IInvalidFile>();
  }
  if (!actual || actual->isEqualTo(*m_expected))
    return ObjectPtr<IInvalidFile>();
  std::string message = cacheChecksumMessage(fileName);
  return ObjectPtr<IInvalidFile>(new InvalidFile(fileName, severity_t(0), message.c_str(), step));
}

ObjectPtr<IValidatedFile> Validator::validateInternal(const char *fileName, unsigned int searchStep) {
  if (!fileName)
    fileName = "";
  const search_step_t step = stepOf(searchStep);

  // Files from the cache directory must carry the checksum the requested
  // file has; a mismatch is rejected before the host's check runs.
  if (step == ssCacheSearchDir && m_retriever) {
    ObjectPtr<IInvalidFile> rejected = checkCachedFileChecksum(fileName, step);
    if (rejected)
      return wrap(rejected);
  }

  ErrorInfoContainer errorInfo;
  const int verdict = m_decorator.validate(fileName, errorInfo);
  if (verdict == vvAccept)
    return wrap(ObjectPtr<IValidFile>(new ValidFile(fileName, confidence_t(0), step)));
  if (verdict == vvReject)
    return wrap(ObjectPtr<IInvalidFile>(
        new InvalidFile(fileName, errorInfo.severity(), errorInfo.message().c_str(), step)));

  // No decision: the policy level decides. Level 2 rejects; otherwise the
  // confidence is the level shifted by one (0 -> 1, anything else -> 2).
  const unsigned int level = m_policy.getConfidenceLevel(m_category, searchStep);
  if (level == 2)
    return wrap(ObjectPtr<IInvalidFile>(
        new InvalidFile(fileName, errorInfo.severity(), errorInfo.message().c_str(), step)));
  return wrap(ObjectPtr<IValidFile>(new ValidFile(fileName, confidence_t(level == 0 ? 1 : 2), step)));
}

} // namespace VELL_2_13
