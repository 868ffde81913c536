// The validation message objects and the message manager.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/temp_dir.h"
#include "vell/validation.h"
#include "vell_validation/catalog_scope.h"
#include "vell_validation/message_mgr.h"
#include "vell_validation/messages.h"

using namespace VELL_2_13;

namespace {

// Every kind that takes a file name, as (catalog id, fill through the manager).
using FillFunction = std::function<bool(IMessageMgr &, IMsgContainer &, const char *)>;

#define VELL_KIND(Kind)                                                                                      \
  {                                                                                                          \
#Kind, [](IMessageMgr &mgr, IMsgContainer &container, const char *fileName) {                   \
     ObjectPtr<I##Kind##Message> message = mgr.get##Kind##Message();                               \
     return message && message->fillMessage(container, fileName);                                  \
   }            \
  }

const std::vector<std::pair<std::string, FillFunction>> &fileKinds() {
  static const std::vector<std::pair<std::string, FillFunction>> kinds = {
      VELL_KIND(BinChecksumMismatch),      VELL_KIND(SymChecksumMismatch),    VELL_KIND(SrcChecksumMismatch),
      VELL_KIND(ModificationTimeMismatch), VELL_KIND(SizeMismatch),           VELL_KIND(SourceFileUpToDate),
      VELL_KIND(FileIsNotReadable),        VELL_KIND(FileDoesNotExist),       VELL_KIND(InvalidSymbolFile),
      VELL_KIND(FileArchMismatch),         VELL_KIND(FileIsNotABinaryModule), VELL_KIND(BinFileReadingError),
      VELL_KIND(BinFileUnsupportedFormat), VELL_KIND(FileIsNotRegular)};
  return kinds;
}

#undef VELL_KIND

// The shipped text of id in language with "{arg1}" replaced by value.
std::string shippedText(const std::string &language, const std::string &id, const std::string &value) {
  std::ifstream in(vell_test::shippedCatalogDir() + "/vell_common." + language + ".json");
  nlohmann::json document = nlohmann::json::parse(in);
  std::string text = document.at(id).get<std::string>();
  for (size_t at = text.find("{arg1}"); at != std::string::npos; at = text.find("{arg1}", at + value.size()))
    text.replace(at, 6, value);
  return text;
}

// Puts the default message objects back after a test replaced some.
class MessageMgrTest : public ::testing::Test {
protected:
  void TearDown() override { initializeValidationMessages(IMessageMgr::create()); }
};

TEST(ValidationMessagesTest, CatalogNameConstant) { EXPECT_STREQ("vell_common", VALIDATOR_MESSAGES_CATALOG); }

TEST(ValidationMessagesTest, WithoutCatalogEveryFillFailsAndLeavesTheContainerEmpty) {
  vell_test::CatalogScope scope("");
  ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
  for (const auto &[id, fill] : fileKinds()) {
    MsgContainer container;
    EXPECT_FALSE(fill(*mgr, container, "/a/b")) << id;
    EXPECT_EQ(nullptr, container.get()) << id;
  }
  MsgContainer container;
  EXPECT_FALSE(mgr->getFileIsDirectoryMessage()->fillMessage(container));
  EXPECT_EQ(nullptr, container.get());
}

TEST(ValidationMessagesTest, ShippedCatalogTextsWithTheFileName) {
  for (const char *language : {"en", "de"}) {
    vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), language);
    ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
    for (const auto &[id, fill] : fileKinds()) {
      MsgContainer container;
      ASSERT_TRUE(fill(*mgr, container, "/usr/lib/libx.so")) << language << " " << id;
      ASSERT_NE(nullptr, container.get());
      EXPECT_EQ(shippedText(language, id, "/usr/lib/libx.so"), container.get()) << language << " " << id;
    }
    MsgContainer container;
    EXPECT_TRUE(mgr->getFileIsDirectoryMessage()->fillMessage(container));
    EXPECT_EQ(shippedText(language, "FileIsDirectory", ""), container.get());
  }
}

TEST(ValidationMessagesTest, ExactEnglishTexts) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  MsgContainer container;
  ASSERT_TRUE(FileDoesNotExistMessage(nullptr).fillMessage(container, "/x/y"));
  EXPECT_STREQ("The file /x/y does not exist or is not a regular file.", container.get());
  ASSERT_TRUE(SrcChecksumMismatchMessage(nullptr).fillMessage(container, "a.c"));
  EXPECT_STREQ("The checksum of the source file a.c does not match the expected checksum.", container.get());
}

