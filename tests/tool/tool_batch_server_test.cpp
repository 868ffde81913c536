// vell find --batch with servers: requests worked on by several threads that
// share one set of server transfers (different files at once, one file once),
// answers still in input order and written as soon as they are ready.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <poll.h>
#include <set>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"
#include "vell_retriever/fault_http_server.h"
#include "vell_retriever/retriever_fixtures.h"

using nlohmann::json;
using vell_test::FaultHttpServer;
using vell_test::FaultResponse;
using vell_test::ToolResult;
using vell_test::ToolRunner;

namespace {

std::string executablePath(const vell_test::BuiltProgram &program) {
  return "/buildid/" + program.buildId + "/executable";
}

std::string binRequest(const std::string &id, const std::string &name, const std::string &buildId) {
  return json{{"id", id}, {"category", "bin"}, {"name", name}, {"build_id", buildId}}.dump() + "\n";
}

std::vector<json> answers(const ToolResult &result) {
  std::vector<json> parsed;
  for (const std::string &line : vell_test::lines(result.out))
    parsed.push_back(json::parse(line, nullptr, false));
  return parsed;
}

// Programs with build IDs of their own, served by a fault-injecting server.
class ToolBatchServerTest : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    s_dir = new vell_test::TempDir;
    s_programs = new std::vector<vell_test::BuiltProgram>;
    for (int i = 0; i < 4; ++i) {
      const std::string name = "prog" + std::to_string(i);
      s_programs->push_back(
          vell_test::buildProgram(s_dir->sub(name), name, "program number " + std::to_string(i)));
    }
  }

  static void TearDownTestSuite() {
    delete s_programs;
    delete s_dir;
  }

  void SetUp() override {
    VELL_REQUIRE_TOOL();
    m_tool.setEnv("XDG_CACHE_HOME", m_tool.home() + "/cache");
    m_tool.setEnv("DEBUGINFOD_URLS", "");
    m_tool.setEnv("DEBUGINFOD_CACHE_PATH", "");
  }

  // Serves every program's binary, each with a pause after every 4 KiB.
  void serveAll(FaultHttpServer &server, int chunkDelayMs) {
    for (const vell_test::BuiltProgram &program : *s_programs) {
      FaultResponse response{200, vell_test::readWhole(program.binary)};
      response.chunkDelayMs = chunkDelayMs;
      server.script(executablePath(program), {response});
    }
  }

  static const vell_test::BuiltProgram &program(size_t i) { return (*s_programs)[i]; }

  static vell_test::TempDir *s_dir;
  static std::vector<vell_test::BuiltProgram> *s_programs;
  ToolRunner m_tool;
};

vell_test::TempDir *ToolBatchServerTest::s_dir = nullptr;
std::vector<vell_test::BuiltProgram> *ToolBatchServerTest::s_programs = nullptr;

TEST_F(ToolBatchServerTest, DifferentFilesAreFetchedInParallelAndAnsweredInOrder) {
  FaultHttpServer server;
  serveAll(server, 0);
  // Every answer waits until all four requests are at the server: only
  // transfers made at the same time meet there.
  server.holdUntilConcurrent(4, std::chrono::seconds(20));
  std::string input;
  for (size_t i = 0; i < 4; ++i)
    input +=
        binRequest("r" + std::to_string(i), "/opt/recorded/prog" + std::to_string(i), program(i).buildId);
  m_tool.setInput(input);

  ToolResult result = m_tool.run({"find", "--batch", "--jobs", "4", "--server", server.url()});
  EXPECT_EQ(0, result.status) << result.err;
  std::vector<json> out = answers(result);
  ASSERT_EQ(4u, out.size()) << result.out;
  for (size_t i = 0; i < 4; ++i) {
    ASSERT_TRUE(out[i].is_object()) << result.out;
    EXPECT_EQ("r" + std::to_string(i), out[i]["id"]);
    ASSERT_TRUE(out[i]["found"].get<bool>()) << out[i].dump(2);
    EXPECT_EQ(vell_test::readWhole(program(i).binary),
              vell_test::readWhole(out[i]["path"].get<std::string>()));
    EXPECT_EQ("server", out[i]["retrieved"]["origin"]) << out[i].dump(2);
    EXPECT_EQ(1, server.requests(executablePath(program(i))));
  }
  EXPECT_EQ(4, server.maxConcurrent());
}

