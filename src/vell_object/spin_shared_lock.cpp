// The shared/exclusive lock whose shared holders poll, and its shared guard.
#include <unistd.h>

#include "vell/objects.h"

namespace VELL_2_13 {

namespace {

// Pause between two looks at the lock state while a holder of the other kind is present.
constexpr useconds_t POLL_MICROSECONDS = 10000;

} // namespace

VellSpinSharedLock::VellSpinSharedLock() : m_state(0) {
  pthread_mutexattr_init(&m_exclusiveAttr);
  pthread_mutexattr_settype(&m_exclusiveAttr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&m_exclusiveMutex, &m_exclusiveAttr);
}

VellSpinSharedLock::~VellSpinSharedLock() {
  pthread_mutex_destroy(&m_exclusiveMutex);
  pthread_mutexattr_destroy(&m_exclusiveAttr);
}

void VellSpinSharedLock::sharedLock() {
  // Fast path: no writer announced, one guarded increment.
  if (m_state.load() >= 0) {
    m_guard.lock();
    if (m_state.load() >= 0) {
      m_state.fetch_add(1);
      m_guard.unlock();
      return;
    }
    m_guard.unlock();
  }
  // A writer is present: poll until every exclusive holder is gone.
  for (;;) {
    usleep(POLL_MICROSECONDS);
    while (m_state.load() < 0)
      usleep(POLL_MICROSECONDS);
    m_guard.lock();
    if (m_state.load() < 0) {
      m_guard.unlock();
      continue;
    }
    m_state.fetch_add(1);
    m_guard.unlock();
    return;
  }
}

void VellSpinSharedLock::sharedUnlock() {
  m_guard.lock();
  m_state.fetch_sub(1);
  m_guard.unlock();
}

void VellSpinSharedLock::lock() {
  // Wait until the present shared holders have left, then announce the writer
  // so that new shared lockers wait.
  for (;;) {
    while (m_state.load() > 0)
      usleep(POLL_MICROSECONDS);
    m_guard.lock();
    if (m_state.load() > 0) {
      m_guard.unlock();
      continue;
    }
    m_state.fetch_sub(1);
    m_guard.unlock();
    break;
  }
  // Exclusive holders queue here.
  pthread_mutex_lock(&m_exclusiveMutex);
}

void VellSpinSharedLock::unlock() {
  pthread_mutex_unlock(&m_exclusiveMutex);
  m_guard.lock();
  m_state.fetch_add(1);
  m_guard.unlock();
}

VellSpinSharedLockWrap::VellSpinSharedLockWrap(ISpinSharedLock *lock) : m_lock(lock) {
  if (m_lock)
    m_lock->sharedLock();
}

VellSpinSharedLockWrap::~VellSpinSharedLockWrap() {
  if (m_lock)
    m_lock->sharedUnlock();
}

} // namespace VELL_2_13
