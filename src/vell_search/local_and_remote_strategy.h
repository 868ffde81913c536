// A strategy whose absolute-name step fetches a file that is not present
// locally through the environment's file retriever into the cache.
#pragma once

#include <string>

#include "vell_search/basic_file_search_strategy.h"

namespace VELL_2_13 {

class BasicLocalAndRemoteFileSearchStrategy : public BasicFileSearchStrategy {
public:
  // retrievalDir: where the file retriever places a fetched file.
  BasicLocalAndRemoteFileSearchStrategy(ISearchEnv *env, const std::string &fileName,
                                        const std::string &retrievalDir);

  bool lookUpAbsoluteName(ISearchResultsContainer &container) override;

protected:
  const std::string &retrievalDir() const { return m_retrievalDir; }

private:
  std::string m_retrievalDir;
};

// Fetches name into retrievalDir through the strategy's file retriever and
// files it into the cache directory; localPath receives its path there.
bool fetchRemoteFile(const IFileSearchStrategy &strategy, const std::string &retrievalDir,
                     const std::string &name, std::string &localPath);

} // namespace VELL_2_13
