// The tool's JSON writer: UTF-8 checks, base64, and byte-exact round trips of
// names that are not UTF-8; the language taken from the locale.
#include <gtest/gtest.h>

#include <string>

#include <nlohmann/json.hpp>

#include "json_writer.h"
#include "support/temp_dir.h"
#include "tool_language.h"

using nlohmann::json;
using namespace vell_tool;

TEST(JsonWriterTest, Utf8ChecksFollowTheStandard) {
  EXPECT_TRUE(isValidUtf8(""));
  EXPECT_TRUE(isValidUtf8("plain/ascii.c"));
  EXPECT_TRUE(isValidUtf8("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"));
  EXPECT_TRUE(isValidUtf8(std::string("nul\0inside", 10)));
  EXPECT_FALSE(isValidUtf8("\xFF"));
  EXPECT_FALSE(isValidUtf8("\xC3"));             // cut short
  EXPECT_FALSE(isValidUtf8("\xC0\xAF"));         // overlong "/"
  EXPECT_FALSE(isValidUtf8("\xE0\x80\xAF"));     // overlong
  EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));     // surrogate
  EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80")); // above U+10FFFF
  EXPECT_FALSE(isValidUtf8("\xF5\x80\x80\x80"));
}

TEST(JsonWriterTest, InvalidBytesAreReplacedOneByOne) {
  EXPECT_EQ("a\xEF\xBF\xBD"
            "b",
            replaceInvalidUtf8("a\xFF"
                               "b"));
  EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD", replaceInvalidUtf8("\xC0\xAF"));
  EXPECT_EQ("caf\xC3\xA9", replaceInvalidUtf8("caf\xC3\xA9"));
}

TEST(JsonWriterTest, Base64RoundTripsEveryLength) {
  EXPECT_EQ("", base64Encode(""));
  EXPECT_EQ("Zg==", base64Encode("f"));
  EXPECT_EQ("Zm8=", base64Encode("fo"));
  EXPECT_EQ("Zm9v", base64Encode("foo"));
  EXPECT_EQ("/w==", base64Encode("\xFF"));
  std::string all;
  for (int c = 0; c < 256; ++c)
    all += static_cast<char>(c);
  for (size_t length = 0; length <= all.size(); length += 37) {
    std::string back;
    ASSERT_TRUE(base64Decode(base64Encode(all.substr(0, length)), back));
    EXPECT_EQ(all.substr(0, length), back);
  }
  std::string ignored;
  EXPECT_FALSE(base64Decode("Zm9", ignored));
  EXPECT_FALSE(base64Decode("Z=9v", ignored));
  EXPECT_FALSE(base64Decode("Zm9*", ignored));
}

TEST(JsonWriterTest, ValidNameIsAPlainString) {
  json out = json::object();
  putText(out, "path", "/usr/lib/caf\xC3\xA9.so");
  EXPECT_EQ((json{{"path", "/usr/lib/caf\xC3\xA9.so"}}), out);
}

TEST(JsonWriterTest, InvalidNameRoundTripsThroughItsBase64Member) {
  const std::string name = "/tmp/bad\xFF\xFEname\xC3";
  json out = json::object();
  putText(out, "path", name);
  ASSERT_TRUE(out.contains("pathBase64"));
  EXPECT_EQ("/tmp/bad\xEF\xBF\xBD\xEF\xBF\xBDname\xEF\xBF\xBD", out["path"]);
  // Written and read back by a strict reader.
  json parsed = json::parse(documentText(out));
  std::string back;
  ASSERT_TRUE(getText(parsed, "path", back));
  EXPECT_EQ(name, back);
}

TEST(JsonWriterTest, ArrayElementsOfInvalidNamesAreObjects) {
  EXPECT_EQ(json("ok"), textArrayElement("ok"));
  json element = textArrayElement("x\xFF");
  std::string back;
  ASSERT_TRUE(getText(element, "text", back));
  EXPECT_EQ("x\xFF", back);
}

TEST(ToolLanguageTest, TakesTheFirstSetVariableWithoutEncoding) {
  vell_test::TempDir catalogs;
  catalogs.write("vell_common.de.json", "{}");
  catalogs.write("vell_common.en.json", "{}");
  catalogs.write("vell_common.pt_BR.json", "{}");
  const std::string dir = catalogs.path();
  EXPECT_EQ("de", languageFromLocale(dir, "de_DE.UTF-8", "en_US.UTF-8", "en_US.UTF-8"));
  EXPECT_EQ("de", languageFromLocale(dir, nullptr, "de_AT@euro", "en_US"));
  EXPECT_EQ("de", languageFromLocale(dir, "", "", "de_CH.UTF-8"));
  EXPECT_EQ("pt_BR", languageFromLocale(dir, nullptr, nullptr, "pt_BR.UTF-8"));
  EXPECT_EQ("en", languageFromLocale(dir, nullptr, nullptr, "en_GB.UTF-8"));
  // C, POSIX, nothing set, or no catalogs for the language: English.
  EXPECT_EQ("", languageFromLocale(dir, "C", "de_DE", "de_DE"));
  EXPECT_EQ("", languageFromLocale(dir, "POSIX.UTF-8", nullptr, nullptr));
  EXPECT_EQ("", languageFromLocale(dir, nullptr, nullptr, nullptr));
  EXPECT_EQ("", languageFromLocale(dir, "fr_FR.UTF-8", nullptr, nullptr));
  EXPECT_EQ("", languageFromLocale(dir, "../../etc/passwd", nullptr, nullptr));
}
