// Fetches build-ID requests over HTTP(S) with libcurl: caches first, then the
// servers in order, several transfers at once on the calling thread. A
// download goes to a temporary file beside its target and is renamed into
// place only once complete and checked, so no reader ever sees a partial file.
#include "vell_retriever/http_fetch_engine.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <curl/curl.h>

#include "platform/log.h"
#include "vell_retriever/build_id_layout.h"
#include "vell_retriever/file_build_id.h"
#include "vell_retriever/retriever_messages.h"

namespace VELL_2_13 {

namespace {

using Clock = std::chrono::steady_clock;
using retriever::retrieverMessage;

const char *const kUnit = "src/vell_retriever";
const char *const kUserAgent = "vell/2.13";
const char *const kMissingPrefix = ".missing-";
constexpr long kMaxRedirects = 5;

void initCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::string kindText(const BuildIdRequest &request) {
  switch (request.kind) {
  case bfkDebugInfo:
    return retrieverMessage("KindDebugInfo", {});
  case bfkExecutable:
    return retrieverMessage("KindExecutable", {});
  case bfkSource:
    break;
  }
  return retrieverMessage("KindSource", {{"path", request.sourcePath}});
}

bool isNonEmptyRegularFile(const std::string &path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0 &&
         ::access(path.c_str(), R_OK) == 0;
}

// mkdir -p for the directories this retriever owns; one call when the parent exists.
bool makeDirectories(const std::string &path) {
  if (path.empty())
    return false;
  if (::mkdir(path.c_str(), 0755) == 0)
    return true;
  size_t at = 1;
  while (true) {
    at = path.find('/', at);
    std::string prefix = at == std::string::npos ? path : path.substr(0, at);
    if (::mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST)
      return false;
    if (at == std::string::npos)
      break;
    ++at;
  }
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string missingMarker(const std::string &root, const BuildIdRequest &request) {
  return root + "/" + request.buildId + "/" + kMissingPrefix + retriever::cacheFileName(request);
}

// Seconds since the negative entry was written, or -1 when there is none.
long missingAge(const std::string &marker) {
  struct stat info {};
  if (::stat(marker.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
    return -1;
  time_t now = ::time(nullptr);
  return now >= info.st_mtime ? static_cast<long>(now - info.st_mtime) : 0;
}

void rememberMissing(const std::string &marker) {
  int fd = ::open(marker.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd >= 0) {
    ::close(fd);
    ::utime(marker.c_str(), nullptr);
  }
}

} // namespace

// One file to fetch, with every request of the batch that asked for it.
struct HttpFetchEngine::Job {
  BuildIdRequest request; // checked
  std::string target;     // cache path
  BuildIdResult result;
  bool done = false;
  bool claimed = false;
  bool staleMissingMarker = false; // an expired negative entry to remove after a success
};

namespace {

// The state of one job's transfer across servers and attempts.
struct Transfer {
  HttpFetchEngine *engine = nullptr;
  const HttpRetrieverOptions *options = nullptr;
  BuildIdRequest request;
  std::string target;
  BuildIdResult *result = nullptr;
  bool staleMissingMarker = false;
  ISymSrvDownloadProgressCallback *progress = nullptr;
  size_t server = 0;
  unsigned attempt = 0;
  Clock::time_point notBefore;
  std::vector<std::string> errors;
  bool allNotFound = true;
  // Per attempt:
  CURL *easy = nullptr;
  std::string url;
  std::string tempPath;
  int fd = -1;
  uint64_t received = 0;
  bool tooLarge = false;
  bool writeFailed = false;
  std::string writeError;
  curl_off_t lastReported = -1;
  char curlError[CURL_ERROR_SIZE] = {0};
};

size_t writeBody(char *data, size_t size, size_t count, void *user) {
  auto *transfer = static_cast<Transfer *>(user);
  size_t bytes = size * count;
  uint64_t cap = transfer->options->maxFileSize;
  if (cap != 0 && transfer->received + bytes > cap) {
    transfer->tooLarge = true;
    return 0;
  }
  size_t written = 0;
  while (written < bytes) {
    ssize_t n = ::write(transfer->fd, data + written, bytes - written);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0) {
      transfer->writeFailed = true;
      transfer->writeError = std::strerror(errno);
      return 0;
    }
    written += static_cast<size_t>(n);
  }
  transfer->received += bytes;
  return bytes;
}

int reportProgress(void *user, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t) {
  auto *transfer = static_cast<Transfer *>(user);
  if (transfer->progress && now != transfer->lastReported) {
    transfer->lastReported = now;
    transfer->progress->progress(transfer->url.c_str(), static_cast<uint64_t>(now),
                                 static_cast<uint64_t>(total));
  }
  return 0;
}

void discardTemp(Transfer &transfer) {
  if (transfer.fd >= 0)
    ::close(transfer.fd);
  transfer.fd = -1;
  if (!transfer.tempPath.empty())
    ::unlink(transfer.tempPath.c_str());
  transfer.tempPath.clear();
}

// Opens the temporary file and the easy handle of the next attempt; false with
// an error when the file cannot be created.
bool beginAttempt(Transfer &transfer) {
  const HttpRetrieverOptions &options = *transfer.options;
  transfer.url = retriever::requestUrl(options.servers[transfer.server], transfer.request);
  transfer.received = 0;
  transfer.tooLarge = false;
  transfer.writeFailed = false;
  transfer.lastReported = -1;
  transfer.curlError[0] = 0;
  std::string dir = options.cacheDir + "/" + transfer.request.buildId;
  std::string pattern = dir + "/.vell-download-XXXXXX";
  if (!makeDirectories(dir)) {
    transfer.errors.push_back(
        retrieverMessage("CannotStore", {{"path", dir}, {"reason", std::strerror(errno)}}));
    return false;
  }
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  transfer.fd = ::mkostemp(name.data(), O_CLOEXEC);
  if (transfer.fd < 0) {
    transfer.errors.push_back(
        retrieverMessage("CannotStore", {{"path", dir}, {"reason", std::strerror(errno)}}));
    return false;
  }
  transfer.tempPath = name.data();

  CURL *easy = curl_easy_init();
  transfer.easy = easy;
  curl_easy_setopt(easy, CURLOPT_URL, transfer.url.c_str());
  curl_easy_setopt(easy, CURLOPT_PRIVATE, &transfer);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, writeBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &transfer);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, reportProgress);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &transfer);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer.curlError);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(easy, CURLOPT_MAXREDIRS, kMaxRedirects);
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_USERAGENT, kUserAgent);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, std::max(1L, options.connectTimeoutMs));
  // Fewer than one byte a second for the stall time: the server stalled.
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, std::max(1L, options.stallTimeoutSeconds));
  if (options.maxFileSize != 0)
    curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(options.maxFileSize));
  if (!options.caBundle.empty())
    curl_easy_setopt(easy, CURLOPT_CAINFO, options.caBundle.c_str());
  if (!options.caPath.empty())
    curl_easy_setopt(easy, CURLOPT_CAPATH, options.caPath.c_str());
  transfer.engine->countRequest();
  return true;
}

