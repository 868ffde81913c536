// The running kernel's release as the strategies see it, with a replaceable
// source so that tests can fix the release.
#pragma once

#include <string>

struct utsname;

namespace VELL_2_13 {

using UnameFunction = int (*)(struct utsname *);

// Replaces the function asked for the running kernel's release (uname() by
// default; null restores it). Returns the previous function.
UnameFunction setUnameFunction(UnameFunction function);

// The release field of uname(); false when the call fails.
bool hostKernelRelease(std::string &release);

} // namespace VELL_2_13
