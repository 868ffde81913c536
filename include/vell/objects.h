// Reference-counted library objects, their handles, the locks and the event
// generator that keeps host callbacks safe to call.
#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>
#include <vector>

#include "vell/export.h"

namespace VELL_2_13 {

// Root of every library object handed across the interface.
class IVellObject {
public:
  virtual int addRef() = 0;
  virtual int release() = 0;
  virtual ~IVellObject() {}
};

class ILock;

namespace internal {

// Told by the counter when the count has reached zero.
class IDeleteObserver {
public:
  virtual void onDelete() = 0;

protected:
  ~IDeleteObserver() = default;
};

// The one place where reference counts are changed.
class VELL_API RefCountHelper {
public:
  explicit RefCountHelper(IDeleteObserver *observer, ILock *lock = nullptr);
  int addRef();
  int release();
  // Adds a reference only while the count is above zero; false for an object
  // whose last reference is already gone (it is being destroyed).
  bool tryAddRef();
  int count() const { return m_count.load(); }

private:
  std::atomic<int32_t> m_count;
  IDeleteObserver *m_observer;
  ILock *m_lock;
};

} // namespace internal

// Mixes reference counting into an implementation of interface I.
template <class I> class RefCountImpl : public I, public internal::IDeleteObserver {
public:
  RefCountImpl() : m_refCount(this, nullptr) {}
  explicit RefCountImpl(ILock *lock) : m_refCount(this, lock) {}
  RefCountImpl(const RefCountImpl &) = delete;
  RefCountImpl &operator=(const RefCountImpl &) = delete;

  int addRef() override { return m_refCount.addRef(); }
  int release() override { return m_refCount.release(); }
  void onDelete() override { delete this; }
  bool tryAddRef() { return m_refCount.tryAddRef(); }
  int refCount() const { return m_refCount.count(); }

protected:
  ~RefCountImpl() override {}

private:
  internal::RefCountHelper m_refCount;
};

// Smart handle owning one reference on a library object.
template <class I> class ObjectPtr {
public:
  ObjectPtr() : m_ptr(nullptr) {}
  ObjectPtr(I *ptr) : m_ptr(ptr) { // NOLINT(google-explicit-constructor)
    if (m_ptr)
      m_ptr->addRef();
  }
  ObjectPtr(const ObjectPtr &other) : m_ptr(other.m_ptr) {
    if (m_ptr)
      m_ptr->addRef();
  }
  template <class U>
  ObjectPtr(const ObjectPtr<U> &other) : m_ptr(other.get()) { // NOLINT(google-explicit-constructor)
    if (m_ptr)
      m_ptr->addRef();
  }
  virtual ~ObjectPtr() {
    if (m_ptr) {
      m_ptr->release();
      m_ptr = nullptr;
    }
  }

  // Self-assignment, or assigning a handle to the same object, is a no-op.
  // Otherwise the old pointee is released (and the field nulled) before the
  // new pointee gets its reference. A caller who assigns a handle owned by the
  // object being released (`p = p->child()`, where `p` holds the last
  // reference to the parent) must first copy that handle into a local
  // ObjectPtr: the release may destroy the parent, and with it the child.
  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
  ObjectPtr &operator=(const ObjectPtr &other) {
    if (m_ptr == other.m_ptr)
      return *this;
    I *incoming = other.m_ptr;
    if (m_ptr) {
      I *old = m_ptr;
      m_ptr = nullptr;
      old->release();
    }
    m_ptr = incoming;
    if (m_ptr)
      m_ptr->addRef();
    return *this;
  }
  ObjectPtr &operator=(I *ptr) { return *this = ObjectPtr(ptr); }

  void addRef() {
    if (m_ptr)
      m_ptr->addRef();
  }
  void release() {
    if (m_ptr) {
      I *old = m_ptr;
      m_ptr = nullptr;
      old->release();
    }
  }

  I *get() const { return m_ptr; }
  I *operator->() const { return m_ptr; }
  I &operator*() const { return *m_ptr; }
  bool isNull() const { return m_ptr == nullptr; }
  explicit operator bool() const { return m_ptr != nullptr; }
  bool operator==(const ObjectPtr &other) const { return m_ptr == other.m_ptr; }
  bool operator!=(const ObjectPtr &other) const { return m_ptr != other.m_ptr; }

private:
  I *m_ptr;
};

// --- Locks -----------------------------------------------------------------

class ILock : public IVellObject {
public:
  virtual void lock() = 0;
  virtual void unlock() = 0;
};

// Recursive mutex.
class VELL_API VellLock : public RefCountImpl<ILock> {
public:
  VellLock();
  ~VellLock() override;
  void lock() override;
  void unlock() override;

private:
  pthread_mutexattr_t m_attr;
  pthread_mutex_t m_mutex;
};

// Shared/exclusive lock whose shared holders poll instead of blocking.
class ISpinSharedLock : public IVellObject {
public:
  virtual void lock() = 0;
  virtual void unlock() = 0;
  virtual void sharedLock() = 0;
  virtual void sharedUnlock() = 0;
};

class VELL_API VellSpinSharedLock : public RefCountImpl<ISpinSharedLock> {
public:
  VellSpinSharedLock();
  ~VellSpinSharedLock() override;
  void lock() override;
  void unlock() override;
  void sharedLock() override;
  void sharedUnlock() override;
  // Current state: 0 free, n > 0 shared holders, negative exclusive holders.
  int32_t state() const { return m_state.load(); }

private:
  VellLock m_guard;
  std::atomic<int32_t> m_state;
  pthread_mutexattr_t m_exclusiveAttr;
  pthread_mutex_t m_exclusiveMutex;
};

// Scoped exclusive guard over a raw ILock; null does nothing.
class VELL_API VellLockWrap {
public:
  explicit VellLockWrap(ILock *lock);
  ~VellLockWrap();
  VellLockWrap(const VellLockWrap &) = delete;
  VellLockWrap &operator=(const VellLockWrap &) = delete;

private:
  ILock *m_lock;
};

// Scoped shared (reader) guard over a raw ISpinSharedLock; null does nothing.
class VELL_API VellSpinSharedLockWrap {
public:
  explicit VellSpinSharedLockWrap(ISpinSharedLock *lock);
  ~VellSpinSharedLockWrap();
  VellSpinSharedLockWrap(const VellSpinSharedLockWrap &) = delete;
  VellSpinSharedLockWrap &operator=(const VellSpinSharedLockWrap &) = delete;

private:
  ISpinSharedLock *m_lock;
};

// Process-wide locks guarding the library's singletons.
extern VELL_API VellLock g_checkSumCalcLock;
extern VELL_API VellLock g_messageMgrLock;
extern VELL_API VellLock g_resoulutionContextMgrLock;

// --- Event generator and callback holders ----------------------------------

typedef uint32_t event_t;

class IEventHandler {
public:
  virtual void event(event_t e) = 0;
  virtual ~IEventHandler() {}
};

class EventGenerator;

class IEventGeneratorImpl : public IVellObject {
public:
  virtual void addHandler(IEventHandler *handler) = 0;
  virtual void removeHandler(IEventHandler *handler) = 0;
  virtual void disconnectHandlers() = 0;
  virtual void event(event_t e) = 0;

