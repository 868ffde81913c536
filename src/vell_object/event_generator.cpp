// The event generator behind every host callback and its handler registry.
#include <algorithm>

#include "vell/objects.h"

namespace VELL_2_13 {

EventGenerator::EventGenerator()
    : m_impl(IEventGeneratorImpl::create(this)), m_lock(new VellSpinSharedLock()) {}

EventGenerator::~EventGenerator() {
  // Dropping the implementation first disconnects every holder while this
  // generator's lock is still referenced here as well.
  m_impl.release();
  m_lock.release();
}

ObjectPtr<ISpinSharedLock> EventGenerator::getLock() { return m_lock; }

ObjectPtr<IEventGeneratorImpl> IEventGeneratorImpl::create(EventGenerator *generator) {
  return ObjectPtr<IEventGeneratorImpl>(new EventGeneratorImpl(generator));
}

EventGeneratorImpl::EventGeneratorImpl(EventGenerator *generator) : m_generator(generator) {}

EventGeneratorImpl::~EventGeneratorImpl() { disconnect(); }

void EventGeneratorImpl::addHandler(IEventHandler *handler) {
  VellLockWrap guard(&m_guard);
  if (m_sharedLock.isNull() && m_generator)
    m_sharedLock = m_generator->getLock();
  m_handlers.push_back(handler);
}

void EventGeneratorImpl::removeHandler(IEventHandler *handler) {
  VellLockWrap guard(&m_guard);
  auto found = std::find(m_handlers.begin(), m_handlers.end(), handler);
  if (found != m_handlers.end())
    m_handlers.erase(found);
}

void EventGeneratorImpl::disconnectHandlers() { disconnect(); }

void EventGeneratorImpl::event(event_t e) {
  VellLockWrap guard(&m_guard);
  // A handler may unregister itself (or another one) from inside event(), so
  // the loop works on a snapshot and skips handlers removed meanwhile.
  const std::vector<IEventHandler *> snapshot = m_handlers;
  for (IEventHandler *handler : snapshot) {
    if (std::find(m_handlers.begin(), m_handlers.end(), handler) == m_handlers.end())
      continue;
    handler->event(e);
  }
  // After event 0 every handler has forgotten this generator and will not
  // unregister itself any more; keeping them listed would leave dangling
  // entries behind.
  if (e == 0)
    m_handlers.clear();
}

void EventGeneratorImpl::disconnect() {
  // The generator's lock is taken before the handler registry: holders that
  // attach or detach hold the lock shared while they touch the registry, so
  // the opposite order could leave both sides waiting for each other.
  for (;;) {
    // The shared lock is fetched with the first handler; without it no handler
    // was ever registered and no search can be inside the callback.
    ObjectPtr<ISpinSharedLock> sharedLock;
    {
      VellLockWrap guard(&m_guard);
      sharedLock = m_sharedLock;
    }
    if (sharedLock)
      sharedLock->lock(); // waits until no search reads the callback
    bool registryChanged = false;
    {
      VellLockWrap guard(&m_guard);
      // A first handler registered meanwhile brought the lock: start over with it.
      registryChanged = m_sharedLock.get() != sharedLock.get();
      if (!registryChanged)
        event(0);
    }
    if (sharedLock)
      sharedLock->unlock();
    if (!registryChanged)
      return;
  }
}

} // namespace VELL_2_13
