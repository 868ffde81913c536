// The decorator's directory and regular-file checks, which only fail when a
// candidate changes between its status queries: a stand-in for the C library's
// status query makes one file change type after a given number of queries.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <mutex>
#include <string>

#include "support/temp_dir.h"
#include "vell/platform.h"
#include "vell/validation.h"
#include "vell_validation/validation_fakes.h"
#include "vell_validation/validator.h"
#include "vell_validation/validator_callback_decorator.h"

using namespace VELL_2_13;
using vell_test::RecordingCallback;

namespace {

// The one file whose reported type changes, and when.
struct TypeChange {
  std::mutex mutex;
  std::string path;   // empty: every query is answered truthfully
  int truthful = 0;   // queries of path answered truthfully before the change
  mode_t newType = 0; // the type reported from then on
  int queries = 0;
};

TypeChange &typeChange() {
  static TypeChange change;
  return change;
}

// Makes path appear to turn into newType after `truthful` status queries.
class ChangingFile {
public:
  ChangingFile(const std::string &path, int truthful, mode_t newType) {
    std::lock_guard<std::mutex> guard(typeChange().mutex);
    typeChange().path = path;
    typeChange().truthful = truthful;
    typeChange().newType = newType;
    typeChange().queries = 0;
  }
  ~ChangingFile() {
    std::lock_guard<std::mutex> guard(typeChange().mutex);
    typeChange().path.clear();
  }
  int queries() const {
    std::lock_guard<std::mutex> guard(typeChange().mutex);
    return typeChange().queries;
  }
};

} // namespace

// Replaces the C library's status query for the whole test program (the file
// system library the decorator uses calls this one); every path but the
// watched one is passed through unchanged.
extern "C" int stat64(const char *path, struct stat64 *buffer) noexcept {
  using RealStat = int (*)(const char *, struct stat64 *);
  static const RealStat realStat = reinterpret_cast<RealStat>(::dlsym(RTLD_NEXT, "stat64"));
  const int result = realStat(path, buffer);
  if (result != 0)
    return result;
  TypeChange &change = typeChange();
  std::lock_guard<std::mutex> guard(change.mutex);
  if (change.path.empty() || change.path != path)
    return result;
  if (++change.queries > change.truthful)
    buffer->st_mode = (buffer->st_mode & ~S_IFMT) | change.newType;
  return result;
}

namespace {

class DecoratorRaceTest : public ::testing::Test {
protected:
  void SetUp() override { platform::setCatalogDirectory(""); }

  // Validates a regular file that appears to turn into newType after
  // `truthful` status queries; records how many queries were made.
  int validateChangingFile(int truthful, mode_t newType) {
    const std::string file = dir.write("a.so", "binary");
    ValidatorCallbackDecorator decorator(&callback);
    ChangingFile change(file, truthful, newType);
    const int verdict = decorator.validate(file.c_str(), errorInfo);
    queries = change.queries();
    return verdict;
  }

  vell_test::TempDir dir;
  RecordingCallback callback{vvAccept};
  Validator::ErrorInfoContainer errorInfo;
  int queries = 0;
};

TEST_F(DecoratorRaceTest, FileThatBecomesADirectoryIsRejectedWithoutSeverityOrMessage) {
  // Present as a regular file for the first two queries, a directory after.
  EXPECT_EQ(vvReject, validateChangingFile(2, S_IFDIR));
  EXPECT_EQ(3, queries);
  EXPECT_EQ(severity_t(2), errorInfo.severity());
  EXPECT_EQ("", errorInfo.message());
  EXPECT_EQ(0, callback.calls.load());
}

TEST_F(DecoratorRaceTest, FileThatStopsBeingRegularIsRejectedAsNotRegular) {
  // Regular for the presence and directory checks, a pipe for the third check.
  EXPECT_EQ(vvReject, validateChangingFile(3, S_IFIFO));
  EXPECT_EQ(4, queries);
  EXPECT_EQ(severity_t(0), errorInfo.severity());
  EXPECT_EQ("%FileIsNotRegular", errorInfo.message());
  EXPECT_EQ(0, callback.calls.load());
}

TEST_F(DecoratorRaceTest, UnchangedFileIsQueriedFourTimesAndReachesTheUserCallback) {
  // The change would come too late to matter: the stand-in is in effect and
  // the checks ask exactly four times.
  EXPECT_EQ(vvAccept, validateChangingFile(4, S_IFDIR));
  EXPECT_EQ(4, queries);
  EXPECT_EQ(1, callback.calls.load());
}

} // namespace
