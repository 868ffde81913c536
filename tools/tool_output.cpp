// How the tool reports errors and warnings, and the words it shows next to a
// confidence level.
#include "tool_output.h"

#include <iostream>
#include <mutex>

#include <nlohmann/json.hpp>

#include "json_writer.h"

namespace vell_tool {

bool jsonRequested(const std::vector<std::string> &args) {
  for (const std::string &arg : args) {
    if (arg == "--")
      return false;
    if (arg == "--json")
      return true;
  }
  return false;
}

void writeToStderr(const std::string &text) {
  static std::mutex mutex;
  std::lock_guard<std::mutex> lock(mutex);
  std::cerr << text << std::flush;
}

int reportError(bool json, int status, const std::string &message) {
  writeToStderr("vell: " + message + "\n");
  if (json) {
    nlohmann::json document = nlohmann::json::object();
    putText(document, "error", message);
    document["status"] = status;
    std::cout << documentText(document) << "\n";
  }
  return status;
}

void reportWarning(const std::string &message) { writeToStderr("vell: warning: " + message + "\n"); }

std::string confidenceWord(unsigned confidence) {
  switch (confidence) {
  case 0:
    return "confirmed";
  case 1:
    return "probable";
  case 2:
    return "possible";
  default:
    return "unknown";
  }
}

} // namespace vell_tool
