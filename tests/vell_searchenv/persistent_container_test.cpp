// Search directories kept in a property storage: layout, fallbacks, skipping rules and sharing.
#include <set>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/assertion_recorder.h"
#include "support/temp_dir.h"
#include "vell_searchenv/dir_records.h"
#include "vell_searchenv/persistent_search_dir_container.h"

namespace {

using namespace VELL_2_13;
using platform::PropertyBag;
using platform::Variant;
using vell_test::DirRecord;
using vell_test::readAll;

PropertyBag directoryBag(const char *name, bool recursive, bool priority) {
  PropertyBag bag;
  bag.setValue("name", Variant(name));
  bag.setValue("recursive", Variant(recursive));
  bag.setValue("priority", Variant(priority));
  return bag;
}

PropertyBag categoryBag(uint8_t category) {
  PropertyBag bag;
  bag.setValue("category", Variant(category));
  return bag;
}

TEST(PersistentSearchDirContainer, WritesTheFixedLayoutAfterAnAddition) {
  auto storage = platform::createMemoryPropertyStorage();
  auto dirs = IPersistentSearchDirContainer::create(storage);
  EXPECT_TRUE(dirs->addDirectory(scSymbolFiles, "/opt/sym", true, false));
  EXPECT_TRUE(dirs->addDirectory(scSymbolFiles, "/opt/p", false, true));

  // Every reload clears (and so creates) the four lists, so all four categories are written, in order.
  PropertyBag expected;
  expected.addChild("searchCategory", categoryBag(1));
  PropertyBag &symbols = expected.addChild("searchCategory", categoryBag(2));
  symbols.addChild("searchDirectory", directoryBag("/opt/sym", true, false));
  symbols.addChild("searchDirectory", directoryBag("/opt/p", false, true));
  expected.addChild("searchCategory", categoryBag(3));
  expected.addChild("searchCategory", categoryBag(4));
  const PropertyBag stored = storage->read("searchDirs");
  EXPECT_EQ(stored, expected);
  const auto categories = stored.children("searchCategory");
  ASSERT_EQ(categories.size(), 4u);
  EXPECT_EQ(categories[1]->findValue("category")->type(), Variant::Type::UInt8);
  const auto entries = categories[1]->children("searchDirectory");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0]->findValue("name")->type(), Variant::Type::Text);
  EXPECT_EQ(entries[0]->findValue("recursive")->type(), Variant::Type::Bool);
  EXPECT_EQ(entries[0]->findValue("priority")->type(), Variant::Type::Bool);
}

TEST(PersistentSearchDirContainer, WithoutStorageItIsAPlainEditableContainer) {
  auto dirs = IPersistentSearchDirContainer::create(nullptr);
  EXPECT_FALSE(dirs->enumerate(scBinaryFiles));
  EXPECT_TRUE(dirs->addDirectory(scBinaryFiles, "/a", false, false));
  EXPECT_TRUE(dirs->addDirectory(scBinaryFiles, "/a/", true, false));
  EXPECT_EQ(readAll(dirs->enumerate(scBinaryFiles)), (std::vector<DirRecord>{{"/a", true, false}}));
  EXPECT_FALSE(dirs->enumerate(scSymbolFiles));
  EXPECT_FALSE(dirs->addDirectory(static_cast<search_category_t>(5), "/a", false, false));
}

TEST(PersistentSearchDirContainer, EnumerateReloadsAndWritesNothing) {
  auto storage = platform::createMemoryPropertyStorage();
  auto dirs = IPersistentSearchDirContainer::create(storage);
  auto records = dirs->enumerate(scSourceFiles);
  ASSERT_TRUE(records); // the reload created the list
  EXPECT_TRUE(readAll(records).empty());
  EXPECT_TRUE(storage->read("searchDirs").empty());

  PropertyBag root;
  root.addChild("searchCategory", categoryBag(3))
      .addChild("searchDirectory", directoryBag("/src", false, true));
  storage->store("searchDirs", root);
  EXPECT_EQ(readAll(dirs->enumerate(scSourceFiles)), (std::vector<DirRecord>{{"/src", false, true}}));
  EXPECT_EQ(storage->read("searchDirs"), root);
}

TEST(PersistentSearchDirContainer, ChangesThroughAnotherContainerAreSeenAtTheNextCall) {
  auto storage = platform::createMemoryPropertyStorage();
  auto first = IPersistentSearchDirContainer::create(storage);
  auto second = IPersistentSearchDirContainer::create(storage);
  first->addDirectory(scBinaryFiles, "/one", false, false);
  second->addDirectory(scBinaryFiles, "/two", true, false);
  EXPECT_EQ(readAll(first->enumerate(scBinaryFiles)),
            (std::vector<DirRecord>{{"/one", false, false}, {"/two", true, false}}));
  first->clear(scBinaryFiles);
  EXPECT_TRUE(readAll(second->enumerate(scBinaryFiles)).empty());
}

