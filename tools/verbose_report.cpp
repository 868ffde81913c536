// The -v summary of a search on standard error.
#include "verbose_report.h"

#include <cstdio>
#include <string>

#include "tool_output.h"

using namespace VELL_2_13;

namespace vell_tool {

namespace {

std::string stepTitle(search_step_t step) {
  return step == ssAskUser ? "suggested paths" : "step " + dump(step);
}

std::string milliseconds(std::chrono::steady_clock::duration time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", std::chrono::duration<double, std::milli>(time).count());
  return text;
}

std::string count(unsigned long n, const char *one, const char *many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

} // namespace

void printStepSummary(std::ostream &out, const SearchActivity &activity,
                      const std::vector<Rejection> &rejected, const ObjectPtr<IValidFile> &found) {
  if (activity.steps().empty())
    out << "vell: no search step ran (the search history or a callback answered)\n";
  for (const StepActivity &step : activity.steps()) {
    out << "vell: " << stepTitle(step.step) << ": " << count(step.candidates, "candidate", "candidates")
        << " tried, " << step.present << " present";
    if (step.directories > 0)
      out << ", " << count(step.directories, "directory", "directories") << " walked";
    if (step.unreadable > 0)
      out << ", " << step.unreadable << " unreadable";
    out << ", " << milliseconds(step.time) << "\n";
    for (const UnreadableDirectory &dir : activity.unreadableDirectories())
      if (dir.step == step.step)
        out << "vell:   cannot read " << dir.path << ": " << dir.reason << "\n";
    for (const Rejection &rejection : rejected)
      if (rejection.step == step.step)
        out << "vell:   rejected " << rejection.path << " (severity " << rejection.severity
            << "): " << rejection.message << "\n";
    if (found && found->searchStep() == step.step)
      out << "vell:   found " << found->name() << " (confidence " << found->confidence() << ", "
          << confidenceWord(found->confidence()) << ")\n";
  }
}

} // namespace vell_tool
