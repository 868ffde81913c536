// Whether a path formed from an untrusted name stays inside the directory it was meant for.
#pragma once

#include <string>

namespace VELL_2_13 {
namespace utils {

// True when path, made absolute against the working directory and lexically
// normalised, lies strictly below directory treated the same way. Symbolic
// links are not followed: "dir/../x" is outside, "dir/link/x" is inside.
bool isPathInsideDirectory(const std::string &path, const std::string &directory);

// True when path names a regular file that is not a symbolic link and whose
// real location (every symbolic link of its directories resolved) lies
// strictly below the real location of directory. This is what may be moved or
// removed on behalf of a file retriever that wrote into directory.
bool isOwnFileInsideDirectory(const std::string &path, const std::string &directory);

} // namespace utils
} // namespace VELL_2_13
