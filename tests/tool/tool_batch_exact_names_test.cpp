// vell find --batch requests whose texts come as "<field>Base64": a file name
// that is not UTF-8 can be asked for with its exact bytes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "json_writer.h"
#include "tool/tool_runner.h"

using nlohmann::json;
using vell_test::lines;
using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;

namespace {

std::vector<json> answers(const ToolResult &result) {
  std::vector<json> parsed;
  for (const std::string &line : lines(result.out))
    parsed.push_back(json::parse(line, nullptr, true, false));
  return parsed;
}

TEST(ToolBatchExactNamesTest, NameGivenAsBase64FindsTheFileWithThoseBytes) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  // Two names that a replacement character would make equal.
  const std::string latin1 = "lib\xe9t\xe9.so";
  const std::string other = "lib\xfft\xff.so";
  const std::string wanted = dir.write("tree/a/" + latin1, "latin-1 name");
  dir.write("tree/b/" + other, "another name");
  ToolRunner tool;
  tool.setInput("{\"id\": 1, \"category\": \"bin\", \"nameBase64\": \"" + vell_tool::base64Encode(latin1) +
                "\"}\n"
                // The exact bytes win over the plain field.
                "{\"id\": 2, \"category\": \"bin\", \"name\": \"libz.so\", \"nameBase64\": \"" +
                vell_tool::base64Encode(other) + "\"}\n");

  const ToolResult result = tool.run({"find", "--batch", "--dir", "all:r=" + dir.sub("tree")});

  EXPECT_EQ(0, result.status) << result.err;
  const std::vector<json> got = answers(result);
  ASSERT_EQ(2u, got.size()) << result.out;
  std::string path;
  ASSERT_TRUE(got[0].contains("pathBase64")) << got[0];
  ASSERT_TRUE(vell_tool::base64Decode(got[0]["pathBase64"].get<std::string>(), path));
  EXPECT_EQ(wanted, path);
  ASSERT_TRUE(vell_tool::base64Decode(got[1]["pathBase64"].get<std::string>(), path));
  EXPECT_EQ(dir.sub("tree/b/" + other), path);
}

TEST(ToolBatchExactNamesTest, MalformedOrMisplacedBase64IsABadLine) {
  VELL_REQUIRE_TOOL();
  TempDir dir;
  dir.write("tree/libx.so", "x");
  ToolRunner tool;
  tool.setInput("{\"category\": \"bin\", \"nameBase64\": \"not base64!\"}\n"
                "{\"category\": \"bin\", \"nameBase64\": 7}\n"
                // Only text fields have an exact form.
                "{\"category\": \"bin\", \"name\": \"libx.so\", \"allBase64\": \"dHJ1ZQ==\"}\n"
                // An empty text is refused in either form.
                "{\"category\": \"bin\", \"nameBase64\": \"\"}\n"
                "{\"category\": \"bin\", \"nameBase64\": \"" +
                vell_tool::base64Encode("libx.so") + "\"}\n");

  const ToolResult result = tool.run({"find", "--batch", "--dir", "all:r=" + dir.sub("tree")});

  EXPECT_EQ(2, result.status) << result.err;
  const std::vector<json> got = answers(result);
  ASSERT_EQ(5u, got.size()) << result.out;
  EXPECT_EQ((json{{"line", 1}, {"error", "field 'nameBase64': expected standard base64"}}), got[0]);
  EXPECT_EQ((json{{"line", 2}, {"error", "field 'nameBase64': expected standard base64"}}), got[1]);
  EXPECT_EQ((json{{"line", 3}, {"error", "unknown field 'allBase64'"}}), got[2]);
  EXPECT_EQ((json{{"line", 4}, {"error", "field 'nameBase64': expected a string that is not empty"}}),
            got[3]);
  EXPECT_EQ(dir.sub("tree/libx.so"), got[4]["path"]);
}

} // namespace
