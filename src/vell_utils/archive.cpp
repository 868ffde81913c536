// Files a copy of a file into an archive tree keyed by its name and MD5:
// <targetDir>[/<subDir>]/<file name>/<md5>/<file name>.
#include <exception>

#include <boost/filesystem.hpp>

#include "vell/file_search.h"
#include "vell/validation.h"
#include "vell_utils/stale_temporaries.h"

namespace VELL_2_13 {
namespace utils {

namespace {

enum ArchiveStatus {
  kArchived = 0,
  kNoCalculator = 2,
  kNoChecksum = 3,
  kCannotCreateDirectory = 4,
  kAlreadyArchived = 6,
};

// True when dir is a directory or could be made one (one level). Another
// process filing the same file may make it between the test and the creation.
bool ensureDirectory(const std::string &dir) {
  return isDirectory(dir.c_str()) || createDir(dir.c_str()) || isDirectory(dir.c_str());
}

// Copies source to a temporary file beside target and renames it into place,
// so that a search filing the same file at the same moment, or looking at the
// archive, never sees a partly written copy. The temporary file is removed
// when the copy fails; the error leaves as filesystem_error. The temporary
// file's name carries this process's id, so that a filing killed before the
// rename leaves a file the next filing can tell from one still being filled.
void copyIntoPlace(const char *source, const std::string &target) {
  const boost::filesystem::path temporary(temporaryPathFor(target));
  try {
    boost::filesystem::copy_file(source, temporary, boost::filesystem::copy_options::overwrite_existing);
    boost::filesystem::rename(temporary, target);
  } catch (const boost::filesystem::filesystem_error &) {
    boost::system::error_code ignored;
    boost::filesystem::remove(temporary, ignored);
    throw;
  }
}

} // namespace

int archiveFile(const char *source, const char *targetDir, const char *subDir, std::string &result,
                bool removeSource) {
  std::string dir = targetDir ? targetDir : "";
  if (!ensureDirectory(dir))
    return kCannotCreateDirectory;
  if (subDir) {
    dir = addSubPart(dir.c_str(), subDir);
    if (!ensureDirectory(dir))
      return kCannotCreateDirectory;
  }
  // Every archived file gets a directory named after its own name.
  const std::string fileName = getFileNameOnly(source);
  dir = addSubPart(dir.c_str(), fileName.c_str());
  if (!ensureDirectory(dir))
    return kCannotCreateDirectory;

  ObjectPtr<IChecksumCalculator> calculator = IChecksumCalculator::create();
  if (!calculator)
    return kNoCalculator;
  ObjectPtr<IChecksum> checksum;
  try {
    checksum = calculator->calculateChecksum(source, ctMd5);
  } catch (const std::exception &) {
    return kNoChecksum; // unreadable source
  }
  if (!checksum)
    return kNoChecksum;

  dir = addSubPart(dir.c_str(), checksum->value());
  if (!ensureDirectory(dir))
    return kCannotCreateDirectory;

  // Copies of filings killed before their rename are of no use to anyone.
  removeStaleTemporaries(dir.c_str());

  const std::string target = addSubPart(dir.c_str(), fileName.c_str());
  result = target;
  // The same content under the same name is stored once.
  if (fileExists(target.c_str()))
    return kAlreadyArchived;

  // Errors of the copy and the removal leave as filesystem_error.
  copyIntoPlace(source, target);
  if (removeSource)
    boost::filesystem::remove(source);
  return kArchived;
}

} // namespace utils
} // namespace VELL_2_13
