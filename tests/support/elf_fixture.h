// Real ELF files built once per test run with gcc, objcopy and strip: a
// program with debug information, its detached debug file, its stripped binary
// with a debug link, another build of the same program and an unrelated program.
#pragma once

#include <string>

namespace vell_test {

struct ElfBuild {
  std::string full;     // gcc -g -Wl,--build-id output, with debug information
  std::string debug;    // objcopy --only-keep-debug of full
  std::string stripped; // full stripped of debug information, with a debug link to debug's file name
  std::string buildId;  // as eu-readelf reports it, lowercase hex
};

struct ElfFixture {
  ElfBuild prog;                 // the program under test
  ElfBuild rebuilt;              // the same program built again with another constant: another build ID
  ElfBuild other;                // an unrelated program
  std::string noBuildIdFull;     // built with --build-id=none and -g
  std::string noBuildIdDebug;    // its detached debug file
  std::string noBuildIdStripped; // stripped, with a debug link to noBuildIdDebug's name
  std::string dir;               // where all of these live
};

// Builds the fixture on first use (throws std::runtime_error when the tools
// fail) and returns it; the files stay until the test process ends.
const ElfFixture &elfFixture();

// Runs a shell command; throws std::runtime_error when it fails.
void runShell(const std::string &command);

// Output of a shell command (throws when it fails).
std::string shellOutput(const std::string &command);

// Copies a file, creating the parent directories of to.
void copyFile(const std::string &from, const std::string &to);

} // namespace vell_test
