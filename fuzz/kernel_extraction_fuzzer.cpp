// Fuzzes kernel image extraction and module decompression in every
// compression. Invariants: a false result leaves no output file and no
// temporary file; a true result leaves an ELF file no larger than the cap.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <boost/filesystem.hpp>

#include "vell/kernel.h"
#include "vell_decompress/decoder.h"

using namespace VELL_2_13;

namespace {

constexpr unsigned long long kCap = 4u << 20;

struct CountingSink : decompress::OutputSink {
  size_t total = 0;
  bool write(const unsigned char *, size_t size) override {
    total += size;
    return total <= kCap;
  }
};

const std::string &workDir() {
  static const std::string dir = [] {
    char pattern[] = "/tmp/vell-kernel-fuzz-XXXXXX";
    const char *made = ::mkdtemp(pattern);
    if (!made)
      std::abort();
    return std::string(made);
  }();
  return dir;
}

size_t entries(const std::string &dir) {
  size_t count = 0;
  for (boost::filesystem::directory_iterator it(dir), end; it != end; ++it)
    ++count;
  return count;
}

void check(bool ok, const std::string &output) {
  struct stat st;
  const bool exists = ::stat(output.c_str(), &st) == 0;
  if (!ok && exists)
    std::abort(); // a failed extraction left its output
  if (ok) {
    FILE *file = std::fopen(output.c_str(), "rb");
    char magic[4] = {};
    if (!file || std::fread(magic, 1, 4, file) != 4 ||
        std::memcmp(magic,
                    "\x7f"
                    "ELF",
                    4) != 0)
      std::abort(); // an extraction counted that is no ELF file
    std::fclose(file);
    if (static_cast<unsigned long long>(st.st_size) > kCap)
      std::abort(); // the cap did not hold
    ::unlink(output.c_str());
  }
  if (entries(workDir()) != 1)
    std::abort(); // something besides the input is left behind
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // Every decoder on the bytes as they are, whatever their magic says.
  if (size > 0) {
    const kernel_compression_t format = static_cast<kernel_compression_t>(1 + data[0] % 7);
    CountingSink sink;
    decompress::decode(format, data + 1, size - 1, sink);
  }
  const std::string input = workDir() + "/input";
  const std::string output = workDir() + "/vmlinux";
  FILE *file = std::fopen(input.c_str(), "wb");
  if (!file)
    std::abort();
  if (size > 0)
    std::fwrite(data, 1, size, file);
  std::fclose(file);
  KernelExtraction result;
  check(extractKernelImage(input.c_str(), output.c_str(), kCap, &result), output);
  check(decompressElfFile(input.c_str(), output.c_str(), kCap, &result), output);
  return 0;
}
