// The strategy for source files.
#include "vell_search/src_file_search_strategy.h"

#include "vell_search/host_kernel_release.h"

namespace VELL_2_13 {

SrcFileSearchStrategy::SrcFileSearchStrategy(ISearchEnv *env, const std::string &fileName,
                                             IValidator *validator, const std::string &name2,
                                             const std::string &name3)
    : BasicFileSearchStrategy(env, fileName), m_name2(name2), m_name3(name3), m_validator(validator) {}

bool SrcFileSearchStrategy::callSearchStarted(ISearchStartedCallback &callback,
                                              IStringContainer &suggestions) {
  const char *file = fileToSearch();
  return callback.srcFileSearchStarted(file, m_name2.c_str(), m_name3.c_str(), suggestions);
}

ObjectPtr<IValidFile> SrcFileSearchStrategy::callFilesFound(IFilesFoundCallback &callback,
                                                            IValidFileIterator &files) {
  const char *file = fileToSearch();
  return callback.srcFilesFound(file, m_name2.c_str(), m_name3.c_str(), files);
}

ObjectPtr<IValidFile> SrcFileSearchStrategy::callNoFilesFound(INoFilesFoundCallback &callback,
                                                              IInvalidFileIterator &rejected,
                                                              IValidFileIterator &files) {
  const char *file = fileToSearch();
  return callback.noSrcFilesFound(file, m_name2.c_str(), m_name3.c_str(), *m_validator, rejected, files);
}

void SrcFileSearchStrategy::fillSystemDirs(ISearchDirectoryContainer &container) {
  container.addSearchDirectory("/usr/src", false);
  // The kernel headers of the kernel this host runs.
  std::string release;
  if (hostKernelRelease(release))
    container.addSearchDirectory(("/usr/src/linux-headers-" + release).c_str(), false);
}

} // namespace VELL_2_13
