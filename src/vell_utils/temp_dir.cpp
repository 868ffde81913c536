// A private, uniquely named directory under the product's directory for
// temporary files.
#include <sys/stat.h>

#include <boost/filesystem.hpp>

#include "platform/log.h"
#include "vell/file_search.h"
#include "vell/platform.h"
#include "vell_utils/canonical_name.h"

namespace VELL_2_13 {
namespace utils {

namespace {

const char *const kUnit = "src/vell_utils";
const char *const kTempDirPattern = "vell-%%%%-%%%%-%%%%-%%%%";
constexpr int kAttempts = 30;

} // namespace

int createUniqueTempDir(std::string &result) {
  const boost::filesystem::path base(platform::IProductLocations::get().tempDirectory());
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::string candidate;
    try {
      candidate = canonicalPath((base / boost::filesystem::unique_path(kTempDirPattern)).string());
    } catch (const boost::filesystem::filesystem_error &) {
      continue; // no random source; try again
    }
    // Only the owner may enter: fetched files may be private.
    if (::mkdir(candidate.c_str(), 0700) == 0) {
      result = candidate;
      return 0;
    }
  }
  VELL_LOG_ERROR_AT(kUnit, "Cannot create temp directory");
  return 4;
}

} // namespace utils
} // namespace VELL_2_13
