// A file retriever that fetches binaries, debug files and sources by GNU build ID
// from HTTP(S) debug-file servers (GET <server>/buildid/<hex>/debuginfo,
// .../executable, .../source/<absolute path>), with a local cache.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vell/callbacks.h"
#include "vell/export.h"
#include "vell/search_env.h"

namespace VELL_2_13 {

// What a build-ID request asks for.
enum build_id_file_kind_t : uint32_t {
  bfkDebugInfo = 1,  // the separate debug file
  bfkExecutable = 2, // the binary itself
  bfkSource = 3,     // one source file of the binary
};

struct VELL_API HttpRetrieverOptions {
  // Base URLs (http:// or https://), tried in this order.
  std::vector<std::string> servers;
  // Where fetched files are kept, one directory per build ID:
  // <cacheDir>/<build id>/debuginfo, .../executable, .../source#<path with '/' as '#'>.
  // Required: without it nothing is fetched.
  std::string cacheDir;
  // Caches of other clients of the same protocol that use the same layout
  // (such as debuginfod's client cache, $XDG_CACHE_HOME/debuginfod_client);
  // a file found there is used without a download. Read only.
  std::vector<std::string> clientCacheDirs;
  // Time allowed to connect to a server.
  long connectTimeoutMs = 10000;
  // A transfer that receives nothing for this long is abandoned (whole seconds, at least 1).
  long stallTimeoutSeconds = 30;
  // Largest file accepted; a larger answer is abandoned. 0: no limit.
  uint64_t maxFileSize = uint64_t(4) << 30;
  // Further attempts at one server after a 5xx answer or a connection failure;
  // a 404 is never retried.
  unsigned retries = 2;
  // Pause before the first retry; doubled before each further one.
  long retryDelayMs = 250;
  // How long "no server has it" is remembered before the servers are asked again. 0: not remembered.
  long negativeCacheSeconds = 600;
  // A CA bundle file for HTTPS; empty: the system's certificates.
  std::string caBundle;
  // A directory of CA certificates for HTTPS (hashed names, as c_rehash makes
  // them); empty: the system's. May be given with caBundle.
  std::string caPath;
};

// One build-ID request.
struct VELL_API BuildIdRequest {
  build_id_file_kind_t kind = bfkDebugInfo;
  std::string buildId;    // hex digits, any case
  std::string sourcePath; // bfkSource only: the absolute path recorded in the debug information
};

// Where a fetched file came from.
enum fetch_origin_t : uint32_t {
  foNone = 0,        // not available
  foCache = 1,       // this retriever's cache, from an earlier fetch
  foClientCache = 2, // another client's cache
  foServer = 3,      // downloaded now
};

struct VELL_API BuildIdResult {
  bool ok = false;
  std::string path; // the local file when ok
  fetch_origin_t origin = foNone;
  std::string url;       // the URL it was downloaded from (foServer), or the cache it was found in
  std::string error;     // why not, localised, when not ok
  bool notFound = false; // every server answered "not found" (now or remembered)
};

// Counters since construction.
struct VELL_API HttpRetrieverStats {
  uint64_t requests = 0;  // HTTP requests made (retries included)
  uint64_t downloads = 0; // files downloaded and kept
  uint64_t cacheHits = 0; // answered from this or another client's cache
};

class HttpFetchEngine;

// Serves build-ID requests directly (fetchDebugInfo, fetchExecutable,
// fetchSource, fetchAll) and, as the search environment's IFileRetriever, the
// names the host has tied to build IDs (addFile) or that carry one
// (".build-id/xx/rest.debug" and ".build-id/xx/rest"). Names it cannot tie to a
// build ID are left to the local search. Several threads may use one
// retriever at once: different files are fetched in parallel, one file only
// once. Never throws out of a fetch; faults are results and log lines.
class VELL_API HttpFileRetriever : public IFileRetriever {
public:
  explicit HttpFileRetriever(HttpRetrieverOptions options);
  ~HttpFileRetriever() override;
  HttpFileRetriever(const HttpFileRetriever &) = delete;
  HttpFileRetriever &operator=(const HttpFileRetriever &) = delete;

  // A new retriever with names (addFile), progress callback and last results
  // of its own that fetches through this one's transfers, caches and counters:
  // requests of both for one file cause one download, the second waiting for
  // the first. Either may be destroyed first.
  std::unique_ptr<HttpFileRetriever> sharingTransfers() const;

  // Ties a name the search may ask for (a recorded binary path, a debug-file
  // name, a source path) to the build ID and kind to fetch for it. False when
  // the build ID is not hex or a source path is not absolute.
  bool addFile(const std::string &name, const std::string &buildId, build_id_file_kind_t kind);
  // Receives the progress of transfers started through the IFileRetriever
  // operations; may be null. Not owned.
  void setProgressCallback(ISymSrvDownloadProgressCallback *callback);

  BuildIdResult fetchDebugInfo(const std::string &buildId,
                               ISymSrvDownloadProgressCallback *progress = nullptr);
  BuildIdResult fetchExecutable(const std::string &buildId,
                                ISymSrvDownloadProgressCallback *progress = nullptr);
  BuildIdResult fetchSource(const std::string &buildId, const std::string &sourcePath,
                            ISymSrvDownloadProgressCallback *progress = nullptr);
  BuildIdResult fetch(const BuildIdRequest &request, ISymSrvDownloadProgressCallback *progress = nullptr);
  // Fetches every request with up to inFlight transfers at once on the calling
  // thread; results in the order of the requests.
  std::vector<BuildIdResult> fetchAll(const std::vector<BuildIdRequest> &requests, unsigned inFlight,
                                      ISymSrvDownloadProgressCallback *progress = nullptr);

  // The result of the last fetch made for a name through retrieveFile.
  BuildIdResult lastResultFor(const std::string &name) const;
  HttpRetrieverStats stats() const;
  const HttpRetrieverOptions &options() const { return m_options; }

  // IFileRetriever
  bool allowKernelFallback(const char *name) override;
  int retrieveFile(const char *name, const char *directory) override;
  int getFileChecksum(const char *name, ObjectPtr<IChecksum> &expected) override;
  bool isRemote() override;
  bool isLocalFile(const std::string &name) override;
  void setEnvironmentInfo(ObjectPtr<IEnvironmentInfo> info) override;

private:
  HttpFileRetriever(HttpRetrieverOptions options, std::shared_ptr<HttpFetchEngine> engine);
  bool requestFor(const std::string &name, BuildIdRequest &request) const;

  HttpRetrieverOptions m_options;
  std::shared_ptr<HttpFetchEngine> m_engine;
  mutable std::mutex m_mutex;
  std::map<std::string, BuildIdRequest> m_names;
  std::map<std::string, BuildIdResult> m_lastResults;
  ISymSrvDownloadProgressCallback *m_progress = nullptr;
  ObjectPtr<IEnvironmentInfo> m_environmentInfo;
};

// The servers listed in a text of URLs separated by blanks (the form of the
// conventional DEBUGINFOD_URLS variable, which the host may read and pass on).
VELL_API std::vector<std::string> splitServerList(const std::string &text);

} // namespace VELL_2_13
