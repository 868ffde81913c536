// Kernel images and modules in vell find and vell extract-kernel.
#include "kernel_support.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "vell/directory_index.h"
#include "vell/kernel.h"

#include "file_checks.h"
#include "json_writer.h"
#include "tool_error.h"
#include "tool_output.h"

using namespace VELL_2_13;
using nlohmann::json;

namespace vell_tool {

namespace {

// The output of extract-kernel must be a file this user may write (or create
// in directory): otherwise the failure is the output's, not the input's.
void requireWritableOutput(const std::string &output, const std::string &directory) {
  struct stat st {};
  if (::stat(output.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode))
      throw BadInput("extract-kernel: the output '" + output + "' is a directory; name the file to write");
    if (::access(output.c_str(), W_OK) != 0)
      throw BadInput("extract-kernel: cannot write the output '" + output + "': " + std::strerror(errno));
    return;
  }
  if (::access(directory.c_str(), W_OK | X_OK) != 0)
    throw BadInput("extract-kernel: cannot create the output '" + output + "' in " + directory + ": " +
                   std::strerror(errno));
}

std::string fileNameOf(const std::string &path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

const char *reasonText(extraction_error_t error) {
  switch (error) {
  case eeNone:
    return "no error";
  case eeUnreadable:
    return "the file cannot be read";
  case eeNoStream:
    return "it holds no stream of a known compression (gzip, xz, lzma, bzip2, lz4, zstd, lzo)";
  case eeNotElf:
    return "its compressed data do not hold an ELF image";
  case eeTruncated:
    return "its compressed stream is truncated";
  case eeOutputCap:
    return "the image would exceed the size cap";
  case eeOutputUnwritable:
    return "the output file cannot be written";
  }
  return "unknown error";
}

} // namespace

WalkOptions toolWalkOptions(bool plainWalk) {
  WalkOptions walk;
  // A walk starts with two helpers and adds more only while listings read
  // from the disk, where many listings in flight pay even on few processors.
  if (!plainWalk)
    walk.readAheadThreads = std::clamp(2 * std::thread::hardware_concurrency(), 8u, 16u);
  return walk;
}

ObjectPtr<IFileSearch> createToolFileSearch(IResolutionContextMgr &mgr, IResolutionContext &context,
                                            const char *clientId, bool plain, const std::string &sysroot,
                                            const std::string &kernelRelease,
                                            const ObjectPtr<IDirectoryIndex> &index,
                                            const WalkOptions &walk) {
  if (plain && !index && walk.readAheadThreads == 0)
    return mgr.createFileSearch(context, clientId, ObjectPtr<IEnvironmentInfo>());
  ObjectPtr<ISearchEnv> env = mgr.createSearchEnv(context, clientId, ObjectPtr<IEnvironmentInfo>());
  if (plain)
    return index ? createIndexedFileSearch(env, index) : createFileSearch(env, walk);
  KernelSearchOptions options;
  options.sysroot = sysroot;
  options.kernelRelease = kernelRelease;
  return index ? createKernelAwareFileSearch(env, options, index)
               : createKernelAwareFileSearch(env, options, walk);
}

bool isUnextractedKernel(const ObjectPtr<IValidFile> &found) {
  return found && found->name() && fileNameOf(found->name()).rfind(VMLINUZ, 0) == 0;
}

void warnAboutModuleRelease(const ObjectPtr<IValidFile> &found, const std::string &release) {
  if (!found || !found->name() || release.empty())
    return;
  const std::string moduleRelease = moduleReleaseOf(found->name());
  if (!moduleRelease.empty() && moduleRelease != release)
    reportWarning(std::string(found->name()) + " is a module of kernel release " + moduleRelease +
                  ", not of " + release);
}

int runExtractKernelImage(const GlobalOptions &global, const std::string &compressed,
                          const std::string &output, bool plain) {
  requireFile("extract-kernel", compressed);
  if (output.empty())
    throw BadInput("extract-kernel: empty output path");
  std::string outputDir = absolutePath(output);
  outputDir = outputDir.substr(0, outputDir.find_last_of('/') + 1);
  requireDirectory("extract-kernel", outputDir.empty() ? "." : outputDir);
  requireWritableOutput(output, outputDir.empty() ? "." : outputDir);
  KernelExtraction result;
  bool extracted = false;
  if (plain) {
    extracted = utils::extractVmlinux(compressed.c_str(), output.c_str());
    result.format = extracted ? kcGzip : kcNone;
  } else {
    extracted = extractKernelImage(compressed.c_str(), output.c_str(), DEFAULT_MAX_EXTRACTED_SIZE, &result);
  }
  if (global.json) {
    json answer{{"extracted", extracted}};
    putText(answer, "input", compressed);
    putText(answer, "output", output);
    if (extracted) {
      answer["format"] = kernelCompressionName(result.format);
      if (!plain) {
        answer["offset"] = result.offset;
        answer["size"] = result.size;
      }
    } else if (!plain) {
      answer["error"] = reasonText(result.error);
    }
    std::cout << documentText(answer) << "\n";
  } else if (extracted && plain) {
    std::cout << "extracted: " << output << "\n";
  } else if (extracted) {
    std::cout << "extracted: " << output << " (" << kernelCompressionName(result.format) << " at offset "
              << result.offset << ", " << result.size << " bytes)\n";
  } else if (plain) {
    std::cerr << "vell: no kernel image could be extracted from " << compressed << "\n";
  } else {
    std::cerr << "vell: no kernel image could be extracted from " << compressed << ": "
              << reasonText(result.error) << "\n";
  }
  return extracted ? kExitSuccess : kExitNotFound;
}

} // namespace vell_tool
