// Compressed kernels built with the formats' own command-line tools from one
// ELF payload, shared by the extraction tests.
#pragma once

#include <string>

#include "vell/kernel.h"

namespace vell_test {

struct KernelFormat {
  VELL_2_13::kernel_compression_t format;
  const char *name;
  const char *command; // compresses stdin to stdout
};

// Every compression with its tool (gzip without header flags).
const KernelFormat *kernelFormats(size_t &count);

// An ELF payload of a little more than 8 MiB (so that lz4 needs two blocks).
const std::string &elfPayload();

// The payload compressed by command (cached per command).
std::string compressWith(const std::string &command, const std::string &data);

// A kernel file as the build lays it out: setup code that holds no magic of
// any format, the compressed payload, and the 4-byte size the build appends.
std::string kernelFile(const std::string &compressed, size_t setupSize = 4096);

std::string readFile(const std::string &path);
void writeFile(const std::string &path, const std::string &content);
// Names of the entries of a directory, sorted.
std::string listDirectory(const std::string &path);

} // namespace vell_test
