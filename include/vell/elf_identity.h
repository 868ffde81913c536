// What identifies an ELF file and ties a separate debug file to its binary:
// the GNU build ID, the .gnu_debuglink name and CRC-32, and whether debug
// information is present.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "vell/export.h"

namespace VELL_2_13 {

struct VELL_API ElfIdentity {
  std::string buildId;                  // lowercase hex of the NT_GNU_BUILD_ID note; empty when none
  std::string debugLinkName;            // .gnu_debuglink file name; empty when none
  std::optional<uint32_t> debugLinkCrc; // its CRC-32
  bool hasDebugInfo = false;            // .debug_info / .zdebug_info / compressed, with content
};

// The identity of the ELF file at path, read through its section headers (or,
// when those are gone, its program headers). Only the headers, the notes and
// the debug link are read, never the whole file. nullopt when the file is not
// a readable ELF file (not ELF, truncated, hostile): never throws, never
// crashes.
VELL_API std::optional<ElfIdentity> readElfIdentity(const std::string &path);

// CRC-32 as .gnu_debuglink uses it, of a whole file; nullopt when unreadable.
VELL_API std::optional<uint32_t> debugLinkCrcOfFile(const std::string &path);

// Lowercase hex text of a build ID given in any case, with an optional "0x"
// prefix and without separators; nullopt when text is not an even number of
// hex digits (at least two).
VELL_API std::optional<std::string> normalizeBuildId(const std::string &text);

} // namespace VELL_2_13
