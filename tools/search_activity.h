// What a search of the tool did, step by step, as the library's search
// observer reports it: the -v summary, the unreadable directories that
// --explain names, and the progress line are made from it.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "vell/search_observer.h"
#include "vell/search_steps.h"

#include "progress_line.h"

namespace vell_tool {

// A directory a recursive walk could not read.
struct UnreadableDirectory {
  std::string path;
  std::string reason;
  VELL_2_13::search_step_t step;
};

// The work of one step (ssAskUser: the suggested paths).
struct StepActivity {
  VELL_2_13::search_step_t step = VELL_2_13::ssAskUser;
  unsigned long candidates = 0; // tried
  unsigned long present = 0;    // of those, files that exist (validated)
  unsigned long directories = 0;
  unsigned long unreadable = 0;
  std::chrono::steady_clock::duration time{};
};

// Observes, for its lifetime, the searches of the thread that created it:
// the library's observer is process-wide, so one router installed for the
// whole process hands each call to the activity of the searching thread.
class SearchActivity : public VELL_2_13::ISearchObserver {
public:
  explicit SearchActivity(ProgressLine *progress = nullptr);
  ~SearchActivity() override;
  SearchActivity(const SearchActivity &) = delete;
  SearchActivity &operator=(const SearchActivity &) = delete;

  void directoryWalked(const char *dir) override;
  void directoryUnreadable(const char *dir, int error) override;
  void candidateTried(const char *path, unsigned int searchStep, bool exists) override;

  // The search is in step from now on (the step tracker reports it).
  void stepEntered(VELL_2_13::search_step_t step);
  // Ends the time of the step in progress.
  void finish();

  // The steps in the order they first ran; a step run twice (the kernel
  // fall-back) is counted once, with both runs added up.
  const std::vector<StepActivity> &steps() const { return m_steps; }
  const std::vector<UnreadableDirectory> &unreadableDirectories() const { return m_unreadable; }

private:
  StepActivity &entry(VELL_2_13::search_step_t step);

  ProgressLine *m_progress;
  SearchActivity *m_previous; // of this thread
  std::vector<StepActivity> m_steps;
  std::vector<UnreadableDirectory> m_unreadable;
  VELL_2_13::search_step_t m_current = VELL_2_13::ssAskUser;
  bool m_running = false;
  std::chrono::steady_clock::time_point m_since;
};

} // namespace vell_tool
