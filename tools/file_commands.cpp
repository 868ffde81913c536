// vell checksum: the checksum of one file.
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

} // namespace vell_tool
