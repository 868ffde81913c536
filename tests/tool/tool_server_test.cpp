// vell find --server: binaries, debug files and sources fetched by build ID
// from a real debuginfod server, the second run served from the cache, and
// DEBUGINFOD_URLS / --no-servers.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/debuginfod_suite.h"
#include "support/temp_dir.h"
#include "tool/tool_runner.h"
#include "vell_retriever/fault_http_server.h"
#include "vell_retriever/retriever_fixtures.h"

using nlohmann::json;
using vell_test::ToolResult;
using vell_test::ToolRunner;

namespace {

class ToolServerTest : public vell_test::DebuginfodSuite<ToolServerTest> {
public:
  static constexpr vell_test::ProgramSpec kProgram{"greeter", "greetings from the server"};

protected:
  void SetUp() override {
    DebuginfodSuite::SetUp();
    if (HasFatalFailure())
      return;
    // A private cache root; no servers or client cache from the environment.
    m_tool.setEnv("XDG_CACHE_HOME", m_tool.home() + "/cache");
    m_tool.setEnv("DEBUGINFOD_URLS", "");
    m_tool.setEnv("DEBUGINFOD_CACHE_PATH", "");
  }

  json runJson(std::vector<std::string> args) {
    args.insert(args.begin(), "--json");
    ToolResult result = m_tool.run(args);
    EXPECT_TRUE(result.status == 0 || result.status == 1) << result.err;
    return json::parse(result.out, nullptr, false);
  }

