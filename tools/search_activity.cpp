// What a search of the tool did, step by step.
#include "search_activity.h"

#include <cstring>

using namespace VELL_2_13;

namespace vell_tool {

namespace {

thread_local SearchActivity *t_activity = nullptr;

// The process's observer: the batch searches on several threads at once.
class ThreadRouter : public ISearchObserver {
public:
  void directoryWalked(const char *dir) override {
    if (t_activity)
      t_activity->directoryWalked(dir);
  }
  void directoryUnreadable(const char *dir, int error) override {
    if (t_activity)
      t_activity->directoryUnreadable(dir, error);
  }
  void candidateTried(const char *path, unsigned int searchStep, bool exists) override {
    if (t_activity)
      t_activity->candidateTried(path, searchStep, exists);
  }
};

// Installed once and never removed: a search may still be running on another
// thread when an activity ends.
void installRouter() {
  static ThreadRouter *router = [] {
    auto *created = new ThreadRouter; // lives until the process ends
    setSearchObserver(created);
    return created;
  }();
  (void)router;
}

} // namespace

SearchActivity::SearchActivity(ProgressLine *progress) : m_progress(progress), m_previous(t_activity) {
  installRouter();
  t_activity = this;
}

SearchActivity::~SearchActivity() { t_activity = m_previous; }

StepActivity &SearchActivity::entry(search_step_t step) {
  for (StepActivity &activity : m_steps)
    if (activity.step == step)
      return activity;
  m_steps.push_back(StepActivity{});
  m_steps.back().step = step;
  return m_steps.back();
}

void SearchActivity::stepEntered(search_step_t step) {
  const auto now = std::chrono::steady_clock::now();
  if (m_running && step == m_current)
    return;
  if (m_running)
    entry(m_current).time += now - m_since;
  m_current = step;
  m_since = now;
  m_running = true;
  entry(step);
}

void SearchActivity::finish() {
  if (m_running)
    entry(m_current).time += std::chrono::steady_clock::now() - m_since;
  m_running = false;
}

void SearchActivity::directoryWalked(const char *dir) {
  if (!m_running)
    stepEntered(m_current);
  ++entry(m_current).directories;
  if (m_progress)
    m_progress->directoryWalked(dir);
}

void SearchActivity::directoryUnreadable(const char *dir, int error) {
  if (!m_running)
    stepEntered(m_current);
  ++entry(m_current).unreadable;
  const std::string path = dir ? dir : "";
  for (const UnreadableDirectory &known : m_unreadable)
    if (known.path == path)
      return;
  m_unreadable.push_back({path, std::strerror(error), m_current});
}

void SearchActivity::candidateTried(const char *, unsigned int searchStep, bool exists) {
  const auto step = static_cast<search_step_t>(searchStep);
  if (!m_running || step != m_current)
    stepEntered(step);
  StepActivity &activity = entry(step);
  ++activity.candidates;
  if (exists)
    ++activity.present;
}

} // namespace vell_tool
