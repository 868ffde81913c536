// The command-line form of search directories: rendering, parsing and the round trip.
#include <gtest/gtest.h>

#include "platform/assertion_recorder.h"
#include "support/log_capture.h"
#include "vell/file_search.h"
#include "vell_searchenv/dir_records.h"

namespace {

using namespace VELL_2_13;
using vell_test::DirRecord;
using vell_test::readAll;

std::vector<std::string> texts(TextIterator it) {
  std::vector<std::string> result;
  for (TextIterator end = it.end(); it != end; ++it)
    result.push_back(*it);
  return result;
}

ObjectPtr<ISearchDirIterator> recordsOf(search_category_t category, const std::vector<DirRecord> &records) {
  auto dirs = IEditableSearchDirContainer::create();
  dirs->clear(category);
  for (const auto &record : records)
    dirs->addDirectory(category, record.name.c_str(), record.recursive, record.highPriority);
  return dirs->enumerate(category);
}

TEST(SearchDirCommandLine, RendersPrefixFlagsAndDirectory) {
  const std::vector<DirRecord> records{{"/opt/plain", false, false},
                                       {"/opt/r", true, false},
                                       {"/opt/p", false, true},
                                       {"/opt/rp", true, true}};
  EXPECT_EQ(texts(getSearchDirCommandLine(scBinaryFiles, recordsOf(scBinaryFiles, records))),
            (std::vector<std::string>{"bin=/opt/plain", "bin:r=/opt/r", "bin:p=/opt/p", "bin:rp=/opt/rp"}));
  EXPECT_EQ(
      texts(getSearchDirCommandLine(scSymbolFiles, recordsOf(scSymbolFiles, {{"/opt/sym", true, true}}))),
      std::vector<std::string>{"sym:rp=/opt/sym"});
  EXPECT_EQ(texts(getSearchDirCommandLine(scSourceFiles, recordsOf(scSourceFiles, {{"/src", false, false}}))),
            std::vector<std::string>{"src=/src"});
}

TEST(SearchDirCommandLine, DropsExactlyOneTrailingBackslash) {
  auto records = recordsOf(scAllFiles, {{"C:\\sym\\", false, true}, {"D:\\two\\\\", false, false}});
  EXPECT_EQ(texts(getSearchDirCommandLine(scAllFiles, records)),
            (std::vector<std::string>{"all:p=C:\\sym", "all=D:\\two\\"}));
}

TEST(SearchDirCommandLine, ResetsTheIteratorFirst) {
  auto records = recordsOf(scBinaryFiles, {{"/a", false, false}, {"/b", false, false}});
  while (records->next()) {
  }
  EXPECT_EQ(texts(getSearchDirCommandLine(scBinaryFiles, records)),
            (std::vector<std::string>{"bin=/a", "bin=/b"}));
}

TEST(SearchDirCommandLine, InvalidCategoryAssertsAndYieldsNothing) {
  auto records = recordsOf(scBinaryFiles, {{"/a", false, false}});
  for (int category : {0, 5}) {
    vell_test::AssertionRecorder recorder;
    vell_test::LogCapture capture;
    TextIterator result = getSearchDirCommandLine(static_cast<search_category_t>(category), records);
    EXPECT_TRUE(result.atEnd());
    EXPECT_TRUE(result == result.end());
    ASSERT_EQ(recorder.reports().size(), 1u);
    EXPECT_EQ(recorder.reports()[0].message, "Invalid category");
    EXPECT_EQ(recorder.reports()[0].unit, "src/vell_searchenv");
    EXPECT_TRUE(capture.containsPrefix("Invalid category, at file: src/vell_searchenv:"));
  }
}

TEST(SearchDirCommandLine, ResultOutlivesTheDirectories) {
  TextIterator result;
  {
    auto records = recordsOf(scSymbolFiles, {{"/x", true, false}});
    result = getSearchDirCommandLine(scSymbolFiles, records);
  }
  ASSERT_FALSE(result.atEnd());
  EXPECT_EQ(*result, "sym:r=/x");
  EXPECT_EQ(result->size(), 8u);
  ++result;
  EXPECT_TRUE(result.atEnd());
}

TEST(SearchDirCommandLine, EmptyListYieldsNoTexts) {
  EXPECT_TRUE(texts(getSearchDirCommandLine(scBinaryFiles, recordsOf(scBinaryFiles, {}))).empty());
}

SearchDirSpec parsed(const std::string &text) {
  SearchDirSpec spec;
  std::string error;
  EXPECT_TRUE(parseSearchDirCommandLine(text, spec, error)) << text << ": " << error;
  EXPECT_EQ(error, "");
  return spec;
}

std::string parseError(const std::string &text) {
  SearchDirSpec spec;
  spec.directory = "untouched";
  std::string error;
  EXPECT_FALSE(parseSearchDirCommandLine(text, spec, error)) << text;
  EXPECT_EQ(spec.directory, "untouched");
  return error;
}

TEST(SearchDirCommandLine, ParsesEveryPrefixAndFlagForm) {
  SearchDirSpec spec = parsed("bin=/usr/lib");
  EXPECT_EQ(spec.category, scBinaryFiles);
  EXPECT_FALSE(spec.recursive);
  EXPECT_FALSE(spec.highPriority);
  EXPECT_EQ(spec.directory, "/usr/lib");
  spec = parsed("sym:r=/opt/debug");
  EXPECT_EQ(spec.category, scSymbolFiles);
  EXPECT_TRUE(spec.recursive);
  EXPECT_FALSE(spec.highPriority);
  spec = parsed("src:p=/src");
  EXPECT_EQ(spec.category, scSourceFiles);
  EXPECT_FALSE(spec.recursive);
  EXPECT_TRUE(spec.highPriority);
  spec = parsed("all:rp=C:\\sym");
  EXPECT_EQ(spec.category, scAllFiles);
  EXPECT_TRUE(spec.recursive);
  EXPECT_TRUE(spec.highPriority);
  EXPECT_EQ(spec.directory, "C:\\sym");
  // The flags are a set: "pr" means the same as "rp".
  spec = parsed("all:pr=/d");
  EXPECT_TRUE(spec.recursive);
  EXPECT_TRUE(spec.highPriority);
}

TEST(SearchDirCommandLine, DirectoryMayHoldEqualsSignsAndColons) {
  const SearchDirSpec spec = parsed("src:r=/a=b:c=d");
  EXPECT_EQ(spec.directory, "/a=b:c=d");
  EXPECT_TRUE(spec.recursive);
}

TEST(SearchDirCommandLine, ErrorsNameTheBadPart) {
  EXPECT_EQ(parseError("lib=/x"), "unknown prefix 'lib' in 'lib=/x' (expected bin, sym, src or all)");
  EXPECT_EQ(parseError("BIN=/x"), "unknown prefix 'BIN' in 'BIN=/x' (expected bin, sym, src or all)");
  EXPECT_EQ(parseError(":r=/x"), "unknown prefix '' in ':r=/x' (expected bin, sym, src or all)");
  EXPECT_EQ(parseError("bin:x=/x"), "unknown flag 'x' in 'x' (expected r, p or rp)");
  EXPECT_EQ(parseError("bin:rx=/x"), "unknown flag 'x' in 'rx' (expected r, p or rp)");
  EXPECT_EQ(parseError("bin:rr=/x"), "repeated flag 'r' in 'rr'");
  EXPECT_EQ(parseError("bin:=/x"), "empty flag list after ':' (expected r, p or rp)");
  EXPECT_EQ(parseError("bin/usr/lib"),
            "missing '=' in 'bin/usr/lib' (expected <bin|sym|src|all>[:<r|p|rp>]=<directory>)");
  EXPECT_EQ(parseError(""), "missing '=' in '' (expected <bin|sym|src|all>[:<r|p|rp>]=<directory>)");
  EXPECT_EQ(parseError("sym:rp="), "empty directory in 'sym:rp='");
}

TEST(SearchDirCommandLine, RenderingThenParsingGivesTheSameRecords) {
  const std::vector<DirRecord> records{{"/usr/lib/debug", true, false},
                                       {"/opt/sym", true, true},
                                       {"relative/dir", false, false},
                                       {"\\\\server\\share", false, true},
                                       {"/with=equals:and:colons", false, false},
                                       {"/blank name/x", true, false}};
  for (search_category_t category : {scBinaryFiles, scSymbolFiles, scSourceFiles, scAllFiles}) {
    std::vector<DirRecord> back;
    for (const std::string &text : texts(getSearchDirCommandLine(category, recordsOf(category, records)))) {
      const SearchDirSpec spec = parsed(text);
      EXPECT_EQ(spec.category, category);
      back.push_back(DirRecord{spec.directory, spec.recursive, spec.highPriority});
    }
    EXPECT_EQ(back, records);
  }
}

TEST(SearchDirCommandLine, TrailingBackslashIsTheOneLossOfTheRoundTrip) {
  // A Windows-shaped name loses its trailing backslash but keeps its canonical
  // form, so it still names the same directory.
  const SearchDirSpec windows =
      parsed(*getSearchDirCommandLine(scAllFiles, recordsOf(scAllFiles, {{"C:\\sym\\", false, true}})));
  EXPECT_EQ(windows.directory, "C:\\sym");
  EXPECT_EQ(utils::getCanonicalName(windows.directory.c_str(), true),
            utils::getCanonicalName("C:\\sym\\", true));
  // A Linux name ending in a backslash (a character of its last component) comes back as another directory.
  const SearchDirSpec linux =
      parsed(*getSearchDirCommandLine(scAllFiles, recordsOf(scAllFiles, {{"/opt/x\\", false, false}})));
  EXPECT_EQ(linux.directory, "/opt/x");
  EXPECT_NE(utils::getCanonicalName(linux.directory.c_str(), true),
            utils::getCanonicalName("/opt/x\\", true));
}

} // namespace