TEST(ValidationMessagesTest, CatalogWithoutAnIdFailsOnlyForThatKind) {
  vell_test::TempDir dir;
  std::ifstream in(vell_test::shippedCatalogDir() + "/vell_common.en.json");
  nlohmann::json document = nlohmann::json::parse(in);
  document.erase("SizeMismatch");
  dir.write("vell_common.en.json", document.dump());
  vell_test::CatalogScope scope(dir.path());
  ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
  for (const auto &[id, fill] : fileKinds()) {
    MsgContainer container;
    if (id == "SizeMismatch") {
      EXPECT_FALSE(fill(*mgr, container, "f"));
      EXPECT_EQ(nullptr, container.get());
    } else {
      EXPECT_TRUE(fill(*mgr, container, "f")) << id;
      EXPECT_NE(nullptr, container.get()) << id;
    }
  }
}

TEST(ValidationMessagesTest, EmptyCatalogProducesNothing) {
  vell_test::TempDir dir;
  dir.write("vell_common.en.json", "{}");
  vell_test::CatalogScope scope(dir.path());
  MsgContainer container;
  EXPECT_FALSE(FileDoesNotExistMessage(nullptr).fillMessage(container, "f"));
  EXPECT_FALSE(FileIsDirectoryMessage(nullptr).fillMessage(container));
  EXPECT_EQ(nullptr, container.get());
}

TEST(ValidationMessagesTest, OnlyArg1IsSubstituted) {
  vell_test::TempDir dir;
  dir.write("vell_common.en.json",
            R"({"FileIsNotReadable": "[{arg1}] [{file}] [{%1}]", "FileIsDirectory": "dir [{arg1}]"})");
  vell_test::CatalogScope scope(dir.path());
  MsgContainer container;
  EXPECT_TRUE(FileIsNotReadableMessage(nullptr).fillMessage(container, "/f"));
  EXPECT_STREQ("[/f] [{file}] [{%1}]", container.get());
  // The directory message has no arguments at all.
  EXPECT_TRUE(FileIsDirectoryMessage(nullptr).fillMessage(container));
  EXPECT_STREQ("dir [{arg1}]", container.get());
}

TEST(ValidationMessagesTest, CatalogThatBecomesAvailableLaterIsUsed) {
  ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
  ObjectPtr<ISizeMismatchMessage> message = mgr->getSizeMismatchMessage();
  MsgContainer container;
  {
    vell_test::CatalogScope none("");
    EXPECT_FALSE(message->fillMessage(container, "f"));
  }
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  EXPECT_TRUE(message->fillMessage(container, "f"));
}

TEST_F(MessageMgrTest, CreateReturnsTheSameManager) {
  ObjectPtr<IMessageMgr> first = IMessageMgr::create();
  ObjectPtr<IMessageMgr> second = IMessageMgr::create();
  ASSERT_TRUE(first);
  EXPECT_EQ(first.get(), second.get());
  EXPECT_EQ(first.get(), MessageMgr::s_messageMgr.get());
  ObjectPtr<ISizeMismatchMessage> replacement(new SizeMismatchMessage(nullptr));
  first->setSizeMismatchMessage(replacement);
  EXPECT_EQ(replacement.get(), second->getSizeMismatchMessage().get());
}

TEST_F(MessageMgrTest, DefaultsAreRegisteredForEveryKind) {
  ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
  EXPECT_TRUE(mgr->getBinChecksumMismatchMessage());
  EXPECT_TRUE(mgr->getSymChecksumMismatchMessage());
  EXPECT_TRUE(mgr->getSrcChecksumMismatchMessage());
  EXPECT_TRUE(mgr->getModificationTimeMismatchMessage());
  EXPECT_TRUE(mgr->getSizeMismatchMessage());
  EXPECT_TRUE(mgr->getSourceFileUpToDateMessage());
  EXPECT_TRUE(mgr->getFileIsDirectoryMessage());
  EXPECT_TRUE(mgr->getFileIsNotReadableMessage());
  EXPECT_TRUE(mgr->getFileDoesNotExistMessage());
  EXPECT_TRUE(mgr->getInvalidSymbolFileMessage());
  EXPECT_TRUE(mgr->getFileArchMismatchMessage());
  EXPECT_TRUE(mgr->getFileIsNotABinaryModuleMessage());
  EXPECT_TRUE(mgr->getBinFileReadingErrorMessage());
  EXPECT_TRUE(mgr->getBinFileUnsupportedFormatMessage());
  EXPECT_TRUE(mgr->getFileIsNotRegularMessage());
}

TEST_F(MessageMgrTest, FreshManagerIsEmptyUntilInitialised) {
  ObjectPtr<IMessageMgr> mgr(new MessageMgr);
  EXPECT_FALSE(mgr->getFileDoesNotExistMessage());
  EXPECT_FALSE(mgr->getFileIsDirectoryMessage());
  EXPECT_FALSE(mgr->getFileIsNotRegularMessage());
  initializeValidationMessages(mgr);
  EXPECT_TRUE(mgr->getFileDoesNotExistMessage());
  EXPECT_TRUE(mgr->getFileIsDirectoryMessage());
  EXPECT_TRUE(mgr->getFileIsNotRegularMessage());
}

