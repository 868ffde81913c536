// EditableEnvironmentInfo: factory and the one setter with a rule.
#include "vell_searchenv/editable_environment_info.h"

namespace VELL_2_13 {

ObjectPtr<IEditableEnvironmentInfo> IEditableEnvironmentInfo::create() {
  return ObjectPtr<IEditableEnvironmentInfo>(new EditableEnvironmentInfo());
}

void EditableEnvironmentInfo::setKernelRelease(const char *release) {
  if (release)
    m_kernelRelease = release;
}

} // namespace VELL_2_13
