// vell find --server https://... --ca-bundle/--ca-path: a server whose
// certificate a private authority signed is trusted only with that authority.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <thread>

#include <nlohmann/json.hpp>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"
#include "vell_retriever/retriever_fixtures.h"

using nlohmann::json;
using vell_test::shell;
using vell_test::shellQuoted;
using vell_test::ToolResult;
using vell_test::ToolRunner;

namespace {

// A private certificate authority, a certificate it signed for 127.0.0.1, and
// openssl's own TLS server serving a directory on 127.0.0.1.
class PrivateTlsServer {
public:
  explicit PrivateTlsServer(const std::string &dir) : m_dir(dir) {
    const std::string q = shellQuoted(dir);
    const std::string key = " -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes ";
    shell("cd " + q + " && openssl req -x509" + key +
          "-keyout ca.key -out ca.pem -days 2 -subj '/CN=vell test CA'" + " && openssl req" + key +
          "-keyout server.key -out server.csr -subj /CN=127.0.0.1" +
          " && printf 'subjectAltName=IP:127.0.0.1\\nbasicConstraints=CA:FALSE\\n' > server.ext" +
          " && openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2" +
          " -extfile server.ext -out server.pem && mkdir -p www capath && cp ca.pem capath/" +
          " && openssl rehash capath");
    const std::string pid = shell("cd " + shellQuoted(dir + "/www") +
                                  " && { openssl s_server -WWW -accept 127.0.0.1:0 -cert ../server.pem"
                                  " -key ../server.key </dev/null >../server.out 2>&1 & echo $!; }");
    m_pid = std::stoi(pid);
    // openssl names the port it listens on once it accepts connections.
    for (int i = 0; i < 500 && m_port == 0; ++i) {
      const std::string out = vell_test::readWhole(dir + "/server.out");
      const size_t accept = out.find("ACCEPT ");
      const size_t end = accept == std::string::npos ? accept : out.find('\n', accept);
      const size_t colon = end == std::string::npos ? end : out.rfind(':', end);
      if (colon != std::string::npos)
        m_port = std::stoi(out.substr(colon + 1, end - colon - 1));
      else
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  ~PrivateTlsServer() {
    if (m_pid > 0) {
      ::kill(m_pid, SIGTERM);
      ::waitpid(m_pid, nullptr, 0);
    }
  }

  PrivateTlsServer(const PrivateTlsServer &) = delete;
  PrivateTlsServer &operator=(const PrivateTlsServer &) = delete;

  bool listening() const { return m_port != 0; }
  std::string url() const { return "https://127.0.0.1:" + std::to_string(m_port); }
  std::string caBundle() const { return m_dir + "/ca.pem"; }
  std::string caPath() const { return m_dir + "/capath"; }
  // Serves content at path (below the server's root).
  void serve(const std::string &path, const std::string &content) const {
    const std::string file = m_dir + "/www" + path;
    shell("mkdir -p " + shellQuoted(file.substr(0, file.rfind('/'))));
    std::ofstream(file, std::ios::binary) << content;
  }

private:
  std::string m_dir;
  pid_t m_pid = -1;
  int m_port = 0;
};

TEST(ToolCaBundleTest, PrivateAuthorityIsTrustedOnlyWhenGiven) {
  VELL_REQUIRE_TOOL();
  vell_test::TempDir dir;
  vell_test::BuiltProgram program =
      vell_test::buildProgram(dir.sub("tree"), "secured", "behind a private CA");
  PrivateTlsServer server(dir.mkdir("tls"));
  ASSERT_TRUE(server.listening()) << vell_test::readWhole(dir.sub("tls/server.out"));
  server.serve("/buildid/" + program.buildId + "/executable", vell_test::readWhole(program.binary));

  auto find = [&](const std::string &cache, std::vector<std::string> extra) {
    ToolRunner tool;
    tool.setEnv("XDG_CACHE_HOME", dir.mkdir(cache));
    tool.setEnv("DEBUGINFOD_URLS", "");
    tool.setEnv("DEBUGINFOD_CACHE_PATH", "");
    // Only the authorities named on the command line, none from the environment.
    tool.setEnv("CURL_CA_BUNDLE", "");
    tool.setEnv("SSL_CERT_FILE", "");
    tool.setEnv("SSL_CERT_DIR", "");
    std::vector<std::string> args{
        "--json",        "find",     "bin",        "/opt/secured/secured", "--build-id",
        program.buildId, "--server", server.url(), "--server-timeout",     "5"};
    args.insert(args.end(), extra.begin(), extra.end());
    return tool.run(args);
  };

  ToolResult untrusted = find("cache-plain", {});
  EXPECT_EQ(1, untrusted.status) << untrusted.out << untrusted.err;
  json refused = json::parse(untrusted.out, nullptr, false);
  ASSERT_TRUE(refused.is_object()) << untrusted.out;
  EXPECT_FALSE(refused["found"].get<bool>());
  EXPECT_FALSE(refused["retrieved"]["error"].get<std::string>().empty()) << untrusted.out;

  ToolResult bundle = find("cache-bundle", {"--ca-bundle", server.caBundle()});
  EXPECT_EQ(0, bundle.status) << bundle.out << bundle.err;
  json fetched = json::parse(bundle.out, nullptr, false);
  ASSERT_TRUE(fetched.is_object()) << bundle.out;
  ASSERT_TRUE(fetched["found"].get<bool>()) << bundle.out;
  EXPECT_EQ("server", fetched["retrieved"]["origin"]);
  EXPECT_EQ(vell_test::readWhole(program.binary), vell_test::readWhole(fetched["path"].get<std::string>()));

  ToolResult directory = find("cache-path", {"--ca-path", server.caPath()});
  EXPECT_EQ(0, directory.status) << directory.out << directory.err;
  json viaPath = json::parse(directory.out, nullptr, false);
  ASSERT_TRUE(viaPath.is_object()) << directory.out;
  EXPECT_TRUE(viaPath["found"].get<bool>()) << directory.out;
  EXPECT_EQ("server", viaPath["retrieved"]["origin"]);
}

TEST(ToolCaBundleTest, MissingBundleOrDirectoryIsBadInput) {
  VELL_REQUIRE_TOOL();
  ToolRunner tool;
  tool.setEnv("DEBUGINFOD_URLS", "");
  EXPECT_EQ(2, tool.run({"find", "bin", "/x", "--server", "https://127.0.0.1:1", "--ca-bundle",
                         "/nonexistent/ca.pem"})
                   .status);
  EXPECT_EQ(
      2, tool.run({"find", "bin", "/x", "--server", "https://127.0.0.1:1", "--ca-path", "/nonexistent/certs"})
             .status);
}

} // namespace
