// Counts the read-ahead helper threads alive in the test process.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "vell_search/walk_read_ahead.h"

namespace vell_test {

// Helper threads of read-aheads now alive in this process.
inline size_t readAheadThreads() {
  size_t count = 0;
  for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream comm(task.path() / "comm");
    std::string name;
    std::getline(comm, name);
    if (name == VELL_2_13::READ_AHEAD_THREAD_NAME)
      ++count;
  }
  return count;
}

// The read-ahead helpers once a walk has returned. A joined thread may stay
// listed under /proc for a moment after join returns (the kernel wakes the
// joiner before it removes the task), so this waits up to two seconds for
// the count to drop to zero; a helper that really outlives its walk stays.
inline size_t readAheadThreadsAfterWalk() {
  for (int attempt = 0; attempt < 200; ++attempt) {
    const size_t count = readAheadThreads();
    if (count == 0)
      return 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return readAheadThreads();
}

} // namespace vell_test
