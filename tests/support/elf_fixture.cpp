// Builds the shared ELF test files with the system's compiler and binutils.
#include "support/elf_fixture.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "support/temp_dir.h"

namespace vell_test {
namespace {

namespace fs = std::filesystem;

std::string shellQuoted(const std::string &text) { return "'" + text + "'"; }

// The build ID eu-readelf reports for a file (independent of the reader under test).
std::string readelfBuildId(const std::string &path) {
  std::string out =
      shellOutput("eu-readelf -n " + shellQuoted(path) + " | sed -n 's/.*Build ID: *//p' | head -n1");
  while (!out.empty() && (out.back() == '\n' || out.back() == ' '))
    out.pop_back();
  return out;
}

ElfBuild buildProgram(const TempDir &dir, const std::string &name, const std::string &source) {
  ElfBuild build;
  std::string src = dir.write(name + ".c", source);
  build.full = dir.sub(name + ".full");
  build.debug = dir.sub(name + ".debug");
  build.stripped = dir.sub(name);
  runShell("gcc -g -O0 -Wl,--build-id -o " + shellQuoted(build.full) + " " + shellQuoted(src));
  runShell("objcopy --only-keep-debug " + shellQuoted(build.full) + " " + shellQuoted(build.debug));
  runShell("strip --strip-debug -o " + shellQuoted(build.stripped) + " " + shellQuoted(build.full));
  runShell("cd " + shellQuoted(dir.path()) + " && objcopy --add-gnu-debuglink=" +
           shellQuoted(name + ".debug") + " " + shellQuoted(build.stripped));
  build.buildId = readelfBuildId(build.full);
  if (build.buildId.empty())
    throw std::runtime_error("no build ID in " + build.full);
  return build;
}

ElfFixture *makeFixture() {
  static TempDir dir;
  auto *fixture = new ElfFixture;
  fixture->dir = dir.path();
  const std::string program = "#include <stdio.h>\nstatic int answer(int x) { return x * VALUE; }\n"
                              "int main(void) { printf(\"%d\\n\", answer(6)); return 0; }\n";
  fixture->prog = buildProgram(dir, "prog", "#define VALUE 7\n" + program);
  fixture->rebuilt = buildProgram(dir, "rebuilt", "#define VALUE 8\n" + program);
  fixture->other =
      buildProgram(dir, "other", "int twice(int x) { return 2 * x; }\nint main(void) { return twice(0); }\n");
  std::string src = dir.write("nobid.c", "int main(void) { return 3; }\n");
  fixture->noBuildIdFull = dir.sub("nobid.full");
  fixture->noBuildIdDebug = dir.sub("nobid.debug");
  fixture->noBuildIdStripped = dir.sub("nobid");
  runShell("gcc -g -O0 -Wl,--build-id=none -o " + shellQuoted(fixture->noBuildIdFull) + " " +
           shellQuoted(src));
  runShell("objcopy --only-keep-debug " + shellQuoted(fixture->noBuildIdFull) + " " +
           shellQuoted(fixture->noBuildIdDebug));
  runShell("strip --strip-debug -o " + shellQuoted(fixture->noBuildIdStripped) + " " +
           shellQuoted(fixture->noBuildIdFull));
  runShell("cd " + shellQuoted(dir.path()) + " && objcopy --add-gnu-debuglink=nobid.debug nobid");
  return fixture;
}

} // namespace

const ElfFixture &elfFixture() {
  static std::once_flag once;
  static ElfFixture *fixture = nullptr;
  std::call_once(once, [] { fixture = makeFixture(); });
  return *fixture;
}

void runShell(const std::string &command) {
  if (std::system(command.c_str()) != 0)
    throw std::runtime_error("command failed: " + command);
}

std::string shellOutput(const std::string &command) {
  std::unique_ptr<FILE, int (*)(FILE *)> pipe(::popen(command.c_str(), "r"), ::pclose);
  if (!pipe)
    throw std::runtime_error("cannot run: " + command);
  std::string out;
  std::array<char, 4096> buffer;
  size_t count = 0;
  while ((count = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) > 0)
    out.append(buffer.data(), count);
  int status = ::pclose(pipe.release());
  if (status != 0)
    throw std::runtime_error("command failed: " + command);
  return out;
}

void copyFile(const std::string &from, const std::string &to) {
  fs::create_directories(fs::path(to).parent_path());
  fs::copy_file(from, to, fs::copy_options::overwrite_existing);
}

} // namespace vell_test