void endAttempt(CURLM *multi, Transfer &transfer) {
  if (transfer.easy) {
    curl_multi_remove_handle(multi, transfer.easy);
    curl_easy_cleanup(transfer.easy);
  }
  transfer.easy = nullptr;
}

enum class Outcome { Done, Retry, NextServer, Fail };

bool isPassingFault(CURLcode code) {
  switch (code) {
  case CURLE_COULDNT_RESOLVE_HOST:
  case CURLE_COULDNT_CONNECT:
  case CURLE_OPERATION_TIMEDOUT:
  case CURLE_SEND_ERROR:
  case CURLE_RECV_ERROR:
  case CURLE_PARTIAL_FILE:
  case CURLE_GOT_NOTHING:
  case CURLE_SSL_CONNECT_ERROR:
  case CURLE_HTTP2:
  case CURLE_HTTP2_STREAM:
    return true;
  default:
    return false;
  }
}

// Checks a complete download and renames it into place.
Outcome keepDownload(Transfer &transfer) {
  // No fsync: other processes see the renamed file whole either way, and a file
  // cut short by a crash of the machine fails the build-ID check of a cache hit.
  if (::close(transfer.fd) != 0) {
    transfer.fd = -1;
    transfer.errors.push_back(
        retrieverMessage("CannotStore", {{"path", transfer.target}, {"reason", std::strerror(errno)}}));
    discardTemp(transfer);
    return Outcome::Fail;
  }
  transfer.fd = -1;
  if (transfer.request.kind != bfkSource) {
    std::optional<std::string> actual = retriever::buildIdOfFile(transfer.tempPath);
    if (!actual || *actual != transfer.request.buildId) {
      transfer.allNotFound = false;
      transfer.errors.push_back(
          actual ? retrieverMessage(
                       "WrongBuildId",
                       {{"url", transfer.url}, {"actual", *actual}, {"buildId", transfer.request.buildId}})
                 : retrieverMessage("NotElf", {{"url", transfer.url}}));
      VELL_LOG_ERROR_AT(kUnit, transfer.errors.back());
      discardTemp(transfer);
      return Outcome::NextServer;
    }
  }
  if (::rename(transfer.tempPath.c_str(), transfer.target.c_str()) != 0) {
    transfer.errors.push_back(
        retrieverMessage("CannotStore", {{"path", transfer.target}, {"reason", std::strerror(errno)}}));
    discardTemp(transfer);
    return Outcome::Fail;
  }
  transfer.tempPath.clear();
  return Outcome::Done;
}

