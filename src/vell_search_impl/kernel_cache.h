// The cache of uncompressed kernel images and modules made from compressed
// ones: <cache root>/vmlinux_cache/<md5>/vmlinux and
// <cache root>/module_cache/<md5>/<name>.ko.
#pragma once

#include <string>

#include "vell/kernel.h"

namespace VELL_2_13 {

// The extracted image of the compressed kernel at path, extracted now unless
// an earlier search did; empty when it cannot be had. Without options the
// gzip-only extraction is used, with them every compression and their cap.
std::string cachedKernelImage(const std::string &path, const KernelSearchOptions *options);

// The decompressed copy of a compressed module (name ending in .ko.xz,
// .ko.zst or .ko.gz); empty when path is no such module or it cannot be
// decompressed.
std::string cachedModule(const std::string &path, const KernelSearchOptions &options);

// The length of the compression suffix of a compressed module's name
// (".xz", ".zst", ".gz" after ".ko"); 0 for any other name.
size_t compressedModuleSuffix(const std::string &name);

} // namespace VELL_2_13