  ToolRunner m_tool;
};

TEST_F(ToolServerTest, FetchesBinaryDebugFileAndSourceThenAnswersFromTheCache) {
  const vell_test::BuiltProgram &p = program();
  const std::string server = debuginfod().url();
  const std::vector<std::vector<std::string>> requests{
      {"find", "bin", "/opt/recorded/greeter", "--build-id", p.buildId, "--server", server},
      {"find", "sym", "greeter.debug", "--build-id", p.buildId, "--server", server},
      {"find", "src", p.source, "--build-id", p.buildId, "--server", server}};
  const std::vector<std::string> expected{p.binary, p.debugFile, p.source};
  long before = debuginfod().buildIdRequests();

  for (size_t i = 0; i < requests.size(); ++i) {
    json out = runJson(requests[i]);
    ASSERT_TRUE(out.is_object()) << requests[i][1];
    ASSERT_TRUE(out["found"].get<bool>()) << out.dump(2);
    EXPECT_EQ(vell_test::readWhole(expected[i]), vell_test::readWhole(out["path"].get<std::string>()));
    EXPECT_EQ("server", out["retrieved"]["origin"]) << out.dump(2);
    EXPECT_TRUE(out["retrieved"]["used"].get<bool>()) << out.dump(2);
    EXPECT_EQ(p.buildId, out["retrieved"]["buildId"]);
  }
  EXPECT_EQ(3, debuginfod().buildIdRequests() - before);

  for (size_t i = 0; i < requests.size(); ++i) {
    json out = runJson(requests[i]);
    ASSERT_TRUE(out["found"].get<bool>()) << out.dump(2);
    EXPECT_EQ("cache", out["retrieved"]["origin"]) << out.dump(2);
  }
  EXPECT_EQ(3, debuginfod().buildIdRequests() - before) << "the second run asks the server nothing";
}

TEST_F(ToolServerTest, DebugFileOfALocalBinaryIsFetchedByTheBinarysBuildId) {
  const vell_test::BuiltProgram &p = program();
  // A copy of the binary with no debug file anywhere near it.
  vell_test::TempDir local;
  const std::string binary = local.sub("bin/greeter");
  vell_test::shell("mkdir -p " + vell_test::shellQuoted(local.sub("bin")) + " && cp " +
                   vell_test::shellQuoted(p.binary) + " " + vell_test::shellQuoted(binary));
  json out = runJson({"find", "sym", "greeter.debug", "--binary", binary, "--server", debuginfod().url()});
  ASSERT_TRUE(out.is_object());
  ASSERT_TRUE(out["found"].get<bool>()) << out.dump(2);
  EXPECT_EQ(vell_test::readWhole(p.debugFile), vell_test::readWhole(out["path"].get<std::string>()));
  EXPECT_EQ(p.buildId, out["retrieved"]["buildId"]) << out.dump(2);
  EXPECT_TRUE(out["retrieved"]["used"].get<bool>()) << out.dump(2);

  // The plain search asks no server for it.
  json plain = runJson(
      {"find", "sym", "greeter.debug", "--binary", binary, "--server", debuginfod().url(), "--no-build-id"});
  ASSERT_TRUE(plain.is_object());
  EXPECT_FALSE(plain.contains("retrieved") && plain["retrieved"]["used"].get<bool>()) << plain.dump(2);
}

TEST_F(ToolServerTest, ServersComeFromDebuginfodUrlsUnlessNoServersIsGiven) {
  const vell_test::BuiltProgram &p = program();
  m_tool.setEnv("DEBUGINFOD_URLS", "http://127.0.0.1:1/unused-first " + debuginfod().url());
  json fetched =
      runJson({"find", "bin", "/opt/elsewhere/greeter", "--build-id", p.buildId, "--server-timeout", "2"});
  ASSERT_TRUE(fetched["found"].get<bool>()) << fetched.dump(2);
  EXPECT_EQ(vell_test::readWhole(p.binary), vell_test::readWhole(fetched["path"].get<std::string>()));

  ToolResult plain = m_tool.run({"--json", "find", "bin", "/opt/elsewhere/greeter", "--no-servers"});
  EXPECT_EQ(1, plain.status) << plain.out << plain.err;
  json out = json::parse(plain.out, nullptr, false);
  EXPECT_FALSE(out.contains("retrieved"));
}

TEST_F(ToolServerTest, UnknownBuildIdIsReportedAsNotRetrieved) {
  ToolResult result = m_tool.run({"find", "bin", "/opt/none/missing", "--build-id", "00112233445566778899",
                                  "--server", debuginfod().url()});
  EXPECT_EQ(1, result.status) << result.err;
  EXPECT_NE(std::string::npos, result.out.find("not retrieved: No server has the binary of build ID "
                                               "00112233445566778899"))
      << result.out;
}

TEST_F(ToolServerTest, MalformedServerOptionsAreBadInput) {
  EXPECT_EQ(2,
            m_tool.run({"find", "bin", "/x", "--build-id", "xyz", "--server", "http://127.0.0.1:1"}).status);
  EXPECT_EQ(2, m_tool.run({"find", "bin", "/x", "--server", "ftp://example"}).status);
  // A source file is looked for by build ID on servers only.
  EXPECT_EQ(2, m_tool.run({"find", "src", "/x.c", "--build-id", "abcd", "--no-servers"}).status);
  EXPECT_EQ(2, m_tool.run({"find", "bin", "/x", "--no-servers", "--server", "http://127.0.0.1:1"}).status);
  EXPECT_EQ(
      2, m_tool.run({"find", "bin", "/x", "--server", "http://127.0.0.1:1", "--server-timeout", "0"}).status);
}

} // namespace

