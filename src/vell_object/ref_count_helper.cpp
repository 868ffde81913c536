// The reference counter shared by every library object.
#include "vell/objects.h"

namespace VELL_2_13 {
namespace internal {

RefCountHelper::RefCountHelper(IDeleteObserver *observer, ILock *lock)
    : m_count(0), m_observer(observer), m_lock(lock) {}

int RefCountHelper::addRef() {
  ILock *lock = m_lock;
  if (lock)
    lock->lock();
  int result = m_count.fetch_add(1) + 1;
  if (lock)
    lock->unlock();
  return result;
}

int RefCountHelper::release() {
  // The object (and this counter with it) may be gone after onDelete(), so the
  // lock pointer is read once up front and only that copy is used afterwards.
  ILock *lock = m_lock;
  if (lock)
    lock->lock();
  int result = m_count.fetch_add(-1) - 1;
  if (result == 0 && m_observer)
    m_observer->onDelete();
  if (lock)
    lock->unlock();
  return result;
}

bool RefCountHelper::tryAddRef() {
  ILock *lock = m_lock;
  if (lock)
    lock->lock();
  int current = m_count.load();
  bool added = false;
  while (current > 0) {
    if (m_count.compare_exchange_weak(current, current + 1)) {
      added = true;
      break;
    }
  }
  if (lock)
    lock->unlock();
  return added;
}

} // namespace internal
} // namespace VELL_2_13
