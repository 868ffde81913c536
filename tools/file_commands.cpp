// vell checksum and vell extract-kernel: single-file utilities.
#include "file_commands.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "vell/file_search.h"
#include "vell/validation.h"

#include "file_checks.h"
#include "json_writer.h"
#include "tool_error.h"

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

} // namespace

int runChecksum(const GlobalOptions &global, const std::string &file, bool sha1) {
  requireFile("checksum", file);
  if (!std::ifstream(file, std::ios::binary))
    throw BadInput("checksum: cannot read '" + file + "'");
  ObjectPtr<IChecksum> checksum;
  try {
    checksum = IChecksumCalculator::create()->calculateChecksum(file.c_str(), sha1 ? ctSha1 : ctMd5);
  } catch (const std::exception &error) {
    throw BadInput("checksum: cannot read '" + file + "': " + error.what());
  }
  if (!checksum)
    throw BadInput("checksum: cannot compute the checksum of '" + file + "'");
  std::string text = std::string(sha1 ? "sha1:" : "") + checksum->value();
  if (global.json) {
    json out{{"type", sha1 ? "sha1" : "md5"}, {"checksum", text}};
    putText(out, "file", file);
    std::cout << documentText(out) << "\n";
  } else {
    std::cout << text << "\n";
  }
  return kExitSuccess;
}

int runExtractKernel(const GlobalOptions &global, const std::string &compressed, const std::string &output) {
  requireFile("extract-kernel", compressed);
  if (output.empty())
    throw BadInput("extract-kernel: empty output path");
  std::string outputDir = absolutePath(output);
  outputDir = outputDir.substr(0, outputDir.find_last_of('/') + 1);
  requireDirectory("extract-kernel", outputDir.empty() ? "." : outputDir);
  requireWritableOutput(output, outputDir.empty() ? "." : outputDir);
  bool extracted = utils::extractVmlinux(compressed.c_str(), output.c_str());
  if (global.json) {
    json out{{"extracted", extracted}};
    putText(out, "input", compressed);
    putText(out, "output", output);
    std::cout << documentText(out) << "\n";
  } else if (extracted) {
    std::cout << "extracted: " << output << "\n";
  } else {
    std::cerr << "vell: no kernel image could be extracted from " << compressed << "\n";
  }
  return extracted ? kExitSuccess : kExitNotFound;
}

} // namespace vell_tool
