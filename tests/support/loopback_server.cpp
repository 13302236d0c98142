#include "tests/support/loopback_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace vistrelle::testing {
namespace {

constexpr int kLookMilliseconds = 20;

bool sendAll(int connection, const std::string& text) {
  std::size_t sent = 0;
  while (sent < text.size()) {
    const ssize_t count = ::send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

std::string response(int status, const std::string& headers, const std::string& body) {
  return "HTTP/1.1 " + std::to_string(status) + " Status\r\nConnection: close\r\n" + headers +
         (status == 204 ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") + "\r\n" +
         (status == 204 ? "" : body);
}

}  // namespace

LoopbackServer::LoopbackServer() {
  // The machine's proxy knows nothing of this server.
  ::setenv("no_proxy", "127.0.0.1", 1);
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* any = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener_, any, length) != 0 || ::listen(listener_, 16) != 0 ||
      ::getsockname(listener_, any, &length) != 0) {
    throw std::runtime_error("no loopback server");
  }
  port_ = ::ntohs(address.sin_port);
  acceptor_ = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer() {
  ends_ = true;
  acceptor_.join();
  for (auto& thread : answerers_) thread.join();
  ::close(listener_);
}

std::string LoopbackServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

int LoopbackServer::requests(const std::string& path) {
  std::lock_guard lock(mutex_);
  return requests_[path];
}

void LoopbackServer::serve() {
  while (!ends_) {
    pollfd waiting{listener_, POLLIN, 0};
    if (::poll(&waiting, 1, kLookMilliseconds) <= 0) continue;
    const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection >= 0) answerers_.emplace_back([this, connection] { answer(connection); });
  }
}

void LoopbackServer::answer(int connection) {
  std::string request;
  char block[4096];
  while (!ends_ && request.find("\r\n\r\n") == std::string::npos) {
    pollfd waiting{connection, POLLIN, 0};
    if (::poll(&waiting, 1, kLookMilliseconds) <= 0) continue;
    const ssize_t count = ::recv(connection, block, sizeof block, 0);
    if (count <= 0) break;
    request.append(block, static_cast<std::size_t>(count));
  }
  const auto start = request.find(' ');
  const auto end = request.find(' ', start + 1);
  if (start != std::string::npos && end != std::string::npos) {
    const std::string path = request.substr(start + 1, end - start - 1);
    {
      std::lock_guard lock(mutex_);
      ++requests_[path];
    }
    respond(connection, path);
  }
  ::close(connection);
}

void LoopbackServer::respond(int connection, const std::string& path) {
  const std::string status = "/status/";
  if (path == "/page") {
    sendAll(connection, response(200, "", "Hello\n"));
  } else if (path == "/redirect") {
    sendAll(connection, response(302, "Location: /page\r\n", ""));
  } else if (path == "/loop") {
    sendAll(connection, response(302, "Location: /loop\r\n", ""));
  } else if (path == "/to-file") {
    sendAll(connection, response(302, "Location: file:///etc/hostname\r\n", ""));
  } else if (path.starts_with(status)) {
    sendAll(connection, response(std::stoi(path.substr(status.size())), "", "body"));
  } else if (path == "/endless") {
    sendAll(connection, "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
    while (!ends_ && sendAll(connection, std::string(4096, 'x'))) {
    }
  } else if (path == "/endless-headers" || path == "/endless-header") {
    sendAll(connection, "HTTP/1.1 200 OK\r\nX-Long: ");
    const std::string more = path.ends_with('s') ? "x\r\nX-More: " + std::string(4096, 'x') : std::string(4096, 'x');
    while (!ends_ && sendAll(connection, more)) {
    }
  } else if (path == "/to-headers") {
    sendAll(connection, response(302, "Location: /to-headers\r\nX-Long: " + std::string(60'000, 'x') + "\r\n", ""));
  } else if (path == "/packed") {
    // An empty text of gzip, if anybody unpacked it.
    const std::string packed("\x1f\x8b\x08\0\0\0\0\0\0\x03\x03\0\0\0\0\0\0\0\0\0", 20);
    sendAll(connection, response(200, "Content-Encoding: gzip\r\n", packed));
  } else if (path == "/declared-long") {
    sendAll(connection, "HTTP/1.1 200 OK\r\nContent-Length: 10000000000\r\n\r\nx");
  } else if (path == "/slow") {
    sendAll(connection, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nx");
    for (int i = 0; i < 500 && !ends_; ++i) ::usleep(kLookMilliseconds * 1000);
  } else if (path == "/short") {
    sendAll(connection, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort");
  } else if (path == "/latin1") {
    sendAll(connection, response(200, "Content-Type: text/plain; charset=iso-8859-1\r\n", "caf\xE9"));
  } else {
    sendAll(connection, response(404, "", "absent"));
  }
}

}  // namespace vistrelle::testing
