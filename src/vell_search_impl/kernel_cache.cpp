// Cached uncompressed kernel images and modules, keyed by the MD5 checksum of
// the compressed file.
#include "vell_search_impl/kernel_cache.h"

#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

#include "vell/file_search.h"
#include "vell/platform.h"
#include "vell/validation.h"

namespace VELL_2_13 {

namespace {

const char *const kModuleSuffixes[] = {".ko.xz", ".ko.zst", ".ko.gz"};

// <cache root>/<area>/<md5 of path>; empty when the checksum cannot be had.
std::string cacheDirectoryFor(const std::string &path, const char *area) {
  ObjectPtr<IChecksumCalculator> calculator = IChecksumCalculator::create();
  if (!calculator)
    return std::string();
  ObjectPtr<IChecksum> checksum;
  try {
    checksum = calculator->calculateChecksum(path.c_str(), ctMd5);
  } catch (const std::exception &) {
    return std::string();
  }
  if (!checksum)
    return std::string();
  boost::filesystem::path dir(platform::IProductLocations::get().cacheRoot());
  dir /= area;
  dir /= checksum->value();
  return dir.string();
}

// Makes target from path with produce unless it is there already; a failed
// attempt leaves no empty checksum directory behind.
template <class Produce>
std::string cached(const std::string &dir, const std::string &target, Produce produce) {
  if (utils::fileExists(target.c_str()))
    return target;
  boost::system::error_code ignored;
  boost::filesystem::create_directories(dir, ignored);
  if (produce())
    return target;
  // Only an empty directory goes; one another search filled stays.
  ::rmdir(dir.c_str());
  return std::string();
}

} // namespace

size_t compressedModuleSuffix(const std::string &name) {
  for (const char *suffix : kModuleSuffixes) {
    const std::string text(suffix);
    if (name.size() > text.size() && name.compare(name.size() - text.size(), text.size(), text) == 0)
      return text.size() - 3; // what follows ".ko"
  }
  return 0;
}

std::string cachedKernelImage(const std::string &path, const KernelSearchOptions *options) {
  const std::string dir = cacheDirectoryFor(path, "vmlinux_cache");
  if (dir.empty())
    return std::string();
  const std::string target = (boost::filesystem::path(dir) / VMLINUX).string();
  return cached(dir, target, [&] {
    if (options && options->allCompressions)
      return extractKernelImage(path.c_str(), target.c_str(), options->maxExtractedSize);
    return utils::extractVmlinux(path.c_str(), target.c_str());
  });
}

std::string cachedModule(const std::string &path, const KernelSearchOptions &options) {
  const std::string name = utils::getFileNameOnly(path.c_str());
  const size_t suffix = compressedModuleSuffix(name);
  if (suffix == 0)
    return std::string();
  const std::string dir = cacheDirectoryFor(path, "module_cache");
  if (dir.empty())
    return std::string();
  const std::string target = (boost::filesystem::path(dir) / name.substr(0, name.size() - suffix)).string();
  return cached(dir, target,
                [&] { return decompressElfFile(path.c_str(), target.c_str(), options.maxExtractedSize); });
}

} // namespace VELL_2_13
