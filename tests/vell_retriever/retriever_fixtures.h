// Fixtures of the retriever tests: ELF programs built with a build ID and a
// split debug file, shell commands, and a real debuginfod server on the
// loopback address.
#pragma once

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace vell_test {

// Runs a shell command; its standard output, or throws when it fails.
inline std::string shell(const std::string &command) {
  FILE *pipe = ::popen(command.c_str(), "r");
  if (!pipe)
    throw std::runtime_error("cannot run: " + command);
  std::string out;
  char buffer[4096];
  size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
    out.append(buffer, n);
  int status = ::pclose(pipe);
  if (status != 0)
    throw std::runtime_error("failed (" + std::to_string(status) + "): " + command);
  return out;
}

inline std::string shellQuoted(const std::string &text) {
  std::string out = "'";
  for (char c : text)
    out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

inline std::string readWhole(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// The build ID eu-readelf reports for an ELF file (independent of the library).
inline std::string buildIdByReadelf(const std::string &path) {
  std::string notes = shell("eu-readelf -n " + shellQuoted(path));
  std::smatch match;
  if (!std::regex_search(notes, match, std::regex("Build ID: ([0-9a-f]+)")))
    throw std::runtime_error("no build ID in " + path);
  return match[1];
}

// A program built from a C source in dir: the stripped binary (with build ID
// and debug link), its split debug file and the source.
struct BuiltProgram {
  std::string source;
  std::string binary;
  std::string debugFile;
  std::string buildId;
};

// Builds dir/<name> from dir/src/<name>.c; text makes programs differ.
inline BuiltProgram buildProgram(const std::string &dir, const std::string &name, const std::string &text) {
  BuiltProgram program;
  shell("mkdir -p " + shellQuoted(dir + "/src") + " " + shellQuoted(dir + "/bin") + " " +
        shellQuoted(dir + "/debug"));
  program.source = dir + "/src/" + name + ".c";
  std::ofstream(program.source) << "#include <stdio.h>\nint main(void) { puts(\"" << text
                                << "\"); return 0; }\n";
  program.binary = dir + "/bin/" + name;
  program.debugFile = dir + "/debug/" + name + ".debug";
  shell("cc -g -O0 -Wl,--build-id=sha1 -o " + shellQuoted(program.binary) + " " +
        shellQuoted(program.source));
  shell("objcopy --only-keep-debug " + shellQuoted(program.binary) + " " + shellQuoted(program.debugFile));
  shell("objcopy --strip-debug --add-gnu-debuglink=" + shellQuoted(program.debugFile) + " " +
        shellQuoted(program.binary));
  program.buildId = buildIdByReadelf(program.binary);
  return program;
}

// A TCP port on the loopback address that is free right now.
inline int freeLoopbackPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
  socklen_t length = sizeof address;
  ::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
  ::close(fd);
  return ntohs(address.sin_port);
}

// debuginfod (Debian's package) indexing the given directories with a private
// database, listening on the loopback address only (a preloaded shim turns its
// bind to every address into one to 127.0.0.1).
class DebuginfodServer {
public:
  // scanOption: -F for ELF files, -U for .deb packages.
  DebuginfodServer(const std::string &workDir, const std::string &scanOption, const std::string &root)
      : m_port(freeLoopbackPort()) {
    std::string log = workDir + "/debuginfod.log";
    m_pid = ::fork();
    if (m_pid < 0)
      throw std::runtime_error("fork failed");
    if (m_pid == 0) {
      ::setenv("LD_PRELOAD", VELL_LOOPBACK_BIND_PATH, 1);
      std::freopen(log.c_str(), "w", stdout);
      std::freopen(log.c_str(), "a", stderr);
      std::string port = std::to_string(m_port);
      std::string database = workDir + "/debuginfod.sqlite";
      ::execlp("debuginfod", "debuginfod", "-p", port.c_str(), "-d", database.c_str(), "-t", "0", "-g", "0",
               "-c", "1", scanOption.c_str(), root.c_str(), static_cast<char *>(nullptr));
      ::_exit(127);
    }
  }

  ~DebuginfodServer() {
    ::kill(m_pid, SIGTERM);
    int status = 0;
    ::waitpid(m_pid, &status, 0);
  }

  DebuginfodServer(const DebuginfodServer &) = delete;
  DebuginfodServer &operator=(const DebuginfodServer &) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port); }

  // The server's /metrics text; empty while it does not answer.
  std::string metrics() const {
    try {
      return shell("curl -s --max-time 5 " + url() + "/metrics");
    } catch (const std::exception &) {
      return "";
    }
  }

  // Build-ID requests (debug file, binary, source) the server has answered, from its own metrics.
  long buildIdRequests() const {
    std::string text = metrics();
    std::regex counter("http_requests_total\\{type=\"(debuginfo|executable|source)\"\\} ([0-9]+)");
    long total = 0;
    for (std::sregex_iterator it(text.begin(), text.end(), counter), end; it != end; ++it)
      total += std::stol((*it)[2]);
    return total;
  }

  // Waits until the first scan of the directories is complete.
  bool waitUntilIndexed(std::chrono::seconds limit = std::chrono::seconds(120)) const {
    auto deadline = std::chrono::steady_clock::now() + limit;
    std::regex traversed("thread_work_total\\{role=\"traverse\"\\} [1-9]");
    std::regex scanning("thread_work_pending\\{role=\"scan\"\\} [1-9]");
    std::regex busy("thread_busy\\{role=\"scan\"\\} [1-9]");
    while (std::chrono::steady_clock::now() < deadline) {
      std::string text = metrics();
      if (std::regex_search(text, traversed) && !std::regex_search(text, scanning) &&
          !std::regex_search(text, busy))
        return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return false;
  }

private:
  int m_port;
  pid_t m_pid = -1;
};

} // namespace vell_test
