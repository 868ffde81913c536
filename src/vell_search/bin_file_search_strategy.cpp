// The strategy for binaries.
#include "vell_search/bin_file_search_strategy.h"

#include <boost/filesystem/path.hpp>

#include "vell/file_search.h"
#include "vell_search/host_kernel_release.h"

namespace VELL_2_13 {

BinFileSearchStrategy::BinFileSearchStrategy(ISearchEnv *env, const std::string &fileName,
                                             const std::string &retrievalDir, IValidator *validator)
    : BasicLocalAndRemoteFileSearchStrategy(env, fileName, retrievalDir), m_validator(validator) {}

bool BinFileSearchStrategy::callSearchStarted(ISearchStartedCallback &callback,
                                              IStringContainer &suggestions) {
  const char *file = fileToSearch();
  return callback.binFileSearchStarted(file, suggestions);
}

ObjectPtr<IValidFile> BinFileSearchStrategy::callFilesFound(IFilesFoundCallback &callback,
                                                            IValidFileIterator &files) {
  const char *file = fileToSearch();
  return callback.binFilesFound(file, files);
}

ObjectPtr<IValidFile> BinFileSearchStrategy::callNoFilesFound(INoFilesFoundCallback &callback,
                                                              IInvalidFileIterator &rejected,
                                                              IValidFileIterator &files) {
  const char *file = fileToSearch();
  return callback.noBinFilesFound(file, *m_validator, rejected, files);
}

bool BinFileSearchStrategy::lookUpAbsoluteName(ISearchResultsContainer &container) {
  return BasicLocalAndRemoteFileSearchStrategy::lookUpAbsoluteName(container);
}

void BinFileSearchStrategy::fillSystemDirs(ISearchDirectoryContainer &container) {
  container.addSearchDirectory("/lib/modules", false);
  // The modules of the kernel this host runs.
  std::string release;
  if (hostKernelRelease(release))
    container.addSearchDirectory(("/lib/modules/" + release + "/kernel/").c_str(), true);
  if (utils::getFileNameOnly(fileName().c_str()) != VMLINUX)
    return;
  // The kernel image: the host's /boot, and the debug image of the target's
  // release.
  container.addSearchDirectory("/boot", false);
  ISearchEnv *env = getSearchEnv();
  ObjectPtr<IEnvironmentInfo> info = env ? env->environmentInfo() : ObjectPtr<IEnvironmentInfo>();
  const char *targetRelease = info ? info->kernelRelease() : nullptr;
  if (targetRelease && *targetRelease)
    container.addSearchDirectory((std::string("/usr/lib/debug/lib/modules/") + targetRelease).c_str(), false);
}

bool BinFileSearchStrategy::findInSystemDirs(ISearchResultsContainer &container) {
  const std::string &name = fileName();
  const bool guest = isGuestName(name);
  // The kernel reports a module by its bare name without extension: such a
  // name is looked for as a module file only.
  if (boost::filesystem::path(name).stem().string() == name && !guest) {
    FilesFinder finder(ssSystemDirs, this);
    configureWalk(finder);
    fillSystemDirs(finder);
    return finder.find((name + ".ko").c_str(), container);
  }
  if (guest)
    return false;
  FilesFinder finder(ssSystemDirs, this);
  configureWalk(finder);
  fillSystemDirs(finder);
  return finder.find(name.c_str(), container);
}

} // namespace VELL_2_13
