// vell find --server: fetches the file by build ID from debug-file servers
// (debuginfod protocol) when the search does not find it locally.
#include "server_retrieval.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <pwd.h>
#include <unistd.h>

#include "file_checks.h"
#include "tool_error.h"
#include "tool_output.h"

using namespace VELL_2_13;
namespace fs = std::filesystem;

namespace vell_tool {

namespace {

std::string environmentText(const char *name) {
  const char *value = std::getenv(name);
  return value ? value : "";
}

// $XDG_CACHE_HOME, or ~/.cache.
std::string userCacheRoot() {
  std::string xdg = environmentText("XDG_CACHE_HOME");
  if (!xdg.empty() && xdg[0] == '/')
    return xdg;
  std::string home = environmentText("HOME");
  if (home.empty()) {
    const passwd *entry = getpwuid(geteuid());
    home = entry && entry->pw_dir ? entry->pw_dir : "";
  }
  return home.empty() ? "" : (fs::path(home) / ".cache").string();
}

// Where debuginfod's own client keeps what it fetched.
std::string debuginfodClientCache(const std::string &cacheRoot) {
  std::string configured = environmentText("DEBUGINFOD_CACHE_PATH");
  if (!configured.empty())
    return configured;
  return cacheRoot.empty() ? "" : (fs::path(cacheRoot) / "debuginfod_client").string();
}

const char *originName(fetch_origin_t origin) {
  switch (origin) {
  case foCache:
    return "cache";
  case foClientCache:
    return "client-cache";
  case foServer:
    return "server";
  case foNone:
    break;
  }
  return "none";
}

long parseSeconds(const std::string &text) {
  char *end = nullptr;
  long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || value <= 0)
    throw BadInput("--server-timeout: '" + text + "' is not a positive whole number of seconds");
  return value;
}

} // namespace

// A progress line on standard error for transfers that last over a second,
// only when standard error is a terminal. Transfers of several threads share
// the line: it shows the one that reported last.
class ServerConnections::Progress : public ISymSrvDownloadProgressCallback {
public:
  Progress() : m_terminal(::isatty(STDERR_FILENO) == 1) {}
  ~Progress() override { finishLine(); }

  void progress(const char *fileName, uint64_t done, uint64_t total) override {
    if (!m_terminal)
      return;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto now = std::chrono::steady_clock::now();
    auto [started, inserted] = m_starts.try_emplace(fileName, now);
    const auto since = started->second;
    if (total > 0 && done >= total)
      m_starts.erase(started);
    // The line of a finished transfer stays; one still running is overwritten.
    if (m_name != fileName && m_lineComplete)
      finishLine();
    if (now - since < std::chrono::seconds(1) || now - m_lastDrawn < std::chrono::milliseconds(100))
      return;
    m_lastDrawn = now;
    m_name = fileName;
    std::string line = "\rdownloading " + m_name + ": " + std::to_string(done / 1024) + " KiB";
    if (total > 0)
      line += " of " + std::to_string(total / 1024) + " KiB (" + std::to_string(done * 100 / total) + "%)";
    writeToStderr(line + "\x1b[K");
    m_drawn = true;
    m_lineComplete = total > 0 && done >= total;
  }

private:
  void finishLine() {
    if (m_drawn)
      writeToStderr("\n");
    m_drawn = false;
  }

  const bool m_terminal;
  std::mutex m_mutex;
  bool m_drawn = false;
  bool m_lineComplete = false;
  std::string m_name;
  std::map<std::string, std::chrono::steady_clock::time_point> m_starts;
  std::chrono::steady_clock::time_point m_lastDrawn;
};