// Searches that run at the same time keep their settings apart: each request
// is answered with its own file, never another's or none.
TEST_F(ToolBatchServerTest, ManyRequestsAtOnceEachGetTheirOwnFile) {
  FaultHttpServer server;
  serveAll(server, 0);
  std::string input;
  for (size_t i = 0; i < 24; ++i)
    input += binRequest(std::to_string(i), "/opt/many" + std::to_string(i) + "/prog" + std::to_string(i % 4),
                        program(i % 4).buildId);
  m_tool.setInput(input);

  ToolResult result = m_tool.run({"find", "--batch", "--jobs", "4", "--server", server.url()});
  EXPECT_EQ(0, result.status) << result.err;
  std::vector<json> out = answers(result);
  ASSERT_EQ(24u, out.size()) << result.out;
  for (size_t i = 0; i < out.size(); ++i) {
    EXPECT_EQ(std::to_string(i), out[i]["id"]);
    ASSERT_TRUE(out[i]["found"].get<bool>()) << out[i].dump(2);
    EXPECT_EQ(vell_test::readWhole(program(i % 4).binary),
              vell_test::readWhole(out[i]["path"].get<std::string>()));
    EXPECT_EQ(program(i % 4).buildId, out[i]["retrieved"]["buildId"]) << out[i].dump(2);
  }
  for (size_t p = 0; p < 4; ++p)
    EXPECT_EQ(1, server.requests(executablePath(program(p))));
}

TEST_F(ToolBatchServerTest, OneJobFetchesOneFileAfterAnother) {
  FaultHttpServer server;
  serveAll(server, 20);
  std::string input;
  for (size_t i = 0; i < 4; ++i)
    input += binRequest(std::to_string(i), "/opt/recorded/prog" + std::to_string(i), program(i).buildId);
  m_tool.setInput(input);

  ToolResult result = m_tool.run({"find", "--batch", "--jobs", "1", "--server", server.url()});
  EXPECT_EQ(0, result.status) << result.err;
  std::vector<json> out = answers(result);
  ASSERT_EQ(4u, out.size()) << result.out;
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(std::to_string(i), out[i]["id"]);
    EXPECT_TRUE(out[i]["found"].get<bool>()) << out[i].dump(2);
  }
  EXPECT_EQ(1, server.maxConcurrent());
  EXPECT_EQ(4, server.totalRequests());
}

TEST_F(ToolBatchServerTest, SameBuildIdInSeveralLinesIsDownloadedOnce) {
  FaultHttpServer server;
  // A slow transfer: the other lines ask while it is still running.
  serveAll(server, 100);
  m_tool.setInput(binRequest("a", "/opt/one/prog0", program(0).buildId) +
                  binRequest("b", "/opt/two/prog0", program(0).buildId) +
                  binRequest("c", "/opt/other/prog1", program(1).buildId) +
                  binRequest("d", "/opt/one/prog0", program(0).buildId));

  ToolResult result = m_tool.run({"find", "--batch", "--jobs", "4", "--server", server.url()});
  EXPECT_EQ(0, result.status) << result.err;
  std::vector<json> out = answers(result);
  ASSERT_EQ(4u, out.size()) << result.out;
  const std::vector<std::string> ids{"a", "b", "c", "d"};
  std::multiset<std::string> origins;
  for (size_t i = 0; i < out.size(); ++i) {
    EXPECT_EQ(ids[i], out[i]["id"]);
    ASSERT_TRUE(out[i]["found"].get<bool>()) << out[i].dump(2);
    const size_t which = i == 2 ? 1 : 0;
    EXPECT_EQ(vell_test::readWhole(program(which).binary),
              vell_test::readWhole(out[i]["path"].get<std::string>()));
    if (which == 0)
      origins.insert(out[i]["retrieved"]["origin"].get<std::string>());
  }
  EXPECT_EQ(1, server.requests(executablePath(program(0))));
  EXPECT_EQ(1, server.requests(executablePath(program(1))));
  EXPECT_EQ(1u, origins.count("server")) << "one line downloads, the others find it in the cache";
  EXPECT_EQ(2u, origins.count("cache"));
}

