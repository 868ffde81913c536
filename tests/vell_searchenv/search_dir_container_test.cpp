// Filtered directory lists, editable containers and their snapshot iterators.
#include <gtest/gtest.h>

#include "vell_searchenv/default_search_dir_iterator.h"
#include "vell_searchenv/dir_records.h"
#include "vell_searchenv/editable_search_dir_container.h"
#include "vell_searchenv/filtered_dir_list.h"

namespace {

using namespace VELL_2_13;
using vell_test::DirRecord;
using vell_test::readAll;

const auto INVALID_LOW = static_cast<search_category_t>(0);
const auto INVALID_HIGH = static_cast<search_category_t>(5);

TEST(FilteredDirList, AddReportsNewRecordsOnly) {
  ObjectPtr<FilteredDirList> list(new FilteredDirList());
  EXPECT_TRUE(list->add("/opt/a", false, false));
  EXPECT_FALSE(list->add("/opt/a/", true, false));
  EXPECT_FALSE(list->add(nullptr, true, true));
  EXPECT_TRUE(list->add("/opt/b", false, false));
  EXPECT_EQ(list->size(), 2u);
}

TEST(FilteredDirList, CanonicalTextsCompareByteWiseAsUnsigned) {
  CanonicalFileNameLess less;
  EXPECT_TRUE(less("/a", "/b"));
  EXPECT_TRUE(less("/a", "/\xff"));
  EXPECT_FALSE(less("/\xff", "/a"));
  EXPECT_TRUE(less("/A", "/a"));
  EXPECT_FALSE(less("/a", "/a"));
}

TEST(SearchDirContainer, TrailingSeparatorAndDotComponentsMakeOneRecordWithTheFirstText) {
  auto dirs = IEditableSearchDirContainer::create();
  EXPECT_TRUE(dirs->addDirectory(scBinaryFiles, "/opt/a", false, false));
  EXPECT_TRUE(dirs->addDirectory(scBinaryFiles, "/opt/a/", false, false));
  EXPECT_TRUE(dirs->addDirectory(scBinaryFiles, "/opt/./a/.", false, false));
  EXPECT_TRUE(dirs->addDirectory(scBinaryFiles, "/opt/x/../a", false, false));
  EXPECT_EQ(readAll(dirs->enumerate(scBinaryFiles)), (std::vector<DirRecord>{{"/opt/a", false, false}}));
}

TEST(SearchDirContainer, FirstTextIsKeptEvenWhenItIsNotCanonical) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scSymbolFiles, "/opt/./a/", false, false);
  dirs->addDirectory(scSymbolFiles, "/opt/a", true, false);
  EXPECT_EQ(readAll(dirs->enumerate(scSymbolFiles)), (std::vector<DirRecord>{{"/opt/./a/", true, false}}));
}

TEST(SearchDirContainer, FlagsAreMergedByOrAndNeverCleared) {
  auto dirs = IEditableSearchDirContainer::create();
  EXPECT_TRUE(dirs->addDirectory(scSourceFiles, "/opt/a", false, false));
  EXPECT_TRUE(dirs->addDirectory(scSourceFiles, "/opt/a", true, false));
  EXPECT_EQ(readAll(dirs->enumerate(scSourceFiles)), (std::vector<DirRecord>{{"/opt/a", true, false}}));
  EXPECT_TRUE(dirs->addDirectory(scSourceFiles, "/opt/a", false, false));
  EXPECT_EQ(readAll(dirs->enumerate(scSourceFiles)), (std::vector<DirRecord>{{"/opt/a", true, false}}));
  EXPECT_TRUE(dirs->addDirectory(scSourceFiles, "/opt/a/", false, true));
  EXPECT_TRUE(dirs->addDirectory(scSourceFiles, "/opt/a", false, false));
  EXPECT_EQ(readAll(dirs->enumerate(scSourceFiles)), (std::vector<DirRecord>{{"/opt/a", true, true}}));
}

