// Host callbacks behind event generators, their holders and accessors.
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "vell/objects.h"

namespace {

using namespace VELL_2_13;
using namespace std::chrono_literals;

// A host callback as the host would write one.
class TestCallback : public EventGenerator {
public:
  virtual int call() { return ++calls; }
  std::atomic<int> calls{0};
};

// Records every event it receives.
class RecordingHandler : public IEventHandler {
public:
  explicit RecordingHandler(std::vector<std::pair<int, event_t>> *journal = nullptr, int id = 0)
      : m_journal(journal), m_id(id) {}
  void event(event_t e) override {
    events.push_back(e);
    if (m_journal)
      m_journal->push_back({m_id, e});
  }
  std::vector<event_t> events;

private:
  std::vector<std::pair<int, event_t>> *m_journal;
  int m_id;
};

// Unregisters itself when told about an event.
class SelfRemovingHandler : public IEventHandler {
public:
  explicit SelfRemovingHandler(IEventGeneratorImpl *impl) : m_impl(impl) {}
  void event(event_t) override {
    ++count;
    m_impl->removeHandler(this);
  }
  int count = 0;

private:
  IEventGeneratorImpl *m_impl;
};

template <class Pred> bool waitFor(Pred pred, std::chrono::milliseconds limit = 2000ms) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!pred()) {
    if (std::chrono::steady_clock::now() > deadline)
      return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

TEST(EventGenerator, GetLockReturnsTheSameLockWithAReference) {
  TestCallback callback;
  ObjectPtr<ISpinSharedLock> first = callback.getLock();
  ObjectPtr<ISpinSharedLock> second = callback.getLock();
  ASSERT_FALSE(first.isNull());
  EXPECT_EQ(first.get(), second.get());
  EXPECT_EQ(static_cast<VellSpinSharedLock *>(first.get())->refCount(), 3);
}

TEST(EventGenerator, LockOutlivesTheGeneratorThroughHandles) {
  ObjectPtr<ISpinSharedLock> lock;
  {
    TestCallback callback;
    lock = callback.getLock();
  }
  EXPECT_EQ(static_cast<VellSpinSharedLock *>(lock.get())->refCount(), 1);
  lock->sharedLock();
  lock->sharedUnlock();
}

TEST(EventGenerator, GeneratorWithoutHandlersDiesQuietly) {
  auto callback = std::make_unique<TestCallback>();
  EXPECT_NE(callback->eventGeneratorImpl(), nullptr);
  EXPECT_NO_THROW(callback.reset());
}

TEST(EventGenerator, DestroyingTheCallbackNullsEveryHolder) {
  auto callback = std::make_unique<TestCallback>();
  CallbackHolder<TestCallback> first(callback.get());
  CallbackHolder<TestCallback> second(callback.get());
  EXPECT_EQ(first.callbackUnlocked(), callback.get());
  EXPECT_EQ(second.callbackUnlocked(), callback.get());
  EXPECT_EQ(first.lock(), second.lock());
  callback.reset();
  EXPECT_EQ(first.callbackUnlocked(), nullptr);
  EXPECT_EQ(second.callbackUnlocked(), nullptr);
  EXPECT_FALSE(first.hasCallback());
  // Reading a forgotten callback yields nothing.
  CallbackAccessor<TestCallback> access(first);
  EXPECT_EQ(access.get(), nullptr);
  EXPECT_FALSE(static_cast<bool>(access));
}

TEST(EventGenerator, DestroyedHolderIsUnregisteredFirst) {
  auto callback = std::make_unique<TestCallback>();
  RecordingHandler witness;
  callback->eventGeneratorImpl()->addHandler(&witness);
  {
    auto holder = std::make_unique<CallbackHolder<TestCallback>>(callback.get());
    EXPECT_TRUE(holder->hasCallback());
  }
  // Only the remaining handler is told; the freed holder is not touched.
  callback.reset();
  EXPECT_EQ(witness.events, std::vector<event_t>{0});
}

TEST(EventGenerator, NonZeroEventChangesNothing) {
  auto callback = std::make_unique<TestCallback>();
  auto holder = std::make_unique<CallbackHolder<TestCallback>>(callback.get());
  callback->eventGeneratorImpl()->event(1);
  callback->eventGeneratorImpl()->event(0xFFFFFFFFu);
  EXPECT_EQ(holder->callbackUnlocked(), callback.get());
  holder->event(7);
  EXPECT_EQ(holder->callbackUnlocked(), callback.get());
  callback->eventGeneratorImpl()->event(0);
  EXPECT_EQ(holder->callbackUnlocked(), nullptr);
  // Event 0 also dropped the holder from the generator: the holder may die
  // first without the generator touching it later.
  holder.reset();
  callback.reset();
}

TEST(EventGenerator, EventZeroUnregistersEveryHandler) {
  TestCallback callback;
  RecordingHandler handler;
  callback.eventGeneratorImpl()->addHandler(&handler);
  callback.eventGeneratorImpl()->event(0);
  callback.eventGeneratorImpl()->event(8);
  EXPECT_EQ(handler.events, std::vector<event_t>{0});
}

TEST(EventGenerator, HolderForgetsOnlyOnEventZero) {
  TestCallback callback;
  CallbackHolder<TestCallback> holder(&callback);
  holder.event(1);
  holder.event(42);
  EXPECT_EQ(holder.callbackUnlocked(), &callback);
  holder.set(nullptr);
}

TEST(EventGenerator, EventsReachHandlersInRegistrationOrder) {
  std::vector<std::pair<int, event_t>> journal;
  RecordingHandler first(&journal, 1);
  RecordingHandler second(&journal, 2);
  ObjectPtr<IEventGeneratorImpl> impl = IEventGeneratorImpl::create(nullptr);
  impl->addHandler(&first);
  impl->addHandler(&second);
  impl->event(5);
  EXPECT_EQ(journal, (std::vector<std::pair<int, event_t>>{{1, 5}, {2, 5}}));
}

TEST(EventGenerator, AddingAHandlerTwiceDeliversTwice) {
  TestCallback callback;
  RecordingHandler handler;
  callback.eventGeneratorImpl()->addHandler(&handler);
  callback.eventGeneratorImpl()->addHandler(&handler);
  callback.eventGeneratorImpl()->event(3);
  EXPECT_EQ(handler.events, (std::vector<event_t>{3, 3}));
  // removeHandler erases the first entry only.
  callback.eventGeneratorImpl()->removeHandler(&handler);
  callback.eventGeneratorImpl()->event(4);
  EXPECT_EQ(handler.events, (std::vector<event_t>{3, 3, 4}));
  callback.eventGeneratorImpl()->removeHandler(&handler);
}

TEST(EventGenerator, RemovingAnUnknownHandlerDoesNothing) {
  TestCallback callback;
  RecordingHandler registered;
  RecordingHandler stranger;
  callback.eventGeneratorImpl()->addHandler(&registered);
  callback.eventGeneratorImpl()->removeHandler(&stranger);
  callback.eventGeneratorImpl()->event(2);
  EXPECT_EQ(registered.events, std::vector<event_t>{2});
  EXPECT_TRUE(stranger.events.empty());
  callback.eventGeneratorImpl()->removeHandler(&registered);
}

TEST(EventGenerator, HandlerMayRemoveItselfInsideEvent) {
  TestCallback callback;
  SelfRemovingHandler self(callback.eventGeneratorImpl());
  RecordingHandler after;
  callback.eventGeneratorImpl()->addHandler(&self);
  callback.eventGeneratorImpl()->addHandler(&after);
  callback.eventGeneratorImpl()->event(9);
  callback.eventGeneratorImpl()->event(10);
  EXPECT_EQ(self.count, 1);
  EXPECT_EQ(after.events, (std::vector<event_t>{9, 10}));
  callback.eventGeneratorImpl()->removeHandler(&after);
}

TEST(EventGenerator, DisconnectHandlersForgetsTheCallbackInEveryHolder) {
  auto callback = std::make_unique<TestCallback>();
  auto holder = std::make_unique<CallbackHolder<TestCallback>>(callback.get());
  RecordingHandler witness;
  callback->eventGeneratorImpl()->addHandler(&witness);
  callback->eventGeneratorImpl()->disconnectHandlers();
  EXPECT_FALSE(holder->hasCallback());
  EXPECT_EQ(witness.events, std::vector<event_t>{0});
  // The disconnected holder dies first; the callback's later death must not
  // reach it (nor tell the witness twice).
  holder.reset();
  callback.reset();
  EXPECT_EQ(witness.events, std::vector<event_t>{0});
}

TEST(EventGenerator, DisconnectWaitsForASearchInsideTheCallback) {
  TestCallback callback;
  CallbackHolder<TestCallback> holder(&callback);
  std::atomic<bool> inside{false};
  std::atomic<bool> leave{false};
  std::thread search([&] {
    CallbackAccessor<TestCallback> access(holder);
    EXPECT_NE(access.get(), nullptr);
    if (access)
      access->call();
    inside = true;
    while (!leave.load())
      std::this_thread::sleep_for(1ms);
  });
  ASSERT_TRUE(waitFor([&] { return inside.load(); }));
  std::atomic<bool> disconnected{false};
  std::thread host([&] {
    callback.eventGeneratorImpl()->disconnectHandlers();
    disconnected = true;
  });
  std::this_thread::sleep_for(40ms);
  EXPECT_FALSE(disconnected.load());
  EXPECT_TRUE(holder.hasCallback());
  leave = true;
  search.join();
  host.join();
  EXPECT_TRUE(disconnected.load());
  EXPECT_FALSE(holder.hasCallback());
  EXPECT_EQ(callback.calls.load(), 1);
}

TEST(EventGenerator, AccessorReadsTheCallbackUnderTheSharedLock) {
  TestCallback callback;
  CallbackHolder<TestCallback> holder(&callback);
  auto *lock = static_cast<VellSpinSharedLock *>(holder.lock());
  ASSERT_NE(lock, nullptr);
  {
    CallbackAccessor<TestCallback> access(holder);
    EXPECT_EQ(lock->state(), 1);
    ASSERT_TRUE(static_cast<bool>(access));
    EXPECT_EQ(access->call(), 1);
  }
  EXPECT_EQ(lock->state(), 0);
}

TEST(EventGenerator, EmptyHolderGivesNoCallbackAndNoLock) {
  CallbackHolder<TestCallback> holder;
  EXPECT_FALSE(holder.hasCallback());
  EXPECT_EQ(holder.lock(), nullptr);
  CallbackAccessor<TestCallback> access(holder);
  EXPECT_EQ(access.get(), nullptr);
}

TEST(EventGenerator, ReplacingTheCallbackUnregistersFromTheOldOne) {
  auto oldCallback = std::make_unique<TestCallback>();
  TestCallback newCallback;
  CallbackHolder<TestCallback> holder(oldCallback.get());
  holder.set(&newCallback);
  EXPECT_EQ(holder.callbackUnlocked(), &newCallback);
  EXPECT_EQ(holder.lock(), newCallback.getLock().get());
  oldCallback.reset();
  EXPECT_EQ(holder.callbackUnlocked(), &newCallback);
  holder.set(nullptr);
  EXPECT_FALSE(holder.hasCallback());
  EXPECT_EQ(holder.lock(), nullptr);
}

TEST(EventGenerator, CopiedHolderIsRegisteredOnItsOwn) {
  auto callback = std::make_unique<TestCallback>();
  CallbackHolder<TestCallback> original(callback.get());
  auto copy = std::make_unique<CallbackHolder<TestCallback>>(original);
  EXPECT_EQ(copy->callbackUnlocked(), callback.get());
  CallbackHolder<TestCallback> assigned;
  assigned = original;
  EXPECT_EQ(assigned.callbackUnlocked(), callback.get());
  copy.reset();
  callback.reset();
  EXPECT_FALSE(original.hasCallback());
  EXPECT_FALSE(assigned.hasCallback());
}

TEST(EventGenerator, ConcurrentSearchesCallWhileAnotherThreadDestroysTheCallback) {
  auto callback = std::make_unique<TestCallback>();
  CallbackHolder<TestCallback> holder(callback.get());
  std::atomic<int> calls{0};
  std::atomic<bool> started{false};
  std::vector<std::thread> searches;
  for (int t = 0; t < 3; ++t) {
    searches.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        if (!holder.hasCallback())
          break;
        CallbackAccessor<TestCallback> access(holder);
        if (access) {
          access->call();
          ++calls;
          started = true;
        }
      }
    });
  }
  ASSERT_TRUE(waitFor([&] { return started.load(); }));
  TestCallback *raw = callback.get();
  callback->eventGeneratorImpl()->disconnectHandlers(); // what a careful host does before deleting
  const int callsBefore = raw->calls.load();
  callback.reset();
  for (std::thread &search : searches)
    search.join();
  EXPECT_FALSE(holder.hasCallback());
  EXPECT_EQ(calls.load(), callsBefore);
}

} // namespace
