// The few differences between the two systems' sockets, and a listening socket on this machine.
#pragma once

#include <cstdint>
#include <stdexcept>

#ifdef _WIN32
#include <winsock2.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace zeva_test {

#ifdef _WIN32
using Socket = SOCKET;
inline void close_socket(Socket s) { closesocket(s); }
inline void start_sockets() {
  static const bool started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
  }();
  if (!started) throw std::runtime_error("no sockets");
}
#else
using Socket = int;
inline void close_socket(Socket s) { close(s); }
inline void start_sockets() {}
#endif

// Listens on a free port of the loopback interface. Connections are accepted only when asked for,
// but the system completes them before that, so that a client sees a server that never answers.
class Listener {
 public:
  Listener() {
    start_sockets();
    socket_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(socket_, generic, sizeof address) != 0 || ::listen(socket_, 64) != 0) {
      throw std::runtime_error("cannot listen");
    }
    auto length = static_cast<Length>(sizeof address);
    getsockname(socket_, generic, &length);
    port_ = ntohs(address.sin_port);
  }
  ~Listener() { close(); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  uint16_t port() const { return port_; }
  Socket accept() const { return ::accept(socket_, nullptr, nullptr); }
  void close() {
    if (open_) close_socket(socket_);
    open_ = false;
  }

 private:
#ifdef _WIN32
  using Length = int;
#else
  using Length = socklen_t;
#endif
  Socket socket_;
  uint16_t port_ = 0;
  bool open_ = true;
};

}  // namespace zeva_test
