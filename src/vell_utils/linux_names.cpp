// Kernel image names and Linux paths written with backslashes.
#include <algorithm>

#include "vell/file_search.h"

namespace VELL_2_13 {

const char *const VMLINUX = "vmlinux";
const char *const VMLINUZ = "vmlinuz";

bool fixLinuxName(std::string &s) {
  // Exactly one leading separator of either kind marks a Linux root path; two
  // leading separators are a network name and a drive letter is Windows.
  const bool oneBackslash = s.size() >= 2 && s[0] == '\\' && s[1] != '\\';
  const bool oneSlash = !s.empty() && s[0] == '/' && (s.size() == 1 || s[1] != '/');
  if (!oneBackslash && !oneSlash)
    return false;
  std::replace(s.begin(), s.end(), '\\', '/');
  return true;
}

} // namespace VELL_2_13
