// The recursive lock, the polling shared/exclusive lock, their guards and the global locks.
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "vell/objects.h"

namespace {

using namespace VELL_2_13;
using namespace std::chrono_literals;

// Waits (bounded) until pred holds; true when it did.
template <class Pred> bool waitFor(Pred pred, std::chrono::milliseconds limit = 2000ms) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!pred()) {
    if (std::chrono::steady_clock::now() > deadline)
      return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

// Counts lock()/unlock() calls.
class CountingLock : public RefCountImpl<ILock> {
public:
  void lock() override { ++locks; }
  void unlock() override { ++unlocks; }
  int locks = 0;
  int unlocks = 0;
};

class CountingSpinLock : public RefCountImpl<ISpinSharedLock> {
public:
  void lock() override { ++exclusive; }
  void unlock() override { ++exclusiveUnlocks; }
  void sharedLock() override { ++shared; }
  void sharedUnlock() override { ++sharedUnlocks; }
  int exclusive = 0;
  int exclusiveUnlocks = 0;
  int shared = 0;
  int sharedUnlocks = 0;
};

TEST(VellLock, IsRecursiveAndReleasedOnlyByTheLastUnlock) {
  ObjectPtr<VellLock> lock(new VellLock());
  lock->lock();
  lock->lock();
  std::atomic<bool> acquired{false};
  std::thread other([&] {
    lock->lock();
    acquired = true;
    lock->unlock();
  });
  lock->unlock();
  std::this_thread::sleep_for(30ms);
  EXPECT_FALSE(acquired.load());
  lock->unlock();
  other.join();
  EXPECT_TRUE(acquired.load());
}

TEST(VellLock, ExcludesOtherThreads) {
  VellLock lock;
  int counter = 0; // deliberately plain: the lock must order the accesses
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 1000; ++i) {
        VellLockWrap guard(&lock);
        ++counter;
      }
    });
  }
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(counter, 4000);
}

TEST(VellLockWrap, LocksOnConstructionAndUnlocksOnDestruction) {
  CountingLock lock;
  {
    VellLockWrap guard(&lock);
    EXPECT_EQ(lock.locks, 1);
    EXPECT_EQ(lock.unlocks, 0);
  }
  EXPECT_EQ(lock.locks, 1);
  EXPECT_EQ(lock.unlocks, 1);
}

TEST(VellLockWrap, NullDoesNothing) {
  EXPECT_NO_THROW({
    VellLockWrap guard(nullptr);
    VellSpinSharedLockWrap sharedGuard(nullptr);
  });
}

TEST(VellSpinSharedLockWrap, TakesTheLockSharedOnly) {
  CountingSpinLock lock;
  {
    VellSpinSharedLockWrap guard(&lock);
    EXPECT_EQ(lock.shared, 1);
    EXPECT_EQ(lock.sharedUnlocks, 0);
  }
  EXPECT_EQ(lock.shared, 1);
  EXPECT_EQ(lock.sharedUnlocks, 1);
  EXPECT_EQ(lock.exclusive, 0);
  EXPECT_EQ(lock.exclusiveUnlocks, 0);
}

TEST(VellSpinSharedLockWrap, ChangesTheStateOfARealLock) {
  VellSpinSharedLock lock;
  {
    VellSpinSharedLockWrap guard(&lock);
    EXPECT_EQ(lock.state(), 1);
  }
  EXPECT_EQ(lock.state(), 0);
}

TEST(VellSpinSharedLock, StartsFree) {
  VellSpinSharedLock lock;
  EXPECT_EQ(lock.state(), 0);
}

TEST(VellSpinSharedLock, SharedHoldersDoNotBlockEachOther) {
  VellSpinSharedLock lock;
  lock.sharedLock();
  lock.sharedLock();
  EXPECT_EQ(lock.state(), 2);
  lock.sharedUnlock();
  lock.sharedUnlock();
  EXPECT_EQ(lock.state(), 0);
}