// Judges a finished attempt.
Outcome judge(Transfer &transfer, CURLcode code) {
  long status = 0;
  curl_easy_getinfo(transfer.easy, CURLINFO_RESPONSE_CODE, &status);
  if (transfer.tooLarge || code == CURLE_FILESIZE_EXCEEDED) {
    transfer.allNotFound = false;
    transfer.errors.push_back(retrieverMessage(
        "TooLarge", {{"url", transfer.url}, {"limit", std::to_string(transfer.options->maxFileSize)}}));
    discardTemp(transfer);
    return Outcome::NextServer;
  }
  if (transfer.writeFailed) {
    transfer.errors.push_back(
        retrieverMessage("CannotStore", {{"path", transfer.target}, {"reason", transfer.writeError}}));
    discardTemp(transfer);
    return Outcome::Fail;
  }
  if (code != CURLE_OK) {
    transfer.allNotFound = false;
    std::string reason = transfer.curlError[0] ? transfer.curlError : curl_easy_strerror(code);
    transfer.errors.push_back(
        retrieverMessage("TransferFailed", {{"url", transfer.url}, {"reason", reason}}));
    discardTemp(transfer);
    // Connection failures, timeouts and broken transfers may pass: retried. A
    // refused certificate or redirect will not: the next server is asked.
    return isPassingFault(code) ? Outcome::Retry : Outcome::NextServer;
  }
  if (status == 200)
    return keepDownload(transfer);
  discardTemp(transfer);
  if (status == 404)
    return Outcome::NextServer; // the server does not have it: asking again will not help
  transfer.allNotFound = false;
  transfer.errors.push_back(
      retrieverMessage("ServerError", {{"url", transfer.url}, {"status", std::to_string(status)}}));
  return status >= 500 ? Outcome::Retry : Outcome::NextServer;
}

std::string joined(const std::vector<std::string> &texts) {
  std::string out;
  for (const std::string &text : texts)
    out += (out.empty() ? "" : " ") + text;
  return out;
}

} // namespace

HttpFetchEngine::HttpFetchEngine(const HttpRetrieverOptions &options) : m_options(options) { initCurlOnce(); }

HttpRetrieverStats HttpFetchEngine::stats() const {
  HttpRetrieverStats out;
  out.requests = m_requests.load();
  out.downloads = m_downloads.load();
  out.cacheHits = m_cacheHits.load();
  return out;
}

bool HttpFetchEngine::claim(const std::string &path) {
  std::lock_guard<std::mutex> lock(m_claimMutex);
  return m_claimed.insert(path).second;
}

void HttpFetchEngine::release(const std::string &path) {
  {
    std::lock_guard<std::mutex> lock(m_claimMutex);
    m_claimed.erase(path);
  }
  m_released.notify_all();
}

void HttpFetchEngine::waitWhileClaimed(const std::string &path) {
  std::unique_lock<std::mutex> lock(m_claimMutex);
  m_released.wait(lock, [&] { return m_claimed.count(path) == 0; });
}

