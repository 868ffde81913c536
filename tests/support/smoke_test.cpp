// Checks the test helpers themselves.
#include <filesystem>

#include <gtest/gtest.h>

#include "platform/log.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

TEST(TestSupport, CapturesExactLinesOfTheVellLogger) {
  vell_test::LogCapture capture;
  VELL_LOG_INFO("Searching bin file:"
                << "libx.so");
  VELL_LOG_ERROR_AT("src/vell_utils", "Cannot create temp directory");
  ASSERT_EQ(capture.texts().size(), 2u);
  EXPECT_EQ(capture.texts()[0], "Searching bin file:libx.so");
  EXPECT_TRUE(capture.containsPrefix("Cannot create temp directory, at file: src/vell_utils:"));
}

TEST(TestSupport, TempDirIsRemovedWithItsContents) {
  std::string path;
  {
    vell_test::TempDir dir;
    path = dir.path();
    dir.write("a/b/c.txt", "hello");
    EXPECT_TRUE(std::filesystem::exists(dir.sub("a/b/c.txt")));
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

} // namespace
