// A call run on its own thread that the test can wait for with a time limit,
// for tests that show one call waiting for a lock while others go on.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

namespace vell_test {

// The call must own (capture by value) everything it uses: a call that never
// ends is left running detached when the object dies, so that a failing test
// reports its failure instead of hanging.
class BackgroundCall {
public:
  explicit BackgroundCall(std::function<void()> call) : m_done(std::make_shared<std::atomic<bool>>(false)) {
    m_thread = std::thread([call = std::move(call), done = m_done] {
      call();
      done->store(true);
    });
  }

  ~BackgroundCall() {
    if (!m_thread.joinable())
      return;
    if (finishesWithin(std::chrono::seconds(10)))
      m_thread.join();
    else
      m_thread.detach();
  }

  BackgroundCall(const BackgroundCall &) = delete;
  BackgroundCall &operator=(const BackgroundCall &) = delete;

  bool finished() const { return m_done->load(); }

  // Waits until the call has returned or limit has passed; true when it returned.
  bool finishesWithin(std::chrono::milliseconds limit) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!finished()) {
      if (std::chrono::steady_clock::now() >= deadline)
        return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }

private:
  std::shared_ptr<std::atomic<bool>> m_done;
  std::thread m_thread;
};

} // namespace vell_test
