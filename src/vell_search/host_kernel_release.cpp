// The running kernel's release through a replaceable uname().
#include "vell_search/host_kernel_release.h"

#include <atomic>

#include <sys/utsname.h>

namespace VELL_2_13 {

namespace {

std::atomic<UnameFunction> s_unameFunction{&::uname};

} // namespace

UnameFunction setUnameFunction(UnameFunction function) {
  return s_unameFunction.exchange(function ? function : &::uname);
}

bool hostKernelRelease(std::string &release) {
  struct utsname names {};
  if (s_unameFunction.load()(&names) != 0)
    return false;
  release = names.release;
  return true;
}

} // namespace VELL_2_13
