// vell find --server: fetches the file by build ID from debug-file servers
// (debuginfod protocol) when the search does not find it locally.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vell/context.h"
#include "vell/http_retriever.h"
#include "vell/results.h"

namespace vell_tool {

struct ServerOptions {
  std::vector<std::string> servers; // --server, in order
  bool noServers = false;           // --no-servers: neither --server nor DEBUGINFOD_URLS
  std::string timeout;              // --server-timeout seconds
  std::string caBundle;             // --ca-bundle FILE
  std::string caPath;               // --ca-path DIR
};

// The servers of one run of the tool: the retriever whose transfers, caches
// and download progress line every request shares (a batch's requests on
// several threads: one file is downloaded once).
class ServerConnections {
public:
  // Null when no server applies (none given, none in DEBUGINFOD_URLS, or
  // --no-servers). Throws BadInput for a bad option.
  static std::unique_ptr<ServerConnections> create(const ServerOptions &options);
  ~ServerConnections();

  // The search's cache directory when the user gave none (fetched files are filed there).
  const std::string &searchCache() const { return m_searchCache; }
  // A retriever for one request: names of its own, transfers shared.
  std::unique_ptr<VELL_2_13::HttpFileRetriever> retrieverForRequest() const;
  VELL_2_13::ISymSrvDownloadProgressCallback *progress() const;

private:
  class Progress;
  ServerConnections(VELL_2_13::HttpRetrieverOptions options, std::string searchCache);

  std::string m_searchCache;
  std::unique_ptr<Progress> m_progress;
  std::unique_ptr<VELL_2_13::HttpFileRetriever> m_retriever;
};

// Where the file of a finished search came from, for the report.
struct RetrievalNote {
  bool attempted = false;
  bool used = false;  // the file found is the one retrieved
  std::string origin; // server, cache or client-cache
  std::string from;   // URL or directory
  std::string buildId;
  std::string error;
};

class ServerRetrieval {
public:
  // Null when no server applies (none given, none in DEBUGINFOD_URLS, or --no-servers).
  // Throws BadInput for a malformed build ID or option. Fetches through
  // shared when it is given (options then apply no more), else through
  // connections of its own.
  static std::unique_ptr<ServerRetrieval> create(VELL_2_13::search_category_t category,
                                                 const std::string &name, const std::string &buildId,
                                                 const ServerOptions &options,
                                                 const ServerConnections *shared = nullptr);
  ~ServerRetrieval();

  // The search's cache directory when the user gave none (fetched files are filed there).
  const std::string &defaultSearchCache() const { return m_connections->searchCache(); }
  // Registers the retriever for the client; binaries and symbol files then come through it.
  void registerWith(VELL_2_13::IResolutionContextMgr &mgr, VELL_2_13::IResolutionContext &context,
                    const char *clientId);
  // Source files: fetched directly; the local path to suggest, or empty.
  std::string fetchSourceForSuggestion();
  RetrievalNote note(const VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> &found) const;

private:
  ServerRetrieval(VELL_2_13::search_category_t category, std::string name, std::string buildId,
                  std::unique_ptr<ServerConnections> own, const ServerConnections &connections);

  VELL_2_13::search_category_t m_category;
  std::string m_name;
  std::string m_buildId;
  std::unique_ptr<ServerConnections> m_ownConnections; // null when shared
  const ServerConnections *m_connections;
  std::unique_ptr<VELL_2_13::HttpFileRetriever> m_retriever;
  VELL_2_13::BuildIdResult m_sourceResult;
  bool m_sourceAttempted = false;
};

} // namespace vell_tool
