// Preloaded into servers the tests start that cannot be told where to listen:
// a bind to every address becomes a bind to the IPv4 loopback address, so the
// server is reachable from this machine only.
#include <arpa/inet.h>
#include <cstring>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>

extern "C" int bind(int fd, const struct sockaddr *address, socklen_t length) {
  using BindFunction = int (*)(int, const struct sockaddr *, socklen_t);
  static auto realBind = reinterpret_cast<BindFunction>(dlsym(RTLD_NEXT, "bind"));
  if (address && address->sa_family == AF_INET && length >= sizeof(sockaddr_in)) {
    sockaddr_in loopback;
    std::memcpy(&loopback, address, sizeof loopback);
    if (loopback.sin_addr.s_addr == htonl(INADDR_ANY)) {
      loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      return realBind(fd, reinterpret_cast<const sockaddr *>(&loopback), sizeof loopback);
    }
  }
  if (address && address->sa_family == AF_INET6 && length >= sizeof(sockaddr_in6)) {
    sockaddr_in6 loopback;
    std::memcpy(&loopback, address, sizeof loopback);
    if (std::memcmp(&loopback.sin6_addr, &in6addr_any, sizeof in6addr_any) == 0) {
      // ::ffff:127.0.0.1 on a dual-stack socket: IPv4 loopback connections only.
      int off = 0;
      setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
      inet_pton(AF_INET6, "::ffff:127.0.0.1", &loopback.sin6_addr);
      return realBind(fd, reinterpret_cast<const sockaddr *>(&loopback), sizeof loopback);
    }
  }
  return realBind(fd, address, length);
}
