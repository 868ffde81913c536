// The tool's validator callbacks: several checks combined into one, and a
// recorder of the rejections they make.
#pragma once

#include <string>
#include <vector>

#include "vell/validation.h"

#include "step_tracker.h"

namespace vell_tool {

// Asks every check in order. Rule: the first check that rejects decides (its
// severity and message stand, later checks are not asked); otherwise the file
// is accepted when at least one check accepted it, and left to the confidence
// policy (no decision) when none had an opinion. A positive check (a matching
// checksum) thus outweighs a check that lacks data, but never a rejection.
class CompositeValidator : public VELL_2_13::IValidatorCallback {
public:
  void add(VELL_2_13::IValidatorCallback *check) { m_checks.push_back(check); }
  bool empty() const { return m_checks.empty(); }
  int validate(const char *fileName, VELL_2_13::IErrorInfoContainer &errorInfo) override;

private:
  std::vector<VELL_2_13::IValidatorCallback *> m_checks;
};

// A candidate that a check rejected.
struct Rejection {
  std::string path;
  VELL_2_13::search_step_t step;
  unsigned severity;
  std::string message;
};

// Passes every candidate to the inner check (none: no decision) and records
// the rejections with the step that was running.
class RecordingValidator : public VELL_2_13::IValidatorCallback {
public:
  RecordingValidator(VELL_2_13::IValidatorCallback *inner, const StepTracker &tracker)
      : m_inner(inner), m_tracker(tracker) {}
  int validate(const char *fileName, VELL_2_13::IErrorInfoContainer &errorInfo) override;
  const std::vector<Rejection> &rejections() const { return m_rejections; }

private:
  VELL_2_13::IValidatorCallback *m_inner;
  const StepTracker &m_tracker;
  std::vector<Rejection> m_rejections;
};

} // namespace vell_tool
