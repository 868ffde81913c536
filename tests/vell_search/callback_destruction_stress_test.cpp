// Searches on many threads while host callbacks with destructors of their own are created, installed,
// replaced and destroyed.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "support/stress.h"
#include "support/temp_dir.h"
#include "vell/callback_lifetime.h"
#include "vell/file_search.h"
#include "vell_search/search_callbacks_support.h"
#include "vell_search/search_test_support.h"

using namespace VELL_2_13;
using vell_test::TempDir;

namespace {

// Calls that reached a callback whose own destructor had already started.
std::atomic<int> g_callsIntoDyingCallbacks{0};

// A host callback whose destructor body does real work: it marks the object
// dead, then takes its time, as a destructor releasing resources would. It does
// not disconnect by itself; the wrapper has to.
class Liveness {
public:
  ~Liveness() {
    m_alive.store(false);
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  void check() const {
    if (!m_alive.load())
      ++g_callsIntoDyingCallbacks;
  }

private:
  std::atomic<bool> m_alive{true};
};

class Policy : public IConfidenceLevelPolicyCallback {
public:
  ~Policy() override { m_state.reset(); }
  confidence_t getConfidenceLevel(search_category_t, unsigned int) override {
    m_state->check();
    ++calls;
    return confidence_t(1); // valid, high confidence
  }
  static std::atomic<int> calls;

private:
  std::unique_ptr<Liveness> m_state = std::make_unique<Liveness>();
};
std::atomic<int> Policy::calls{0};

class FilesFound : public IFilesFoundCallback {
public:
  ~FilesFound() override { m_state.reset(); }
  ObjectPtr<IValidFile> binFilesFound(const char *, IValidFileIterator &files) override {
    return choose(files);
  }
  ObjectPtr<IValidFile> symFilesFound(const char *, const char *, const char *,
                                      IValidFileIterator &files) override {
    return choose(files);
  }
  ObjectPtr<IValidFile> srcFilesFound(const char *, const char *, const char *,
                                      IValidFileIterator &files) override {
    return choose(files);
  }
  static std::atomic<int> calls;

private:
  ObjectPtr<IValidFile> choose(IValidFileIterator &files) {
    m_state->check();
    ++calls;
    files.reset();
    return files.next();
  }
  std::unique_ptr<Liveness> m_state = std::make_unique<Liveness>();
};
std::atomic<int> FilesFound::calls{0};

struct Installed {
  SafeCallback<Policy> policy;
  SafeCallback<FilesFound> found;
};

void install(IEditableSearchEnv &env, Installed &callbacks) {
  env.setConfidenceLevelPolicyCallback(CallbackHolder<IConfidenceLevelPolicyCallback>(&callbacks.policy));
  env.setFilesFoundCallback(CallbackHolder<IFilesFoundCallback>(&callbacks.found));
}

TEST(CallbackDestructionStressTest, WrappedCallbacksAreNeverEnteredOnceTheirDestructorRuns) {
  TempDir tmp;
  const std::string bin = tmp.write("bins/a/libx.so", "binary");
  ObjectPtr<IEditableSearchEnv> env = IEditableSearchEnv::create();
  env->setSearchDirs(vell_test::makeDirContainer({{scBinaryFiles, tmp.sub("bins"), true, true}}));
  env->setSearchStepsConfigurator(
      ObjectPtr<ISearchStepsConfigurator>(new vell_test::FixedStepsConfigurator({ssHighPrioritySearchDirs})));
  auto first = std::make_unique<Installed>();
  install(*env, *first);
  ObjectPtr<IFileSearch> search = IFileSearch::create(env);

  // Installing writes the environment, which its owner does while no search
  // reads it; destroying an installed callback needs no such care.
  std::shared_mutex environmentWrites;
  std::atomic<bool> stop{false};
  std::atomic<bool> installing{false};
  std::atomic<int> searches{0};
  std::atomic<int> wrong{0};
  std::vector<std::thread> searchers;
  for (int t = 0; t < 8; ++t) {
    searchers.emplace_back([&] {
      while (!stop.load()) {
        // Readers step aside while an installation waits (the mutex itself
        // would let a steady stream of readers starve the writer).
        while (installing.load())
          std::this_thread::yield();
        std::shared_lock<std::shared_mutex> reading(environmentWrites);
        ObjectPtr<IValidFile> found = search->findBinFile("libx.so", nullptr, nullptr, 0);
        wrong += !(found && bin == found->name());
        ++searches;
      }
    });
  }
  const vell_test::StressClock clock;
  int destroyed = 0;
  std::unique_ptr<Installed> current = std::move(first);
  while (clock.running()) {
    auto next = std::make_unique<Installed>();
    // The installed callbacks die while searches are calling them.
    current.reset();
    ++destroyed;
    {
      installing = true;
      std::unique_lock<std::shared_mutex> writing(environmentWrites);
      install(*env, *next);
      installing = false;
    }
    current = std::move(next);
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  stop = true;
  for (std::thread &searcher : searchers)
    searcher.join();
  current.reset();

  EXPECT_EQ(0, g_callsIntoDyingCallbacks.load());
  EXPECT_EQ(0, wrong.load());
  EXPECT_GT(destroyed, 10);
  EXPECT_GT(searches.load(), 100);
  EXPECT_GT(Policy::calls.load(), 0);
  EXPECT_GT(FilesFound::calls.load(), 0);
}

// Records whether a holder still pointed at the callback while the callback's
// own destructor body ran.
class WatchingPolicy : public IConfidenceLevelPolicyCallback {
public:
  ~WatchingPolicy() override {
    if (watched)
      heldDuringDestructorBody = watched->hasCallback();
  }
  confidence_t getConfidenceLevel(search_category_t, unsigned int) override { return confidence_t(1); }
  const CallbackHolder<IConfidenceLevelPolicyCallback> *watched = nullptr;
  bool &heldDuringDestructorBody;
  explicit WatchingPolicy(bool &held) : heldDuringDestructorBody(held) {}
};

TEST(CallbackDestructionStressTest, TheWrapperDisconnectsBeforeTheDestructorBody) {
  bool held = true;
  auto policy = std::make_unique<SafeCallback<WatchingPolicy>>(held);
  CallbackHolder<IConfidenceLevelPolicyCallback> holder(policy.get());
  policy->watched = &holder;
  ASSERT_TRUE(holder.hasCallback());
  policy.reset();
  EXPECT_FALSE(held);
  EXPECT_FALSE(holder.hasCallback());
}

// The one-line call, for a class that is not wrapped.
class SelfDisconnectingPolicy : public WatchingPolicy {
public:
  using WatchingPolicy::WatchingPolicy;
  ~SelfDisconnectingPolicy() override {
    disconnectCallbackHolders(*this);
    if (watched)
      heldDuringDestructorBody = watched->hasCallback();
  }
};

TEST(CallbackDestructionStressTest, TheOneLineCallDisconnectsBeforeTheDestructorBody) {
  bool held = true;
  auto policy = std::make_unique<SelfDisconnectingPolicy>(held);
  CallbackHolder<IConfidenceLevelPolicyCallback> holder(policy.get());
  policy->watched = &holder;
  ASSERT_TRUE(holder.hasCallback());
  policy.reset();
  EXPECT_FALSE(held);
}

} // namespace
