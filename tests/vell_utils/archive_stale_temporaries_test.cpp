// Temporary copies left in the archive by filings killed before their rename
// are removed by the next filing; one a running filing still fills stays.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include "support/stress.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell/validation.h"
#include "vell_utils/archive_test_support.h"
#include "vell_utils/stale_temporaries.h"

using namespace VELL_2_13;

namespace {

std::string md5Of(const std::string &path) {
  return IChecksumCalculator::create()->calculateChecksum(path.c_str(), ctMd5)->value();
}

// The names in directory other than "." and "..", sorted.
std::vector<std::string> entries(const std::string &directory) {
  std::vector<std::string> names;
  if (DIR *dir = ::opendir(directory.c_str())) {
    while (const dirent *entry = ::readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..")
        names.push_back(name);
    }
    ::closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

size_t countTemporaries(const std::string &directory) {
  size_t count = 0;
  for (const std::string &name : entries(directory)) {
    long pid = 0;
    count += utils::isTemporaryName(name, pid) ? 1 : 0;
  }
  return count;
}

// The process id of a child that has exited and been reaped: no process has it.
pid_t deadProcessId() {
  const pid_t child = ::fork();
  if (child == 0)
    ::_exit(0);
  int status = 0;
  ::waitpid(child, &status, 0);
  return child;
}

void killAndReap(pid_t child) {
  ::kill(child, SIGKILL);
  int status = 0;
  ::waitpid(child, &status, 0);
}

TEST(ArchiveStaleTemporariesTest, CopiesOfKilledFilingsAreRemovedByTheNextFiling) {
  vell_test::TempDir dir;
  const std::string content = vell_test::bigContent();
  const std::string source = dir.write("fetch/libbig.so", content);
  const std::string archive = dir.sub("archive");
  const std::string checksumDir = archive + "/libbig.so/" + md5Of(source);
  const std::string target = checksumDir + "/libbig.so";
  std::mt19937 random(4711);
  std::uniform_int_distribution<int> killAfterMicros(0, 3000);
  const vell_test::StressClock clock(vell_test::stressBudget(std::chrono::milliseconds(3000)));
  int rounds = 0;
  int leftBehind = 0;
  // Runs until the time is up and at least a few kills left a temporary copy
  // behind (most kills land in the copy, as the parent waits for it).
  while ((clock.running() || leftBehind < 3) && rounds < 200) {
    ++rounds;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      // Files the file again and again, making room for the next copy.
      for (;;) {
        std::string result;
        if (utils::archiveFile(source.c_str(), archive.c_str(), nullptr, result, false) != 0)
          ::_exit(2);
        ::unlink(result.c_str());
      }
    }
    // Kill the filing while its temporary copy is being written.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (countTemporaries(checksumDir) == 0 && std::chrono::steady_clock::now() < deadline)
      std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::microseconds(killAfterMicros(random)));
    killAndReap(child);
    if (countTemporaries(checksumDir) > 0)
      ++leftBehind;

    // The next filing removes what the killed one left, and files a whole copy.
    std::string result;
    const int status = utils::archiveFile(source.c_str(), archive.c_str(), nullptr, result, false);
    ASSERT_TRUE(status == 0 || status == 6) << status;
    ASSERT_EQ(target, result);
    ASSERT_EQ(std::vector<std::string>{"libbig.so"}, entries(checksumDir)) << "round " << rounds;
    ASSERT_TRUE(vell_test::readAll(target) == content) << "round " << rounds;
    ::unlink(target.c_str());
  }
  EXPECT_GE(leftBehind, 3) << "of " << rounds << " kills";
}

TEST(ArchiveStaleTemporariesTest, AFilingAlreadyDoneStillRemovesStaleCopies) {
  vell_test::TempDir dir;
  const std::string source = dir.write("in/libx.so", "abc");
  std::string result;
  ASSERT_EQ(0, utils::archiveFile(source.c_str(), dir.sub("archive").c_str(), nullptr, result, false));
  // The copy a killed process left, as its name records it.
  const std::string checksumDir = result.substr(0, result.rfind('/'));
  const std::string stale = ".libx.so.tmp-" + std::to_string(deadProcessId()) + "-0123456789abcdef";
  dir.write(checksumDir.substr(dir.path().size() + 1) + "/" + stale, "ab");
  std::string again;
  EXPECT_EQ(6, utils::archiveFile(source.c_str(), dir.sub("archive").c_str(), nullptr, again, false));
  EXPECT_EQ(result, again);
  EXPECT_EQ(std::vector<std::string>{"libx.so"}, entries(checksumDir));
}

TEST(ArchiveStaleTemporariesTest, TheCopyOfARunningFilingStays) {
  vell_test::TempDir dir;
  const std::string source = dir.write("in/libx.so", "abc");
  const std::string checksumDir = dir.mkdir("archive/libx.so/" + md5Of(source));
  const std::string target = checksumDir + "/libx.so";

  // A concurrent filer in another process: it has created its temporary copy
  // and goes on writing until told to finish, then renames it into place.
  int toChild[2];
  int fromChild[2];
  ASSERT_EQ(0, ::pipe(toChild));
  ASSERT_EQ(0, ::pipe(fromChild));
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const std::string temporary = utils::temporaryPathFor(target);
    std::ofstream out(temporary, std::ios::binary);
    out << "ab" << std::flush;
    const char ready = 'r';
    if (::write(fromChild[1], &ready, 1) != 1)
      ::_exit(2);
    char go = 0;
    if (::read(toChild[0], &go, 1) != 1)
      ::_exit(3);
    out << "c";
    out.close();
    ::_exit(::rename(temporary.c_str(), target.c_str()) == 0 ? 0 : 4);
  }
  char ready = 0;
  ASSERT_EQ(1, ::read(fromChild[0], &ready, 1));
  ASSERT_EQ(1u, countTemporaries(checksumDir));
  const std::vector<std::string> whileFiling = entries(checksumDir);

