// The strategy for debug-symbol files.
#include "vell_search/sym_file_search_strategy.h"

#include <cstring>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "vell/file_search.h"

namespace VELL_2_13 {

namespace {

// Where the symbol file symbolFile of binary may lie next to it, in the order
// they are tried.
std::vector<std::string> namesAroundBinary(const std::string &binary, const std::string &symbolFile) {
  const std::string binaryDir = utils::getFileNamePath(binary.c_str());
  const std::string symbolName = utils::getFileNameOnly(symbolFile.c_str());
  std::vector<std::string> names;
  // The symbol file right beside the binary.
  names.push_back(utils::addSubPart(binaryDir.c_str(), symbolName.c_str()));
  // The binary's own name with the symbol file's extension.
  if (utils::getFileNameBase(binary.c_str()) != utils::getFileNameBase(symbolFile.c_str())) {
    const std::string extension = utils::getFileNameExtension(symbolFile.c_str());
    names.push_back(utils::changeFileNameExtension(binary.c_str(), extension.c_str()));
  }
  // The hidden debug directory beside the binary.
  names.push_back(utils::addSubPart((binaryDir + "/.debug").c_str(), symbolName.c_str()));
  return names;
}

} // namespace

SymFileSearchStrategy::SymFileSearchStrategy(ISearchEnv *env, const std::string &fileName,
                                             const std::string &retrievalDir, IValidator *validator,
                                             ISymSrvDownloadProgressCallback *progressCallback,
                                             const std::string &binaryPath, const std::string &secondName,
                                             const std::string &remoteBinaryPath)
    : BasicLocalAndRemoteFileSearchStrategy(env, fileName, retrievalDir), m_binaryPath(binaryPath),
      m_secondName(secondName), m_remoteBinaryPath(remoteBinaryPath), m_validator(validator),
      m_progressCallback(progressCallback) {}

bool SymFileSearchStrategy::callSearchStarted(ISearchStartedCallback &callback,
                                              IStringContainer &suggestions) {
  const char *file = fileToSearch();
  return callback.symFileSearchStarted(file, m_binaryPath.c_str(), m_secondName.c_str(), suggestions);
}

ObjectPtr<IValidFile> SymFileSearchStrategy::callFilesFound(IFilesFoundCallback &callback,
                                                            IValidFileIterator &files) {
  const char *file = fileToSearch();
  return callback.symFilesFound(file, m_binaryPath.c_str(), m_secondName.c_str(), files);
}

ObjectPtr<IValidFile> SymFileSearchStrategy::callNoFilesFound(INoFilesFoundCallback &callback,
                                                              IInvalidFileIterator &rejected,
                                                              IValidFileIterator &files) {
  const char *file = fileToSearch();
  return callback.noSymFilesFound(file, m_binaryPath.c_str(), m_secondName.c_str(), *m_validator, rejected,
                                  files);
}

bool SymFileSearchStrategy::find(const std::string &dir, bool recursive, const std::string &name,
                                 ISearchResultsContainer &container, bool &skipDir) {
  return BasicFileSearchStrategy::find(dir, recursive, name, container, skipDir);
}

bool SymFileSearchStrategy::targetIsLinux() const {
  ISearchEnv *env = getSearchEnv();
  if (!env)
    return false;
  ObjectPtr<IEnvironmentInfo> info = env->environmentInfo();
  return info && info->osType() == ostLinux;
}

bool SymFileSearchStrategy::lookUpAbsoluteName(ISearchResultsContainer &container) {
  // Only a Linux target's symbol files are fetched.
  if (targetIsLinux())
    return BasicLocalAndRemoteFileSearchStrategy::lookUpAbsoluteName(container);
  // Other targets get the local look-up alone, skipping the remote fetch of
  // the class in between on purpose.
  // NOLINTNEXTLINE(bugprone-parent-virtual-call)
  return BasicFileSearchStrategy::lookUpAbsoluteName(container);
}

bool SymFileSearchStrategy::lookUpAroundBinary(ISearchResultsContainer &container) {
  if (m_binaryPath.empty())
    return false;
  for (const std::string &candidate : namesAroundBinary(m_binaryPath, fileName())) {
    if (container.validateAndAdd(candidate.c_str(), ssAroundBinaryLookup))
      return true;
  }
  return lookUpAroundRemoteBinary(container);
}

bool SymFileSearchStrategy::lookUpAroundRemoteBinary(ISearchResultsContainer &container) {
  if (m_remoteBinaryPath.empty() || retrievalDir().empty() || !targetIsLinux())
    return false;
  IFileRetriever *retriever = getSearchEnv()->fileRetriever();
  if (!retriever || retriever->isLocalFile(m_remoteBinaryPath))
    return false;
  // The same places around the binary on the remote system: the first that
  // can be fetched is the only candidate.
  for (const std::string &remoteName : namesAroundBinary(m_remoteBinaryPath, fileName())) {
    std::string localPath;
    if (fetchRemoteFile(*this, retrievalDir(), remoteName, localPath))
      return container.validateAndAdd(localPath.c_str(), ssAroundBinaryLookup);
  }
  return false;
}

void SymFileSearchStrategy::fillSystemDirs(ISearchDirectoryContainer &container) {
  container.addSearchDirectory("/usr/lib/debug", false);
  // The debug directory mirroring the binary's own directory, unless the
  // symbol file's name already starts with the binary's path. The binary path
  // is absolute, so the result holds a double slash; it is kept.
  if (std::strncmp(fileName().c_str(), m_binaryPath.c_str(), m_binaryPath.size()) == 0)
    return;
  const std::string binaryDir = boost::filesystem::path(m_binaryPath).parent_path().string();
  container.addSearchDirectory(("/usr/lib/debug/" + binaryDir).c_str(), false);
}

} // namespace VELL_2_13
