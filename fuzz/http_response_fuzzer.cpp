// Fuzzes the HTTP retriever with arbitrary server responses: a local server
// answers every request with the input bytes verbatim. Whatever the answer, a
// fetch either fails or leaves exactly the requested file, carrying the
// requested build ID, and never a temporary file.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <boost/filesystem.hpp>

#include "support/loopback_socket.h"
#include "vell/http_retriever.h"
#include "vell_retriever/file_build_id.h"

using namespace VELL_2_13;

namespace {

const char *const kBuildId = "0123456789abcdef";

// Answers each connection with the current response, then closes it.
class RawServer {
public:
  RawServer() {
    m_listener = vell_test::listenOnLoopback(16, m_port);
    if (m_listener < 0)
      std::abort();
    std::thread([this] { serve(); }).detach();
  }

  void setResponse(std::string response) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_response = std::move(response);
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port); }

private:
  void serve() {
    while (true) {
      int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0)
        continue;
      // Read the request head (bounded), then answer.
      char buffer[4096];
      std::string head;
      while (head.find("\r\n\r\n") == std::string::npos && head.size() < 65536) {
        pollfd entry{client, POLLIN, 0};
        if (::poll(&entry, 1, 1000) <= 0)
          break;
        ssize_t n = ::recv(client, buffer, sizeof buffer, 0);
        if (n <= 0)
          break;
        head.append(buffer, static_cast<size_t>(n));
      }
      std::string response;
      {
        std::lock_guard<std::mutex> lock(m_mutex);
        response = m_response;
      }
      vell_test::sendAll(client, response);
      ::shutdown(client, SHUT_RDWR);
      ::close(client);
    }
  }

  int m_listener = -1;
  int m_port = 0;
  std::mutex m_mutex;
  std::string m_response;
};

RawServer &server() {
  static RawServer *instance = new RawServer;
  return *instance;
}

std::string cacheDir() {
  static std::string dir =
      (boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("vell-fuzz-%%%%-%%%%"))
          .string();
  return dir;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  server().setResponse(std::string(reinterpret_cast<const char *>(data), size));
  HttpRetrieverOptions options;
  options.servers = {server().url()};
  options.cacheDir = cacheDir();
  options.retries = 0;
  options.negativeCacheSeconds = 0;
  options.stallTimeoutSeconds = 1;
  options.connectTimeoutMs = 1000;
  options.maxFileSize = 1 << 20;
  HttpFileRetriever retriever(options);
  BuildIdResult result = retriever.fetchExecutable(kBuildId);
  const std::string target = cacheDir() + "/" + kBuildId + "/executable";
  if (result.ok && (result.path != target || retriever::buildIdOfFile(target) != std::string(kBuildId)))
    std::abort();
  if (!result.ok && boost::filesystem::exists(target))
    std::abort();
  // Nothing else may be left beside the file.
  boost::system::error_code error;
  for (boost::filesystem::directory_iterator it(cacheDir() + "/" + kBuildId, error), end; !error && it != end;
       it.increment(error))
    if (it->path().string() != target)
      std::abort();
  boost::filesystem::remove_all(cacheDir() + "/" + kBuildId, error);
  return 0;
}