TEST_F(MessageMgrTest, DyingSeparateManagerResetsTheProcessWideOne) {
  ObjectPtr<IMessageMgr> global = IMessageMgr::create();
  ObjectPtr<ISizeMismatchMessage> replacement(new SizeMismatchMessage(nullptr));
  global->setSizeMismatchMessage(replacement);
  { ObjectPtr<IMessageMgr> separate(new MessageMgr); }
  // The slot was emptied; the old manager lives on only through our handle.
  EXPECT_FALSE(MessageMgr::s_messageMgr);
  EXPECT_EQ(replacement.get(), global->getSizeMismatchMessage().get());
  ObjectPtr<IMessageMgr> next = IMessageMgr::create();
  ASSERT_TRUE(next);
  EXPECT_NE(global.get(), next.get());
  EXPECT_TRUE(next->getSizeMismatchMessage());
  EXPECT_NE(replacement.get(), next->getSizeMismatchMessage().get());
}

TEST_F(MessageMgrTest, DyingSeparateManagerMayFreeTheProcessWideOne) {
  IMessageMgr *global = IMessageMgr::create().get();
  ASSERT_NE(nullptr, global);
  { ObjectPtr<IMessageMgr> separate(new MessageMgr); }
  EXPECT_FALSE(MessageMgr::s_messageMgr);
  ObjectPtr<IMessageMgr> next = IMessageMgr::create();
  ASSERT_TRUE(next);
  EXPECT_TRUE(next->getFileDoesNotExistMessage());
}

TEST_F(MessageMgrTest, EveryMessageLockIsNull) {
  ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
  EXPECT_EQ(nullptr, mgr->getBinChecksumMismatchMessageLock());
  EXPECT_EQ(nullptr, mgr->getSymChecksumMismatchMessageLock());
  EXPECT_EQ(nullptr, mgr->getSrcChecksumMismatchMessageLock());
  EXPECT_EQ(nullptr, mgr->getModificationTimeMismatchMessageLock());
  EXPECT_EQ(nullptr, mgr->getSizeMismatchMessageLock());
  EXPECT_EQ(nullptr, mgr->getSourceFileUpToDateMessageLock());
  EXPECT_EQ(nullptr, mgr->getFileIsDirectoryMessageLock());
  EXPECT_EQ(nullptr, mgr->getFileIsNotReadableMessageLock());
  EXPECT_EQ(nullptr, mgr->getFileDoesNotExistMessageLock());
  EXPECT_EQ(nullptr, mgr->getInvalidSymbolFileMessageLock());
  EXPECT_EQ(nullptr, mgr->getFileArchMismatchMessageLock());
  EXPECT_EQ(nullptr, mgr->getFileIsNotABinaryModuleMessageLock());
  EXPECT_EQ(nullptr, mgr->getBinFileReadingErrorMessageLock());
  EXPECT_EQ(nullptr, mgr->getBinFileUnsupportedFormatMessageLock());
  EXPECT_EQ(nullptr, mgr->getFileIsNotRegularMessageLock());
}

TEST_F(MessageMgrTest, SettingNullClearsAKind) {
  ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
  mgr->setFileDoesNotExistMessage(ObjectPtr<IFileDoesNotExistMessage>());
  EXPECT_FALSE(mgr->getFileDoesNotExistMessage());
  EXPECT_TRUE(mgr->getFileIsNotReadableMessage());
}

TEST_F(MessageMgrTest, ReplacedObjectIsReleased) {
  ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
  auto *raw = new SizeMismatchMessage(nullptr);
  ObjectPtr<ISizeMismatchMessage> mine(raw);
  mgr->setSizeMismatchMessage(mine);
  EXPECT_EQ(2, raw->refCount());
  mgr->setSizeMismatchMessage(ObjectPtr<ISizeMismatchMessage>());
  EXPECT_EQ(1, raw->refCount());
}

TEST_F(MessageMgrTest, ConcurrentCreateReturnsOneManager) {
  std::vector<IMessageMgr *> seen(8, nullptr);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i)
    threads.emplace_back([&seen, i] {
      for (int k = 0; k < 200; ++k) {
        ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
        seen[i] = mgr.get();
      }
    });
  for (auto &t : threads)
    t.join();
  for (IMessageMgr *mgr : seen)
    EXPECT_EQ(IMessageMgr::create().get(), mgr);
}

TEST(MsgContainerTest, EmptyContainerGivesNull) {
  MsgContainer container;
  EXPECT_EQ(nullptr, container.get());
  container.put("text");
  EXPECT_STREQ("text", container.get());
  container.put("");
  EXPECT_EQ(nullptr, container.get());
  container.put("again");
  container.put(nullptr);
  EXPECT_EQ(nullptr, container.get());
}

} // namespace
