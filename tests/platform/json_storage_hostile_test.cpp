// The JSON property storage against hostile files: deep nesting, symbolic links, temporaries of killed
// writers.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "platform/property_json_codec.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vell/platform.h"

namespace {

using namespace VELL_2_13::platform;
namespace fs = std::filesystem;

bool anyEntryContains(const std::string &directory, const std::string &part) {
  for (const auto &entry : fs::directory_iterator(directory))
    if (entry.path().filename().string().find(part) != std::string::npos)
      return true;
  return false;
}

// A well-formed storage file whose bag "deep" nests levels child bags.
std::string nestedDocument(int levels) {
  std::string text = R"({"format":"vell-property-storage","version":1,"bags":[{"name":"deep","bag":)";
  text.reserve(text.size() + size_t(levels) * 48 + 64);
  for (int i = 0; i < levels; ++i)
    text += R"({"values":[],"children":[{"name":"c","bag":)";
  text += R"({"values":[],"children":[]})";
  for (int i = 0; i < levels; ++i)
    text += "}]}";
  text += "}]}";
  return text;
}

PropertyBag nestedBag(int levels) {
  PropertyBag root;
  PropertyBag *bag = &root;
  for (int i = 0; i < levels; ++i)
    bag = &bag->addChild("c");
  bag->setValue("leaf", Variant(true));
  return root;
}

TEST(JsonStorageHostileTest, DeeplyNestedFileIsDamagedAndMovedAsideNotACrash) {
  vell_test::TempDir dir;
  const std::string path = dir.write("props.json", nestedDocument(100000));
  vell_test::LogCapture capture;
  auto storage = createJsonFilePropertyStorage(path);
  EXPECT_TRUE(storage->read("deep").empty());
  EXPECT_TRUE(capture.containsPrefix("Property file " + path + " is corrupt: JSON nested deeper than"));
  // Moved aside by the next write, like any other damaged file.
  ASSERT_TRUE(storage->store("other", nestedBag(2)));
  EXPECT_TRUE(anyEntryContains(dir.path(), "props.json.corrupt-"));
  EXPECT_EQ(storage->read("other"), nestedBag(2));
}

TEST(JsonStorageHostileTest, BagConversionStopsAtItsOwnDepthLimit) {
  // JSON built in memory never passes the parser's limit; the conversion has its own.
  nlohmann::json json = {{"values", nlohmann::json::array()}, {"children", nlohmann::json::array()}};
  for (int i = 0; i < 1000; ++i) {
    nlohmann::json parent = {{"values", nlohmann::json::array()}, {"children", nlohmann::json::array()}};
    parent["children"].push_back({{"name", "c"}, {"bag", std::move(json)}});
    json = std::move(parent);
  }
  EXPECT_THROW(bagFromJson(json), std::runtime_error);
}

TEST(JsonStorageHostileTest, RealisticNestingStillLoads) {
  vell_test::TempDir dir;
  auto storage = createJsonFilePropertyStorage(dir.sub("props.json"));
  ASSERT_TRUE(storage->store("deep", nestedBag(50)));
  EXPECT_EQ(createJsonFilePropertyStorage(dir.sub("props.json"))->read("deep"), nestedBag(50));
}

TEST(JsonStorageHostileTest, SymbolicLinkIsWrittenThroughToItsTarget) {
  vell_test::TempDir dir;
  const std::string target = dir.sub("real/props.json");
  dir.mkdir("real");
  dir.mkdir("conf");
  const std::string link = dir.sub("conf/props.json");
  fs::create_symlink("../real/props.json", link);
  auto storage = createJsonFilePropertyStorage(link);
  // The target does not exist yet: the first write creates it.
  ASSERT_TRUE(storage->store("a", nestedBag(1)));
  ASSERT_TRUE(storage->store("b", nestedBag(2)));
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(fs::read_symlink(link), fs::path("../real/props.json"));
  EXPECT_EQ(createJsonFilePropertyStorage(target)->read("b"), nestedBag(2));
  EXPECT_EQ(createJsonFilePropertyStorage(link)->read("a"), nestedBag(1));
  EXPECT_FALSE(anyEntryContains(dir.sub("real"), ".tmp-"));
  EXPECT_FALSE(anyEntryContains(dir.sub("conf"), ".tmp-"));
}

TEST(JsonStorageHostileTest, DamagedTargetOfALinkIsMovedAsideAndTheLinkStays) {
  vell_test::TempDir dir;
  const std::string target = dir.write("real/props.json", "{ not json");
  const std::string link = dir.sub("props.json");
  fs::create_symlink(target, link);
  auto storage = createJsonFilePropertyStorage(link);
  ASSERT_TRUE(storage->store("a", nestedBag(1)));
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_TRUE(anyEntryContains(dir.sub("real"), "props.json.corrupt-"));
  EXPECT_EQ(createJsonFilePropertyStorage(target)->read("a"), nestedBag(1));
}

TEST(JsonStorageHostileTest, OrphanTemporaryIsRemovedByTheFirstRead) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("props.json");
  ASSERT_TRUE(createJsonFilePropertyStorage(path)->store("a", nestedBag(1)));
  dir.write("props.json.tmp-99999-0", "half written");
  dir.write("other.json.tmp-99999-0", "not ours");
  EXPECT_EQ(createJsonFilePropertyStorage(path)->read("a"), nestedBag(1));
  EXPECT_FALSE(fs::exists(dir.sub("props.json.tmp-99999-0")));
  EXPECT_TRUE(fs::exists(dir.sub("other.json.tmp-99999-0")));
}

TEST(JsonStorageHostileTest, TemporaryOfAWriterHoldingTheLockIsLeftAlone) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("props.json");
  const std::string temporary = dir.write("props.json.tmp-1-1", "being written");
  std::promise<void> locked;
  std::promise<void> finish;
  // A writer in the middle of its write: it holds the update lock.
  std::thread writer([&] {
    auto lock = createJsonFilePropertyStorage(path)->lockForUpdate();
    locked.set_value();
    finish.get_future().wait();
  });
  locked.get_future().wait();
  auto reading =
      std::async(std::launch::async, [&] { return createJsonFilePropertyStorage(path)->read("a"); });
  EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  EXPECT_TRUE(fs::exists(temporary));
  finish.set_value();
  writer.join();
  reading.get();
  // Once the writer is gone, whatever it left is an orphan.
  EXPECT_FALSE(fs::exists(temporary));
}

} // namespace
