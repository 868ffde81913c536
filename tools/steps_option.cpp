// The --steps option: switches search steps off and on by name.
#include "steps_option.h"

#include <cctype>
#include <sstream>
#include <utility>
#include <vector>

#include "tool_error.h"

using namespace VELL_2_13;

namespace vell_tool {

const char *const STEPS_OPTION_HELP =
    "Switch search steps off and on for this search: a comma-separated list of items, applied from left "
    "to right to the default set (every step but the cache step). '-NAME' switches a step off, '+NAME' or "
    "NAME switches it on; 'all' and 'none' stand for every step. NAME is the step's full name or its short "
    "name: archive (ssArchiveSearchDirs), high (ssHighPrioritySearchDirs), cache (ssCacheSearchDir), "
    "absolute or abs (ssAbsoluteNameLookup), around (ssAroundBinaryLookup), low (ssLowPrioritySearchDirs), "
    "system or sys (ssSystemDirs). Steps always run in this order. "
    "Example: --steps -system,+cache (or --steps=-system,+cache).";

namespace {

constexpr unsigned kEveryStep = ssArchiveSearchDirs | ssHighPrioritySearchDirs | ssAbsoluteNameLookup |
                                ssAroundBinaryLookup | ssLowPrioritySearchDirs | ssSystemDirs |
                                ssCacheSearchDir;

std::string lower(std::string text) {
  for (char &c : text)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// The steps a name stands for; 0 for an unknown name.
unsigned stepsOfName(const std::string &name) {
  static const std::vector<std::pair<search_step_t, std::vector<const char *>>> names = {
      {ssArchiveSearchDirs, {"archive"}}, {ssHighPrioritySearchDirs, {"high"}},
      {ssCacheSearchDir, {"cache"}},      {ssAbsoluteNameLookup, {"absolute", "abs"}},
      {ssAroundBinaryLookup, {"around"}}, {ssLowPrioritySearchDirs, {"low"}},
      {ssSystemDirs, {"system", "sys"}},
  };
  if (lower(name) == "all" || lower(name) == "none")
    return kEveryStep;
  for (const auto &[step, shortNames] : names) {
    if (name == dump(step))
      return step;
    for (const char *shortName : shortNames)
      if (lower(name) == shortName)
        return step;
  }
  return 0;
}

} // namespace

void applyStepsOption(const std::string &text, ISearchStepsConfigurator &configurator,
                      search_category_t category) {
  // Every item is checked before the first one is applied.
  std::vector<std::pair<unsigned, bool>> changes;
  std::stringstream items(text + ",");
  std::string item;
  while (std::getline(items, item, ',')) {
    bool enable = true;
    std::string name = item;
    if (!name.empty() && (name[0] == '+' || name[0] == '-')) {
      enable = name[0] == '+';
      name.erase(0, 1);
    }
    if (name.empty())
      throw BadInput("--steps: empty item in '" + text + "'");
    if (name == dump(ssAskUser) || lower(name) == "askuser")
      throw BadInput("--steps: ssAskUser is not a search step that can be switched");
    unsigned steps = stepsOfName(name);
    if (steps == 0)
      throw BadInput("--steps: unknown search step '" + name + "'");
    // "none" switches every step off, "-none" every step on.
    if (lower(name) == "none")
      enable = !enable;
    changes.emplace_back(steps, enable);
  }
  for (const auto &[steps, enable] : changes)
    configurator.setStep(static_cast<search_step_t>(steps), category, enable);
}

} // namespace vell_tool
