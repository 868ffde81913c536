// Work on several threads whose results are handed on in order.
#include "ordered_work.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace vell_tool {

namespace {

// What the reader, the workers and the deliverer share, under mutex.
struct Pipeline {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::pair<size_t, std::string>> waiting; // read, not yet taken by a worker
  std::map<size_t, std::string> finished;             // computed, not yet delivered
  size_t read = 0;
  size_t delivered = 0;
  bool endOfInput = false;
};

void workerLoop(Pipeline &pipeline, const OrderedWork &work) {
  std::unique_lock<std::mutex> lock(pipeline.mutex);
  while (true) {
    pipeline.changed.wait(lock, [&] { return !pipeline.waiting.empty() || pipeline.endOfInput; });
    if (pipeline.waiting.empty())
      return;
    std::pair<size_t, std::string> item = std::move(pipeline.waiting.front());
    pipeline.waiting.pop_front();
    lock.unlock();
    std::string result = work.work(item.first, item.second);
    lock.lock();
    pipeline.finished.emplace(item.first, std::move(result));
    pipeline.changed.notify_all();
  }
}

void deliverLoop(Pipeline &pipeline, const OrderedWork &work) {
  std::unique_lock<std::mutex> lock(pipeline.mutex);
  while (true) {
    pipeline.changed.wait(lock, [&] {
      return pipeline.finished.count(pipeline.delivered) != 0 ||
             (pipeline.endOfInput && pipeline.delivered == pipeline.read);
    });
    auto next = pipeline.finished.find(pipeline.delivered);
    if (next == pipeline.finished.end())
      return;
    std::string result = std::move(next->second);
    pipeline.finished.erase(next);
    lock.unlock();
    work.deliver(result);
    lock.lock();
    ++pipeline.delivered;
    pipeline.changed.notify_all();
  }
}

} // namespace

void runOrderedWork(const OrderedWork &work, unsigned threads, size_t window) {
  threads = std::max(threads, 1u);
  window = std::max(window, static_cast<size_t>(threads));
  Pipeline pipeline;
  std::vector<std::thread> workers;
  workers.reserve(threads);
  for (unsigned i = 0; i < threads; ++i)
    workers.emplace_back([&] { workerLoop(pipeline, work); });
  std::thread deliverer([&] { deliverLoop(pipeline, work); });

  // Read on this thread; the next read may block until the caller has seen
  // the results so far, so it never holds the lock.
  while (true) {
    {
      std::unique_lock<std::mutex> lock(pipeline.mutex);
      pipeline.changed.wait(lock, [&] { return pipeline.read - pipeline.delivered < window; });
    }
    std::string item;
    const bool more = work.next(item);
    std::lock_guard<std::mutex> lock(pipeline.mutex);
    if (!more) {
      pipeline.endOfInput = true;
      pipeline.changed.notify_all();
      break;
    }
    pipeline.waiting.emplace_back(pipeline.read++, std::move(item));
    pipeline.changed.notify_all();
  }
  for (std::thread &worker : workers)
    worker.join();
  deliverer.join();
}

} // namespace vell_tool