TEST(PersistentSearchDirContainer, CapitalisedBagNamesAreAFallbackOnly) {
  auto storage = platform::createMemoryPropertyStorage();
  PropertyBag onlyCapitalised;
  PropertyBag &category = onlyCapitalised.addChild("SearchCategory", categoryBag(1));
  category.addChild("SearchDirectory", directoryBag("/cap", false, false));
  storage->store("searchDirs", onlyCapitalised);
  auto dirs = IPersistentSearchDirContainer::create(storage);
  EXPECT_EQ(readAll(dirs->enumerate(scBinaryFiles)), (std::vector<DirRecord>{{"/cap", false, false}}));

  PropertyBag both;
  both.addChild("SearchCategory", categoryBag(1))
      .addChild("searchDirectory", directoryBag("/upper", false, false));
  PropertyBag &lower = both.addChild("searchCategory", categoryBag(2));
  lower.addChild("SearchDirectory", directoryBag("/sym-upper", false, false));
  lower.addChild("searchDirectory", directoryBag("/sym-lower", true, false));
  PropertyBag &lowerOnlyCapitalisedDirs = both.addChild("searchCategory", categoryBag(3));
  lowerOnlyCapitalisedDirs.addChild("SearchDirectory", directoryBag("/src-upper", false, false));
  storage->store("searchDirs", both);
  EXPECT_TRUE(readAll(dirs->enumerate(scBinaryFiles)).empty());
  EXPECT_EQ(readAll(dirs->enumerate(scSymbolFiles)), (std::vector<DirRecord>{{"/sym-lower", true, false}}));
  EXPECT_EQ(readAll(dirs->enumerate(scSourceFiles)), (std::vector<DirRecord>{{"/src-upper", false, false}}));

  // The writer always writes the lower-case names.
  dirs->addDirectory(scAllFiles, "/all", false, false);
  const PropertyBag stored = storage->read("searchDirs");
  EXPECT_FALSE(stored.hasChildren("SearchCategory"));
  for (const PropertyBag *written : stored.children("searchCategory"))
    EXPECT_FALSE(written->hasChildren("SearchDirectory"));
  EXPECT_EQ(stored.children("searchCategory")[2]->children("searchDirectory").size(), 1u);
}

TEST(PersistentSearchDirContainer, MalformedEntriesAreSkippedSilently) {
  auto storage = platform::createMemoryPropertyStorage();
  PropertyBag root;
  PropertyBag &good = root.addChild("searchCategory", categoryBag(1));
  good.addChild("searchDirectory", directoryBag("/kept", true, true));
  PropertyBag noPriority;
  noPriority.setValue("name", Variant("/no-priority"));
  noPriority.setValue("recursive", Variant(true));
  good.addChild("searchDirectory", noPriority);
  PropertyBag noName;
  noName.setValue("recursive", Variant(true));
  noName.setValue("priority", Variant(true));
  good.addChild("searchDirectory", noName);
  PropertyBag nameNotText = directoryBag("", false, false);
  nameNotText.setValue("name", Variant(uint8_t(7)));
  good.addChild("searchDirectory", nameNotText);
  PropertyBag recursiveAsText = directoryBag("/recursive-text", false, false);
  recursiveAsText.setValue("recursive", Variant("true"));
  good.addChild("searchDirectory", recursiveAsText);
  PropertyBag priorityAsNumber = directoryBag("/priority-number", false, false);
  priorityAsNumber.setValue("priority", Variant(uint8_t(1)));
  good.addChild("searchDirectory", priorityAsNumber);

  // Category bags without a usable one-byte category are skipped whole.
  root.addChild("searchCategory").addChild("searchDirectory", directoryBag("/no-category", false, false));
  PropertyBag wideCategory;
  wideCategory.setValue("category", Variant(int64_t(2)));
  root.addChild("searchCategory", wideCategory)
      .addChild("searchDirectory", directoryBag("/wide", false, false));
  PropertyBag badCategory;
  badCategory.setValue("category", Variant(uint8_t(9)));
  root.addChild("searchCategory", badCategory)
      .addChild("searchDirectory", directoryBag("/nine", false, false));
  storage->store("searchDirs", root);

  vell_test::AssertionRecorder recorder;
  auto dirs = IPersistentSearchDirContainer::create(storage);
  EXPECT_EQ(readAll(dirs->enumerate(scBinaryFiles)), (std::vector<DirRecord>{{"/kept", true, true}}));
  EXPECT_TRUE(readAll(dirs->enumerate(scSymbolFiles)).empty());
  EXPECT_TRUE(recorder.reports().empty());
}

TEST(PersistentSearchDirContainer, EntryWithoutPriorityDisappearsAtTheNextWriteBack) {
  auto storage = platform::createMemoryPropertyStorage();
  PropertyBag root;
  PropertyBag &category = root.addChild("searchCategory", categoryBag(2));
  PropertyBag noPriority;
  noPriority.setValue("name", Variant("/lost"));
  noPriority.setValue("recursive", Variant(false));
  category.addChild("searchDirectory", noPriority);
  storage->store("searchDirs", root);
  auto dirs = IPersistentSearchDirContainer::create(storage);
  dirs->addDirectory(scSymbolFiles, "/new", false, false);
  const PropertyBag stored = storage->read("searchDirs");
  const auto entries = stored.children("searchCategory")[1]->children("searchDirectory");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0]->findValue("name")->getText(), "/new");
}

