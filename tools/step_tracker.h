// Knows which search step a running search is in, through a steps
// configurator that wraps the one deciding which steps run.
#pragma once

#include <functional>

#include "vell/objects.h"
#include "vell/search_steps.h"

namespace vell_tool {

// The step of the search in progress: ssAskUser while suggested paths are
// checked, then each step as the search reaches it.
class StepTracker {
public:
  VELL_2_13::search_step_t current() const { return m_current; }
  void set(VELL_2_13::search_step_t step) {
    if (m_listener)
      m_listener(step);
    m_current = step;
  }
  // Told every step the search reports, repeated reports of the same step included.
  void setListener(std::function<void(VELL_2_13::search_step_t)> listener) {
    m_listener = std::move(listener);
  }

private:
  VELL_2_13::search_step_t m_current = VELL_2_13::ssAskUser;
  std::function<void(VELL_2_13::search_step_t)> m_listener;
};

// Hands out the inner configurator's steps unchanged and tells the tracker
// each step that the search asks for.
class TrackingStepsConfigurator : public VELL_2_13::RefCountImpl<VELL_2_13::ISearchStepsConfigurator> {
public:
  TrackingStepsConfigurator(VELL_2_13::ObjectPtr<VELL_2_13::ISearchStepsConfigurator> inner,
                            StepTracker &tracker)
      : m_inner(inner), m_tracker(tracker) {}
  VELL_2_13::ObjectPtr<VELL_2_13::ISearchStepsIterator>
  getSearchStepsIterator(VELL_2_13::search_category_t category, unsigned long long mask) override;
  void setStep(VELL_2_13::search_step_t step, VELL_2_13::search_category_t category, bool enable) override {
    m_inner->setStep(step, category, enable);
  }

private:
  VELL_2_13::ObjectPtr<VELL_2_13::ISearchStepsConfigurator> m_inner;
  StepTracker &m_tracker;
};

} // namespace vell_tool
