// Sockets of the small HTTP servers the tests and fuzzers run on 127.0.0.1.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <string>

namespace vell_test {

// A listening socket on 127.0.0.1 at a port the kernel chooses; -1 when none
// can be had. port receives the port.
inline int listenOnLoopback(int backlog, int &port) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0)
    return -1;
  int one = 1;
  ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
      ::listen(listener, backlog) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
    ::close(listener);
    return -1;
  }
  port = ntohs(address.sin_port);
  return listener;
}

// Sends all of data unless the peer goes away first; false then.
inline bool sendAll(int client, const std::string &data) {
  size_t sent = 0;
  while (sent < data.size()) {
    const ssize_t n = ::send(client, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n <= 0)
      return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

} // namespace vell_test
