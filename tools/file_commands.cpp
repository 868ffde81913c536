// vell checksum and vell extract-kernel: single-file utilities.
#include "file_commands.h"

#include <fstream>
#include <iostream>

#include <nlohmann/json.hpp>

#include "vell/file_search.h"
#include "vell/validation.h"

#include "file_checks.h"
#include "tool_error.h"

using namespace VELL_2_13;
using nlohmann::json;

namespace vell_tool {

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
  if (global.json)
    std::cout << json{{"file", file}, {"type", sha1 ? "sha1" : "md5"}, {"checksum", text}}.dump(2) << "\n";
  else
    std::cout << text << "\n";
  return kExitSuccess;
}

int runExtractKernel(const GlobalOptions &global, const std::string &compressed, const std::string &output) {
  requireFile("extract-kernel", compressed);
  if (output.empty())
    throw BadInput("extract-kernel: empty output path");
  std::string outputDir = absolutePath(output);
  outputDir = outputDir.substr(0, outputDir.find_last_of('/') + 1);
  requireDirectory("extract-kernel", outputDir.empty() ? "." : outputDir);
  bool extracted = utils::extractVmlinux(compressed.c_str(), output.c_str());
  if (global.json)
    std::cout << json{{"input", compressed}, {"output", output}, {"extracted", extracted}}.dump(2) << "\n";
  else if (extracted)
    std::cout << "extracted: " << output << "\n";
  else
    std::cerr << "vell: no kernel image could be extracted from " << compressed << "\n";
  return extracted ? kExitSuccess : kExitNotFound;
}

} // namespace vell_tool