bool HttpFetchEngine::answerLocally(Job &job) {
  BuildIdResult &result = job.result;
  // Try <cache>/<build id>/<kind>: fetched by this retriever before. A binary or
  // debug file must still carry its build ID (it is fetched again otherwise).
  if (!m_options.cacheDir.empty() && isNonEmptyRegularFile(job.target) &&
      (job.request.kind == bfkSource || retriever::buildIdOfFile(job.target) == job.request.buildId)) {
    result.ok = true;
    result.path = job.target;
    result.origin = foCache;
    result.url = m_options.cacheDir;
    ++m_cacheHits;
    return true;
  }
  // Try each other client's <dir>/<build id>/<kind>: same layout, but written by
  // another program, so a binary or debug file must carry the requested build ID.
  for (const std::string &dir : m_options.clientCacheDirs) {
    std::string candidate = retriever::cachePath(dir, job.request);
    if (!isNonEmptyRegularFile(candidate))
      continue;
    if (job.request.kind != bfkSource && retriever::buildIdOfFile(candidate) != job.request.buildId)
      continue;
    result.ok = true;
    result.path = candidate;
    result.origin = foClientCache;
    result.url = dir;
    ++m_cacheHits;
    return true;
  }
  if (m_options.servers.empty()) {
    result.error = retrieverMessage("NoServers", {});
    return true;
  }
  if (m_options.cacheDir.empty()) {
    result.error = retrieverMessage("NoCacheDirectory", {});
    return true;
  }
  // A recent "no server has it" is believed until it expires.
  if (m_options.negativeCacheSeconds > 0) {
    long age = missingAge(missingMarker(m_options.cacheDir, job.request));
    job.staleMissingMarker = age >= 0;
    if (age >= 0 && age < m_options.negativeCacheSeconds) {
      result.notFound = true;
      result.error = retrieverMessage("NotOnServersRemembered",
                                      {{"kind", kindText(job.request)},
                                       {"buildId", job.request.buildId},
                                       {"seconds", std::to_string(m_options.negativeCacheSeconds - age)}});
      return true;
    }
  }
  return false;
}

std::vector<BuildIdResult> HttpFetchEngine::run(const std::vector<BuildIdRequest> &requests,
                                                unsigned inFlight,
                                                ISymSrvDownloadProgressCallback *progress) {
  std::vector<BuildIdResult> results(requests.size());
  // One job per distinct file; several requests may share it.
  std::map<std::string, Job> jobs;
  std::vector<Job *> jobOf(requests.size(), nullptr);
  for (size_t i = 0; i < requests.size(); ++i) {
    std::optional<BuildIdRequest> checked = retriever::checkedRequest(requests[i]);
    if (!checked) {
      results[i].error = retrieverMessage("InvalidBuildIdRequest", {{"buildId", requests[i].buildId}});
      VELL_LOG_ERROR_AT(kUnit, results[i].error);
      continue;
    }
    std::string key = retriever::cachePath(m_options.cacheDir, *checked);
    Job &job = jobs[key];
    job.request = *checked;
    job.target = key;
    jobOf[i] = &job;
  }

  std::vector<Job *> open;
  for (auto &entry : jobs)
    open.push_back(&entry.second);
  while (!open.empty()) {
    std::vector<Job *> toFetch;
    std::vector<Job *> waiting;
    for (Job *job : open) {
      if (answerLocally(*job)) {
        job->done = true;
        continue;
      }
      if (claim(job->target)) {
        // Another thread may have finished this file between the look and the claim.
        if (answerLocally(*job)) {
          release(job->target);
          job->done = true;
          continue;
        }
        job->claimed = true;
        toFetch.push_back(job);
      } else {
        waiting.push_back(job);
      }
    }
    transfer(toFetch, std::max(1u, inFlight), progress);
    for (Job *job : toFetch) {
      job->done = true;
      release(job->target);
    }
    // Another thread had these: wait for it, then look again (usually a cache hit).
    for (Job *job : waiting)
      waitWhileClaimed(job->target);
    open = waiting;
  }

  for (size_t i = 0; i < requests.size(); ++i)
    if (jobOf[i])
      results[i] = jobOf[i]->result;
  return results;
}

