// The GNU build ID of a downloaded file, to check it against the one asked for.
#pragma once

#include <optional>
#include <string>

namespace VELL_2_13 {
namespace retriever {

// Lowercase hex build ID of the ELF file at path; nullopt when the file is not
// a readable ELF file or carries no build ID.
std::optional<std::string> buildIdOfFile(const std::string &path);

} // namespace retriever
} // namespace VELL_2_13
