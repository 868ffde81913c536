// Whole-file MD5 and SHA-1 digests in lower-case hexadecimal.
#pragma once

#include <string>

namespace VELL_2_13 {
namespace validation {

enum class DigestKind { Md5, Sha1 };

// Reads the file in blocks of 4096 bytes and returns the digest as lower-case
// hexadecimal text (32 digits for MD5, 40 for SHA-1). Raises std::system_error
// when the file cannot be opened or read.
std::string fileDigest(const char *fileName, DigestKind kind);

} // namespace validation
} // namespace VELL_2_13
