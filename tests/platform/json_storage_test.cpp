// The JSON file property storage: exact types, atomic replacement, damaged files, cross-process locking.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/platform.h"

namespace {

using namespace VELL_2_13::platform;
namespace fs = std::filesystem;

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

// Names in directory that contain part.
std::vector<std::string> entriesContaining(const std::string &directory, const std::string &part) {
  std::vector<std::string> result;
  for (const auto &entry : fs::directory_iterator(directory)) {
    const std::string name = entry.path().filename().string();
    if (name.find(part) != std::string::npos)
      result.push_back(name);
  }
  return result;
}

PropertyBag sampleBag() {
  PropertyBag bag;
  bag.setValue("u8", Variant(uint8_t(255)));
  bag.setValue("u8zero", Variant(uint8_t(0)));
  bag.setValue("flag", Variant(true));
  bag.setValue("off", Variant(false));
  bag.setValue("text", Variant("/opt/dir with blanks/\xc3\xa9"));
  bag.setValue("empty", Variant(""));
  bag.setValue("bytes", Variant(std::string("/opt/\xff\xfe\x00x", 9)));
  bag.setValue("i64min", Variant(std::numeric_limits<int64_t>::min()));
  bag.setValue("i64one", Variant(int64_t(1)));
  bag.setValue("u64max", Variant(std::numeric_limits<uint64_t>::max()));
  bag.setValue("u64one", Variant(uint64_t(1)));
  bag.setValue("pi", Variant(3.141592653589793));
  bag.setValue("tiny", Variant(5e-324));
  bag.setValue("negzero", Variant(-0.0));
  bag.setValue("inf", Variant(std::numeric_limits<double>::infinity()));
  bag.setValue("none", Variant());
  PropertyBag &child = bag.addChild("child");
  child.setValue("n", Variant(uint8_t(1)));
  child.addChild("grandchild").setValue("m", Variant("deep"));
  bag.addChild("child").setValue("n", Variant(uint8_t(2)));
  bag.addChild(std::string("\x80odd", 4));
  return bag;
}

TEST(JsonFilePropertyStorage, MissingFileReadsEmptyWithoutLogOrFile) {
  vell_test::TempDir dir;
  vell_test::LogCapture capture;
  auto storage = createJsonFilePropertyStorage(dir.sub("props.json"));
  EXPECT_TRUE(storage->read("searchDirs").empty());
  EXPECT_TRUE(capture.texts().empty());
  EXPECT_FALSE(fs::exists(dir.sub("props.json")));
}

TEST(JsonFilePropertyStorage, EveryValueKeepsItsExactTypeThroughSaveAndLoad) {
  vell_test::TempDir dir;
  const PropertyBag bag = sampleBag();
  ASSERT_TRUE(createJsonFilePropertyStorage(dir.sub("props.json"))->store("bag", bag));
  const PropertyBag loaded = createJsonFilePropertyStorage(dir.sub("props.json"))->read("bag");
  EXPECT_EQ(loaded, bag);
  EXPECT_EQ(loaded.findValue("u8")->type(), Variant::Type::UInt8);
  EXPECT_EQ(loaded.findValue("i64one")->type(), Variant::Type::Int64);
  EXPECT_EQ(loaded.findValue("u64one")->type(), Variant::Type::UInt64);
  EXPECT_EQ(loaded.findValue("none")->type(), Variant::Type::None);
  EXPECT_TRUE(std::signbit(loaded.findValue("negzero")->getDouble()));
  EXPECT_EQ(loaded.findValue("bytes")->getText(), std::string("/opt/\xff\xfe\x00x", 9));
}

TEST(JsonFilePropertyStorage, NotANumberSurvives) {
  vell_test::TempDir dir;
  PropertyBag bag;
  bag.setValue("nan", Variant(std::numeric_limits<double>::quiet_NaN()));
  bag.setValue("minf", Variant(-std::numeric_limits<double>::infinity()));
  createJsonFilePropertyStorage(dir.sub("p.json"))->store("b", bag);
  const PropertyBag loaded = createJsonFilePropertyStorage(dir.sub("p.json"))->read("b");
  EXPECT_TRUE(std::isnan(loaded.findValue("nan")->getDouble()));
  EXPECT_EQ(loaded.findValue("minf")->getDouble(), -std::numeric_limits<double>::infinity());
}

TEST(JsonFilePropertyStorage, StoreReplacesOneNameAndKeepsTheOthers) {
  vell_test::TempDir dir;
  auto storage = createJsonFilePropertyStorage(dir.sub("props.json"));
  PropertyBag a;
  a.setValue("v", Variant("a"));
  PropertyBag b;
  b.setValue("v", Variant("b"));
  PropertyBag a2;
  a2.setValue("v", Variant("a2"));
  storage->store("a", a);
  storage->store("b", b);
  storage->store("a", a2);
  auto other = createJsonFilePropertyStorage(dir.sub("props.json"));
  EXPECT_EQ(other->read("a"), a2);
  EXPECT_EQ(other->read("b"), b);
}

TEST(JsonFilePropertyStorage, WritesLeaveNoTemporaryAndKeepPermissions) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("props.json");
  auto storage = createJsonFilePropertyStorage(path);
  storage->store("a", sampleBag());
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  storage->store("b", sampleBag());
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  EXPECT_TRUE(entriesContaining(dir.path(), ".tmp-").empty());
  EXPECT_EQ(entriesContaining(dir.path(), ".lock"), std::vector<std::string>{"props.json.lock"});
}

