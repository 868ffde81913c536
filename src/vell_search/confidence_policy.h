// The policy object a file search hands to its validators: asks the host's
// confidence policy callback of the search environment, if one is set.
#pragma once

#include "vell/results.h"
#include "vell/search_env.h"

namespace VELL_2_13 {

class ConfidenceLevelPolicyWrapper : public IConfidenceLevelPolicyCallback {
public:
  explicit ConfidenceLevelPolicyWrapper(const ObjectPtr<ISearchEnv> &env);

  // The host's policy level (0, 1 or 2) for a file found in searchStep; 0 when
  // the environment has no policy callback.
  confidence_t getConfidenceLevel(search_category_t category, unsigned int searchStep) override;

  const ObjectPtr<ISearchEnv> &searchEnv() const { return m_env; }

private:
  ObjectPtr<ISearchEnv> m_env;
};

} // namespace VELL_2_13
