// vell find --batch run as a separate process: one JSON answer per request
// line, in order, equal to what vell find --json answers for the same
// request; bad lines answered with an error object while the batch goes on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tool/tool_runner.h"

using nlohmann::json;
using vell_test::lines;
using vell_test::TempDir;
using vell_test::ToolResult;
using vell_test::ToolRunner;

namespace {

// A recursive search directory with a binary at two depths and a symbol file.
struct BatchTree {
  TempDir dir;
  std::string shallow = dir.write("tree/libx.so", "binary");
  std::string deep = dir.write("tree/a/b/liby.so", "binary y");
  std::string symbols = dir.write("tree/c/liby.so.debug", "symbols");
  std::string other = dir.write("tree/d/libz.so", "binary z");
  std::string spec = "all:rp=" + dir.sub("tree");
};

std::vector<json> answers(const ToolResult &result) {
  std::vector<json> parsed;
  for (const std::string &line : lines(result.out))
    parsed.push_back(json::parse(line));
  return parsed;
}

// What vell find --json answers for one request given as options.
json single(const BatchTree &tree, const std::vector<std::string> &request) {
  ToolRunner tool;
  std::vector<std::string> args{"--json", "find", "--dir", tree.spec};
  args.insert(args.end(), request.begin(), request.end());
  const ToolResult result = tool.run(args);
  return json::parse(result.out);
}

// The answers of vell find --batch args to input, a batch with a bad line:
// exit status 2, nothing on standard error.
std::vector<json> answersToBadBatch(const std::string &input, const std::vector<std::string> &args) {
  ToolRunner tool;
  tool.setInput(input);
  const ToolResult result = tool.run(args);
  EXPECT_EQ(2, result.status) << result.err;
  EXPECT_EQ("", result.err);
  return answers(result);
}

json withoutId(json answer) {
  answer.erase("id");
  return answer;
}

TEST(ToolBatchTest, GoodAndBadLinesAreAnsweredInOrder) {
  VELL_REQUIRE_TOOL();
  BatchTree tree;
  const std::vector<json> got = answersToBadBatch(
      "{\"category\": \"bin\", \"name\": \"liby.so\", \"id\": 1}\n"
      "not json\n"
      "{\"category\": \"bin\", \"name\": \"missing.so\", \"id\": \"two\"}\n"
      "{\"category\": \"bin\", \"name\": \"libx.so\", \"colour\": \"ab\", \"id\": 3}\n"
      "\n"
      "{\"category\": \"sym\", \"name\": \"liby.so.debug\", \"all\": true}\n"
      "{\"category\": \"bin\"}\n"
      "[1, 2]\n"
      "{\"category\": \"nonsense\", \"name\": \"libx.so\", \"id\": [7]}\n"
      "{\"category\": \"bin\", \"name\": 5}\n"
      "{\"category\": \"src\", \"name\": \"x.c\", \"mtime\": \"soon\"}\n"
      "{\"category\": \"bin\", \"name\": \"/nonexistent-dir/libz.so\", \"explain\": true, \"id\": null}\n",
      {"find", "--batch", "--dir", tree.spec});
  ASSERT_EQ(12u, got.size());

  EXPECT_EQ(1, got[0]["id"]);
  EXPECT_EQ(tree.deep, got[0]["path"]);
  EXPECT_EQ(single(tree, {"bin", "liby.so"}), withoutId(got[0]));

  EXPECT_EQ((json{{"line", 2}, {"error", "not a JSON object"}}), got[1]);

  EXPECT_EQ("two", got[2]["id"]);
  EXPECT_EQ(false, got[2]["found"]);
  EXPECT_EQ(single(tree, {"bin", "missing.so"}), withoutId(got[2]));

  EXPECT_EQ((json{{"line", 4}, {"id", 3}, {"error", "unknown field 'colour'"}}), got[3]);
  EXPECT_EQ((json{{"line", 5}, {"error", "not a JSON object"}}), got[4]);

  EXPECT_EQ(tree.symbols, got[5]["path"]);
  EXPECT_EQ(single(tree, {"sym", "liby.so.debug", "--all"}), got[5]);

  EXPECT_EQ((json{{"line", 7}, {"error", "field 'name' missing"}}), got[6]);
  EXPECT_EQ((json{{"line", 8}, {"error", "not a JSON object"}}), got[7]);
  EXPECT_EQ(9, got[8]["line"]);
  EXPECT_EQ(json::array({7}), got[8]["id"]);
  EXPECT_NE(std::string::npos, got[8]["error"].get<std::string>().find("nonsense")) << got[8];
  EXPECT_EQ((json{{"line", 10}, {"error", "field 'name': expected a string"}}), got[9]);
  EXPECT_EQ(11, got[10]["line"]);
  EXPECT_NE(std::string::npos, got[10]["error"].get<std::string>().find("--mtime")) << got[10];

  // A recorded path that is not there: found by name in the tree.
  EXPECT_EQ(tree.other, got[11]["path"]);
  EXPECT_FALSE(got[11].contains("id"));
  EXPECT_EQ(single(tree, {"bin", "/nonexistent-dir/libz.so", "--explain"}), got[11]);
}

TEST(ToolBatchTest, WithoutTheIndexTheAnswersAreTheSame) {
  VELL_REQUIRE_TOOL();
  BatchTree tree;
  std::string input;
  for (const char *name : {"libx.so", "liby.so", "libz.so", "missing.so", "liby.so"})
    input += std::string("{\"category\": \"bin\", \"name\": \"") + name + "\", \"all\": true}\n";
  ToolRunner indexed;
  indexed.setInput(input);
  const ToolResult withIndex = indexed.run({"find", "--batch", "--dir", tree.spec});
  ToolRunner plain;
  plain.setInput(input);
  const ToolResult withoutIndex = plain.run({"find", "--batch", "--no-index", "--dir", tree.spec});
  EXPECT_EQ(1, withIndex.status) << withIndex.err;
  EXPECT_EQ(1, withoutIndex.status) << withoutIndex.err;
  EXPECT_EQ(5u, lines(withIndex.out).size());
  EXPECT_EQ(withoutIndex.out, withIndex.out);
  EXPECT_EQ(tree.deep, answers(withIndex)[4]["path"]);
}

TEST(ToolBatchTest, PlainWalkFieldAnswersTheSameFiles) {
  VELL_REQUIRE_TOOL();
  BatchTree tree;
  // Without the index every request walks the tree itself, on one thread
  // with plain_walk and with helpers listing ahead without it.
  const std::vector<json> got = answersToBadBatch(
      "{\"category\": \"bin\", \"name\": \"liby.so\", \"plain_walk\": true, \"id\": 1}\n"
      "{\"category\": \"bin\", \"name\": \"liby.so\", \"id\": 2}\n"
      "{\"category\": \"bin\", \"name\": \"liby.so\", \"plain_walk\": \"yes\", \"id\": 3}\n"
      "{\"category\": \"bin\", \"name\": \"libz.so\", \"plain_walk\": 1}\n"
      "{\"category\": \"sym\", \"name\": \"liby.so.debug\", \"plain_walk\": false, \"all\": true}\n"
      "{\"category\": \"bin\", \"name\": \"libz.so\", \"plain_walk\": true, \"all\": true}\n",
      {"find", "--batch", "--no-index", "--dir", tree.spec});
  ASSERT_EQ(6u, got.size());

  EXPECT_EQ(1, got[0]["id"]);
  EXPECT_EQ(tree.deep, got[0]["path"]);
  EXPECT_EQ(withoutId(got[1]), withoutId(got[0]));
  EXPECT_EQ(single(tree, {"bin", "liby.so", "--plain-walk"}), withoutId(got[0]));
  EXPECT_EQ(single(tree, {"bin", "liby.so"}), withoutId(got[1]));

  EXPECT_EQ((json{{"line", 3}, {"id", 3}, {"error", "field 'plain_walk': expected true or false"}}), got[2]);
  EXPECT_EQ((json{{"line", 4}, {"error", "field 'plain_walk': expected true or false"}}), got[3]);

  EXPECT_EQ(tree.symbols, got[4]["path"]);
  EXPECT_EQ(single(tree, {"sym", "liby.so.debug", "--all"}), got[4]);
  EXPECT_EQ(tree.other, got[5]["path"]);
  EXPECT_EQ(single(tree, {"bin", "libz.so", "--all"}), got[5]);
  EXPECT_EQ(single(tree, {"bin", "libz.so", "--all", "--plain-walk"}), got[5]);
}

TEST(ToolBatchTest, EveryRequestFoundExitsWithZero) {
  VELL_REQUIRE_TOOL();
  BatchTree tree;
  ToolRunner tool;
  tool.setInput(
      "{\"category\": \"bin\", \"name\": \"libx.so\"}\n{\"category\": \"bin\", \"name\": \"libz.so\"}\n");
  const ToolResult result = tool.run({"--json", "find", "--batch", "--dir", tree.spec});
  EXPECT_EQ(0, result.status) << result.err;
  const std::vector<json> got = answers(result);
  ASSERT_EQ(2u, got.size());
  EXPECT_EQ(tree.shallow, got[0]["path"]);
  EXPECT_EQ(tree.other, got[1]["path"]);
}

TEST(ToolBatchTest, CommandLineMistakesAreBadInput) {
  VELL_REQUIRE_TOOL();
  ToolRunner tool;
  tool.setInput("");
  ToolResult result = tool.run({"find", "--batch", "bin", "libx.so"});
  EXPECT_EQ(2, result.status);
  EXPECT_NE(std::string::npos, result.err.find("--batch")) << result.err;
  result = tool.run({"find", "--no-index", "bin", "libx.so"});
  EXPECT_EQ(2, result.status);
  EXPECT_NE(std::string::npos, result.err.find("--no-index")) << result.err;
  // No request at all: nothing to answer.
  result = tool.run({"find", "--batch"});
  EXPECT_EQ(0, result.status) << result.err;
  EXPECT_EQ("", result.out);
}

} // namespace
