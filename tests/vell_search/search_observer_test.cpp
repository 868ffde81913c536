// The process-wide search observer: directories walked and unreadable, and
// every candidate tried with its step and whether it exists.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "vell/search_observer.h"
#include "vell/search_steps.h"
#include "vell_search/files_finder.h"
#include "vell_search/recording_container.h"

using namespace VELL_2_13;
using vell_test::RecordingContainer;
using vell_test::TempDir;

namespace {

class RecordingObserver : public ISearchObserver {
public:
  void directoryWalked(const char *dir) override { walked.push_back(dir); }
  void directoryUnreadable(const char *dir, int error) override {
    unreadable.push_back(dir);
    errors.push_back(error);
  }
  void candidateTried(const char *path, unsigned int step, bool exists) override {
    tried.push_back(std::string(path) + (exists ? " +" : " -") + std::to_string(step));
  }
  std::vector<std::string> walked;
  std::vector<std::string> unreadable;
  std::vector<int> errors;
  std::vector<std::string> tried;
};

// Installs an observer for one test and restores the previous one.
class ObserverScope {
public:
  explicit ObserverScope(ISearchObserver *observer) : m_previous(setSearchObserver(observer)) {}
  ~ObserverScope() { setSearchObserver(m_previous); }

private:
  ISearchObserver *m_previous;
};

} // namespace

TEST(SearchObserverTest, SetReturnsThePreviousObserver) {
  RecordingObserver first;
  RecordingObserver second;
  ISearchObserver *before = setSearchObserver(&first);
  EXPECT_EQ(&first, setSearchObserver(&second));
  EXPECT_EQ(&second, setSearchObserver(before));
}

TEST(SearchObserverTest, WalkReportsEveryDirectoryInTheOrderWalked) {
  TempDir tmp;
  tmp.mkdir("r/a/deep");
  tmp.mkdir("r/b");
  const std::string root = tmp.sub("r");
  RecordingObserver observer;
  ObserverScope scope(&observer);
  RecordingContainer container;
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  EXPECT_FALSE(finder.findRecursively(root, "f", container));
  ASSERT_EQ(4u, observer.walked.size());
  EXPECT_EQ(root, observer.walked.front());
  // One walked directory per candidate the walk offered.
  EXPECT_EQ(container.paths().size(), observer.walked.size());
  EXPECT_TRUE(observer.unreadable.empty());
}

TEST(SearchObserverTest, UnreadableDirectoryIsReportedWithItsError) {
  TempDir tmp;
  tmp.mkdir("r/closed/inside");
  tmp.mkdir("r/open");
  vell_test::openForOthers(tmp.sub("r/open"));
  ::chmod(tmp.sub("r/closed").c_str(), 0700);
  const std::string root = tmp.sub("r");
  RecordingObserver observer;
  ObserverScope scope(&observer);
  RecordingContainer container;
  {
    vell_test::AsUnprivilegedUser nobody;
    FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
    EXPECT_FALSE(finder.findRecursively(root, "f", container));
  }
  ASSERT_EQ(std::vector<std::string>{tmp.sub("r/closed")}, observer.unreadable);
  EXPECT_EQ(std::vector<int>{EACCES}, observer.errors);
  // Walked (its own candidate was tried), but nothing below it.
  EXPECT_EQ(3u, observer.walked.size());
}

TEST(SearchObserverTest, WalkWithoutAnObserverOffersEveryCandidate) {
  TempDir tmp;
  tmp.mkdir("r/a");
  ISearchObserver *before = setSearchObserver(nullptr);
  RecordingContainer container;
  FilesFinder finder(ssLowPrioritySearchDirs, nullptr);
  EXPECT_FALSE(finder.findRecursively(tmp.sub("r"), "f", container));
  setSearchObserver(before);
  EXPECT_EQ(2u, container.paths().size());
}
