// The recursive mutex VellLock and its scoped guard.
#include "vell/objects.h"

namespace VELL_2_13 {

VellLock::VellLock() {
  pthread_mutexattr_init(&m_attr);
  pthread_mutexattr_settype(&m_attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&m_mutex, &m_attr);
}

VellLock::~VellLock() {
  pthread_mutex_destroy(&m_mutex);
  pthread_mutexattr_destroy(&m_attr);
}

void VellLock::lock() { pthread_mutex_lock(&m_mutex); }

void VellLock::unlock() { pthread_mutex_unlock(&m_mutex); }

VellLockWrap::VellLockWrap(ILock *lock) : m_lock(lock) {
  if (m_lock)
    m_lock->lock();
}

VellLockWrap::~VellLockWrap() {
  if (m_lock)
    m_lock->unlock();
}

} // namespace VELL_2_13