TEST(JsonFilePropertyStorage, CreatesTheDirectoryOfTheFile) {
  vell_test::TempDir dir;
  auto storage = createJsonFilePropertyStorage(dir.sub("a/b/props.json"));
  ASSERT_TRUE(storage->store("x", sampleBag()));
  EXPECT_EQ(createJsonFilePropertyStorage(dir.sub("a/b/props.json"))->read("x"), sampleBag());
}

TEST(JsonFilePropertyStorage, CorruptFileIsLoggedAndMovedAsideBeforeTheNextWrite) {
  vell_test::TempDir dir;
  const std::string path =
      dir.write("props.json", "{\"format\": \"vell-property-storage\", \"bags\": [ trunc");
  auto storage = createJsonFilePropertyStorage(path);
  vell_test::LogCapture capture;
  EXPECT_TRUE(storage->read("a").empty());
  ASSERT_EQ(capture.texts(40000).size(), 1u);
  EXPECT_EQ(capture.texts(40000)[0].rfind("Property file " + path + " is corrupt: ", 0), 0u);
  // Reading does not touch the file.
  EXPECT_TRUE(entriesContaining(dir.path(), ".corrupt-").empty());

  capture.clear();
  PropertyBag bag;
  bag.setValue("v", Variant(true));
  ASSERT_TRUE(storage->store("a", bag));
  const auto aside = entriesContaining(dir.path(), ".corrupt-");
  ASSERT_EQ(aside.size(), 1u);
  EXPECT_EQ(aside[0].rfind("props.json.corrupt-", 0), 0u);
  EXPECT_EQ(readFile(dir.sub(aside[0])), "{\"format\": \"vell-property-storage\", \"bags\": [ trunc");
  EXPECT_TRUE(capture.contains("Property file " + path + " is damaged, moved aside to " + dir.sub(aside[0])));
  EXPECT_EQ(createJsonFilePropertyStorage(path)->read("a"), bag);
}

TEST(JsonFilePropertyStorage, ValidJsonOfAnotherShapeCountsAsCorrupt) {
  vell_test::TempDir dir;
  const std::string path = dir.write("props.json", "[1, 2, 3]");
  auto storage = createJsonFilePropertyStorage(path);
  vell_test::LogCapture capture;
  EXPECT_TRUE(storage->read("a").empty());
  EXPECT_EQ(capture.texts(40000).size(), 1u);
  storage->store("a", sampleBag());
  const auto aside = entriesContaining(dir.path(), ".corrupt-");
  ASSERT_EQ(aside.size(), 1u);
  EXPECT_EQ(readFile(dir.sub(aside[0])), "[1, 2, 3]");
}