TEST_F(ToolBatchServerTest, BadLinesAmongParallelRequestsAreAnsweredInOrder) {
  FaultHttpServer server;
  serveAll(server, 10);
  m_tool.setInput(binRequest("first", "/opt/recorded/prog0", program(0).buildId) + "not json\n" +
                  binRequest("third", "/opt/recorded/prog1", program(1).buildId) +
                  "{\"category\": \"bin\", \"id\": \"no name\"}\n" +
                  "{\"category\": \"bin\", \"name\": \"/x\", \"colour\": 1, \"id\": 5}\n" +
                  binRequest("bad id", "/opt/recorded/prog2", "xyz") +
                  binRequest("last", "/opt/recorded/prog2", program(2).buildId));

  ToolResult result = m_tool.run({"find", "--batch", "--jobs", "3", "--server", server.url()});
  EXPECT_EQ(2, result.status) << result.err;
  std::vector<json> out = answers(result);
  ASSERT_EQ(7u, out.size()) << result.out;
  EXPECT_EQ("first", out[0]["id"]);
  EXPECT_TRUE(out[0]["found"].get<bool>());
  EXPECT_EQ(2, out[1]["line"]);
  EXPECT_EQ("not a JSON object", out[1]["error"]);
  EXPECT_EQ("third", out[2]["id"]);
  EXPECT_TRUE(out[2]["found"].get<bool>());
  EXPECT_EQ(4, out[3]["line"]);
  EXPECT_EQ("no name", out[3]["id"]);
  EXPECT_EQ("field 'name' missing", out[3]["error"]);
  EXPECT_EQ(5, out[4]["line"]);
  EXPECT_EQ(5, out[4]["id"]);
  EXPECT_EQ(6, out[5]["line"]);
  EXPECT_EQ("bad id", out[5]["id"]);
  EXPECT_NE(std::string::npos, out[5]["error"].get<std::string>().find("xyz")) << out[5].dump();
  EXPECT_EQ("last", out[6]["id"]);
  EXPECT_TRUE(out[6]["found"].get<bool>());
}

TEST_F(ToolBatchServerTest, JobsMustBeAtLeastOneAndNeedsBatch) {
  m_tool.setInput("");
  EXPECT_EQ(2, m_tool.run({"find", "--batch", "--jobs", "0"}).status);
  EXPECT_EQ(2, m_tool.run({"find", "--batch", "--jobs", "many"}).status);
  EXPECT_EQ(2, m_tool.run({"find", "bin", "/x", "--jobs", "2"}).status);
  EXPECT_EQ(0, m_tool.run({"find", "--batch", "--jobs", "2"}).status);
}

