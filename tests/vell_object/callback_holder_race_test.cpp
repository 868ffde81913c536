// Callback holders detached, copied and replaced on one thread while their callback dies on another.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <thread>

#include "support/stress.h"
#include "vell/callback_lifetime.h"
#include "vell/results.h"

using namespace VELL_2_13;

namespace {

class Policy : public IConfidenceLevelPolicyCallback {
public:
  confidence_t getConfidenceLevel(search_category_t, unsigned int) override { return confidence_t(2); }
};

using PolicyHolder = CallbackHolder<IConfidenceLevelPolicyCallback>;

// Both threads of a round start together, so that their work overlaps.
void waitForStart(const std::atomic<bool> &start) {
  while (!start.load(std::memory_order_acquire))
    std::this_thread::yield();
}

// The interleaving that hurts, made deterministic: the callback is being
// destroyed and waits for a search that is inside it; meanwhile a holder of it
// is destroyed. The holder must neither touch the dying callback's registry
// after it is gone nor block the destruction for good.
TEST(CallbackHolderRaceTest, HolderDestroyedWhileItsCallbackWaitsForASearch) {
  auto *policy = new Policy();
  auto *holder = new PolicyHolder(policy);
  PolicyHolder watcher(policy);
  const ObjectPtr<ISpinSharedLock> lock = policy->getLock();
  lock->sharedLock(); // a search is inside the callback
  std::thread destroying([&] { delete policy; });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  std::thread detaching([&] { delete holder; });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  lock->sharedUnlock(); // the search leaves
  destroying.join();
  detaching.join();
  EXPECT_FALSE(watcher.hasCallback());
}

TEST(CallbackHolderRaceTest, HoldersDetachWhileTheirCallbackIsDestroyed) {
  const vell_test::StressClock clock;
  int rounds = 0;
  int remembered = 0;
  while (clock.running() || rounds < 200) {
    auto *policy = new Policy();
    auto *registered = new PolicyHolder(policy);
    PolicyHolder source(policy);
    std::atomic<bool> start{false};
    // A registration replaced: copied from another holder, then dropped.
    std::thread replacing([&] {
      waitForStart(start);
      PolicyHolder copy(source);
      delete registered;
      copy = PolicyHolder();
    });
    std::thread destroying([&] {
      waitForStart(start);
      delete policy;
    });
    start.store(true, std::memory_order_release);
    replacing.join();
    destroying.join();
    // The callback is gone: every holder that still exists has forgotten it.
    remembered += source.hasCallback() ? 1 : 0;
    ++rounds;
  }
  EXPECT_EQ(0, remembered) << "after " << rounds << " rounds";
}

TEST(CallbackHolderRaceTest, HolderCopiedFromAHolderWhoseCallbackDiesIsAttachedWholeOrNotAtAll) {
  const vell_test::StressClock clock;
  int rounds = 0;
  int remembered = 0;
  while (clock.running() || rounds < 200) {
    auto *policy = new Policy();
    PolicyHolder source(policy);
    PolicyHolder target;
    std::atomic<bool> start{false};
    std::thread copying([&] {
      waitForStart(start);
      target = source;
    });
    std::thread destroying([&] {
      waitForStart(start);
      delete policy;
    });
    start.store(true, std::memory_order_release);
    copying.join();
    destroying.join();
    remembered += (source.hasCallback() ? 1 : 0) + (target.hasCallback() ? 1 : 0);
    ++rounds;
  }
  EXPECT_EQ(0, remembered) << "after " << rounds << " rounds";
}

// Disconnecting, attaching and detaching holders and reading the callback
// under its lock, all at once: none of them may wait for another forever.
TEST(CallbackHolderRaceTest, DisconnectingAndDetachingNeverDeadlock) {
  SafeCallback<Policy> policy;
  const ObjectPtr<ISpinSharedLock> lock = policy.getLock();
  std::atomic<bool> stop{false};
  std::atomic<long> detaches{0};
  std::atomic<long> disconnects{0};
  std::atomic<long> reads{0};
  auto work = std::async(std::launch::async, [&] {
    std::thread attaching([&] {
      PolicyHolder holder;
      while (!stop.load()) {
        holder.set(&policy);
        PolicyHolder copy(holder);
        holder.set(nullptr);
        ++detaches;
      }
    });
    std::thread disconnecting([&] {
      while (!stop.load()) {
        disconnectCallbackHolders(policy);
        ++disconnects;
      }
    });
    std::thread reading([&] {
      while (!stop.load()) {
        lock->sharedLock();
        ++reads;
        lock->sharedUnlock();
      }
    });
    std::this_thread::sleep_for(vell_test::stressBudget() / 2);
    stop = true;
    attaching.join();
    disconnecting.join();
    reading.join();
  });
  if (work.wait_for(std::chrono::seconds(60) + vell_test::stressBudget()) != std::future_status::ready) {
    std::fprintf(stderr, "disconnecting and detaching deadlocked\n");
    std::abort();
  }
  EXPECT_GT(detaches.load(), 0);
  EXPECT_GT(disconnects.load(), 0);
  EXPECT_GT(reads.load(), 0);
}

} // namespace
