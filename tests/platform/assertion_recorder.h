// Records the assertion reports raised while it is alive.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "vell/platform.h"

namespace vell_test {

class AssertionRecorder {
public:
  AssertionRecorder() {
    m_previous =
        VELL_2_13::platform::setAssertionHandler([this](const VELL_2_13::platform::AssertionReport &r) {
          std::lock_guard<std::mutex> guard(m_mutex);
          m_reports.push_back(r);
        });
  }
  ~AssertionRecorder() { VELL_2_13::platform::setAssertionHandler(m_previous); }
  AssertionRecorder(const AssertionRecorder &) = delete;
  AssertionRecorder &operator=(const AssertionRecorder &) = delete;

  std::vector<VELL_2_13::platform::AssertionReport> reports() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_reports;
  }
  std::vector<std::string> messages() const {
    std::vector<std::string> result;
    for (const auto &report : reports())
      result.push_back(report.message);
    return result;
  }

private:
  mutable std::mutex m_mutex;
  std::vector<VELL_2_13::platform::AssertionReport> m_reports;
  VELL_2_13::platform::AssertionHandler m_previous;
};

} // namespace vell_test
