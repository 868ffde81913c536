// Reads the host's confidence policy callback under its holder's shared lock.
#include "vell_search/confidence_policy.h"

namespace VELL_2_13 {

ConfidenceLevelPolicyWrapper::ConfidenceLevelPolicyWrapper(const ObjectPtr<ISearchEnv> &env) : m_env(env) {}

confidence_t ConfidenceLevelPolicyWrapper::getConfidenceLevel(search_category_t category,
                                                              unsigned int searchStep) {
  if (!m_env)
    return confidence_t(0);
  CallbackHolder<IConfidenceLevelPolicyCallback> &holder = m_env->confidenceLevelPolicyCallback();
  // Cheap exit without the lock when no policy is set.
  if (!holder.hasCallback())
    return confidence_t(0);
  // The host may clear or replace the callback on another thread: read it
  // again under the shared lock and keep the lock during the call.
  CallbackAccessor<IConfidenceLevelPolicyCallback> policy(holder);
  if (!policy)
    return confidence_t(0);
  return policy->getConfidenceLevel(category, searchStep);
}

} // namespace VELL_2_13
