// The HTTP build-ID retriever: direct build-ID requests and the search
// environment's file-retriever operations.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>

#include "platform/log.h"
#include "vell/http_retriever.h"
#include "vell_retriever/build_id_layout.h"
#include "vell_retriever/file_build_id.h"
#include "vell_retriever/http_fetch_engine.h"

namespace VELL_2_13 {

namespace {

const char *const kUnit = "src/vell_retriever";

// The relative path under a retrieval directory at which a name is placed:
// its components without root, "." or ".."; nullopt when a ".." would climb.
std::optional<std::string> placementOf(const std::string &name) {
  std::string out;
  size_t start = 0;
  while (start <= name.size()) {
    size_t end = name.find('/', start);
    if (end == std::string::npos)
      end = name.size();
    std::string part = name.substr(start, end - start);
    start = end + 1;
    if (part.empty() || part == ".")
      continue;
    if (part == "..")
      return std::nullopt;
    out += (out.empty() ? "" : "/") + part;
  }
  if (out.empty())
    return std::nullopt;
  return out;
}

// Puts a hard link to (or, across file systems, a copy of) source at target.
bool placeFile(const std::string &source, const std::string &target) {
  boost::system::error_code error;
  boost::filesystem::create_directories(boost::filesystem::path(target).parent_path(), error);
  if (error)
    return false;
  ::unlink(target.c_str());
  if (::link(source.c_str(), target.c_str()) == 0)
    return true;
  boost::filesystem::copy_file(source, target, error);
  return !error;
}

} // namespace

HttpFileRetriever::HttpFileRetriever(HttpRetrieverOptions options)
    : m_options(std::move(options)), m_engine(std::make_shared<HttpFetchEngine>(m_options)) {}

HttpFileRetriever::HttpFileRetriever(HttpRetrieverOptions options, std::shared_ptr<HttpFetchEngine> engine)
    : m_options(std::move(options)), m_engine(std::move(engine)) {}

std::unique_ptr<HttpFileRetriever> HttpFileRetriever::sharingTransfers() const {
  return std::unique_ptr<HttpFileRetriever>(new HttpFileRetriever(m_options, m_engine));
}

HttpFileRetriever::~HttpFileRetriever() = default;

bool HttpFileRetriever::addFile(const std::string &name, const std::string &buildId,
                                build_id_file_kind_t kind) {
  BuildIdRequest request;
  request.kind = kind;
  request.buildId = buildId;
  if (kind == bfkSource)
    request.sourcePath = name;
  std::optional<BuildIdRequest> checked = retriever::checkedRequest(request);
  if (!checked || name.empty())
    return false;
  std::lock_guard<std::mutex> lock(m_mutex);
  m_names[name] = *checked;
  return true;
}

void HttpFileRetriever::setProgressCallback(ISymSrvDownloadProgressCallback *callback) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_progress = callback;
}

BuildIdResult HttpFileRetriever::fetchDebugInfo(const std::string &buildId,
                                                ISymSrvDownloadProgressCallback *progress) {
  return fetch({bfkDebugInfo, buildId, ""}, progress);
}

BuildIdResult HttpFileRetriever::fetchExecutable(const std::string &buildId,
                                                 ISymSrvDownloadProgressCallback *progress) {
  return fetch({bfkExecutable, buildId, ""}, progress);
}

BuildIdResult HttpFileRetriever::fetchSource(const std::string &buildId, const std::string &sourcePath,
                                             ISymSrvDownloadProgressCallback *progress) {
  return fetch({bfkSource, buildId, sourcePath}, progress);
}

BuildIdResult HttpFileRetriever::fetch(const BuildIdRequest &request,
                                       ISymSrvDownloadProgressCallback *progress) {
  return m_engine->run({request}, 1, progress).front();
}

std::vector<BuildIdResult> HttpFileRetriever::fetchAll(const std::vector<BuildIdRequest> &requests,
                                                       unsigned inFlight,
                                                       ISymSrvDownloadProgressCallback *progress) {
  return m_engine->run(requests, inFlight, progress);
}

BuildIdResult HttpFileRetriever::lastResultFor(const std::string &name) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  auto found = m_lastResults.find(name);
  return found == m_lastResults.end() ? BuildIdResult() : found->second;
}

HttpRetrieverStats HttpFileRetriever::stats() const { return m_engine->stats(); }

bool HttpFileRetriever::requestFor(const std::string &name, BuildIdRequest &request) const {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_names.find(name);
    if (found != m_names.end()) {
      request = found->second;
      return true;
    }
  }
  std::optional<BuildIdRequest> fromPath = retriever::requestFromBuildIdPath(name);
  if (!fromPath)
    return false;
  request = *fromPath;
  return true;
}

bool HttpFileRetriever::allowKernelFallback(const char *) { return true; }

int HttpFileRetriever::retrieveFile(const char *name, const char *directory) {
  if (!name || !directory || !*directory)
    return EINVAL;
  BuildIdRequest request;
  if (!requestFor(name, request))
    return ENOENT;
  std::optional<std::string> placement = placementOf(name);
  if (!placement) {
    VELL_LOG_ERROR_AT(kUnit, "Not retrieving a name that leaves the retrieval directory: " << name);
    return EINVAL;
  }
  // The progress callback of the symbol-file search asking, else the one set
  // on the retriever.
  ISymSrvDownloadProgressCallback *progress = currentDownloadProgressCallback();
  if (!progress) {
    std::lock_guard<std::mutex> lock(m_mutex);
    progress = m_progress;
  }
  BuildIdResult result = fetch(request, progress);
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lastResults[name] = result;
  }
  if (!result.ok)
    return result.notFound ? ENOENT : EIO;
  std::string target = std::string(directory) + "/" + *placement;
  if (!placeFile(result.path, target)) {
    VELL_LOG_ERROR_AT(kUnit, "Cannot place " << result.path << " at " << target);
    return EIO;
  }
  return 0;
}

int HttpFileRetriever::getFileChecksum(const char *, ObjectPtr<IChecksum> &) {
  // Servers of this protocol publish no checksums.
  return 1;
}

bool HttpFileRetriever::isRemote() { return true; }

bool HttpFileRetriever::isLocalFile(const std::string &name) {
  BuildIdRequest request;
  if (!requestFor(name, request))
    return true;
  struct stat info {};
  if (::stat(name.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
    return false;
  // A local file of the same name but another build is not the one recorded.
  return request.kind == bfkSource || retriever::buildIdOfFile(name) == request.buildId;
}

void HttpFileRetriever::setEnvironmentInfo(ObjectPtr<IEnvironmentInfo> info) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_environmentInfo = std::move(info);
}

std::vector<std::string> splitServerList(const std::string &text) {
  std::vector<std::string> servers;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find_first_of(" \t\n", start);
    if (end == std::string::npos)
      end = text.size();
    if (end > start)
      servers.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return servers;
}

} // namespace VELL_2_13
