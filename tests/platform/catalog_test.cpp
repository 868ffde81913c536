// The message catalog service: loading, languages, placeholders, thread safety.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <set>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/temp_dir.h"
#include "vell/platform.h"
#include "vell_validation/catalog_scope.h"

using namespace VELL_2_13;
using namespace VELL_2_13::platform;

namespace {

const std::vector<std::string> kCommonIds = {"BinChecksumMismatch", "SymChecksumMismatch",
                                             "SrcChecksumMismatch", "ModificationTimeMismatch",
                                             "SizeMismatch",        "SourceFileUpToDate",
                                             "FileIsDirectory",     "FileIsNotReadable",
                                             "FileDoesNotExist",    "InvalidSymbolFile",
                                             "FileArchMismatch",    "FileIsNotABinaryModule",
                                             "BinFileReadingError", "BinFileUnsupportedFormat",
                                             "FileIsNotRegular",    "NoDataForSourceFileValidation"};

TEST(CatalogServiceTest, NothingLoadedMeansEveryCatalogIsUnavailable) {
  setCatalogDirectory("");
  EXPECT_EQ(nullptr, getMessageCatalog("vell_common"));
  EXPECT_EQ(nullptr, getMessageCatalog("vell.climgr"));
  EXPECT_EQ(nullptr, getMessageCatalog("anything"));
}

TEST(CatalogServiceTest, ShippedCommonCatalogHasEveryIdInBothLanguages) {
  for (const char *language : {"en", "de"}) {
    vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), language);
    auto catalog = getMessageCatalog("vell_common");
    ASSERT_NE(nullptr, catalog) << language;
    EXPECT_EQ(kCommonIds.size(), catalog->size()) << language;
    for (const std::string &id : kCommonIds)
      EXPECT_NE(0u, catalog->message(id).size()) << language << " " << id;
  }
}

TEST(CatalogServiceTest, LanguagesGiveDifferentTexts) {
  std::string english, german;
  {
    vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), "en");
    english = getMessageCatalog("vell_common")->message("FileDoesNotExist").asText({{"arg1", "/x"}});
  }
  {
    vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), "de");
    german = getMessageCatalog("vell_common")->message("FileDoesNotExist").asText({{"arg1", "/x"}});
  }
  EXPECT_EQ("The file /x does not exist or is not a regular file.", english);
  EXPECT_EQ("Die Datei /x existiert nicht oder ist keine reguläre Datei.", german);
}

TEST(CatalogServiceTest, ClimgrCatalogUsesPercentOnePlaceholder) {
  for (const char *language : {"en", "de"}) {
    vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), language);
    auto catalog = getMessageCatalog("vell.climgr");
    ASSERT_NE(nullptr, catalog);
    Message message = catalog->message("CannotMatchFileWithChecksumMismatch");
    ASSERT_NE(0u, message.size());
    std::string text = message.asText({{"%1", "/cache/a.so"}});
    EXPECT_NE(std::string::npos, text.find("/cache/a.so")) << text;
    EXPECT_EQ(std::string::npos, text.find("{%1}")) << text;
  }
}

TEST(CatalogServiceTest, SwitchingLanguageAtRunTimeIsSeenByLaterLookups) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), "en");
  auto english = getMessageCatalog("vell_common");
  setCatalogLanguage("de");
  auto german = getMessageCatalog("vell_common");
  ASSERT_NE(nullptr, english);
  ASSERT_NE(nullptr, german);
  EXPECT_NE(english->message("SizeMismatch").asText({}), german->message("SizeMismatch").asText({}));
  // A snapshot taken earlier stays usable.
  EXPECT_EQ("The file x cannot be opened for reading.",
            english->message("FileIsNotReadable").asText({{"arg1", "x"}}));
}

TEST(CatalogServiceTest, UnknownLanguageOrCatalogIsUnavailable) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), "xx");
  EXPECT_EQ(nullptr, getMessageCatalog("vell_common"));
  setCatalogLanguage("en");
  EXPECT_EQ(nullptr, getMessageCatalog("no_such_catalog"));
  EXPECT_NE(nullptr, getMessageCatalog("vell_common"));
}

TEST(CatalogServiceTest, EmptyLanguageMeansEnglish) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), "");
  auto catalog = getMessageCatalog("vell_common");
  ASSERT_NE(nullptr, catalog);
  EXPECT_EQ("The path is a directory, not a file.", catalog->message("FileIsDirectory").asText({}));
}