void HttpFetchEngine::transfer(std::vector<Job *> &jobs, unsigned inFlight,
                               ISymSrvDownloadProgressCallback *progress) {
  if (jobs.empty())
    return;
  CURLM *multi = curl_multi_init();
  std::vector<std::unique_ptr<Transfer>> transfers;
  std::deque<Transfer *> ready;
  for (Job *job : jobs) {
    auto transfer = std::make_unique<Transfer>();
    transfer->engine = this;
    transfer->options = &m_options;
    transfer->request = job->request;
    transfer->target = job->target;
    transfer->result = &job->result;
    transfer->staleMissingMarker = job->staleMissingMarker;
    transfer->progress = progress;
    transfer->notBefore = Clock::now();
    ready.push_back(transfer.get());
    transfers.push_back(std::move(transfer));
  }

  std::vector<Transfer *> delayed;
  size_t active = 0;

  auto finish = [&](Transfer &transfer, bool ok) {
    BuildIdResult &result = *transfer.result;
    if (ok) {
      result.ok = true;
      result.path = transfer.target;
      result.origin = foServer;
      result.url = transfer.url;
      ++m_downloads;
      if (transfer.staleMissingMarker)
        ::unlink(missingMarker(m_options.cacheDir, transfer.request).c_str());
      VELL_LOG_INFO("Downloaded " << transfer.url << " to " << transfer.target);
      return;
    }
    if (transfer.allNotFound) {
      result.notFound = true;
      result.error = retrieverMessage(
          "NotOnServers", {{"kind", kindText(transfer.request)}, {"buildId", transfer.request.buildId}});
      if (m_options.negativeCacheSeconds > 0)
        rememberMissing(missingMarker(m_options.cacheDir, transfer.request));
    } else {
      result.error = joined(transfer.errors);
    }
    VELL_LOG_INFO("Not fetched: " << result.error);
  };

  // Moves a transfer on after an attempt; starts nothing itself.
  auto advance = [&](Transfer &transfer, Outcome outcome) {
    switch (outcome) {
    case Outcome::Done:
      finish(transfer, true);
      return;
    case Outcome::Retry:
      if (transfer.attempt < m_options.retries) {
        long delay = m_options.retryDelayMs << std::min(transfer.attempt, 16u);
        ++transfer.attempt;
        transfer.notBefore = Clock::now() + std::chrono::milliseconds(delay);
        delayed.push_back(&transfer);
        return;
      }
      [[fallthrough]];
    case Outcome::NextServer:
      if (transfer.server + 1 < m_options.servers.size()) {
        ++transfer.server;
        transfer.attempt = 0;
        transfer.notBefore = Clock::now();
        ready.push_back(&transfer);
        return;
      }
      finish(transfer, false);
      return;
    case Outcome::Fail:
      transfer.allNotFound = false;
      finish(transfer, false);
      return;
    }
  };

  while (!ready.empty() || !delayed.empty() || active > 0) {
    // Delayed retries whose pause is over join the ready queue.
    Clock::time_point now = Clock::now();
    for (auto it = delayed.begin(); it != delayed.end();) {
      if ((*it)->notBefore <= now) {
        ready.push_back(*it);
        it = delayed.erase(it);
      } else {
        ++it;
      }
    }
    while (active < inFlight && !ready.empty()) {
      Transfer &transfer = *ready.front();
      ready.pop_front();
      if (!beginAttempt(transfer)) {
        discardTemp(transfer);
        advance(transfer, Outcome::Fail);
        continue;
      }
      curl_multi_add_handle(multi, transfer.easy);
      ++active;
    }
    int running = 0;
    curl_multi_perform(multi, &running);
    int left = 0;
    while (CURLMsg *message = curl_multi_info_read(multi, &left)) {
      if (message->msg != CURLMSG_DONE)
        continue;
      Transfer *transfer = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
      CURLcode code = message->data.result;
      Outcome outcome = judge(*transfer, code);
      endAttempt(multi, *transfer);
      --active;
      advance(*transfer, outcome);
    }
    if (active == 0 && ready.empty() && !delayed.empty()) {
      Clock::time_point next = delayed.front()->notBefore;
      for (Transfer *transfer : delayed)
        next = std::min(next, transfer->notBefore);
      auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
      if (pause > 0)
        ::usleep(static_cast<useconds_t>(pause) * 1000);
      continue;
    }
    if (active > 0)
      curl_multi_poll(multi, nullptr, 0, 100, nullptr);
  }
  for (auto &transfer : transfers) {
    endAttempt(multi, *transfer);
    discardTemp(*transfer);
  }
  curl_multi_cleanup(multi);
}

} // namespace VELL_2_13
