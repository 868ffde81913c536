// Runs a check in a forked child that has given up root's rights, so that
// directories closed to others are closed to the check as well.
#pragma once

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

namespace vell_test {

// Runs check in a child process running as nobody (when the test runs as
// root); the child's failures fail the calling test. Skipped under
// ThreadSanitizer, which cannot follow threads started in a forked child: the
// normal and AddressSanitizer builds run these checks.
inline void inUnprivilegedChild(const std::function<void()> &check) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "threads in a forked child are not supported by ThreadSanitizer";
#endif
  std::fflush(nullptr);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0))
      ::_exit(3);
    // Giving up rights hides /proc/self from the process; checks that count
    // their threads there need it.
    ::prctl(PR_SET_DUMPABLE, 1);
    check();
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(child, ::waitpid(child, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status));
}

} // namespace vell_test
