// The description of the target system handed to a search.
#pragma once

#include <string>

#include "vell/search_env.h"

namespace VELL_2_13 {

class EditableEnvironmentInfo : public RefCountImpl<IEditableEnvironmentInfo> {
public:
  EditableEnvironmentInfo() = default;

  operating_system_type_t osType() const override { return m_osType; }
  architecture_t architecture() const override { return m_architecture; }
  const char *kernelRelease() const override { return m_kernelRelease.c_str(); }

  void setOsType(operating_system_type_t type) override { m_osType = type; }
  void setArchitecture(architecture_t architecture) override { m_architecture = architecture; }
  // A null release is ignored.
  void setKernelRelease(const char *release) override;

private:
  operating_system_type_t m_osType = ostUnknown;
  architecture_t m_architecture = archUnknown;
  std::string m_kernelRelease;
};

} // namespace VELL_2_13
