// Scoped exclusive (writer) access to a spin shared lock.
#pragma once

#include "vell/objects.h"

namespace VELL_2_13 {

// Takes the lock exclusively for the guard's life; null does nothing. The
// shared (reader) counterpart is VellSpinSharedLockWrap.
class SpinExclusiveLockGuard {
public:
  explicit SpinExclusiveLockGuard(ISpinSharedLock *lock) : m_lock(lock) {
    if (m_lock)
      m_lock->lock();
  }
  ~SpinExclusiveLockGuard() {
    if (m_lock)
      m_lock->unlock();
  }
  SpinExclusiveLockGuard(const SpinExclusiveLockGuard &) = delete;
  SpinExclusiveLockGuard &operator=(const SpinExclusiveLockGuard &) = delete;

private:
  ISpinSharedLock *m_lock;
};

} // namespace VELL_2_13