TEST(CatalogServiceTest, UnloadingMakesCatalogsUnavailableAgain) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  EXPECT_NE(nullptr, getMessageCatalog("vell_common"));
  setCatalogDirectory("");
  EXPECT_EQ(nullptr, getMessageCatalog("vell_common"));
}

TEST(CatalogServiceTest, MalformedOrNonObjectFilesAreUnavailable) {
  vell_test::TempDir dir;
  dir.write("broken.en.json", "{ \"a\": ");
  dir.write("array.en.json", "[\"a\"]");
  dir.write("empty.en.json", "{}");
  dir.write("mixed.en.json", R"({"text": "T", "number": 3, "object": {"x": "y"}})");
  vell_test::CatalogScope scope(dir.path());
  EXPECT_EQ(nullptr, getMessageCatalog("broken"));
  EXPECT_EQ(nullptr, getMessageCatalog("array"));
  auto empty = getMessageCatalog("empty");
  ASSERT_NE(nullptr, empty);
  EXPECT_EQ(0u, empty->size());
  auto mixed = getMessageCatalog("mixed");
  ASSERT_NE(nullptr, mixed);
  EXPECT_EQ(1u, mixed->size());
  EXPECT_EQ("T", mixed->message("text").asText({}));
  EXPECT_EQ(0u, mixed->message("number").size());
}

TEST(CatalogServiceTest, ReloadsAfterTheDirectoryIsSetAgain) {
  vell_test::TempDir dir;
  dir.write("c.en.json", R"({"a": "first"})");
  vell_test::CatalogScope scope(dir.path());
  EXPECT_EQ("first", getMessageCatalog("c")->message("a").asText({}));
  dir.write("c.en.json", R"({"a": "second"})");
  setCatalogDirectory(dir.path());
  EXPECT_EQ("second", getMessageCatalog("c")->message("a").asText({}));
}

TEST(MessageTest, NamedPlaceholdersAreSubstituted) {
  Message message("File {arg1} and again {arg1}; {%1} stays unless given");
  EXPECT_EQ("File /a and again /a; {%1} stays unless given", message.asText({{"arg1", "/a"}}));
  EXPECT_EQ("File /a and again /a; X stays unless given", message.asText({{"arg1", "/a"}, {"%1", "X"}}));
}

TEST(MessageTest, UnknownNamesAndStrayBracesAreKept) {
  EXPECT_EQ("a {other} b", Message("a {other} b").asText({{"arg1", "x"}}));
  EXPECT_EQ("open { only", Message("open { only").asText({{"arg1", "x"}}));
  EXPECT_EQ("close } only", Message("close } only").asText({}));
  EXPECT_EQ("{x}", Message("{{arg1}}").asText({{"arg1", "x"}}));
  EXPECT_EQ("", Message().asText({{"arg1", "x"}}));
  EXPECT_EQ(0u, Message().size());
}

TEST(MessageTest, SubstitutedValuesAreNotScannedAgain) {
  EXPECT_EQ("v={arg1}", Message("v={arg1}").asText({{"arg1", "{arg1}"}}));
  EXPECT_EQ("{%1}", Message("{arg1}").asText({{"arg1", "{%1}"}, {"%1", "no"}}));
}

TEST(CatalogTest, UnknownIdGivesEmptyMessage) {
  Catalog catalog;
  EXPECT_EQ(0u, catalog.size());
  catalog.add("a", "text a");
  EXPECT_EQ(1u, catalog.size());
  EXPECT_EQ("text a", catalog.message("a").asText({}));
  EXPECT_EQ(0u, catalog.message("b").size());
}

TEST(CatalogServiceTest, ConcurrentLookupsWhileTheLanguageChanges) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), "en");
  const std::set<std::string> expected = {"The file /f cannot be opened for reading.",
                                          "Die Datei /f kann nicht zum Lesen geöffnet werden."};
  std::atomic<bool> stop{false};
  std::atomic<int> unexpected{0};
  std::atomic<int> lookups{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i)
    readers.emplace_back([&] {
      while (!stop.load()) {
        auto catalog = getMessageCatalog("vell_common");
        if (!catalog || expected.count(catalog->message("FileIsNotReadable").asText({{"arg1", "/f"}})) != 1)
          ++unexpected;
        ++lookups;
      }
    });
  for (int i = 0; i < 200; ++i)
    setCatalogLanguage(i % 2 ? "en" : "de");
  while (lookups.load() < 1000)
    std::this_thread::yield();
  stop = true;
  for (auto &t : readers)
    t.join();
  EXPECT_EQ(0, unexpected.load());
}

} // namespace
