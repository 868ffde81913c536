// A results container for tests that records every candidate with its step
// and accepts the paths a test chooses.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vell_search/search_interfaces.h"

namespace vell_test {

class RecordingContainer : public VELL_2_13::ISearchResultsContainer {
public:
  bool validateAndAdd(const char *path, unsigned int searchStep) override {
    candidates.emplace_back(path ? path : "<null>", searchStep);
    if (accepted.count(candidates.back().first))
      return true;
    return acceptIf && acceptIf(candidates.back().first);
  }

  std::vector<std::string> paths() const {
    std::vector<std::string> result;
    for (const auto &candidate : candidates)
      result.push_back(candidate.first);
    return result;
  }

  std::vector<unsigned int> steps() const {
    std::vector<unsigned int> result;
    for (const auto &candidate : candidates)
      result.push_back(candidate.second);
    return result;
  }

  std::vector<std::pair<std::string, unsigned int>> candidates;
  // Paths answered with true.
  std::set<std::string> accepted;
  // Further acceptance rule (for instance: the file exists).
  std::function<bool(const std::string &)> acceptIf;
};

} // namespace vell_test
