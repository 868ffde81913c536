// A test suite whose tests share one debuginfod server indexing one program
// built for the suite; both are made once, before the suite's first test.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/temp_dir.h"
#include "vell_retriever/retriever_fixtures.h"

namespace vell_test {

// A program built into <dir>/tree and a debuginfod server indexing that tree,
// its first scan complete (indexed) or given up on.
class IndexedProgram {
public:
  IndexedProgram(const std::string &name, const std::string &text)
      : program(buildProgram(dir.sub("tree"), name, text)), server(dir.path(), "-F", dir.sub("tree")),
        indexed(server.waitUntilIndexed()) {}

  TempDir dir;
  BuiltProgram program;
  DebuginfodServer server;
  bool indexed;
};

// The program a suite builds: its name, and a text that makes it differ from
// other suites' programs.
struct ProgramSpec {
  const char *name;
  const char *text;
};

// Base of a suite Suite that declares its program, public:
//   static constexpr vell_test::ProgramSpec kProgram{"name", "text"};
// A suite that overrides SetUp calls this SetUp first.
template <class Suite> class DebuginfodSuite : public ::testing::Test {
protected:
  static void SetUpTestSuite() { s_served = new IndexedProgram(Suite::kProgram.name, Suite::kProgram.text); }

  static void TearDownTestSuite() {
    delete s_served;
    s_served = nullptr;
  }

  void SetUp() override { ASSERT_TRUE(s_served->indexed) << "debuginfod did not finish indexing"; }

  static const BuiltProgram &program() { return s_served->program; }
  static DebuginfodServer &debuginfod() { return s_served->server; }

private:
  static inline IndexedProgram *s_served = nullptr;
};

} // namespace vell_test