// The tool with its standard input and output on pipes, so that a test can
// act as a driver that sends one request and waits for its answer.
class PipedTool {
public:
  PipedTool(const std::vector<std::string> &args, const std::vector<std::string> &environment) {
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
      throw std::runtime_error("pipe failed");
    std::vector<std::string> argv{vell_test::toolPath()};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char *> argp;
    for (std::string &arg : argv)
      argp.push_back(arg.data());
    argp.push_back(nullptr);
    std::vector<std::string> env = environment;
    std::vector<char *> envp;
    for (std::string &entry : env)
      envp.push_back(entry.data());
    envp.push_back(nullptr);
    m_pid = ::fork();
    if (m_pid == 0) {
      ::dup2(in[0], STDIN_FILENO);
      ::dup2(out[1], STDOUT_FILENO);
      ::execve(argp[0], argp.data(), envp.data());
      ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    m_in = in[1];
    m_out = out[0];
  }

  ~PipedTool() {
    closeInput();
    if (m_pid > 0 && !m_reaped) {
      ::kill(m_pid, SIGKILL);
      ::waitpid(m_pid, nullptr, 0);
    }
    ::close(m_out);
  }

  PipedTool(const PipedTool &) = delete;
  PipedTool &operator=(const PipedTool &) = delete;

  void send(const std::string &line) {
    std::string text = line;
    if (text.empty() || text.back() != '\n')
      text += '\n';
    ASSERT_EQ(static_cast<ssize_t>(text.size()), ::write(m_in, text.data(), text.size()));
  }

  // The next line of output; false when none came within timeout.
  bool receive(std::string &line, std::chrono::seconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
      size_t end = m_buffer.find('\n');
      if (end != std::string::npos) {
        line = m_buffer.substr(0, end);
        m_buffer.erase(0, end + 1);
        return true;
      }
      auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0)
        return false;
      pollfd entry{m_out, POLLIN, 0};
      if (::poll(&entry, 1, static_cast<int>(left.count())) <= 0)
        continue;
      char chunk[4096];
      ssize_t n = ::read(m_out, chunk, sizeof chunk);
      if (n <= 0)
        return false;
      m_buffer.append(chunk, static_cast<size_t>(n));
    }
  }

  void closeInput() {
    if (m_in >= 0)
      ::close(m_in);
    m_in = -1;
  }

  // The exit status after the input is closed; -1 when it did not end within timeout.
  int finish(std::chrono::seconds timeout) {
    closeInput();
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
      int status = 0;
      if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_reaped = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return -1;
  }

private:
  pid_t m_pid = -1;
  bool m_reaped = false;
  int m_in = -1;
  int m_out = -1;
  std::string m_buffer;
};

std::vector<std::string> toolEnvironment(const std::string &home) {
  std::vector<std::string> env;
  for (char **entry = environ; *entry; ++entry) {
    std::string text = *entry;
    const std::string name = text.substr(0, text.find('='));
    if (name == "HOME" || name.rfind("XDG_", 0) == 0 || name.rfind("DEBUGINFOD_", 0) == 0 || name == "LANG" ||
        name == "LC_ALL")
      continue;
    env.push_back(text);
  }
  env.push_back("HOME=" + home);
  env.push_back("XDG_CACHE_HOME=" + home + "/cache");
  env.push_back("LANG=C");
  env.push_back("LC_ALL=C");
  return env;
}

TEST_F(ToolBatchServerTest, DriverThatWaitsForEachAnswerGetsItBeforeSendingMore) {
  FaultHttpServer server;
  serveAll(server, 0);
  vell_test::TempDir home;
  PipedTool tool({"find", "--batch", "--jobs", "4", "--server", server.url()}, toolEnvironment(home.path()));
  const auto timeout = std::chrono::seconds(60);
  std::string line;

  tool.send(binRequest("one", "/opt/recorded/prog3", program(3).buildId));
  ASSERT_TRUE(tool.receive(line, timeout)) << "no answer to the first request while the driver waits";
  json first = json::parse(line, nullptr, false);
  EXPECT_EQ("one", first["id"]);
  EXPECT_TRUE(first["found"].get<bool>()) << line;

  tool.send("{\"category\": \"bin\"}");
  ASSERT_TRUE(tool.receive(line, timeout)) << "no answer to the bad line while the driver waits";
  json second = json::parse(line, nullptr, false);
  EXPECT_EQ(2, second["line"]) << line;
  EXPECT_TRUE(second.contains("error")) << line;

  // Fetched by the first request: the cache answers.
  tool.send(binRequest("three", "/opt/again/prog3", program(3).buildId));
  ASSERT_TRUE(tool.receive(line, timeout)) << "no answer to the third request while the driver waits";
  json third = json::parse(line, nullptr, false);
  EXPECT_EQ("three", third["id"]);
  EXPECT_TRUE(third["found"].get<bool>()) << line;
  EXPECT_EQ("cache", third["retrieved"]["origin"]) << line;

  EXPECT_EQ(2, tool.finish(timeout)) << "a bad line makes the status 2";
  EXPECT_EQ(1, server.requests(executablePath(program(3))));
}

} // namespace
