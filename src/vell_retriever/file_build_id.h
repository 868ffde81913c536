// The GNU build ID of a downloaded or cached file, to check it against the one asked for.
#pragma once

#include <optional>
#include <string>

#include "vell/elf_identity.h"

namespace VELL_2_13 {
namespace retriever {

// Lowercase hex build ID of the ELF file at path; nullopt when the file is not
// a readable ELF file or carries no build ID.
inline std::optional<std::string> buildIdOfFile(const std::string &path) {
  std::optional<ElfIdentity> identity = readElfIdentity(path);
  if (!identity || identity->buildId.empty())
    return std::nullopt;
  return identity->buildId;
}

} // namespace retriever
} // namespace VELL_2_13
