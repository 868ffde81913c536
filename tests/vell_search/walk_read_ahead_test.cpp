// Tests of the read-ahead itself: the listings it hands out, and how many
// helpers it starts for listings served from memory or read from the disk.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "vell_search/directory_reader.h"
#include "vell_search/read_ahead_threads.h"
#include "vell_search/walk_read_ahead.h"

using namespace VELL_2_13;
using vell_test::readAheadThreads;
using vell_test::readAheadThreadsAfterWalk;
using vell_test::TempDir;

namespace {

// A counter that says every listing read from the disk.
std::atomic<uint64_t> g_reads{0};
uint64_t everyListingReads() { return g_reads.fetch_add(1) + 1; }

// A counter that says no listing did.
uint64_t noListingReads() { return 7; }

// Ten directories of ten subdirectories each, with a file in every leaf.
void buildTree(const TempDir &dir) {
  for (int a = 0; a < 10; ++a)
    for (int b = 0; b < 10; ++b)
      dir.write("root/d" + std::to_string(a) + "/e" + std::to_string(b) + "/f.so");
}

ino_t inodeOf(const std::string &path) {
  struct stat st;
  EXPECT_EQ(0, ::stat(path.c_str(), &st)) << path;
  return st.st_ino;
}

// Walks the tree depth first as a recursive search does, taking every
// listing from readAhead and comparing it with a listing made on the spot.
// Returns the directories walked.
size_t walkComparing(WalkReadAhead &readAhead, const std::string &dir) {
  std::vector<std::string> taken;
  int error = -1;
  EXPECT_TRUE(readAhead.take(dir, inodeOf(dir), taken, error)) << dir;
  EXPECT_EQ(0, error);
  std::vector<std::string> expected;
  int expectedError = -1;
  EXPECT_TRUE(walker::listSubdirectories(dir, expected, nullptr, expectedError));
  EXPECT_EQ(expected, taken) << dir;
  size_t walked = 1;
  for (const std::string &subdirectory : taken)
    walked += walkComparing(readAhead, subdirectory);
  return walked;
}

// The number in field of /proc/thread-self/io.
uint64_t threadIoField(const std::string &field) {
  std::ifstream io("/proc/thread-self/io");
  std::string name;
  uint64_t value = 0;
  while (io >> name >> value)
    if (name == field + ":")
      return value;
  return 0;
}

TEST(WalkReadAheadTest, ListingsFromMemoryKeepTheFirstTwoHelpers) {
  TempDir dir;
  buildTree(dir);
  WalkReadAhead readAhead(8, noListingReads);
  EXPECT_EQ(111u, walkComparing(readAhead, dir.sub("root")));
  EXPECT_EQ(WalkReadAhead::kFirstHelpers, readAhead.helpersStarted());
}

TEST(WalkReadAheadTest, ListingsFromTheDiskAddHelpersUpToTheMost) {
  TempDir dir;
  buildTree(dir);
  WalkReadAhead readAhead(8, everyListingReads);
  EXPECT_EQ(111u, walkComparing(readAhead, dir.sub("root")));
  EXPECT_EQ(8u, readAhead.helpersStarted());
}

TEST(WalkReadAheadTest, NeverMoreHelpersThanAskedFor) {
  TempDir dir;
  buildTree(dir);
  for (unsigned int threads : {1u, 2u, 3u}) {
    SCOPED_TRACE(threads);
    WalkReadAhead readAhead(threads, everyListingReads);
    EXPECT_EQ(111u, walkComparing(readAhead, dir.sub("root")));
    EXPECT_EQ(threads, readAhead.helpersStarted());
  }
  WalkReadAhead none(0, everyListingReads);
  EXPECT_EQ(111u, walkComparing(none, dir.sub("root")));
  EXPECT_EQ(0u, none.helpersStarted());
}

TEST(WalkReadAheadTest, AWalkEndedEarlyJoinsEveryHelperItAdded) {
  TempDir dir;
  buildTree(dir);
  for (int stop = 1; stop <= 2; ++stop) {
    SCOPED_TRACE(stop);
    {
      WalkReadAhead readAhead(8, everyListingReads);
      std::vector<std::string> subdirectories;
      int error = 0;
      std::string walked = dir.sub("root");
      // Down to depth stop, then the read-ahead is dropped mid-walk.
      for (int depth = 0; depth < stop; ++depth) {
        subdirectories.clear();
        ASSERT_TRUE(readAhead.take(walked, inodeOf(walked), subdirectories, error));
        ASSERT_FALSE(subdirectories.empty());
        walked = subdirectories.front();
      }
      EXPECT_GE(readAhead.helpersStarted(), WalkReadAhead::kFirstHelpers);
      EXPECT_GE(readAheadThreads(), 1u);
    }
    EXPECT_EQ(0u, readAheadThreadsAfterWalk());
  }
}

TEST(WalkReadAheadTest, TheDiskCounterIsTheKernelsAccountOfThisThread) {
  if (::access("/proc/thread-self/io", R_OK) != 0)
    GTEST_SKIP() << "the kernel keeps no account of I/O per thread";
  TempDir dir;
  const std::string file = dir.write("data", std::string(1 << 20, 'x'));
  // Written back and dropped from the page cache, so that reading it again
  // goes to the disk where the file system has one.
  {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ::fdatasync(fd);
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    char buffer[65536];
    while (::read(fd, buffer, sizeof buffer) > 0) {
    }
    ::close(fd);
  }
  // The counter is the kernel's count of 512-byte blocks read by this
  // thread: the same account /proc reports in bytes.
  const uint64_t bytes = threadIoField("read_bytes");
  const uint64_t blocks = WalkReadAhead::threadBlockReads();
  if (bytes == 0)
    GTEST_SKIP() << "the temporary directory's file system read nothing from a disk";
  EXPECT_EQ(bytes / 512, blocks);
}

} // namespace
