// Writers of the persistent search directories killed at random moments: nothing acknowledged is lost,
// nothing is left half written.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "support/log_capture.h"
#include "support/stress.h"
#include "support/temp_dir.h"
#include "vell/platform.h"
#include "vell/search_env.h"
#include "vell_searchenv/dir_records.h"

using namespace VELL_2_13;

namespace {

namespace fs = std::filesystem;

// Runs in the child: adds directories without end and reports each one on
// the pipe once addDirectory has returned.
[[noreturn]] void writeForever(const std::string &path, int round, int reportFd) {
  auto dirs = IPersistentSearchDirContainer::create(platform::createJsonFilePropertyStorage(path));
  for (int i = 0;; ++i) {
    const std::string name = "/d/" + std::to_string(round) + "/" + std::to_string(i);
    if (!dirs->addDirectory(scSymbolFiles, name.c_str(), false, false))
      ::_exit(2);
    const std::string line = name + "\n";
    if (::write(reportFd, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
      ::_exit(3);
  }
}

// Every complete line the child reported before it died.
std::set<std::string> readReports(int fd) {
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t count = ::read(fd, buffer, sizeof(buffer));
    if (count <= 0)
      break;
    text.append(buffer, static_cast<size_t>(count));
  }
  std::set<std::string> names;
  size_t start = 0;
  for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
    names.insert(text.substr(start, end - start));
    start = end + 1;
  }
  return names;
}

TEST(PersistentKillLoopTest, KilledWritersLoseNothingAcknowledgedAndLeaveNothingPartial) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("config/props.json");
  std::mt19937 random(12345);
  std::uniform_int_distribution<int> killAfterMicros(0, 20000);
  std::set<std::string> acknowledged;
  vell_test::LogCapture capture;
  const vell_test::StressClock clock(vell_test::stressBudget(std::chrono::milliseconds(3000)));
  int rounds = 0;
  while (clock.running() || rounds < 5) {
    int pipeFds[2];
    ASSERT_EQ(0, ::pipe(pipeFds));
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(pipeFds[0]);
      writeForever(path, rounds, pipeFds[1]);
    }
    ::close(pipeFds[1]);
    std::this_thread::sleep_for(std::chrono::microseconds(killAfterMicros(random)));
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer failed with exit code " << WEXITSTATUS(status);
    const std::set<std::string> reported = readReports(pipeFds[0]);
    ::close(pipeFds[0]);
    acknowledged.insert(reported.begin(), reported.end());
    ++rounds;

    // The file parses, and it holds every directory a writer acknowledged.
    auto dirs = IPersistentSearchDirContainer::create(platform::createJsonFilePropertyStorage(path));
    std::set<std::string> stored;
    if (auto records = dirs->enumerate(scSymbolFiles))
      for (const vell_test::DirRecord &record : vell_test::readAll(records))
        stored.insert(record.name);
    for (const std::string &name : acknowledged)
      ASSERT_TRUE(stored.count(name)) << name << " was acknowledged but is lost, round " << rounds;
  }
  EXPECT_GT(acknowledged.size(), 0u);
  ASSERT_TRUE(fs::exists(dir.sub("config")));
  // No file was ever damaged, so nothing was moved aside or logged as such.
  EXPECT_TRUE(capture.texts(40000).empty()) << capture.texts(40000).front();
  for (const auto &entry : fs::directory_iterator(dir.sub("config"))) {
    const std::string name = entry.path().filename().string();
    EXPECT_EQ(std::string::npos, name.find(".corrupt-")) << name;
    // The reads after each kill removed what the killed writers left.
    EXPECT_EQ(std::string::npos, name.find(".tmp-")) << name;
  }
}

} // namespace
