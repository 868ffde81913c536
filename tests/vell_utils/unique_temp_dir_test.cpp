// Private temporary directories under the product's temporary directory.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell/platform.h"

using namespace VELL_2_13;

namespace {

// Watches the mkdir calls of the process for paths below one directory: counts
// them and lets a given number of them fail as if the name were taken.
struct MkdirProbe {
  std::mutex mutex;
  std::string prefix; // empty: not watching
  int failures = 0;   // calls still to fail
  std::vector<std::string> paths;
};

MkdirProbe &mkdirProbe() {
  static MkdirProbe probe;
  return probe;
}

// Watches mkdir below base for one test.
class MkdirWatch {
public:
  MkdirWatch(const std::string &base, int failures) {
    std::lock_guard<std::mutex> guard(mkdirProbe().mutex);
    mkdirProbe().prefix = base + "/";
    mkdirProbe().failures = failures;
    mkdirProbe().paths.clear();
  }
  ~MkdirWatch() {
    std::lock_guard<std::mutex> guard(mkdirProbe().mutex);
    mkdirProbe().prefix.clear();
    mkdirProbe().failures = 0;
  }
  std::vector<std::string> paths() const {
    std::lock_guard<std::mutex> guard(mkdirProbe().mutex);
    return mkdirProbe().paths;
  }
};

} // namespace

// Replaces the C library's mkdir for the whole test program (the library
// resolves it here) and forwards every call that is not being watched.
extern "C" int mkdir(const char *path, mode_t mode) noexcept {
  using RealMkdir = int (*)(const char *, mode_t);
  static const RealMkdir realMkdir = reinterpret_cast<RealMkdir>(::dlsym(RTLD_NEXT, "mkdir"));
  {
    MkdirProbe &probe = mkdirProbe();
    std::lock_guard<std::mutex> guard(probe.mutex);
    if (!probe.prefix.empty() && std::strncmp(path, probe.prefix.c_str(), probe.prefix.size()) == 0) {
      probe.paths.push_back(path);
      if (probe.failures > 0) {
        --probe.failures;
        errno = EEXIST;
        return -1;
      }
    }
  }
  return realMkdir(path, mode);
}

namespace {

constexpr int kError = 40000;

// Points the product's temporary directory somewhere for one test.
class TempDirectoryScope {
public:
  explicit TempDirectoryScope(const std::string &path) { platform::setTempDirectory(path); }
  ~TempDirectoryScope() { platform::setTempDirectory(""); }
};

TEST(CreateUniqueTempDirTest, CreatesAPrivateDirectoryWithTheNamePattern) {
  vell_test::TempDir base;
  TempDirectoryScope scope(base.path());
  std::string result;
  ASSERT_EQ(0, utils::createUniqueTempDir(result));
  EXPECT_TRUE(std::regex_match(
      result, std::regex(base.path() + "/vell-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}")))
      << result;
  struct stat status;
  ASSERT_EQ(0, ::stat(result.c_str(), &status));
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(0700u, status.st_mode & 07777);
}

TEST(CreateUniqueTempDirTest, EveryCallMakesANewDirectory) {
  vell_test::TempDir base;
  TempDirectoryScope scope(base.path());
  std::set<std::string> made;
  for (int i = 0; i < 20; ++i) {
    std::string result;
    ASSERT_EQ(0, utils::createUniqueTempDir(result));
    made.insert(result);
  }
  EXPECT_EQ(20u, made.size());
}

TEST(CreateUniqueTempDirTest, BaseIsCanonicalised) {
  vell_test::TempDir base;
  TempDirectoryScope scope(base.path() + "/./sub/..");
  std::string result;
  ASSERT_EQ(0, utils::createUniqueTempDir(result));
  EXPECT_EQ(0u, result.find(base.path() + "/vell-")) << result;
}

TEST(CreateUniqueTempDirTest, FailureAfterThirtyAttemptsLogsOneLine) {
  vell_test::TempDir base;
  TempDirectoryScope scope(base.sub("does/not/exist"));
  vell_test::LogCapture log;
  std::string result = "untouched";
  EXPECT_EQ(4, utils::createUniqueTempDir(result));
  EXPECT_EQ("untouched", result);
  std::vector<std::string> errors = log.texts(kError);
  ASSERT_EQ(1u, errors.size());
  EXPECT_TRUE(
      std::regex_match(errors[0], std::regex("Cannot create temp directory, at file: src/vell_utils:[0-9]+")))
      << errors[0];
}

TEST(CreateUniqueTempDirTest, UsesTheDefaultTemporaryDirectoryWithoutOverride) {
  platform::setTempDirectory("");
  std::string result;
  ASSERT_EQ(0, utils::createUniqueTempDir(result));
  EXPECT_EQ(0u, result.find(platform::IProductLocations::get().tempDirectory() + "/vell-")) << result;
  ::rmdir(result.c_str());
}

TEST(CreateUniqueTempDirTest, ASuccessfulFirstAttemptCreatesOneDirectory) {
  vell_test::TempDir base;
  TempDirectoryScope scope(base.path());
  MkdirWatch watch(base.path(), 0);
  std::string result;
  ASSERT_EQ(0, utils::createUniqueTempDir(result));
  EXPECT_EQ(std::vector<std::string>{result}, watch.paths());
}

TEST(CreateUniqueTempDirTest, TakenNamesAreRetriedWithFreshNamesUpToTheThirtiethAttempt) {
  vell_test::TempDir base;
  TempDirectoryScope scope(base.path());
  MkdirWatch watch(base.path(), 29);
  vell_test::LogCapture log;
  std::string result;
  ASSERT_EQ(0, utils::createUniqueTempDir(result));
  const std::vector<std::string> tried = watch.paths();
  ASSERT_EQ(30u, tried.size());
  EXPECT_EQ(result, tried.back());
  EXPECT_EQ(30u, std::set<std::string>(tried.begin(), tried.end()).size());
  struct stat status;
  ASSERT_EQ(0, ::stat(result.c_str(), &status));
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_TRUE(log.texts(kError).empty());
}

TEST(CreateUniqueTempDirTest, GivesUpAfterExactlyThirtyAttempts) {
  vell_test::TempDir base;
  TempDirectoryScope scope(base.path());
  MkdirWatch watch(base.path(), 1000);
  vell_test::LogCapture log;
  std::string result = "untouched";
  EXPECT_EQ(4, utils::createUniqueTempDir(result));
  EXPECT_EQ("untouched", result);
  const std::vector<std::string> tried = watch.paths();
  ASSERT_EQ(30u, tried.size());
  const std::regex name(base.path() + "/vell-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}");
  for (const std::string &path : tried)
    EXPECT_TRUE(std::regex_match(path, name)) << path;
  EXPECT_EQ(30u, std::set<std::string>(tried.begin(), tried.end()).size());
  EXPECT_EQ(1u, log.texts(kError).size());
}

} // namespace
