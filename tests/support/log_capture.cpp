// A log4cplus appender that keeps lines in memory for assertions.
#include "support/log_capture.h"

#include <algorithm>

#include <log4cplus/spi/loggingevent.h>

namespace vell_test {

namespace {

class MemoryAppender : public log4cplus::Appender {
public:
  ~MemoryAppender() override { destructorImpl(); }
  void close() override {}

  std::vector<CapturedLine> lines() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_lines;
  }
  void clear() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_lines.clear();
  }

protected:
  void append(const log4cplus::spi::InternalLoggingEvent &event) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_lines.push_back(
        {static_cast<int>(event.getLogLevel()), LOG4CPLUS_TSTRING_TO_STRING(event.getMessage())});
  }

private:
  mutable std::mutex m_mutex;
  std::vector<CapturedLine> m_lines;
};

log4cplus::Logger vellLogger() { return log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("VELL")); }

} // namespace

LogCapture::LogCapture() : m_appender(new MemoryAppender()) {
  log4cplus::Logger logger = vellLogger();
  m_previousLevel = logger.getLogLevel();
  m_appender->setName(LOG4CPLUS_TEXT("vell-test-capture"));
  logger.addAppender(m_appender);
  logger.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
}

LogCapture::~LogCapture() {
  log4cplus::Logger logger = vellLogger();
  logger.removeAppender(m_appender);
  logger.setLogLevel(m_previousLevel);
}

std::vector<CapturedLine> LogCapture::lines() const {
  return static_cast<MemoryAppender *>(m_appender.get())->lines();
}

std::vector<std::string> LogCapture::texts() const {
  std::vector<std::string> result;
  for (const CapturedLine &line : lines())
    result.push_back(line.text);
  return result;
}

std::vector<std::string> LogCapture::texts(int level) const {
  std::vector<std::string> result;
  for (const CapturedLine &line : lines())
    if (line.level == level)
      result.push_back(line.text);
  return result;
}

bool LogCapture::contains(const std::string &text) const { return count(text) > 0; }

size_t LogCapture::count(const std::string &text) const {
  std::vector<std::string> all = texts();
  return static_cast<size_t>(std::count(all.begin(), all.end(), text));
}

bool LogCapture::containsPrefix(const std::string &prefix) const {
  for (const std::string &text : texts())
    if (text.rfind(prefix, 0) == 0)
      return true;
  return false;
}

void LogCapture::clear() { static_cast<MemoryAppender *>(m_appender.get())->clear(); }

} // namespace vell_test
