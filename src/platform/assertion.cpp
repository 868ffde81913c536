// Assertion reports: logged at ERROR and handed to the host's handler.
#include <mutex>

#include "platform/log.h"
#include "vell/platform.h"

namespace VELL_2_13 {
namespace platform {

namespace {

std::mutex &handlerMutex() {
  static std::mutex mutex;
  return mutex;
}

AssertionHandler &installedHandler() {
  static AssertionHandler handler;
  return handler;
}

} // namespace

AssertionHandler setAssertionHandler(AssertionHandler handler) {
  std::lock_guard<std::mutex> guard(handlerMutex());
  AssertionHandler previous = std::move(installedHandler());
  installedHandler() = std::move(handler);
  return previous;
}

void reportAssertion(const char *message, const char *unit, int line) {
  AssertionReport report{message ? message : "", unit ? unit : "", line};
  logLine(log4cplus::ERROR_LOG_LEVEL, atFile(report.message, report.unit.c_str(), report.line));
  AssertionHandler handler;
  {
    std::lock_guard<std::mutex> guard(handlerMutex());
    handler = installedHandler();
  }
  if (handler)
    handler(report);
}

} // namespace platform
} // namespace VELL_2_13
