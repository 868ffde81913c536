// The candidate iterator of one search.
#include "vell_search_impl/found_files_lazy_iterator.h"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

#include "platform/log.h"
#include "vell/file_search.h"
#include "vell/platform.h"
#include "vell/validation.h"
#include "vell_search/search_observer.h"
#include "vell_search_impl/kernel_cache.h"

namespace VELL_2_13 {

namespace {

const char *const kUnit = "src/vell_search_impl";
// The line reported with a missing steps iterator.
const int kNullStepsIteratorLine = 259;

// Whether a file of that name is already in the list (byte-wise comparison).
template <class T> bool containsName(const std::vector<ObjectPtr<T>> &files, const char *name) {
  for (const ObjectPtr<T> &file : files) {
    if (utils::compareCanonicalFileNames(file->name(), name) == 0)
      return true;
  }
  return false;
}

} // namespace

FoundFilesLazyIterator::FoundFilesLazyIterator(IFileSearchStrategy &strategy, IValidatorInternal &validator,
                                               unsigned long long mask)
    : m_strategy(strategy), m_validator(validator), m_validFilesIterator(m_validFiles),
      m_invalidFilesIterator(m_invalidFiles), m_stepsIterator(strategy.getSearchStepsIterator(mask)),
      m_cursor(0) {
  if (!m_stepsIterator) {
    platform::reportAssertion("Null pointer", kUnit, kNullStepsIteratorLine);
    return;
  }
  m_stepsIterator->reset();
}

void FoundFilesLazyIterator::reset() { m_cursor = 0; }

ObjectPtr<IValidFile> FoundFilesLazyIterator::next() {
  for (;;) {
    if (m_cursor < m_validFiles.size())
      return m_validFiles[m_cursor++];
    search_step_t step{};
    if (!m_stepsIterator || !m_stepsIterator->current(step)) {
      VELL_LOG_INFO("Nothing found");
      return ObjectPtr<IValidFile>();
    }
    if (!runStep(step)) {
      VELL_LOG_ERROR_AT(kUnit, "Unexpected value.");
      return ObjectPtr<IValidFile>();
    }
    if (m_cursor < m_validFiles.size())
      VELL_LOG_INFO("Found file:" << m_validFiles[m_cursor]->name() << " in step:" << dump(step));
    m_stepsIterator->next();
  }
}

bool FoundFilesLazyIterator::runStep(search_step_t step) {
  // The handlers' own answers are not needed: the lists tell what arrived.
  switch (step) {
  case ssArchiveSearchDirs:
    m_strategy.findInArchiveDirs(*this);
    return true;
  case ssHighPrioritySearchDirs:
    m_strategy.findInHighPriorityDirs(*this);
    return true;
  case ssAbsoluteNameLookup:
    m_strategy.lookUpAbsoluteName(*this);
    return true;
  case ssAroundBinaryLookup:
    m_strategy.lookUpAroundBinary(*this);
    return true;
  case ssLowPrioritySearchDirs:
    m_strategy.findInLowPriorityDirs(*this);
    return true;
  case ssSystemDirs:
    m_strategy.findInSystemDirs(*this);
    return true;
  case ssCacheSearchDir:
    m_strategy.findInCacheDir(*this);
    return true;
  default:
    return false;
  }
}

bool FoundFilesLazyIterator::validateAndAdd(const char *path, unsigned int searchStep) {
  std::string candidate = path ? path : "";
  const bool exists = utils::fileExists(candidate.c_str());
  if (ISearchObserver *observer = searchObserver())
    observer->candidateTried(candidate.c_str(), searchStep, exists);
  if (!exists) {
    VELL_LOG_INFO("*** DO__NOT__EXIST " << candidate);
    return false;
  }
  ObjectPtr<IValidatedFile> validated = m_validator.validateInternal(candidate.c_str(), searchStep);
  if (!validated)
    return false;
  substituteCompressedKernel(validated, candidate, searchStep);

  ObjectPtr<IValidFile> valid = validated->validFile();
  if (!valid) {
    ObjectPtr<IInvalidFile> invalid = validated->invalidFile();
    if (!invalid)
      return false;
    if (containsName(m_invalidFiles, invalid->name())) {
      VELL_LOG_INFO("*** INVALID_DUBLIC " << candidate);
      return false;
    }
    m_invalidFiles.push_back(invalid);
    VELL_LOG_INFO("*** INVALID__ADDED " << candidate);
    return false;
  }
  // The first file of a name wins, whatever the confidence of a later one.
  if (containsName(m_validFiles, valid->name())) {
    VELL_LOG_INFO("*** VALID_DUBLICAT " << candidate);
    return false;
  }
  // A cursor at the end now stands on the new file.
  m_validFiles.push_back(valid);
  VELL_LOG_INFO("*** VALID____ADDED " << candidate);
  return true;
}

void FoundFilesLazyIterator::substituteCompressedKernel(ObjectPtr<IValidatedFile> &validated,
                                                        std::string &path, unsigned int searchStep) {
  if (!validated->validFile())
    return;
  const std::string name = utils::getFileNameOnly(path.c_str());
  std::string target;
  if (name.rfind(VMLINUZ, 0) == 0)
    target = cachedKernelImage(path, m_kernelOptions);
  else if (m_kernelOptions && m_kernelOptions->decompressModules)
    target = cachedModule(path, *m_kernelOptions);
  if (target.empty())
    return;
  ObjectPtr<IValidatedFile> extracted = m_validator.validateInternal(target.c_str(), searchStep);
  if (!extracted || !extracted->validFile())
    return;
  validated = extracted;
  path = target;
}

} // namespace VELL_2_13
