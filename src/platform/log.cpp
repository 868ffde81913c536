// The "VELL" logger, its quiet-until-configured rule and the trace scope.
#include "platform/log.h"

#include <log4cplus/appender.h>
#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>

#include <fstream>

#include "vell/platform.h"

namespace VELL_2_13 {
namespace platform {

const char *const LOGGER_NAME = "VELL";

log4cplus::Logger &vellLogger() {
  static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("VELL"));
  return logger;
}

namespace {

// Whether any appender would receive a line of this logger. "VELL" has no dot
// in its name, so its only ancestor is the root logger.
bool hasAppenderOnPath(log4cplus::Logger &logger) {
  if (!logger.getAllAppenders().empty())
    return true;
  return logger.getAdditivity() && !log4cplus::Logger::getRoot().getAllAppenders().empty();
}

log4cplus::LogLevel toLog4cplus(LogLevel level) {
  switch (level) {
  case LogLevel::Trace:
    return log4cplus::TRACE_LOG_LEVEL;
  case LogLevel::Debug:
    return log4cplus::DEBUG_LOG_LEVEL;
  case LogLevel::Info:
    return log4cplus::INFO_LOG_LEVEL;
  case LogLevel::Warn:
    return log4cplus::WARN_LOG_LEVEL;
  case LogLevel::Error:
    return log4cplus::ERROR_LOG_LEVEL;
  case LogLevel::Fatal:
    return log4cplus::FATAL_LOG_LEVEL;
  case LogLevel::Off:
    break;
  }
  return log4cplus::OFF_LOG_LEVEL;
}

} // namespace

bool logEnabled(log4cplus::LogLevel level) {
  log4cplus::Logger &logger = vellLogger();
  return logger.isEnabledFor(level) && hasAppenderOnPath(logger);
}

void logLine(log4cplus::LogLevel level, const std::string &text) {
  if (!logEnabled(level))
    return;
  vellLogger().forcedLog(level, LOG4CPLUS_STRING_TO_TSTRING(text));
}

std::string atFile(const std::string &message, const char *unit, int line) {
  return message + ", at file: " + unit + ":" + std::to_string(line);
}

ScopedTrace::ScopedTrace(const char *signature)
    : m_signature(signature), m_enabled(logEnabled(log4cplus::TRACE_LOG_LEVEL)) {
  if (m_enabled)
    logLine(log4cplus::TRACE_LOG_LEVEL, std::string("ENTER: ") + m_signature);
}

ScopedTrace::~ScopedTrace() {
  if (m_enabled)
    logLine(log4cplus::TRACE_LOG_LEVEL, std::string("EXIT:  ") + m_signature);
}

void configureLogging(LogLevel level) { vellLogger().setLogLevel(toLog4cplus(level)); }

void configureLoggingToStderr(LogLevel level) {
  log4cplus::Logger &logger = vellLogger();
  logger.setLogLevel(toLog4cplus(level));
  const log4cplus::tstring name = LOG4CPLUS_TEXT("vell-stderr");
  if (logger.getAppender(name))
    return;
  log4cplus::SharedAppenderPtr appender(new log4cplus::ConsoleAppender(true, true));
  appender->setName(name);
  appender->setLayout(std::make_unique<log4cplus::PatternLayout>(LOG4CPLUS_TEXT("%-5p %c: %m%n")));
  logger.addAppender(appender);
}

bool configureLoggingFromFile(const std::string &propertiesFile) {
  std::ifstream probe(propertiesFile);
  if (!probe.good())
    return false;
  log4cplus::PropertyConfigurator::doConfigure(LOG4CPLUS_STRING_TO_TSTRING(propertiesFile));
  return true;
}

} // namespace platform
} // namespace VELL_2_13