namespace {

// Two tool processes fetch the same binary at once from a slow server into one
// cache: one download or two, but the cached file is never partial or corrupt.
TEST(ToolServerProcessesTest, TwoProcessesFetchingOneFileNeverLeavePartialFile) {
  vell_test::TempDir dir;
  vell_test::BuiltProgram program =
      vell_test::buildProgram(dir.sub("tree"), "shared", "fetched twice at once");
  std::string body = vell_test::readWhole(program.binary);
  vell_test::FaultHttpServer server;
  vell_test::FaultResponse slow{200, body};
  slow.chunkDelayMs = 100;
  server.script("/buildid/" + program.buildId + "/executable", {slow});
  ToolRunner tool;
  tool.setEnv("XDG_CACHE_HOME", dir.mkdir("cache"));
  tool.setEnv("DEBUGINFOD_URLS", "");
  tool.setEnv("DEBUGINFOD_CACHE_PATH", "");
  const std::string cached = dir.sub("cache") + "/vell/buildid/" + program.buildId + "/executable";
  std::vector<std::string> args{"--json",     "find",          "bin",      "/opt/shared/shared",
                                "--build-id", program.buildId, "--server", server.url()};

  pid_t first = tool.start(args, 1);
  pid_t second = tool.start(args, 2);
  // While they run, the cached file is either absent or whole.
  int whole = 0;
  for (int i = 0; i < 400 && (::kill(first, 0) == 0 || ::kill(second, 0) == 0); ++i) {
    std::string seen = vell_test::readWhole(cached);
    if (!seen.empty()) {
      EXPECT_EQ(body.size(), seen.size());
      EXPECT_TRUE(seen == body);
      ++whole;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ToolResult a = tool.wait(first);
  ToolResult b = tool.wait(second);

  EXPECT_EQ(0, a.status) << a.out << a.err;
  EXPECT_EQ(0, b.status) << b.out << b.err;
  for (const ToolResult *result : {&a, &b}) {
    json out = json::parse(result->out, nullptr, false);
    ASSERT_TRUE(out.is_object()) << result->out;
    EXPECT_EQ(body, vell_test::readWhole(out["path"].get<std::string>()));
  }
  EXPECT_EQ(body, vell_test::readWhole(cached));
  int requests = server.requests("/buildid/" + program.buildId + "/executable");
  EXPECT_GE(requests, 1);
  EXPECT_LE(requests, 2);
  // Nothing but the file itself is left in its build-ID directory.
  EXPECT_EQ("executable\n",
            vell_test::shell("ls -A " +
                             vell_test::shellQuoted(dir.sub("cache") + "/vell/buildid/" + program.buildId)));
}

} // namespace

namespace {

// A transfer longer than a second draws a progress line when standard error is
// a terminal (script(1) provides one), and none when it is a file.
TEST(ToolServerProgressTest, SlowTransferShowsProgressLineOnTerminalOnly) {
  vell_test::TempDir dir;
  vell_test::BuiltProgram program = vell_test::buildProgram(dir.sub("tree"), "slow", "a slow download");
  vell_test::FaultHttpServer server;
  vell_test::FaultResponse slow{200, vell_test::readWhole(program.binary)};
  slow.chunkDelayMs = 400;
  server.script("/buildid/" + program.buildId + "/executable", {slow});
  std::string command = vell_test::toolPath() + " find bin /opt/slow/slow --build-id " + program.buildId +
                        " --server " + server.url();
  std::string environment =
      "env -u DEBUGINFOD_URLS -u DEBUGINFOD_CACHE_PATH HOME=" + vell_test::shellQuoted(dir.mkdir("home")) +
      " XDG_CACHE_HOME=";

  std::string onTerminal = vell_test::shell(environment + vell_test::shellQuoted(dir.sub("cache-tty")) +
                                            " script -qec " + vell_test::shellQuoted(command) + " /dev/null");
  EXPECT_NE(std::string::npos,
            onTerminal.find("downloading " + server.url() + "/buildid/" + program.buildId + "/executable"))
      << onTerminal;
  EXPECT_NE(std::string::npos, onTerminal.find("retrieved: server")) << onTerminal;

  std::string toFile =
      vell_test::shell(environment + vell_test::shellQuoted(dir.sub("cache-file")) + " " + command + " 2>&1");
  EXPECT_EQ(std::string::npos, toFile.find("downloading")) << toFile;
  EXPECT_NE(std::string::npos, toFile.find("retrieved: server")) << toFile;
}

} // namespace
