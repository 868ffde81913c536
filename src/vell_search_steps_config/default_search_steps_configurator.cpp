// The default per-category choice of search steps and their fixed order.
#include "platform/log.h"
#include "vell/search_steps.h"

namespace VELL_2_13 {

namespace {

const char *const UNIT = "src/vell_search_steps_config";

// Every step except ssAskUser and ssCacheSearchDir.
constexpr unsigned int DEFAULT_MASK = 0x3F;

// The order in which every search of the library visits its steps. It is not
// the order of the bit values: archives come first and the cache directory is
// looked at right after the high-priority directories.
constexpr search_step_t STEP_ORDER[] = {
    ssArchiveSearchDirs,  ssHighPrioritySearchDirs, ssCacheSearchDir, ssAbsoluteNameLookup,
    ssAroundBinaryLookup, ssLowPrioritySearchDirs,  ssSystemDirs,
};

} // namespace

DefaultSearchStepsConfigurator::DefaultSearchStepsConfigurator()
    : m_binMask(DEFAULT_MASK), m_symMask(DEFAULT_MASK), m_srcMask(DEFAULT_MASK) {}

ObjectPtr<ISearchStepsIterator>
DefaultSearchStepsConfigurator::getSearchStepsIterator(search_category_t category,
                                                       unsigned long long /*mask*/) {
  // The configured mask of the category alone decides; the caller's mask is
  // for host-supplied configurators.
  return getSearchStepsIterator(static_cast<int>(getSearchStepsMask(category)));
}

ObjectPtr<ISearchStepsIterator> DefaultSearchStepsConfigurator::getSearchStepsIterator(int mask) {
  DefaultSearchStepsIterator *iterator = new DefaultSearchStepsIterator(mask);
  ObjectPtr<ISearchStepsIterator> result(iterator);
  for (search_step_t step : STEP_ORDER) {
    if (mask & step)
      iterator->append(step);
  }
  return result;
}

unsigned int DefaultSearchStepsConfigurator::getSearchStepsMask(search_category_t category) const {
  switch (category) {
  case scBinaryFiles:
    return m_binMask;
  case scSymbolFiles:
    return m_symMask;
  case scSourceFiles:
    return m_srcMask;
  default:
    break;
  }
  VELL_LOG_ERROR_AT(UNIT, "Unexpected value.");
  return 0;
}

void DefaultSearchStepsConfigurator::setStep(search_step_t step, search_category_t category, bool enable) {
  unsigned int *mask = nullptr;
  switch (category) {
  case scBinaryFiles:
    mask = &m_binMask;
    break;
  case scSymbolFiles:
    mask = &m_symMask;
    break;
  case scSourceFiles:
    mask = &m_srcMask;
    break;
  default:
    VELL_LOG_ERROR_AT(UNIT, "Unsupported search category");
    return;
  }
  const unsigned int bits = static_cast<unsigned int>(step);
  if (enable)
    *mask |= bits;
  else
    *mask &= ~bits;
}

} // namespace VELL_2_13
