// Fetching remote files into the cache, and the absolute-name step that uses it.
#include "vell_search/local_and_remote_strategy.h"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

#include "platform/log.h"
#include "vell/file_search.h"
#include "vell_utils/path_containment.h"

namespace VELL_2_13 {

BasicLocalAndRemoteFileSearchStrategy::BasicLocalAndRemoteFileSearchStrategy(ISearchEnv *env,
                                                                             const std::string &fileName,
                                                                             const std::string &retrievalDir)
    : BasicFileSearchStrategy(env, fileName), m_retrievalDir(retrievalDir) {}

bool BasicLocalAndRemoteFileSearchStrategy::lookUpAbsoluteName(ISearchResultsContainer &container) {
  // A Linux path written with backslashes is what the retriever knows.
  std::string converted = fileName();
  fixLinuxName(converted);
  ISearchEnv *env = getSearchEnv();
  IFileRetriever *retriever = env ? env->fileRetriever() : nullptr;
  if (retriever && !retriever->isLocalFile(converted)) {
    // A remote file: its fetched copy in the cache is the only candidate.
    std::string localPath;
    if (!fetchRemoteFile(*this, retrievalDir(), converted, localPath))
      return false;
    return container.validateAndAdd(localPath.c_str(), ssAbsoluteNameLookup);
  }
  return BasicFileSearchStrategy::lookUpAbsoluteName(container);
}

bool fetchRemoteFile(const IFileSearchStrategy &strategy, const std::string &retrievalDir,
                     const std::string &name, std::string &localPath) {
  ISearchEnv *env = strategy.getSearchEnv();
  if (!env)
    return false;
  const char *cacheDir = env->cacheDir();
  if (!cacheDir || !*cacheDir) {
    VELL_LOG_ERROR_AT("src/vell_search", "Empty directory name.");
    return false;
  }
  if (retrievalDir.empty())
    return false;
  IFileRetriever *retriever = env->fileRetriever();
  if (!retriever)
    return false;
  if (retriever->retrieveFile(name.c_str(), retrievalDir.c_str()) != 0)
    return false;
  // An absolute name lands in a subtree of the retrieval directory.
  boost::filesystem::path fetched(retrievalDir);
  fetched /= name;
  // The name is the recording's, not ours: a path that leaves the retrieval
  // directory, or anything there the retriever did not write as a plain file,
  // is neither moved into the cache nor removed.
  if (!utils::isPathInsideDirectory(fetched.string(), retrievalDir)) {
    VELL_LOG_ERROR_AT("src/vell_search", "Fetched file " << fetched.string()
                                                         << " lies outside the retrieval directory "
                                                         << retrievalDir << ", not used");
    return false;
  }
  if (!utils::isOwnFileInsideDirectory(fetched.string(), retrievalDir)) {
    VELL_LOG_ERROR_AT("src/vell_search", "Fetched file "
                                             << fetched.string()
                                             << " is not a regular file inside the retrieval directory "
                                             << retrievalDir << ", not used");
    return false;
  }
  int status = -1;
  try {
    status = utils::archiveFile(fetched.string().c_str(), cacheDir, nullptr, localPath, true);
  } catch (const boost::filesystem::filesystem_error &) {
    status = -1;
  }
  // 6: the same file was already in the cache.
  if (status == 0 || status == 6)
    return true;
  boost::system::error_code ignored;
  boost::filesystem::remove(fetched, ignored);
  return false;
}

} // namespace VELL_2_13
