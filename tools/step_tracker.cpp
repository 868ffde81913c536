// Knows which search step a running search is in, through a steps
// configurator that wraps the one deciding which steps run.
#include "step_tracker.h"

using namespace VELL_2_13;

namespace vell_tool {

namespace {

// The search reads the step it is about to run through current(); a reset
// starts a new search, whose suggested paths come before any step.
class TrackingStepsIterator : public RefCountImpl<ISearchStepsIterator> {
public:
  TrackingStepsIterator(const ObjectPtr<ISearchStepsIterator> &inner, StepTracker &tracker)
      : m_inner(inner), m_tracker(tracker) {}
  void reset() override {
    m_tracker.set(ssAskUser);
    m_inner->reset();
  }
  bool next() override { return m_inner->next(); }
  bool current(search_step_t &step) override {
    if (!m_inner->current(step))
      return false;
    m_tracker.set(step);
    return true;
  }

private:
  ObjectPtr<ISearchStepsIterator> m_inner;
  StepTracker &m_tracker;
};

} // namespace

ObjectPtr<ISearchStepsIterator> TrackingStepsConfigurator::getSearchStepsIterator(search_category_t category,
                                                                                  unsigned long long mask) {
  m_tracker.set(ssAskUser);
  ObjectPtr<ISearchStepsIterator> inner = m_inner->getSearchStepsIterator(category, mask);
  if (!inner)
    return inner;
  return ObjectPtr<ISearchStepsIterator>(new TrackingStepsIterator(inner, m_tracker));
}

} // namespace vell_tool