TEST(SearchDirContainer, WindowsShapedNamesGetForwardSlashesOtherBackslashesStay) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scSymbolFiles, "C:\\sym\\dir", false, false);
  dirs->addDirectory(scSymbolFiles, "C:/sym/dir", true, false);
  dirs->addDirectory(scSymbolFiles, "\\\\server\\share\\d", false, false);
  dirs->addDirectory(scSymbolFiles, "//server/share/d/", false, true);
  dirs->addDirectory(scSymbolFiles, "/opt/x\\y", false, false);
  dirs->addDirectory(scSymbolFiles, "/opt/x/y", false, false);
  EXPECT_EQ(readAll(dirs->enumerate(scSymbolFiles)),
            (std::vector<DirRecord>{{"C:\\sym\\dir", true, false},
                                    {"\\\\server\\share\\d", false, true},
                                    {"/opt/x\\y", false, false},
                                    {"/opt/x/y", false, false}}));
}

TEST(SearchDirContainer, NamesAreCaseSensitive) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scAllFiles, "/Opt/a", false, false);
  dirs->addDirectory(scAllFiles, "/opt/a", false, false);
  EXPECT_EQ(readAll(dirs->enumerate(scAllFiles)).size(), 2u);
}

TEST(SearchDirContainer, RecordsKeepTheOrderOfFirstAddition) {
  auto dirs = IEditableSearchDirContainer::create();
  const std::vector<std::string> names{"/z", "/a", "/m", "rel/dir", "/\xff", "/b"};
  for (const auto &name : names)
    dirs->addDirectory(scBinaryFiles, name.c_str(), false, false);
  dirs->addDirectory(scBinaryFiles, "/a/", true, false);
  std::vector<std::string> read;
  for (const auto &record : readAll(dirs->enumerate(scBinaryFiles)))
    read.push_back(record.name);
  EXPECT_EQ(read, names);
}

TEST(SearchDirContainer, NullNameIsIgnoredButStillSucceeds) {
  auto dirs = IEditableSearchDirContainer::create();
  EXPECT_TRUE(dirs->addDirectory(scBinaryFiles, nullptr, true, true));
  auto records = dirs->enumerate(scBinaryFiles);
  ASSERT_TRUE(records);
  EXPECT_TRUE(readAll(records).empty());
}

TEST(SearchDirContainer, UntouchedCategoryEnumeratesNullAndAfterClearEmpty) {
  auto dirs = IEditableSearchDirContainer::create();
  EXPECT_FALSE(dirs->enumerate(scSourceFiles));
  EXPECT_TRUE(dirs->clear(scSourceFiles));
  auto records = dirs->enumerate(scSourceFiles);
  ASSERT_TRUE(records);
  const char *name = "untouched";
  bool recursive = true;
  bool highPriority = true;
  EXPECT_FALSE(records->getCurrentRecord(name, recursive, highPriority));
  EXPECT_STREQ(name, "untouched");
  EXPECT_TRUE(recursive);
  EXPECT_TRUE(highPriority);
}

TEST(SearchDirContainer, InvalidCategoriesAreRefused) {
  auto dirs = IEditableSearchDirContainer::create();
  for (search_category_t category : {INVALID_LOW, INVALID_HIGH}) {
    EXPECT_FALSE(dirs->addDirectory(category, "/d", false, false));
    EXPECT_FALSE(dirs->clear(category));
    EXPECT_FALSE(dirs->enumerate(category));
  }
  auto *container = static_cast<EditableSearchDirContainer *>(dirs.get());
  EXPECT_FALSE(container->getDirListForCategory(INVALID_HIGH));
  EXPECT_FALSE(container->getEditableDirListForCategory(INVALID_LOW));
  EXPECT_FALSE(container->getEditableDirListForCategory(INVALID_HIGH));
}

TEST(SearchDirContainer, CategoriesAreIndependentAndAllIsNoWildcard) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scAllFiles, "/all", false, false);
  dirs->addDirectory(scBinaryFiles, "/shared", false, false);
  dirs->addDirectory(scSymbolFiles, "/shared", true, false);
  EXPECT_FALSE(dirs->enumerate(scSourceFiles));
  EXPECT_EQ(readAll(dirs->enumerate(scBinaryFiles)), (std::vector<DirRecord>{{"/shared", false, false}}));
  EXPECT_EQ(readAll(dirs->enumerate(scSymbolFiles)), (std::vector<DirRecord>{{"/shared", true, false}}));
  EXPECT_EQ(readAll(dirs->enumerate(scAllFiles)), (std::vector<DirRecord>{{"/all", false, false}}));
  EXPECT_TRUE(dirs->clear(scAllFiles));
  EXPECT_TRUE(readAll(dirs->enumerate(scAllFiles)).empty());
  EXPECT_EQ(readAll(dirs->enumerate(scBinaryFiles)).size(), 1u);
  EXPECT_EQ(readAll(dirs->enumerate(scSymbolFiles)).size(), 1u);
}

