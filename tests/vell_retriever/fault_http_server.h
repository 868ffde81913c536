// A small HTTP/1.1 server on 127.0.0.1 for the retriever tests: each path
// answers with a scripted sequence of responses (status, body, a stall in the
// middle of the body) and every request is counted.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "support/loopback_socket.h"

namespace vell_test {

struct FaultResponse {
  int status = 200;
  std::string body;
  // Bytes of the body sent before the server stops sending (and holds the
  // connection open until the client gives up); npos: the whole body.
  size_t stallAfter = std::string::npos;
  // Close the connection without any answer.
  bool dropConnection = false;
  // Pause after each 4 KiB of the body: a slow transfer.
  int chunkDelayMs = 0;
};

class FaultHttpServer {
public:
  FaultHttpServer() {
    m_listener = listenOnLoopback(64, m_port);
    if (m_listener < 0)
      throw std::runtime_error("cannot listen on 127.0.0.1");
    m_acceptor = std::thread([this] { acceptLoop(); });
  }

  ~FaultHttpServer() {
    m_stop = true;
    m_acceptor.join();
    for (std::thread &worker : m_workers)
      worker.join();
    ::close(m_listener);
  }

  FaultHttpServer(const FaultHttpServer &) = delete;
  FaultHttpServer &operator=(const FaultHttpServer &) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port); }
  int port() const { return m_port; }

  // The answers to path, one per request; the last one repeats. Unscripted paths get 404.
  void script(const std::string &path, std::vector<FaultResponse> responses) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_scripts[path] = std::move(responses);
    m_served[path] = 0;
  }

  int requests(const std::string &path) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_counts.find(path);
    return found == m_counts.end() ? 0 : found->second;
  }

  // Requests being answered at the same moment, at most, so far.
  int maxConcurrent() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_maxConcurrent;
  }

  // From now on each answer waits until count requests have been under way at
  // once (or timeout has passed): requests that run in parallel meet there,
  // requests made one after another each wait out the timeout.
  void holdUntilConcurrent(int count, std::chrono::milliseconds timeout) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_holdFor = count;
    m_holdTimeout = timeout;
  }

  int totalRequests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    int total = 0;
    for (const auto &entry : m_counts)
      total += entry.second;
    return total;
  }

private:
  void acceptLoop() {
    while (!m_stop) {
      pollfd entry{m_listener, POLLIN, 0};
      if (::poll(&entry, 1, 50) <= 0)
        continue;
      int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0)
        continue;
      std::lock_guard<std::mutex> lock(m_workersMutex);
      m_workers.emplace_back([this, client] {
        serve(client);
        ::close(client);
      });
    }
  }

  // Reads one request head; the path, or empty on a broken request.
  std::string readRequestPath(int client) {
    std::string head;
    char buffer[4096];
    while (head.find("\r\n\r\n") == std::string::npos && !m_stop) {
      pollfd entry{client, POLLIN, 0};
      if (::poll(&entry, 1, 50) <= 0)
        continue;
      ssize_t n = ::recv(client, buffer, sizeof buffer, 0);
      if (n <= 0)
        return "";
      head.append(buffer, static_cast<size_t>(n));
    }
    size_t start = head.find(' ');
    size_t end = start == std::string::npos ? start : head.find(' ', start + 1);
    return end == std::string::npos ? "" : head.substr(start + 1, end - start - 1);
  }

  FaultResponse next(const std::string &path) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counts[path];
    auto found = m_scripts.find(path);
    if (found == m_scripts.end() || found->second.empty())
      return FaultResponse{404, "not found"};
    size_t index = std::min(m_served[path]++, found->second.size() - 1);
    return found->second[index];
  }

  void serve(int client) {
    std::string path = readRequestPath(client);
    if (path.empty())
      return;
    {
      std::unique_lock<std::mutex> lock(m_mutex);
      m_maxConcurrent = std::max(m_maxConcurrent, ++m_concurrent);
      m_concurrencyChanged.notify_all();
      if (m_holdFor > 0)
        m_concurrencyChanged.wait_for(lock, m_holdTimeout, [this] { return m_maxConcurrent >= m_holdFor; });
    }
    bool counted = true;
    // The request stops counting before its last byte goes out: a client that
    // has the whole answer can no longer meet it.
    auto uncount = [&] {
      if (!counted)
        return;
      counted = false;
      std::lock_guard<std::mutex> lock(m_mutex);
      --m_concurrent;
    };
    answer(client, path, uncount);
    uncount();
  }

  template <class Uncount> void answer(int client, const std::string &path, Uncount &uncount) {
    FaultResponse response = next(path);
    if (response.dropConnection)
      return;
    std::string head = "HTTP/1.1 " + std::to_string(response.status) +
                       " Scripted\r\nContent-Length: " + std::to_string(response.body.size()) +
                       "\r\nConnection: close\r\n\r\n";
    if (response.stallAfter == std::string::npos) {
      std::string all = head + response.body;
      const size_t first = std::min(response.chunkDelayMs > 0 ? head.size() : all.size(), all.size() - 1);
      sendAll(client, all.substr(0, first));
      for (size_t at = first; at + 1 < all.size() && !m_stop; at += 4096) {
        sendAll(client, all.substr(at, std::min<size_t>(4096, all.size() - 1 - at)));
        std::this_thread::sleep_for(std::chrono::milliseconds(response.chunkDelayMs));
      }
      uncount();
      sendAll(client, all.substr(all.size() - 1));
      return;
    }
    sendAll(client, head);
    sendAll(client, response.body.substr(0, response.stallAfter));
    // Hold the connection open, sending nothing, until the client gives up.
    char buffer[256];
    while (!m_stop) {
      pollfd entry{client, POLLIN, 0};
      if (::poll(&entry, 1, 50) > 0 && ::recv(client, buffer, sizeof buffer, 0) <= 0)
        return;
    }
  }

  int m_listener = -1;
  int m_port = 0;
  std::atomic<bool> m_stop{false};
  std::thread m_acceptor;
  std::mutex m_workersMutex;
  std::vector<std::thread> m_workers;
  mutable std::mutex m_mutex;
  std::map<std::string, std::vector<FaultResponse>> m_scripts;
  std::map<std::string, size_t> m_served;
  std::map<std::string, int> m_counts;
  std::condition_variable m_concurrencyChanged;
  int m_concurrent = 0;
  int m_maxConcurrent = 0;
  int m_holdFor = 0;
  std::chrono::milliseconds m_holdTimeout{0};
};

} // namespace vell_test