TEST(JsonFilePropertyStorage, SecondDamagedFileGetsItsOwnAsideName) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("props.json");
  auto storage = createJsonFilePropertyStorage(path);
  dir.write("props.json", "first garbage");
  storage->store("a", sampleBag());
  dir.write("props.json", "second garbage");
  storage->store("a", sampleBag());
  auto aside = entriesContaining(dir.path(), ".corrupt-");
  ASSERT_EQ(aside.size(), 2u);
  std::vector<std::string> contents{readFile(dir.sub(aside[0])), readFile(dir.sub(aside[1]))};
  std::sort(contents.begin(), contents.end());
  EXPECT_EQ(contents, (std::vector<std::string>{"first garbage", "second garbage"}));
}

TEST(JsonFilePropertyStorage, UnreadableFileIsNeverOverwritten) {
  vell_test::TempDir dir;
  const std::string path = dir.write("props.json", "secret");
  ASSERT_EQ(::chmod(path.c_str(), 0), 0);
  ASSERT_EQ(::chmod(dir.path().c_str(), 0777), 0);
  vell_test::openForOthers(dir.path());
  vell_test::LogCapture capture;
  {
    vell_test::AsUnprivilegedUser nobody;
    auto storage = createJsonFilePropertyStorage(path);
    EXPECT_TRUE(storage->read("a").empty());
    EXPECT_TRUE(capture.containsPrefix("Property file " + path + " cannot be read: Cannot open " + path));
    EXPECT_TRUE(storage->store("a", sampleBag()));
    EXPECT_EQ(storage->read("a"), sampleBag());
  }
  const auto aside = entriesContaining(dir.path(), ".corrupt-");
  ASSERT_EQ(aside.size(), 1u);
  ::chmod(dir.sub(aside[0]).c_str(), 0600);
  EXPECT_EQ(readFile(dir.sub(aside[0])), "secret");
}

TEST(JsonFilePropertyStorage, DirectoryInPlaceOfTheFileIsMovedAside) {
  vell_test::TempDir dir;
  dir.write("props.json/inner", "keep");
  auto storage = createJsonFilePropertyStorage(dir.sub("props.json"));
  vell_test::LogCapture capture;
  EXPECT_TRUE(storage->read("a").empty());
  EXPECT_EQ(capture.texts(40000).size(), 1u);
  EXPECT_TRUE(storage->store("a", sampleBag()));
  const auto aside = entriesContaining(dir.path(), ".corrupt-");
  ASSERT_EQ(aside.size(), 1u);
  EXPECT_EQ(readFile(dir.sub(aside[0] + "/inner")), "keep");
}

TEST(JsonFilePropertyStorage, FailedWriteReturnsFalseAndKeepsTheOldFile) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("props.json");
  createJsonFilePropertyStorage(path)->store("a", sampleBag());
  const std::string before = readFile(path);
  ASSERT_EQ(::chmod(dir.sub("props.json.lock").c_str(), 0666), 0);
  ASSERT_EQ(::chmod(dir.path().c_str(), 0555), 0);
  vell_test::openForOthers(dir.path());
  vell_test::LogCapture capture;
  {
    vell_test::AsUnprivilegedUser nobody;
    // The lock file may be opened, but no temporary file can be created in the directory.
    EXPECT_FALSE(createJsonFilePropertyStorage(path)->store("b", PropertyBag()));
  }
  EXPECT_TRUE(
      capture.containsPrefix("Cannot store property bag b in " + path + ": Cannot create " + path + ".tmp-"));
  ::chmod(dir.path().c_str(), 0755);
  EXPECT_EQ(readFile(path), before);
}

TEST(JsonFilePropertyStorage, OrphanTemporaryOfADeadWriterIsRemovedAtTheNextWrite) {
  vell_test::TempDir dir;
  dir.write("props.json.tmp-99999-0", "half written");
  createJsonFilePropertyStorage(dir.sub("props.json"))->store("a", sampleBag());
  EXPECT_TRUE(entriesContaining(dir.path(), ".tmp-").empty());
}