TEST(SearchDirContainer, ListGettersCreateOnlyWhenEditable) {
  ObjectPtr<EditableSearchDirContainer> dirs(new EditableSearchDirContainer());
  EXPECT_FALSE(dirs->getDirListForCategory(scBinaryFiles));
  EXPECT_FALSE(dirs->getDirListForCategory(scBinaryFiles)); // still not created
  ObjectPtr<FilteredDirList> created = dirs->getEditableDirListForCategory(scBinaryFiles);
  ASSERT_TRUE(created);
  EXPECT_EQ(dirs->getDirListForCategory(scBinaryFiles), created);
  EXPECT_EQ(dirs->getEditableDirListForCategory(scBinaryFiles), created);
  auto records = dirs->enumerate(scBinaryFiles);
  ASSERT_TRUE(records);
  EXPECT_TRUE(readAll(records).empty());
}

TEST(SearchDirContainer, IteratorIsASnapshot) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scBinaryFiles, "/one", false, false);
  dirs->addDirectory(scBinaryFiles, "/two", true, false);
  auto before = dirs->enumerate(scBinaryFiles);
  const char *name = nullptr;
  bool recursive = false;
  bool highPriority = false;
  ASSERT_TRUE(before->getCurrentRecord(name, recursive, highPriority));
  dirs->clear(scBinaryFiles);
  dirs->addDirectory(scBinaryFiles, "/three", false, false);
  dirs = ObjectPtr<IEditableSearchDirContainer>(); // the container is gone, the copy lives on
  EXPECT_STREQ(name, "/one");
  EXPECT_EQ(readAll(before), (std::vector<DirRecord>{{"/one", false, false}, {"/two", true, false}}));
}

TEST(SearchDirIterator, NextReportsWhetherARecordRemainsAndStaysAtTheEnd) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->addDirectory(scBinaryFiles, "/a", true, false);
  dirs->addDirectory(scBinaryFiles, "/b", false, true);
  auto records = dirs->enumerate(scBinaryFiles);
  const char *name = nullptr;
  bool recursive = false;
  bool highPriority = false;
  ASSERT_TRUE(records->getCurrentRecord(name, recursive, highPriority));
  EXPECT_STREQ(name, "/a");
  EXPECT_TRUE(recursive);
  EXPECT_FALSE(highPriority);
  EXPECT_TRUE(records->next());
  ASSERT_TRUE(records->getCurrentRecord(name, recursive, highPriority));
  EXPECT_STREQ(name, "/b");
  EXPECT_FALSE(recursive);
  EXPECT_TRUE(highPriority);
  EXPECT_FALSE(records->next());
  EXPECT_FALSE(records->next());
  EXPECT_FALSE(records->getCurrentRecord(name, recursive, highPriority));
  records->reset();
  ASSERT_TRUE(records->getCurrentRecord(name, recursive, highPriority));
  EXPECT_STREQ(name, "/a");
}

TEST(SearchDirIterator, EmptyIteratorNextIsFalse) {
  ObjectPtr<FilteredDirList> list(new FilteredDirList());
  DefaultSearchDirIterator records(*list);
  EXPECT_FALSE(records.next());
}

TEST(SearchDirContainer, CreateGivesOneReference) {
  auto dirs = IEditableSearchDirContainer::create();
  auto *counted = dynamic_cast<EditableSearchDirContainer *>(dirs.get());
  ASSERT_NE(counted, nullptr);
  EXPECT_EQ(counted->refCount(), 1);
  auto records = IEditableSearchDirContainer::create();
  records->addDirectory(scBinaryFiles, "/x", false, false);
  auto iterator = records->enumerate(scBinaryFiles);
  EXPECT_EQ(dynamic_cast<DefaultSearchDirIterator *>(iterator.get())->refCount(), 1);
}

} // namespace
