// Internal logging helpers: every library line goes to the "VELL" logger.
#pragma once

#include <sstream>
#include <string>

#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

namespace VELL_2_13 {
namespace platform {

log4cplus::Logger &vellLogger();

// True when a line of that level would reach an appender: the logger is
// enabled for it and some appender is attached on the logger's path. The
// library prints nothing before the host configured logging.
bool logEnabled(log4cplus::LogLevel level);

// Writes one line at that level (no-op when not enabled).
void logLine(log4cplus::LogLevel level, const std::string &text);

// "<message>, at file: <unit>:<line>"
std::string atFile(const std::string &message, const char *unit, int line);

// Logs "ENTER: <signature>" on construction and "EXIT:  <signature>" on
// destruction, at TRACE level.
class ScopedTrace {
public:
  explicit ScopedTrace(const char *signature);
  ~ScopedTrace();
  ScopedTrace(const ScopedTrace &) = delete;
  ScopedTrace &operator=(const ScopedTrace &) = delete;

private:
  const char *m_signature;
  bool m_enabled;
};

// A null text shown as "NULL" in log lines.
inline const char *orNull(const char *text) { return text ? text : "NULL"; }

} // namespace platform
} // namespace VELL_2_13

#define VELL_LOG_AT(level, expr)                                                                             \
  do {                                                                                                       \
    if (::VELL_2_13::platform::logEnabled(level)) {                                                          \
      std::ostringstream vellLogStream_;                                                                     \
      vellLogStream_ << expr;                                                                                \
      ::VELL_2_13::platform::logLine(level, vellLogStream_.str());                                           \
    }                                                                                                        \
  } while (0)

#define VELL_LOG_TRACE(expr) VELL_LOG_AT(log4cplus::TRACE_LOG_LEVEL, expr)
#define VELL_LOG_DEBUG(expr) VELL_LOG_AT(log4cplus::DEBUG_LOG_LEVEL, expr)
#define VELL_LOG_INFO(expr) VELL_LOG_AT(log4cplus::INFO_LOG_LEVEL, expr)
#define VELL_LOG_ERROR(expr) VELL_LOG_AT(log4cplus::ERROR_LOG_LEVEL, expr)

// An error line that names the source unit and line: "<text>, at file: <unit>:<line>".
#define VELL_LOG_ERROR_AT(unit, expr)                                                                        \
  do {                                                                                                       \
    if (::VELL_2_13::platform::logEnabled(log4cplus::ERROR_LOG_LEVEL)) {                                     \
      std::ostringstream vellLogStream_;                                                                     \
      vellLogStream_ << expr;                                                                                \
      ::VELL_2_13::platform::logLine(log4cplus::ERROR_LOG_LEVEL,                                             \
                                     ::VELL_2_13::platform::atFile(vellLogStream_.str(), unit, __LINE__));   \
    }                                                                                                        \
  } while (0)

// Traces entry and exit of the enclosing function with its full signature.
#define VELL_TRACE_FUNCTION() ::VELL_2_13::platform::ScopedTrace vellScopedTrace_(__PRETTY_FUNCTION__)