TEST(PersistentSearchDirContainer, ClearKeepsTheEmptyCategoryBag) {
  auto storage = platform::createMemoryPropertyStorage();
  auto dirs = IPersistentSearchDirContainer::create(storage);
  dirs->addDirectory(scSourceFiles, "/src/a", false, false);
  dirs->addDirectory(scSourceFiles, "/src/b", false, false);
  dirs->addDirectory(scBinaryFiles, "/bin", false, false);
  EXPECT_TRUE(dirs->clear(scSourceFiles));
  const PropertyBag stored = storage->read("searchDirs");
  const auto categories = stored.children("searchCategory");
  ASSERT_EQ(categories.size(), 4u);
  EXPECT_EQ(*categories[2]->findValue("category"), Variant(uint8_t(3)));
  EXPECT_TRUE(categories[2]->allChildren().empty());
  EXPECT_EQ(categories[0]->children("searchDirectory").size(), 1u);
  EXPECT_FALSE(dirs->clear(static_cast<search_category_t>(0)));
}

TEST(PersistentSearchDirContainer, StoredDuplicatesLoadAsOneRecordWithMergedFlags) {
  auto storage = platform::createMemoryPropertyStorage();
  PropertyBag root;
  PropertyBag &category = root.addChild("searchCategory", categoryBag(4));
  category.addChild("searchDirectory", directoryBag("/opt/a/", false, true));
  category.addChild("searchDirectory", directoryBag("/opt/./a", true, false));
  storage->store("searchDirs", root);
  auto dirs = IPersistentSearchDirContainer::create(storage);
  EXPECT_EQ(readAll(dirs->enumerate(scAllFiles)), (std::vector<DirRecord>{{"/opt/a/", true, true}}));
  EXPECT_TRUE(dirs->addDirectory(scAllFiles, "/opt/a", false, false));
  const PropertyBag stored = storage->read("searchDirs");
  const auto entries = stored.children("searchCategory")[3]->children("searchDirectory");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(*entries[0], directoryBag("/opt/a/", true, true));
}

TEST(PersistentSearchDirContainer, SaveOfOneCategoryWritesNothingForAnUntouchedList) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->clear(scSymbolFiles);
  dirs->addDirectory(scSourceFiles, "/s", true, false);
  PropertyBag root;
  internal::saveSearchDirsForCategory(*dirs, scBinaryFiles, root);
  EXPECT_TRUE(root.empty());
  internal::saveSearchDirsForCategory(*dirs, scSymbolFiles, root);
  internal::saveSearchDirsForCategory(*dirs, scSourceFiles, root);
  PropertyBag expected;
  expected.addChild("searchCategory", categoryBag(2));
  expected.addChild("searchCategory", categoryBag(3))
      .addChild("searchDirectory", directoryBag("/s", true, false));
  EXPECT_EQ(root, expected);
}

TEST(PersistentSearchDirContainer, JsonFileKeepsTheDirectoriesBetweenRuns) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("vell.json");
  IPersistentSearchDirContainer::create(platform::createJsonFilePropertyStorage(path))
      ->addDirectory(scSymbolFiles, "/usr/lib/debug", true, true);
  auto reopened = IPersistentSearchDirContainer::create(platform::createJsonFilePropertyStorage(path));
  EXPECT_EQ(readAll(reopened->enumerate(scSymbolFiles)),
            (std::vector<DirRecord>{{"/usr/lib/debug", true, true}}));
}

TEST(PersistentSearchDirContainer, TwoProcessesAddingAtOnceLoseNeither) {
  vell_test::TempDir dir;
  const std::string path = dir.sub("vell.json");
  const int perProcess = 12;
  std::vector<pid_t> children;
  for (int process = 0; process < 2; ++process) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      auto storage = platform::createJsonFilePropertyStorage(path);
      auto dirs = IPersistentSearchDirContainer::create(storage);
      for (int i = 0; i < perProcess; ++i) {
        auto lock = storage->lockForUpdate();
        const std::string name = "/p" + std::to_string(process) + "/d" + std::to_string(i);
        dirs->addDirectory(process == 0 ? scBinaryFiles : scSymbolFiles, name.c_str(), false, false);
      }
      ::_exit(0);
    }
    children.push_back(child);
  }
  for (pid_t child : children) {
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  auto dirs = IPersistentSearchDirContainer::create(platform::createJsonFilePropertyStorage(path));
  EXPECT_EQ(readAll(dirs->enumerate(scBinaryFiles)).size(), size_t(perProcess));
  EXPECT_EQ(readAll(dirs->enumerate(scSymbolFiles)).size(), size_t(perProcess));
  EXPECT_EQ(readAll(dirs->enumerate(scSymbolFiles)).back().name, "/p1/d11");
}

} // namespace
