// The recursive walk with directories read ahead on helper threads against
// the walk on one thread: the same candidates in the same order, the same
// observer calls, over links, loops, unreadable directories and early ends;
// no helper left running; many walks at once.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "support/unprivileged_child.h"
#include "support/walk_tree.h"
#include "vell/file_search.h"
#include "vell/kernel.h"
#include "vell/search_observer.h"
#include "vell/search_steps.h"
#include "vell/walk_options.h"
#include "vell_search/files_finder.h"
#include "vell_search/read_ahead_threads.h"
#include "vell_search/search_callbacks_support.h"
#include "vell_search/search_test_support.h"
#include "vell_search/walk_read_ahead.h"

using namespace VELL_2_13;
using vell_test::TempDir;

namespace fs = std::filesystem;

namespace {

using vell_test::inUnprivilegedChild;
using vell_test::readAheadThreads;
using vell_test::readAheadThreadsAfterWalk;

// Records every candidate; accepts the one numbered acceptAt (from 1; 0:
// none), or the existing one numbered acceptExisting. Counts the read-ahead
// helpers alive while the walk runs.
class Recorder : public ISearchResultsContainer {
public:
  bool validateAndAdd(const char *path, unsigned int step) override {
    candidates.push_back(path);
    EXPECT_EQ(static_cast<unsigned int>(ssLowPrioritySearchDirs), step);
    if (countHelpers)
      helpersSeen = std::max(helpersSeen, readAheadThreads());
    struct stat st;
    if (::stat(path, &st) == 0)
      ++existing;
    return candidates.size() == acceptAt ||
           (acceptExisting > 0 && existing == acceptExisting && ::stat(path, &st) == 0);
  }
  std::vector<std::string> candidates;
  size_t acceptAt = 0;
  size_t acceptExisting = 0;
  size_t existing = 0;
  bool countHelpers = false;
  size_t helpersSeen = 0;
};

// Records the walk's observer calls of the thread it is installed for.
class WalkObserver : public ISearchObserver {
public:
  WalkObserver() : m_previous(setSearchObserver(this)) {}
  ~WalkObserver() override { setSearchObserver(m_previous); }
  void directoryWalked(const char *dir) override { record(std::string("walked ") + dir); }
  void directoryUnreadable(const char *dir, int error) override {
    record(std::string("unreadable ") + dir + " " + std::to_string(error));
  }
  void candidateTried(const char *, unsigned int, bool) override {}
  std::vector<std::string> calls;

private:
  void record(const std::string &call) {
    // Only the walking thread calls; a call from a helper shows as a difference.
    calls.push_back(std::this_thread::get_id() == m_owner ? call : "from another thread: " + call);
  }
  ISearchObserver *m_previous;
  std::thread::id m_owner = std::this_thread::get_id();
};

struct Outcome {
  bool accepted = false;
  std::vector<std::string> candidates;
  std::vector<std::string> observed;
  size_t helpersSeen = 0;
};

Outcome walk(const std::vector<std::string> &roots, const std::string &name, unsigned int threads,
             size_t acceptAt = 0, size_t acceptExisting = 0, bool observe = true) {
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  finder.setReadAheadThreads(threads);
  for (const std::string &root : roots)
    finder.addSearchDirectory(root.c_str(), true);
  Recorder recorder;
  recorder.acceptAt = acceptAt;
  recorder.acceptExisting = acceptExisting;
  recorder.countHelpers = observe;
  Outcome outcome;
  if (observe) {
    WalkObserver observer;
    outcome.accepted = finder.find(name.c_str(), recorder);
    outcome.observed = observer.calls;
  } else {
    outcome.accepted = finder.find(name.c_str(), recorder);
  }
  outcome.candidates = recorder.candidates;
  outcome.helpersSeen = recorder.helpersSeen;
  return outcome;
}

// A tree of some breadth and depth with "lib.so" in a few places.
void buildTree(const TempDir &dir) {
  std::vector<std::string> files;
  for (int a = 0; a < 6; ++a)
    for (int b = 0; b < 5; ++b) {
      const std::string leaf = "root/a" + std::to_string(a) + "/b" + std::to_string(b);
      files.push_back(leaf + "/c/f" + std::to_string(a * 10 + b) + ".so");
      if ((a + b) % 4 == 0)
        files.push_back(leaf + "/lib.so");
    }
  vell_test::buildLibTree(dir, files);
}

// Compares the walk with helpers to the walk on one thread, whole and ended
// at each existing file in turn; no helper may outlive a walk.
void expectSameAsPlainWalk(const std::vector<std::string> &roots, const std::vector<std::string> &names,
                           bool expectHelpers = true) {
  for (const std::string &name : names) {
    SCOPED_TRACE(name);
    const Outcome plain = walk(roots, name, 0);
    EXPECT_EQ(0u, plain.helpersSeen);
    for (unsigned int threads : {1u, 2u, 4u}) {
      SCOPED_TRACE(threads);
      const Outcome ahead = walk(roots, name, threads);
      EXPECT_EQ(plain.accepted, ahead.accepted);
      EXPECT_EQ(plain.candidates, ahead.candidates);
      EXPECT_EQ(plain.observed, ahead.observed);
      if (expectHelpers) {
        EXPECT_GT(ahead.helpersSeen, 0u);
      }
      EXPECT_LE(ahead.helpersSeen, threads);
      EXPECT_EQ(0u, readAheadThreadsAfterWalk());
    }
    const Outcome counted = walk(roots, name, 0, 0, 0, false);
    for (size_t stop = 1; stop <= counted.candidates.size(); ++stop) {
      const Outcome plainStop = walk(roots, name, 0, 0, stop);
      if (!plainStop.accepted)
        break; // fewer existing files than candidates
      const Outcome aheadStop = walk(roots, name, 2, 0, stop);
      EXPECT_TRUE(aheadStop.accepted);
      EXPECT_EQ(plainStop.candidates, aheadStop.candidates);
      EXPECT_EQ(plainStop.observed, aheadStop.observed);
      EXPECT_EQ(0u, readAheadThreadsAfterWalk());
    }
  }
}

TEST(ReadAheadWalkTest, OffersTheSameCandidatesAndObserverCallsInTheSameOrder) {
  TempDir dir;
  buildTree(dir);
  expectSameAsPlainWalk({dir.sub("root")}, {"lib.so", "f12.so", "missing.so", "c"});
}

TEST(ReadAheadWalkTest, SeveralRecordsEachWalkedWithAReadAheadOfTheirOwn) {
  TempDir dir;
  buildTree(dir);
  dir.write("second/x/lib.so");
  expectSameAsPlainWalk({dir.sub("second"), dir.sub("root"), dir.sub("root/a1"), dir.sub("root")},
                        {"lib.so", "x/lib.so"});
}

TEST(ReadAheadWalkTest, LinksLoopsAndADirectoryReachedTwiceAreWalkedAsOnOneThread) {
  TempDir dir;
  buildTree(dir);
  fs::create_directory_symlink(dir.sub("root"), dir.sub("root/a2/b3/up"));            // loop to an ancestor
  fs::create_directory_symlink(dir.sub("root/a4/b1"), dir.sub("root/a0/b1-link"));    // reached twice
  fs::create_directory_symlink(dir.sub("root/a5"), dir.sub("root/a5/b2/c/a5-again")); // and again, deeper
  fs::create_directory_symlink(dir.sub("outside"), dir.sub("root/out-link"));         // outside the tree
  fs::create_symlink(dir.sub("nowhere"), dir.sub("root/a1/dangling"));                // dangling
  fs::create_symlink(dir.sub("root/lib.so"), dir.sub("root/a3/b3/lib.so"));           // file link
  dir.write("outside/lib.so");
  dir.write("outside/deeper/lib.so");
  expectSameAsPlainWalk({dir.sub("root"), dir.sub("root/a0/b1-link")}, {"lib.so", "f41.so", "missing.so"});
}

TEST(ReadAheadWalkTest, ALinkThatLoopsOntoItselfEndsTheListingOfItsDirectoryAlone) {
  TempDir dir;
  buildTree(dir);
  fs::create_symlink("loop", dir.sub("root/a3/loop"));
  const Outcome plain = walk({dir.sub("root")}, "lib.so", 0);
  const std::string unreadable = "unreadable " + dir.sub("root/a3") + " " + std::to_string(ELOOP);
  EXPECT_NE(plain.observed.end(), std::find(plain.observed.begin(), plain.observed.end(), unreadable));
  expectSameAsPlainWalk({dir.sub("root")}, {"lib.so", "f32.so"});
}

TEST(ReadAheadWalkTest, AMissingRootOrAFileAsRootStartsNoHelper) {
  TempDir dir;
  buildTree(dir);
  expectSameAsPlainWalk({dir.sub("missing"), dir.sub("root/lib.so"), dir.sub("root/empty")}, {"lib.so"},
                        false);
  EXPECT_EQ(0u, walk({dir.sub("root/empty")}, "lib.so", 2).helpersSeen);
}

TEST(ReadAheadWalkTest, EveryEarlyEndJoinsTheHelpers) {
  TempDir dir;
  buildTree(dir);
  const std::vector<std::string> roots = {dir.sub("root")};
  const Outcome whole = walk(roots, "missing.so", 0);
  ASSERT_GT(whole.candidates.size(), 60u);
  // Ended by the container at every candidate in turn, existing or not.
  for (size_t stop = 1; stop <= whole.candidates.size(); stop += 3) {
    SCOPED_TRACE(stop);
    const Outcome ahead = walk(roots, "missing.so", 2, stop);
    EXPECT_TRUE(ahead.accepted);
    EXPECT_EQ(std::vector<std::string>(whole.candidates.begin(), whole.candidates.begin() + stop),
              ahead.candidates);
    EXPECT_EQ(0u, readAheadThreadsAfterWalk());
  }
}

TEST(ReadAheadWalkTest, TheOutermostDirectCallOwnsTheReadAhead) {
  TempDir dir;
  buildTree(dir);
  FilesFinder plainFinder(ssLowPrioritySearchDirs, nullptr);
  Recorder plain;
  EXPECT_FALSE(plainFinder.findRecursively(dir.sub("root"), "lib.so", plain));
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  finder.setReadAheadThreads(2);
  Recorder ahead;
  ahead.countHelpers = true;
  EXPECT_FALSE(finder.findRecursively(dir.sub("root"), "lib.so", ahead));
  EXPECT_EQ(plain.candidates, ahead.candidates);
  EXPECT_GT(ahead.helpersSeen, 0u);
  EXPECT_EQ(0u, readAheadThreadsAfterWalk());
}

TEST(ReadAheadWalkTest, UnreadableDirectoriesAreReportedAndSkippedAsOnOneThread) {
  TempDir dir;
  buildTree(dir);
  dir.write("root/search-only/lib.so");
  dir.write("root/search-only/below/lib.so");
  dir.write("root/a2/closed/lib.so");
  dir.write("root/a2/closed/deeper/lib.so");
  fs::create_directory_symlink(dir.sub("root/a2/closed"), dir.sub("root/a0/closed-link"));
  vell_test::limitTreeForOthers(dir.sub("root"), dir.sub("root/search-only"), dir.sub("root/a2/closed"));
  const std::string root = dir.sub("root");
  inUnprivilegedChild([&] {
    const Outcome plain = walk({root}, "lib.so", 0);
    // Both are reported: the one that can be entered but not listed, and the
    // closed one (once: the link reaches the same directory).
    const std::string searchOnly = "unreadable " + root + "/search-only " + std::to_string(EACCES);
    EXPECT_EQ(1, std::count(plain.observed.begin(), plain.observed.end(), searchOnly));
    EXPECT_EQ(1, std::count_if(plain.observed.begin(), plain.observed.end(), [](const std::string &call) {
                return call.find("/closed") != std::string::npos && call.rfind("unreadable ", 0) == 0;
              }));
    expectSameAsPlainWalk({root}, {"lib.so", "f3.so", "missing.so"});
  });
}

TEST(ReadAheadWalkTest, ManySearchesAtOnceEachGetTheirOwnOrder) {
  TempDir dir;
  buildTree(dir);
  fs::create_directory_symlink(dir.sub("root"), dir.sub("root/a1/b1/up"));
  const std::vector<std::string> roots = {dir.sub("root")};
  const std::vector<std::string> names = {"lib.so", "f23.so", "missing.so"};
  std::vector<std::vector<std::string>> expected;
  for (const std::string &name : names)
    expected.push_back(walk(roots, name, 0, 0, 0, false).candidates);
  std::vector<int> mismatches(6, 0);
  std::vector<std::thread> searchers;
  for (int t = 0; t < 6; ++t)
    searchers.emplace_back([&, t] {
      for (int i = 0; i < 12; ++i) {
        const size_t which = static_cast<size_t>(t + i) % names.size();
        // Some walks end at their first existing file, others go through.
        const size_t stopAt = i % 2 == 0 ? 1 : 0;
        const Outcome outcome = walk(roots, names[which], 1 + t % 3, 0, stopAt, false);
        std::vector<std::string> want = expected[which];
        if (stopAt && outcome.accepted) {
          auto first = std::find_if(want.begin(), want.end(), [](const std::string &path) {
            struct stat st;
            return ::stat(path.c_str(), &st) == 0;
          });
          want.erase(first + 1, want.end());
        }
        if (outcome.candidates != want)
          ++mismatches[t];
      }
    });
  for (std::thread &searcher : searchers)
    searcher.join();
  EXPECT_EQ(std::vector<int>(6, 0), mismatches);
  EXPECT_EQ(0u, readAheadThreadsAfterWalk());
}

// Counts the helpers alive whenever a walk enters a directory.
class HelperCounter : public ISearchObserver {
public:
  HelperCounter() : m_previous(setSearchObserver(this)) {}
  ~HelperCounter() override { setSearchObserver(m_previous); }
  void directoryWalked(const char *) override { seen = std::max(seen, readAheadThreads()); }
  void directoryUnreadable(const char *, int) override {}
  void candidateTried(const char *, unsigned int, bool) override {}
  size_t seen = 0;

private:
  ISearchObserver *m_previous;
};

TEST(ReadAheadWalkTest, FileSearchesWithReadAheadFindTheSameFilesInTheSameOrder) {
  TempDir dir;
  buildTree(dir);
  fs::create_directory_symlink(dir.sub("root"), dir.sub("root/a2/b2/up"));
  vell_test::CollectingSearchEnv walked(dir.sub("root"), false);
  WalkOptions walkOptions;
  walkOptions.readAheadThreads = 2;
  struct Pair {
    const char *what;
    ObjectPtr<IFileSearch> plain;
    ObjectPtr<IFileSearch> ahead;
  };
  const std::vector<Pair> pairs = {
      {"plain", IFileSearch::create(walked.env), createFileSearch(walked.env, walkOptions)},
      {"kernel-aware", createKernelAwareFileSearch(walked.env, KernelSearchOptions()),
       createKernelAwareFileSearch(walked.env, KernelSearchOptions(), walkOptions)},
  };
  for (const Pair &pair : pairs) {
    SCOPED_TRACE(pair.what);
    for (bool symbols : {false, true})
      for (const char *name : {"lib.so", "f5.so", "missing.so"}) {
        SCOPED_TRACE(name);
        auto find = [&](IFileSearch &search) {
          return symbols ? search.findSymFile(name, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)
                         : search.findBinFile(name, nullptr, nullptr, 0);
        };
        HelperCounter plainHelpers;
        walked.collected.clear();
        ObjectPtr<IValidFile> expected = find(*pair.plain);
        const std::vector<std::string> expectedFiles = walked.collected;
        EXPECT_EQ(0u, plainHelpers.seen);
        HelperCounter aheadHelpers;
        walked.collected.clear();
        ObjectPtr<IValidFile> got = find(*pair.ahead);
        EXPECT_EQ(expectedFiles, walked.collected);
        EXPECT_EQ(vell_test::nameOf(expected), vell_test::nameOf(got));
        // lib.so lies right in the root: that walk ends before it lists anything.
        if (std::string(name) != "lib.so") {
          EXPECT_GT(aheadHelpers.seen, 0u);
        }
        EXPECT_EQ(0u, readAheadThreadsAfterWalk());
      }
  }
  // A walk ends at its first valid file; the files-found iterator goes on
  // with the next step, not with the rest of the walk.
  walked.collected.clear();
  pairs[0].ahead->findBinFile("lib.so", nullptr, nullptr, 0);
  EXPECT_EQ(std::vector<std::string>{dir.sub("root/lib.so")}, walked.collected);
}

TEST(ReadAheadWalkTest, WithoutTheOptionNoThreadIsStarted) {
  TempDir dir;
  buildTree(dir);
  const Outcome plain = walk({dir.sub("root")}, "missing.so", 0);
  EXPECT_GT(plain.candidates.size(), 60u);
  EXPECT_EQ(0u, plain.helpersSeen);
  WalkOptions none;
  vell_test::TestFilesFound found;
  ObjectPtr<IEditableSearchEnv> env = vell_test::recursiveSearchEnv(dir.sub("root"), false, found);
  HelperCounter helpers;
  createFileSearch(env, none)->findBinFile("missing.so", nullptr, nullptr, 0);
  IFileSearch::create(env)->findBinFile("missing.so", nullptr, nullptr, 0);
  EXPECT_EQ(0u, helpers.seen);
}

} // namespace