  static VELL_API ObjectPtr<IEventGeneratorImpl> create(EventGenerator *generator);
};

// Base of every host callback interface: disconnects every holder that points
// to it when it dies.
class VELL_API EventGenerator {
public:
  EventGenerator();
  virtual ~EventGenerator();
  virtual ObjectPtr<ISpinSharedLock> getLock();
  // The implementation that holders register with.
  IEventGeneratorImpl *eventGeneratorImpl() const { return m_impl.get(); }

  EventGenerator(const EventGenerator &) = delete;
  EventGenerator &operator=(const EventGenerator &) = delete;

private:
  ObjectPtr<IEventGeneratorImpl> m_impl;
  ObjectPtr<ISpinSharedLock> m_lock;
};

class VELL_API EventGeneratorImpl : public RefCountImpl<IEventGeneratorImpl> {
public:
  explicit EventGeneratorImpl(EventGenerator *generator);
  ~EventGeneratorImpl() override;
  void addHandler(IEventHandler *handler) override;
  void removeHandler(IEventHandler *handler) override;
  void disconnectHandlers() override;
  void event(event_t e) override;

private:
  void disconnect();

  std::vector<IEventHandler *> m_handlers;
  EventGenerator *m_generator;
  ObjectPtr<ISpinSharedLock> m_sharedLock;
  VellLock m_guard;
};

// Keeps a non-owning pointer to a host callback and forgets it when the
// callback's generator goes away.
//
// Attaching and detaching hold the generator's lock shared: the callback's
// destruction takes that lock exclusively before it disconnects its holders,
// so while a holder is attaching or detaching the generator is still whole,
// and once it is gone the holder finds its callback already forgotten. Both
// sides take the generator's lock before its handler registry, never the other
// way round.
template <class T> class CallbackHolder : public IEventHandler {
public:
  CallbackHolder() : m_callback(nullptr) {}
  explicit CallbackHolder(T *callback) : m_callback(nullptr) { set(callback); }
  CallbackHolder(const CallbackHolder &other) : IEventHandler(), m_callback(nullptr) { copyFrom(other); }
  CallbackHolder &operator=(const CallbackHolder &other) {
    if (this != &other) {
      detach();
      copyFrom(other);
    }
    return *this;
  }
  ~CallbackHolder() override { detach(); }

  void event(event_t e) override {
    if (e == 0)
      m_callback.store(nullptr);
  }

  // Replaces the held callback: unregisters from the old generator, registers
  // with the new one and takes its lock.
  void set(T *callback) {
    detach();
    if (!callback)
      return;
    EventGenerator *generator = callback;
    attach(callback, generator->eventGeneratorImpl(), generator->getLock());
  }

  // The callback as read without the lock: a cheap test for "none".
  T *callbackUnlocked() const { return m_callback.load(); }
  bool hasCallback() const { return m_callback.load() != nullptr; }
  ISpinSharedLock *lock() const { return m_lock.get(); }

private:
  void attach(T *callback, IEventGeneratorImpl *impl, const ObjectPtr<ISpinSharedLock> &lock) {
    impl->addHandler(this);
    m_lock = lock;
    m_generatorImpl = impl;
    m_callback.store(callback);
  }

  // Takes the other holder's callback under that callback's lock, so that a
  // callback dying on another thread is either attached whole or not at all.
  // Nothing of the callback object itself is read: its destructor may be
  // running already.
  void copyFrom(const CallbackHolder &other) {
    const ObjectPtr<ISpinSharedLock> lock(other.m_lock);
    if (!lock)
      return;
    lock->sharedLock();
    if (T *callback = other.m_callback.load())
      attach(callback, other.m_generatorImpl, lock);
    lock->sharedUnlock();
  }

  void detach() {
    ISpinSharedLock *lock = m_lock.get();
    if (lock)
      lock->sharedLock(); // the generator cannot finish disconnecting meanwhile
    if (m_callback.exchange(nullptr) && m_generatorImpl)
      m_generatorImpl->removeHandler(this);
    if (lock)
      lock->sharedUnlock();
    m_generatorImpl = nullptr;
    m_lock.release();
  }

  std::atomic<T *> m_callback;
  ObjectPtr<ISpinSharedLock> m_lock;
  // The registry this holder is listed in; valid while m_callback is set.
  IEventGeneratorImpl *m_generatorImpl = nullptr;
};

// Scoped read access to a holder's callback under the generator's shared lock.
template <class T> class CallbackAccessor {
public:
  explicit CallbackAccessor(const CallbackHolder<T> &holder) : m_lock(holder.lock()), m_callback(nullptr) {
    if (!m_lock)
      return;
    m_lock->sharedLock();
    m_callback = holder.callbackUnlocked();
  }
  ~CallbackAccessor() {
    if (m_lock)
      m_lock->sharedUnlock();
  }
  CallbackAccessor(const CallbackAccessor &) = delete;
  CallbackAccessor &operator=(const CallbackAccessor &) = delete;

  T *get() const { return m_callback; }
  T *operator->() const { return m_callback; }
  explicit operator bool() const { return m_callback != nullptr; }

private:
  ObjectPtr<ISpinSharedLock> m_lock;
  T *m_callback;
};

} // namespace VELL_2_13