std::unique_ptr<ServerConnections> ServerConnections::create(const ServerOptions &options) {
  if (options.noServers) {
    if (!options.servers.empty())
      throw BadInput("--no-servers and --server exclude each other");
    return nullptr;
  }
  std::vector<std::string> servers = options.servers;
  // The conventional variable of debuginfod clients, when no --server is given.
  if (servers.empty())
    servers = splitServerList(environmentText("DEBUGINFOD_URLS"));
  if (servers.empty())
    return nullptr;
  for (const std::string &server : servers)
    if (server.rfind("http://", 0) != 0 && server.rfind("https://", 0) != 0)
      throw BadInput("--server: '" + server + "' is not an http:// or https:// URL");
  std::string cacheRoot = userCacheRoot();
  if (cacheRoot.empty())
    throw BadInput("--server: no cache directory (set HOME or XDG_CACHE_HOME)");

  HttpRetrieverOptions retrieverOptions;
  retrieverOptions.servers = servers;
  retrieverOptions.cacheDir = (fs::path(cacheRoot) / "vell" / "buildid").string();
  std::string clientCache = debuginfodClientCache(cacheRoot);
  if (!clientCache.empty())
    retrieverOptions.clientCacheDirs.push_back(clientCache);
  if (!options.timeout.empty()) {
    long seconds = parseSeconds(options.timeout);
    retrieverOptions.connectTimeoutMs = seconds * 1000;
    retrieverOptions.stallTimeoutSeconds = seconds;
  }
  // A private certificate authority, for servers the system's certificates do not vouch for.
  if (!options.caBundle.empty()) {
    requireFile("--ca-bundle", options.caBundle);
    retrieverOptions.caBundle = absolutePath(options.caBundle);
  }
  if (!options.caPath.empty()) {
    requireDirectory("--ca-path", options.caPath);
    retrieverOptions.caPath = absolutePath(options.caPath);
  }
  return std::unique_ptr<ServerConnections>(
      new ServerConnections(std::move(retrieverOptions), (fs::path(cacheRoot) / "vell" / "files").string()));
}

ServerConnections::ServerConnections(HttpRetrieverOptions options, std::string searchCache)
    : m_searchCache(std::move(searchCache)), m_progress(std::make_unique<Progress>()),
      m_retriever(std::make_unique<HttpFileRetriever>(std::move(options))) {}

ServerConnections::~ServerConnections() = default;

std::unique_ptr<HttpFileRetriever> ServerConnections::retrieverForRequest() const {
  std::unique_ptr<HttpFileRetriever> retriever = m_retriever->sharingTransfers();
  retriever->setProgressCallback(m_progress.get());
  return retriever;
}

ISymSrvDownloadProgressCallback *ServerConnections::progress() const { return m_progress.get(); }

std::unique_ptr<ServerRetrieval> ServerRetrieval::create(search_category_t category, const std::string &name,
                                                         const std::string &buildId,
                                                         const ServerOptions &options,
                                                         const ServerConnections *shared) {
  std::unique_ptr<ServerConnections> own;
  if (!shared) {
    own = ServerConnections::create(options);
    if (!own)
      return nullptr;
    shared = own.get();
  }
  std::unique_ptr<ServerRetrieval> retrieval(
      new ServerRetrieval(category, name, buildId, std::move(own), *shared));
  if (!buildId.empty()) {
    build_id_file_kind_t kind = category == scBinaryFiles   ? bfkExecutable
                                : category == scSymbolFiles ? bfkDebugInfo
                                                            : bfkSource;
    if (!retrieval->m_retriever->addFile(name, buildId, kind))
      throw BadInput("--build-id: '" + buildId +
                     "' is not a build ID (an even number of hexadecimal digits), or the source name is not "
                     "an absolute path");
  }
  return retrieval;
}

ServerRetrieval::ServerRetrieval(search_category_t category, std::string name, std::string buildId,
                                 std::unique_ptr<ServerConnections> own, const ServerConnections &connections)
    : m_category(category), m_name(std::move(name)), m_buildId(std::move(buildId)),
      m_ownConnections(std::move(own)), m_connections(&connections),
      m_retriever(connections.retrieverForRequest()) {}

ServerRetrieval::~ServerRetrieval() = default;

void ServerRetrieval::registerWith(IResolutionContextMgr &mgr, IResolutionContext &context,
                                   const char *clientId) {
  fs::create_directories(m_connections->searchCache());
  mgr.registerFileRetriever(context, clientId, m_retriever.get());
}

std::string ServerRetrieval::fetchSourceForSuggestion() {
  if (m_category != scSourceFiles || m_buildId.empty())
    return "";
  m_sourceAttempted = true;
  m_sourceResult = m_retriever->fetchSource(m_buildId, m_name, m_connections->progress());
  return m_sourceResult.ok ? m_sourceResult.path : "";
}

RetrievalNote ServerRetrieval::note(const ObjectPtr<IValidFile> &found) const {
  RetrievalNote note;
  BuildIdResult result;
  if (m_sourceAttempted) {
    result = m_sourceResult;
    note.attempted = true;
    note.used = found && result.ok && result.path == found->name();
  } else {
    result = m_retriever->lastResultFor(m_name);
    note.attempted = result.ok || !result.error.empty();
    note.used = found && result.ok && found->searchStep() == ssAbsoluteNameLookup;
  }
  note.origin = originName(result.origin);
  note.from = result.url;
  note.buildId = m_buildId;
  note.error = result.error;
  return note;
}

} // namespace vell_tool
