// Compressed kernels built with the formats' own tools.
#include "support/kernel_payloads.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <boost/filesystem.hpp>

namespace vell_test {

using namespace VELL_2_13;

namespace {

const KernelFormat kFormats[] = {
    {kcGzip, "gzip", "gzip -1 -n -c"},
    {kcXz, "xz", "xz -1 --check=crc32 -c"},
    {kcLzma, "lzma", "xz --format=lzma -1 -c"},
    {kcBzip2, "bzip2", "bzip2 -1 -c"},
    {kcLz4, "lz4", "lz4 -l -q -c"},
    {kcZstd, "zstd", "zstd -1 -q -c"},
    {kcLzo, "lzo", "lzop -1 -c"},
};

std::string runFilter(const std::string &command, const std::string &data) {
  char inputName[] = "/tmp/vell-payload-XXXXXX";
  const int fd = ::mkstemp(inputName);
  if (fd < 0)
    throw std::runtime_error("mkstemp");
  ::close(fd);
  writeFile(inputName, data);
  const std::string outputName = std::string(inputName) + ".out";
  const std::string line = command + " < " + inputName + " > " + outputName;
  const int status = std::system(line.c_str());
  std::string out = readFile(outputName);
  ::unlink(inputName);
  ::unlink(outputName.c_str());
  if (status != 0)
    throw std::runtime_error("failed: " + line);
  return out;
}

} // namespace

const KernelFormat *kernelFormats(size_t &count) {
  count = sizeof kFormats / sizeof kFormats[0];
  return kFormats;
}

const std::string &elfPayload() {
  static const std::string payload = [] {
    std::string data = readFile("/proc/self/exe").substr(0, 64 * 1024);
    // Text-like filler that compresses well but not trivially.
    std::mt19937 generator(13);
    const char *words[] = {"kernel ", "module ", "vmlinux ", "page ", "sched ", "irq ", "\n", "0x", "ffff "};
    while (data.size() < (8u << 20) + 300000)
      data += words[generator() % 9];
    return data;
  }();
  return payload;
}

std::string compressWith(const std::string &command, const std::string &data) {
  static std::mutex mutex;
  static std::map<std::pair<std::string, size_t>, std::string> cache;
  std::lock_guard<std::mutex> guard(mutex);
  auto key = std::make_pair(command, std::hash<std::string>()(data));
  auto found = cache.find(key);
  if (found != cache.end())
    return found->second;
  return cache[key] = runFilter(command, data);
}

std::string kernelFile(const std::string &compressed, size_t setupSize) {
  std::mt19937 generator(5);
  const std::set<unsigned char> magicStarts = {0x1f, 0xfd, 0x5d, 'B', 0x02, 0x28, 0x89};
  std::string file;
  while (file.size() < setupSize) {
    unsigned char c = static_cast<unsigned char>(generator() & 0xff);
    if (!magicStarts.count(c))
      file += static_cast<char>(c);
  }
  file += compressed;
  const uint32_t size = static_cast<uint32_t>(elfPayload().size());
  for (int shift = 0; shift < 32; shift += 8)
    file += static_cast<char>((size >> shift) & 0xff);
  return file;
}

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void writeFile(const std::string &path, const std::string &content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string listDirectory(const std::string &path) {
  std::vector<std::string> names;
  boost::system::error_code error;
  for (boost::filesystem::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
    names.push_back(it->path().filename().string());
  std::sort(names.begin(), names.end());
  std::string text;
  for (const std::string &name : names)
    text += name + ";";
  return text;
}

} // namespace vell_test
