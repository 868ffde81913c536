// How long the stress tests run: a few seconds by default, longer through VELL_STRESS_SECONDS.
#pragma once

#include <chrono>
#include <cstdlib>

namespace vell_test {

// The time budget of one stress test. The default keeps the normal and the
// sanitizer builds of CI quick; VELL_STRESS_SECONDS=600 runs a long version.
inline std::chrono::milliseconds
stressBudget(std::chrono::milliseconds fallback = std::chrono::milliseconds(1500)) {
  const char *text = std::getenv("VELL_STRESS_SECONDS");
  if (!text || !*text)
    return fallback;
  const long seconds = std::strtol(text, nullptr, 10);
  return seconds > 0 ? std::chrono::milliseconds(seconds * 1000) : fallback;
}

// True until the budget that started with this object is used up.
class StressClock {
public:
  explicit StressClock(std::chrono::milliseconds budget = stressBudget())
      : m_end(std::chrono::steady_clock::now() + budget) {}
  bool running() const { return std::chrono::steady_clock::now() < m_end; }

private:
  std::chrono::steady_clock::time_point m_end;
};

} // namespace vell_test
