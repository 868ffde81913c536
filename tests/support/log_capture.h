// Captures what the "VELL" logger prints so that tests can assert exact texts.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>

namespace vell_test {

struct CapturedLine {
  int level; // log4cplus level: 0 trace, 20000 info, 40000 error, ...
  std::string text;
};

// While alive, attaches an appender to "VELL" that records every line and sets
// the logger to TRACE; restores the previous level and detaches on destruction.
class LogCapture {
public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture &) = delete;
  LogCapture &operator=(const LogCapture &) = delete;

  std::vector<CapturedLine> lines() const;
  std::vector<std::string> texts() const;
  // Texts of the lines at exactly that level.
  std::vector<std::string> texts(int level) const;
  bool contains(const std::string &text) const;
  // Number of lines whose text equals text exactly.
  size_t count(const std::string &text) const;
  // True when some line starts with prefix.
  bool containsPrefix(const std::string &prefix) const;
  void clear();

private:
  log4cplus::SharedAppenderPtr m_appender;
  log4cplus::LogLevel m_previousLevel;
};

} // namespace vell_test