TEST(JsonFilePropertyStorage, UpdateLockIsReentrantAndAllowsStoring) {
  vell_test::TempDir dir;
  auto storage = createJsonFilePropertyStorage(dir.sub("props.json"));
  auto outer = storage->lockForUpdate();
  auto inner = storage->lockForUpdate();
  // Another storage object of the same file on the same thread shares the lock.
  EXPECT_TRUE(createJsonFilePropertyStorage(dir.sub("props.json"))->store("a", sampleBag()));
  EXPECT_TRUE(storage->store("b", sampleBag()));
  inner.reset();
  outer.reset();
  EXPECT_EQ(storage->read("a"), sampleBag());
}

// Waits for a child process and returns its exit code (-1 if it did not exit normally).
int waitForChild(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(JsonFilePropertyStorage, UpdateLockKeepsOtherProcessesOut) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("props.json");
  const std::string marker = dir.sub("child-got-lock");
  auto storage = createJsonFilePropertyStorage(path);
  auto lock = storage->lockForUpdate();
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    auto childStorage = createJsonFilePropertyStorage(path);
    auto childLock = childStorage->lockForUpdate();
    std::ofstream(marker) << "x";
    ::_exit(0);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  EXPECT_FALSE(fs::exists(marker));
  lock.reset();
  EXPECT_EQ(waitForChild(child), 0);
  EXPECT_TRUE(fs::exists(marker));
}

TEST(JsonFilePropertyStorage, TwoProcessesUpdatingAtOnceLoseNothing) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("props.json");
  const int perProcess = 15;
  std::vector<pid_t> children;
  for (int process = 0; process < 2; ++process) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      auto storage = createJsonFilePropertyStorage(path);
      for (int i = 0; i < perProcess; ++i) {
        auto lock = storage->lockForUpdate();
        PropertyBag list = storage->read("list");
        list.addChild("item").setValue("id", Variant(std::to_string(process) + "-" + std::to_string(i)));
        if (!storage->store("list", list))
          ::_exit(1);
      }
      ::_exit(0);
    }
    children.push_back(child);
  }
  for (pid_t child : children)
    EXPECT_EQ(waitForChild(child), 0);
  const PropertyBag list = createJsonFilePropertyStorage(path)->read("list");
  std::set<std::string> ids;
  for (const PropertyBag *item : list.children("item"))
    ids.insert(item->findValue("id")->getText());
  EXPECT_EQ(ids.size(), size_t(2 * perProcess));
  EXPECT_TRUE(ids.count("0-14") && ids.count("1-14"));
}

TEST(JsonFilePropertyStorage, KilledWriterLeavesTheOldContentsIntact) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("props.json");
  PropertyBag original;
  original.addChild("searchCategory").setValue("category", Variant(uint8_t(2)));
  ASSERT_TRUE(createJsonFilePropertyStorage(path)->store("searchDirs", original));

  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    PropertyBag huge;
    for (int i = 0; i < 40000; ++i)
      huge.addChild("entry").setValue("name",
                                      Variant("/a/rather/long/directory/name/number/" + std::to_string(i)));
    auto storage = createJsonFilePropertyStorage(path);
    for (;;)
      storage->store("huge", huge);
  }
  // Kill the writer while its temporary file exists, i.e. in the middle of a write.
  bool sawTemporary = false;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(180);
  while (!sawTemporary && std::chrono::steady_clock::now() < deadline)
    sawTemporary = !entriesContaining(dir.path(), ".tmp-").empty();
  ::kill(child, SIGKILL);
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(sawTemporary);
  EXPECT_TRUE(WIFSIGNALED(status));

  vell_test::LogCapture capture;
  auto storage = createJsonFilePropertyStorage(path);
  EXPECT_EQ(storage->read("searchDirs"), original);
  EXPECT_TRUE(capture.texts(40000).empty());
  // The next writer removes what the killed one left behind.
  ASSERT_TRUE(storage->store("other", PropertyBag()));
  EXPECT_TRUE(entriesContaining(dir.path(), ".tmp-").empty());
  EXPECT_EQ(storage->read("searchDirs"), original);
}

} // namespace
