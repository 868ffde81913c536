// Checksum values: kind plus text, compared case-insensitively.
#include "vell_validation/checksum.h"

#include <strings.h>

namespace VELL_2_13 {

bool Checksum::isEqualTo(const IChecksum &other) const {
  if (other.type() != m_type)
    return false;
  const char *otherValue = other.value();
  if (!otherValue)
    return false;
  return ::strcasecmp(m_value.c_str(), otherValue) == 0;
}

} // namespace VELL_2_13
