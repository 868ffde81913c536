// Fetches build-ID requests over HTTP(S) with libcurl: caches first, then the
// servers in order, several transfers at once on the calling thread.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "vell/http_retriever.h"

namespace VELL_2_13 {

class HttpFetchEngine {
public:
  // Keeps its own copy of options: retrievers sharing the engine may go first.
  explicit HttpFetchEngine(const HttpRetrieverOptions &options);

  // One result per request, in order. Requests for the same file share one
  // transfer; a file another thread is fetching through this engine is waited for.
  std::vector<BuildIdResult> run(const std::vector<BuildIdRequest> &requests, unsigned inFlight,
                                 ISymSrvDownloadProgressCallback *progress);

  HttpRetrieverStats stats() const;

  // Internal: counted by transfers.
  void countRequest() { ++m_requests; }

private:
  struct Job;
  // Answers the job from a cache or the negative cache; false when it must be fetched.
  bool answerLocally(Job &job);
  void transfer(std::vector<Job *> &jobs, unsigned inFlight, ISymSrvDownloadProgressCallback *progress);
  bool claim(const std::string &path);
  void release(const std::string &path);
  void waitWhileClaimed(const std::string &path);

  const HttpRetrieverOptions m_options;
  std::mutex m_claimMutex;
  std::condition_variable m_released;
  std::set<std::string> m_claimed;
  std::atomic<uint64_t> m_requests{0};
  std::atomic<uint64_t> m_downloads{0};
  std::atomic<uint64_t> m_cacheHits{0};
};

} // namespace VELL_2_13