TEST(VellSpinSharedLock, ExclusiveWaitsUntilBothSharedHoldersLeave) {
  VellSpinSharedLock lock;
  std::atomic<int> holding{0};
  std::atomic<bool> releaseFirst{false};
  std::atomic<bool> releaseSecond{false};
  auto reader = [&](std::atomic<bool> &release) {
    lock.sharedLock();
    ++holding;
    while (!release.load())
      std::this_thread::sleep_for(1ms);
    lock.sharedUnlock();
  };
  std::thread first(reader, std::ref(releaseFirst));
  std::thread second(reader, std::ref(releaseSecond));
  ASSERT_TRUE(waitFor([&] { return holding.load() == 2; }));
  EXPECT_EQ(lock.state(), 2);

  std::atomic<bool> writerIn{false};
  std::thread writer([&] {
    lock.lock();
    writerIn = true;
    lock.unlock();
  });
  std::this_thread::sleep_for(40ms);
  EXPECT_FALSE(writerIn.load());
  releaseFirst = true;
  first.join();
  std::this_thread::sleep_for(40ms);
  EXPECT_FALSE(writerIn.load());
  releaseSecond = true;
  second.join();
  writer.join();
  EXPECT_TRUE(writerIn.load());
  EXPECT_EQ(lock.state(), 0);
}

TEST(VellSpinSharedLock, AnnouncedWriterBlocksNewSharedLockers) {
  VellSpinSharedLock lock;
  lock.lock();
  EXPECT_EQ(lock.state(), -1);
  std::atomic<bool> readerIn{false};
  std::thread reader([&] {
    lock.sharedLock();
    readerIn = true;
    lock.sharedUnlock();
  });
  std::this_thread::sleep_for(40ms);
  EXPECT_FALSE(readerIn.load());
  lock.unlock();
  reader.join();
  EXPECT_TRUE(readerIn.load());
  EXPECT_EQ(lock.state(), 0);
}

TEST(VellSpinSharedLock, OneThreadMayTakeItExclusivelyTwice) {
  VellSpinSharedLock lock;
  lock.lock();
  lock.lock();
  EXPECT_EQ(lock.state(), -2);
  lock.unlock();
  EXPECT_EQ(lock.state(), -1);
  lock.unlock();
  EXPECT_EQ(lock.state(), 0);
}

TEST(VellSpinSharedLock, ExclusiveLockersQueue) {
  VellSpinSharedLock lock;
  lock.lock();
  std::atomic<bool> secondIn{false};
  std::thread second([&] {
    lock.lock();
    secondIn = true;
    lock.unlock();
  });
  // The second writer announces itself (state one lower) and then waits on the mutex.
  ASSERT_TRUE(waitFor([&] { return lock.state() == -2; }));
  std::this_thread::sleep_for(20ms);
  EXPECT_FALSE(secondIn.load());
  lock.unlock();
  second.join();
  EXPECT_TRUE(secondIn.load());
  EXPECT_EQ(lock.state(), 0);
}

TEST(VellSpinSharedLock, ReadersAndWritersSeeConsistentData) {
  VellSpinSharedLock lock;
  int first = 0; // plain data, ordered by the lock only
  int second = 0;
  std::atomic<bool> mismatch{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        VellSpinSharedLockWrap guard(&lock);
        if (first != second)
          mismatch = true;
      }
    });
  }
  threads.emplace_back([&] {
    for (int i = 0; i < 5; ++i) {
      lock.lock();
      ++first;
      std::this_thread::sleep_for(1ms);
      ++second;
      lock.unlock();
    }
  });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_FALSE(mismatch.load());
  EXPECT_EQ(first, 5);
  EXPECT_EQ(second, 5);
  EXPECT_EQ(lock.state(), 0);
}

TEST(GlobalLocks, AreDistinctRecursiveLocks) {
  VellLock *locks[] = {&g_checkSumCalcLock, &g_messageMgrLock, &g_resoulutionContextMgrLock};
  EXPECT_NE(locks[0], locks[1]);
  EXPECT_NE(locks[1], locks[2]);
  EXPECT_NE(locks[0], locks[2]);
  for (VellLock *lock : locks) {
    lock->lock();
    lock->lock();
    std::atomic<bool> acquired{false};
    std::thread other([&] {
      VellLockWrap guard(lock);
      acquired = true;
    });
    lock->unlock();
    std::this_thread::sleep_for(10ms);
    EXPECT_FALSE(acquired.load());
    lock->unlock();
    other.join();
    EXPECT_TRUE(acquired.load());
  }
}

} // namespace
