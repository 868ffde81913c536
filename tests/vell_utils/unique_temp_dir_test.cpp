// Private temporary directories under the product's temporary directory.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <regex>
#include <set>
#include <string>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/file_search.h"
#include "vell/platform.h"

using namespace VELL_2_13;

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

} // namespace
