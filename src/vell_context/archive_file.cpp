// Filing a file into the archive directory that applies to a context.
#include <boost/filesystem/operations.hpp>

#include "platform/log.h"
#include "vell_context/context_layout.h"
#include "vell_context/resolution_context_mgr.h"

namespace VELL_2_13 {

namespace {

// Status when no level of the inheritance chain has an archive directory.
constexpr unsigned int NO_ARCHIVE_DIR = 8;
// Status of utils::archiveFile for a directory or file of the archive that
// could not be written.
constexpr unsigned int ARCHIVE_NOT_WRITTEN = 4;

} // namespace

unsigned int ResolutionContextMgr::archiveFile(IResolutionContext &context, const char *file,
                                               search_category_t category) {
  // The nearest level with an archive directory wins.
  std::string archiveDir;
  walkInheritanceChain(context, [&](IResolutionContext &level) {
    archiveDir = getArchiveDir(level);
    return archiveDir.empty();
  });
  if (archiveDir.empty())
    return NO_ARCHIVE_DIR;
  std::string archived;
  try {
    return unsigned(
        utils::archiveFile(file, archiveDir.c_str(), context_layout::subDirName(category), archived, false));
  } catch (const boost::filesystem::filesystem_error &error) {
    // The copy into the archive failed; no exception leaves the manager.
    VELL_LOG_ERROR_AT("src/vell_context",
                      "Cannot archive " << platform::orNull(file) << ": " << error.what());
    return ARCHIVE_NOT_WRITTEN;
  }
}

} // namespace VELL_2_13
