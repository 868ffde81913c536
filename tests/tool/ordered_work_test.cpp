// Work on several threads, results delivered in input order: order under
// out-of-order completion, real concurrency, a caller that waits for each
// result before giving the next item, and the bounded read-ahead.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ordered_work.h"

using vell_tool::OrderedWork;
using vell_tool::runOrderedWork;

namespace {

constexpr auto kPatience = std::chrono::seconds(30);

// Items "0".."count-1", read from a counter.
std::function<bool(std::string &)> counter(size_t count) {
  auto next = std::make_shared<size_t>(0);
  return [next, count](std::string &item) {
    if (*next == count)
      return false;
    item = std::to_string((*next)++);
    return true;
  };
}

TEST(OrderedWorkTest, ResultsComeInInputOrderWhenLaterItemsFinishFirst) {
  std::mutex mutex;
  std::condition_variable changed;
  bool lastDone = false;
  bool waitedInVain = false;
  std::vector<std::string> delivered;
  OrderedWork work;
  work.next = counter(4);
  work.work = [&](size_t index, const std::string &item) {
    std::unique_lock<std::mutex> lock(mutex);
    // The first item ends only after the last one has.
    if (index == 0 && !changed.wait_for(lock, kPatience, [&] { return lastDone; }))
      waitedInVain = true;
    if (index == 3)
      lastDone = true;
    changed.notify_all();
    return "result " + item;
  };
  work.deliver = [&](const std::string &result) {
    std::lock_guard<std::mutex> lock(mutex);
    delivered.push_back(result);
  };
  runOrderedWork(work, 4, 16);
  EXPECT_FALSE(waitedInVain) << "the items did not run at the same time";
  EXPECT_EQ((std::vector<std::string>{"result 0", "result 1", "result 2", "result 3"}), delivered);
}

TEST(OrderedWorkTest, AsManyItemsRunAtOnceAsThereAreThreads) {
  std::mutex mutex;
  std::condition_variable changed;
  int running = 0;
  int most = 0;
  OrderedWork work;
  work.next = counter(12);
  work.work = [&](size_t, const std::string &item) {
    std::unique_lock<std::mutex> lock(mutex);
    ++running;
    most = std::max(most, running);
    changed.notify_all();
    // The first three meet here; the rest pass.
    changed.wait_for(lock, kPatience, [&] { return most >= 3; });
    --running;
    return item;
  };
  std::vector<std::string> delivered;
  work.deliver = [&](const std::string &result) { delivered.push_back(result); };
  runOrderedWork(work, 3, 3);
  EXPECT_EQ(3, most);
  ASSERT_EQ(12u, delivered.size());
  for (size_t i = 0; i < delivered.size(); ++i)
    EXPECT_EQ(std::to_string(i), delivered[i]);
}

TEST(OrderedWorkTest, CallerWaitingForEachResultBeforeTheNextItemIsServed) {
  std::mutex mutex;
  std::condition_variable changed;
  size_t given = 0;
  size_t received = 0;
  bool stuck = false;
  OrderedWork work;
  work.next = [&](std::string &item) {
    std::unique_lock<std::mutex> lock(mutex);
    // A driver: no new request before the answer to the last one.
    if (!changed.wait_for(lock, kPatience, [&] { return received == given; })) {
      stuck = true;
      return false;
    }
    if (given == 5)
      return false;
    item = std::to_string(given++);
    return true;
  };
  work.work = [](size_t, const std::string &item) { return item; };
  work.deliver = [&](const std::string &) {
    std::lock_guard<std::mutex> lock(mutex);
    ++received;
    changed.notify_all();
  };
  runOrderedWork(work, 4, 64);
  EXPECT_FALSE(stuck);
  EXPECT_EQ(5u, received);
}

TEST(OrderedWorkTest, ReadAheadStaysWithinTheWindow) {
  std::atomic<size_t> read{0};
  std::atomic<size_t> delivered{0};
  size_t mostAhead = 0;
  OrderedWork work;
  auto items = counter(40);
  work.next = [&](std::string &item) {
    mostAhead = std::max(mostAhead, read.load() - delivered.load());
    if (!items(item))
      return false;
    ++read;
    return true;
  };
  work.work = [](size_t, const std::string &item) { return item; };
  work.deliver = [&](const std::string &) { ++delivered; };
  runOrderedWork(work, 2, 5);
  EXPECT_EQ(40u, delivered.load());
  EXPECT_LT(mostAhead, 5u);
}

TEST(OrderedWorkTest, OneThreadAndNoItems) {
  std::vector<std::string> delivered;
  OrderedWork work;
  work.next = counter(3);
  work.work = [](size_t index, const std::string &item) { return item + "/" + std::to_string(index); };
  work.deliver = [&](const std::string &result) { delivered.push_back(result); };
  runOrderedWork(work, 1, 1);
  EXPECT_EQ((std::vector<std::string>{"0/0", "1/1", "2/2"}), delivered);

  delivered.clear();
  work.next = counter(0);
  runOrderedWork(work, 4, 8);
  EXPECT_TRUE(delivered.empty());
}

} // namespace
