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
};

// Where the file of a finished search came from, for the report.
struct RetrievalNote {
  bool attempted = false;
  bool used = false; // the file found is the one retrieved
  std::string origin; // server, cache or client-cache
  std::string from;   // URL or directory
  std::string buildId;
  std::string error;
};

class ServerRetrieval {
public:
  // Null when no server applies (none given, none in DEBUGINFOD_URLS, or --no-servers).
  // Throws BadInput for a malformed build ID or option.
  static std::unique_ptr<ServerRetrieval> create(VELL_2_13::search_category_t category, const std::string &name,
                                                 const std::string &buildId, const ServerOptions &options);
  ~ServerRetrieval();

  // The search's cache directory when the user gave none (fetched files are filed there).
  const std::string &defaultSearchCache() const { return m_searchCache; }
  // Registers the retriever for the client; binaries and symbol files then come through it.
  void registerWith(VELL_2_13::IResolutionContextMgr &mgr, VELL_2_13::IResolutionContext &context,
                    const char *clientId);
  // Source files: fetched directly; the local path to suggest, or empty.
  std::string fetchSourceForSuggestion();
  RetrievalNote note(const VELL_2_13::ObjectPtr<VELL_2_13::IValidFile> &found) const;

private:
  class Progress;
  ServerRetrieval(VELL_2_13::search_category_t category, std::string name, std::string buildId,
                  VELL_2_13::HttpRetrieverOptions options);

  VELL_2_13::search_category_t m_category;
  std::string m_name;
  std::string m_buildId;
  std::string m_searchCache;
  std::unique_ptr<Progress> m_progress;
  std::unique_ptr<VELL_2_13::HttpFileRetriever> m_retriever;
  VELL_2_13::BuildIdResult m_sourceResult;
  bool m_sourceAttempted = false;
};

} // namespace vell_tool
