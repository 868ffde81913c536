// Whole-file digests over OpenSSL's EVP interface.
#include "vell_validation/file_digest.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

#include <openssl/evp.h>

namespace VELL_2_13 {
namespace validation {

namespace {

constexpr size_t kBlockSize = 4096;

struct FileCloser {
  int fd;
  ~FileCloser() {
    if (fd >= 0)
      ::close(fd);
  }
};

struct DigestContextDeleter {
  void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};

[[noreturn]] void throwFileError(int error, const char *what, const char *fileName) {
  throw std::system_error(error, std::generic_category(), std::string(what) + fileName);
}

std::string toHex(const unsigned char *digest, unsigned int length) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(static_cast<size_t>(length) * 2);
  for (unsigned int i = 0; i < length; ++i) {
    text += kDigits[digest[i] >> 4];
    text += kDigits[digest[i] & 0x0f];
  }
  return text;
}

} // namespace

std::string fileDigest(const char *fileName, DigestKind kind) {
  FileCloser file{::open(fileName, O_RDONLY | O_CLOEXEC)};
  if (file.fd < 0)
    throwFileError(errno, "Cannot open file for checksum: ", fileName);
  ::posix_fadvise(file.fd, 0, 0, POSIX_FADV_SEQUENTIAL);

  std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context(EVP_MD_CTX_new());
  if (!context ||
      EVP_DigestInit_ex(context.get(), kind == DigestKind::Md5 ? EVP_md5() : EVP_sha1(), nullptr) != 1)
    throw std::runtime_error("Cannot initialise the digest");

  unsigned char block[kBlockSize];
  for (;;) {
    ssize_t got = ::read(file.fd, block, sizeof block);
    if (got < 0) {
      if (errno == EINTR)
        continue;
      throwFileError(errno, "Cannot read file for checksum: ", fileName);
    }
    if (got == 0)
      break;
    EVP_DigestUpdate(context.get(), block, static_cast<size_t>(got));
  }

  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_DigestFinal_ex(context.get(), digest, &length) != 1)
    throw std::runtime_error("Cannot finish the digest");
  return toHex(digest, length);
}

} // namespace validation
} // namespace VELL_2_13
