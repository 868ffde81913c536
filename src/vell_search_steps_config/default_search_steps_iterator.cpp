// The iterator over the switched-on search steps of one search.
#include "vell/search_steps.h"

namespace VELL_2_13 {

DefaultSearchStepsIterator::DefaultSearchStepsIterator(int /*mask*/) : m_position(0) {}

void DefaultSearchStepsIterator::reset() { m_position = 0; }

bool DefaultSearchStepsIterator::next() {
  if (m_position >= m_steps.size())
    return false;
  ++m_position;
  return m_position < m_steps.size();
}

bool DefaultSearchStepsIterator::current(search_step_t &step) {
  if (m_position >= m_steps.size())
    return false;
  step = m_steps[m_position];
  return true;
}

void DefaultSearchStepsIterator::append(search_step_t step) { m_steps.push_back(step); }

} // namespace VELL_2_13
