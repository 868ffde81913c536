// Runs the built vell tool as a separate process with its own environment and
// captures its output and exit status.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

extern char **environ;

namespace vell_test {

// Path of the tool binary under test: the one the suite was built with, or an
// installed copy named by VELL_TEST_TOOL (the test script runs the tool tests
// again against the installed tool that way).
inline std::string toolPath() {
  const char *installed = std::getenv("VELL_TEST_TOOL");
  return installed && *installed ? std::string(installed) : std::string(VELL_TOOL_PATH);
}

struct ToolResult {
  int status = -1; // exit status, or -1 when the process did not exit normally
  std::string out;
  std::string err;
};

// User and group id of "nobody".
constexpr uid_t kNobodyId = 65534;

// One run of the tool. HOME and XDG_CONFIG_HOME point into a private temporary
// directory unless the test sets them, so the real user configuration is never touched.
class ToolRunner {
public:
  ToolRunner() : m_home(m_dirs.mkdir("home")) {
    m_env["HOME"] = m_home;
    m_env["XDG_CONFIG_HOME"] = "";
    m_env["LANG"] = "C";
    m_env["LC_ALL"] = "C";
  }

  const std::string &home() const { return m_home; }
  // Sets (or, with an empty value, removes) a variable of the child's environment.
  void setEnv(const std::string &name, const std::string &value) { m_env[name] = value; }
  void setWorkingDirectory(const std::string &dir) { m_cwd = dir; }
  // Standard input of later runs (by default the test's own).
  void setInput(const std::string &content) { m_input = m_dirs.write("input", content); }
  // When the suite runs as root, later runs give up root in the child before the
  // tool starts and run as the unprivileged user and group "nobody" (65534), so
  // that file permissions apply to the tool. Does nothing for other users, whose
  // permissions apply anyway. The files the tool needs must be open to others
  // (see openForOthers).
  void runUnprivileged(bool unprivileged = true) { m_unprivileged = unprivileged && ::geteuid() == 0; }

  // Starts the tool; wait() collects it. Several may run at once.
  pid_t start(const std::vector<std::string> &args, int index = 0) {
    std::string out = m_dirs.sub("out-" + std::to_string(index));
    std::string err = m_dirs.sub("err-" + std::to_string(index));
    std::vector<std::string> argv{toolPath()};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<std::string> envText = environment();
    pid_t pid = fork();
    if (pid < 0)
      throw std::runtime_error("fork failed");
    if (pid == 0) {
      int outFd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      int errFd = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (outFd < 0 || errFd < 0 || dup2(outFd, 1) < 0 || dup2(errFd, 2) < 0)
        _exit(127);
      if (!m_cwd.empty() && chdir(m_cwd.c_str()) != 0)
        _exit(127);
      if (!m_input.empty()) {
        int inFd = ::open(m_input.c_str(), O_RDONLY);
        if (inFd < 0 || dup2(inFd, 0) < 0)
          _exit(127);
      }
      // Groups first: after setuid the process may no longer change them. The
      // last check makes sure root cannot be taken back.
      if (m_unprivileged && (::setgroups(0, nullptr) != 0 || ::setgid(kNobodyId) != 0 ||
                             ::setuid(kNobodyId) != 0 || ::setuid(0) == 0))
        _exit(126);
      std::vector<char *> argp;
      for (std::string &arg : argv)
        argp.push_back(arg.data());
      argp.push_back(nullptr);
      std::vector<char *> envp;
      for (std::string &entry : envText)
        envp.push_back(entry.data());
      envp.push_back(nullptr);
      execve(argp[0], argp.data(), envp.data());
      _exit(127);
    }
    m_outputs[pid] = {out, err};
    return pid;
  }

  ToolResult wait(pid_t pid) {
    ToolResult result;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = readFile(m_outputs[pid].first);
    result.err = readFile(m_outputs[pid].second);
    return result;
  }

  ToolResult run(const std::vector<std::string> &args) { return wait(start(args)); }

private:
  static std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
  }

  std::vector<std::string> environment() const {
    std::map<std::string, std::string> merged;
    for (char **entry = environ; *entry; ++entry) {
      std::string text = *entry;
      size_t equals = text.find('=');
      if (equals != std::string::npos)
        merged[text.substr(0, equals)] = text.substr(equals + 1);
    }
    for (const auto &[name, value] : m_env) {
      if (value.empty())
        merged.erase(name);
      else
        merged[name] = value;
    }
    std::vector<std::string> result;
    for (const auto &[name, value] : merged)
      result.push_back(name + "=" + value);
    return result;
  }

  TempDir m_dirs;
  std::string m_home;
  std::string m_cwd;
  std::string m_input;
  bool m_unprivileged = false;
  std::map<std::string, std::string> m_env;
  std::map<pid_t, std::pair<std::string, std::string>> m_outputs;
};

// Lines of a text, without their line ends.
inline std::vector<std::string> lines(const std::string &text) {
  std::vector<std::string> result;
  std::stringstream in(text);
  std::string line;
  while (std::getline(in, line))
    result.push_back(line);
  return result;
}

// The path on the "path: " line of a find's output; empty when there is none.
inline std::string printedPath(const ToolResult &result) {
  for (const std::string &line : lines(result.out))
    if (line.rfind("path: ", 0) == 0)
      return line.substr(6);
  return "";
}

// Skips the calling test when the suite was built without the tool.
#define VELL_REQUIRE_TOOL()                                                                                  \
  do {                                                                                                       \
    if (vell_test::toolPath().empty())                                                                       \
      GTEST_SKIP() << "the vell tool is not built";                                                          \
  } while (0)

} // namespace vell_test
