// Typed values and property bags.
#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "platform/assertion_recorder.h"
#include "support/log_capture.h"
#include "vell/platform.h"

namespace {

using namespace VELL_2_13::platform;

TEST(Variant, KeepsTheTypeItWasMadeWith) {
  EXPECT_EQ(Variant().type(), Variant::Type::None);
  EXPECT_EQ(Variant(uint8_t(3)).type(), Variant::Type::UInt8);
  EXPECT_EQ(Variant(true).type(), Variant::Type::Bool);
  EXPECT_EQ(Variant("x").type(), Variant::Type::Text);
  EXPECT_EQ(Variant(std::string("x")).type(), Variant::Type::Text);
  EXPECT_EQ(Variant(int64_t(-4)).type(), Variant::Type::Int64);
  EXPECT_EQ(Variant(uint64_t(4)).type(), Variant::Type::UInt64);
  EXPECT_EQ(Variant(2.5).type(), Variant::Type::Double);
  EXPECT_EQ(Variant(static_cast<const char *>(nullptr)).getText(), "");
}

TEST(Variant, GettersOfTheRightTypeReturnTheValueWithoutReport) {
  vell_test::AssertionRecorder recorder;
  EXPECT_EQ(Variant(uint8_t(200)).getUInt8(), 200);
  EXPECT_TRUE(Variant(true).getBool());
  EXPECT_EQ(Variant("abc").getText(), "abc");
  EXPECT_EQ(Variant(int64_t(-7)).getInt64(), -7);
  EXPECT_EQ(Variant(uint64_t(1) << 63).getUInt64(), uint64_t(1) << 63);
  EXPECT_EQ(Variant(0.25).getDouble(), 0.25);
  EXPECT_TRUE(recorder.reports().empty());
}

TEST(Variant, GetterOfAnotherTypeReportsTheTypeCheckAndReturnsADefault) {
  vell_test::AssertionRecorder recorder;
  vell_test::LogCapture capture;
  EXPECT_FALSE(Variant("yes").getBool());
  EXPECT_EQ(Variant(true).getText(), "");
  EXPECT_EQ(Variant(true).getUInt8(), 0);
  EXPECT_EQ(Variant(uint8_t(1)).getInt64(), 0);
  EXPECT_EQ(Variant(int64_t(1)).getUInt64(), 0u);
  EXPECT_EQ(Variant(uint64_t(1)).getDouble(), 0.0);
  EXPECT_EQ(recorder.messages(),
            (std::vector<std::string>{"can_get<bool>()", "can_get<const char*>()", "can_get<uint8_t>()",
                                      "can_get<int64_t>()", "can_get<uint64_t>()", "can_get<double>()"}));
  EXPECT_EQ(recorder.reports()[0].unit, "src/platform");
  EXPECT_TRUE(capture.containsPrefix("can_get<bool>(), at file: src/platform:"));
}

TEST(PropertyBag, SetValueReplacesInPlaceAndFindsByName) {
  PropertyBag bag;
  EXPECT_TRUE(bag.empty());
  EXPECT_EQ(bag.findValue("a"), nullptr);
  bag.setValue("a", Variant(true));
  bag.setValue("b", Variant("x"));
  bag.setValue("a", Variant(uint8_t(2)));
  ASSERT_EQ(bag.values().size(), 2u);
  EXPECT_EQ(bag.values()[0].first, "a");
  ASSERT_NE(bag.findValue("a"), nullptr);
  EXPECT_EQ(*bag.findValue("a"), Variant(uint8_t(2)));
  EXPECT_EQ(bag.findValue("b")->getText(), "x");
  EXPECT_FALSE(bag.empty());
}

TEST(PropertyBag, ChildrenOfOneNameAreRepeatableAndKeepTheirOrder) {
  PropertyBag root;
  EXPECT_FALSE(root.hasChildren("c"));
  root.addChild("c").setValue("n", Variant(int64_t(1)));
  root.addChild("other");
  PropertyBag second;
  second.setValue("n", Variant(int64_t(2)));
  root.addChild("c", second);
  EXPECT_TRUE(root.hasChildren("c"));
  const auto children = root.children("c");
  ASSERT_EQ(children.size(), 2u);
  EXPECT_EQ(children[0]->findValue("n")->getInt64(), 1);
  EXPECT_EQ(children[1]->findValue("n")->getInt64(), 2);
  EXPECT_EQ(root.children("other").size(), 1u);
  EXPECT_TRUE(root.children("none").empty());
  EXPECT_EQ(root.allChildren().size(), 3u);
}

TEST(PropertyBag, EqualityComparesValuesChildrenAndTypes) {
  PropertyBag a;
  a.setValue("v", Variant(uint8_t(1)));
  a.addChild("c").setValue("w", Variant(false));
  PropertyBag b = a;
  EXPECT_EQ(a, b);
  PropertyBag c;
  c.setValue("v", Variant(int64_t(1)));
  c.addChild("c").setValue("w", Variant(false));
  EXPECT_FALSE(a == c);
}

TEST(MemoryPropertyStorage, ReadsAnEmptyBagUntilStoredAndKeepsNamesApart) {
  auto storage = createMemoryPropertyStorage();
  EXPECT_TRUE(storage->read("x").empty());
  PropertyBag bag;
  bag.setValue("v", Variant("text"));
  EXPECT_TRUE(storage->store("x", bag));
  EXPECT_EQ(storage->read("x"), bag);
  EXPECT_TRUE(storage->read("y").empty());
  PropertyBag replaced;
  replaced.setValue("w", Variant(true));
  storage->store("x", replaced);
  EXPECT_EQ(storage->read("x"), replaced);
}

TEST(MemoryPropertyStorage, UpdateLockIsReentrantAndExcludesOtherThreads) {
  auto storage = createMemoryPropertyStorage();
  auto outer = storage->lockForUpdate();
  ASSERT_NE(outer, nullptr);
  auto inner = storage->lockForUpdate(); // same thread: does not block
  std::atomic<bool> otherHolds{false};
  std::thread other([&] {
    auto lock = storage->lockForUpdate();
    otherHolds = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(otherHolds.load());
  inner.reset();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(otherHolds.load());
  outer.reset();
  other.join();
  EXPECT_TRUE(otherHolds.load());
}

} // namespace
