// A progress line on standard error for long searches: shown only when
// standard error is a terminal and the search has run for a while, rewritten
// in place, and erased when the search ends.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace vell_tool {

class ProgressLine {
public:
  // Shows nothing unless fd is a terminal. The line appears after delay.
  explicit ProgressLine(int fd, std::chrono::milliseconds delay = std::chrono::milliseconds(1000));
  ~ProgressLine();
  ProgressLine(const ProgressLine &) = delete;
  ProgressLine &operator=(const ProgressLine &) = delete;

  bool active() const { return m_thread.joinable(); }
  // A directory was walked (called by the searching thread).
  void directoryWalked(const char *dir);
  // Erases the line and stops; called by the destructor as well.
  void stop();

private:
  void run();
  void draw();

  int m_fd;
  std::chrono::milliseconds m_delay;
  std::atomic<unsigned long> m_directories{0};
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_stopping = false;
  bool m_shown = false;
  std::string m_current; // guarded by m_mutex
  std::thread m_thread;
};

// The delay before the progress line appears: one second, or the number of
// milliseconds in VELL_PROGRESS_DELAY_MS (for tests of the line itself).
std::chrono::milliseconds progressDelay();

} // namespace vell_tool