  // A stale copy beside it: its process is gone.
  const std::string stale = ".libx.so.tmp-" + std::to_string(deadProcessId()) + "-0123456789abcdef";
  dir.write("archive/libx.so/" + md5Of(source) + "/" + stale, "a");
  std::string result;
  EXPECT_EQ(0, utils::archiveFile(source.c_str(), dir.sub("archive").c_str(), nullptr, result, false));
  EXPECT_EQ(target, result);
  std::vector<std::string> expected = whileFiling;
  expected.push_back("libx.so");
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(expected, entries(checksumDir));

  // The running filer finishes undisturbed.
  const char go = 'g';
  ASSERT_EQ(1, ::write(toChild[1], &go, 1));
  int status = 0;
  ASSERT_EQ(child, ::waitpid(child, &status, 0));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(std::vector<std::string>{"libx.so"}, entries(checksumDir));
  EXPECT_EQ("abc", vell_test::readAll(target));
  for (int fd : {toChild[0], toChild[1], fromChild[0], fromChild[1]})
    ::close(fd);
}

TEST(ArchiveStaleTemporariesTest, ADayOldCopyIsStaleWhateverItsProcessId) {
  vell_test::TempDir dir;
  // Named after this very process, which runs: only its age makes it stale.
  const std::string old = ".libx.so.tmp-" + std::to_string(::getpid()) + "-00000000000000aa";
  const std::string fresh = ".libx.so.tmp-" + std::to_string(::getpid()) + "-00000000000000bb";
  const std::string oldPath = dir.write("d/" + old, "a");
  dir.write("d/" + fresh, "b");
  dir.write("d/.libx.so.tmp-notanumber", "c");
  dir.write("d/libx.so.tmp-1-0123456789abcdef", "d"); // not hidden: not ours
  const time_t twoDaysAgo = ::time(nullptr) - 2 * 24 * 60 * 60;
  const utimbuf times{twoDaysAgo, twoDaysAgo};
  ASSERT_EQ(0, ::utime(oldPath.c_str(), &times));
  EXPECT_EQ(1u, utils::removeStaleTemporaries(dir.sub("d").c_str()));
  EXPECT_EQ((std::vector<std::string>{fresh, ".libx.so.tmp-notanumber", "libx.so.tmp-1-0123456789abcdef"}),
            entries(dir.sub("d")));
  EXPECT_EQ(0u, utils::removeStaleTemporaries(dir.sub("d").c_str()));
  EXPECT_EQ(0u, utils::removeStaleTemporaries(dir.sub("missing").c_str()));
  EXPECT_EQ(0u, utils::removeStaleTemporaries(nullptr));
  EXPECT_EQ(0u, utils::removeStaleTemporaries(""));
}

TEST(ArchiveStaleTemporariesTest, TemporaryNamesCarryTheProcessId) {
  const std::string path = utils::temporaryPathFor("/a/b/libx.so");
  const std::string prefix = "/a/b/.libx.so.tmp-" + std::to_string(::getpid()) + "-";
  ASSERT_EQ(prefix, path.substr(0, prefix.size()));
  EXPECT_EQ(prefix.size() + 16, path.size());
  long pid = 0;
  EXPECT_TRUE(utils::isTemporaryName(path.substr(5), pid));
  EXPECT_EQ(::getpid(), pid);
  EXPECT_NE(path, utils::temporaryPathFor("/a/b/libx.so"));
  EXPECT_EQ("./.vmlinux.tmp-", utils::temporaryPathFor("vmlinux").substr(0, 15));
  EXPECT_FALSE(utils::isTemporaryName(".libx.so.tmp-12-short", pid));
  EXPECT_FALSE(utils::isTemporaryName(".libx.so.tmp--0123456789abcdef", pid));
  EXPECT_FALSE(utils::isTemporaryName(".libx.so.0123abcd.tmp", pid));
}

} // namespace
