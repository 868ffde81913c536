// Feeds arbitrary bytes, as a file, to the ELF identity reader and to the
// identity check of a symbol candidate: never a crash, a leak or undefined
// behaviour, whatever the file holds.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "vell/debug_files.h"
#include "vell/elf_identity.h"

using namespace VELL_2_13;

namespace {

std::string scratchPath() {
  static const std::string path = "/tmp/vell-elf-identity-fuzz-" + std::to_string(::getpid());
  return path;
}

class NoErrorInfo : public IErrorInfoContainer {
public:
  void setSeverity(severity_t) override {}
  void setErrorMessage(const char *) override {}
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string &path = scratchPath();
  FILE *out = std::fopen(path.c_str(), "wb");
  if (!out)
    return 0;
  if (size > 0)
    std::fwrite(data, 1, size, out);
  std::fclose(out);

  std::optional<ElfIdentity> identity = readElfIdentity(path);
  if (identity) {
    // What comes out is always well-formed.
    if (identity->buildId.find_first_not_of("0123456789abcdef") != std::string::npos)
      __builtin_trap();
    if (identity->debugLinkName.empty() != !identity->debugLinkCrc.has_value())
      __builtin_trap();
  }
  // The same bytes as the binary of a symbol search, checked against themselves.
  ElfIdentityValidator check(scSymbolFiles, path);
  NoErrorInfo info;
  check.validate(path.c_str(), info);
  normalizeBuildId(std::string(reinterpret_cast<const char *>(data), size));
  return 0;
}
