// The one normalisation applied to caller-given paths before they are compared.
#pragma once

#include <string>

namespace VELL_2_13 {
namespace utils {

// Windows-shaped names (a leading "\\" or a drive letter followed by ":\") get
// forward slashes, a last "." component is dropped and the result is lexically
// normalised. Duplicate paths are found by byte-wise comparison of this form.
std::string canonicalPath(const std::string &path);

} // namespace utils
} // namespace VELL_2_13
