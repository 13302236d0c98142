#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vistrelle::testing {

/// A real HTTP server on the loopback interface, on a free port, while it lives. It answers "/page" ("Hello\n"),
/// "/redirect" (to /page), "/loop" (to itself), "/to-file" (to file:///etc/hostname), "/status/N" (status N, "body"),
/// "/endless", "/endless-headers" (lines), "/endless-header" (one line), "/to-headers" (to itself, 60 kB of headers
/// each time), "/packed" (20 bytes that say they are gzip), "/declared-long" (a length of 10 GB), "/slow" (one byte,
/// then nothing), "/short" (less than it declared),
/// "/latin1" ("caf" and byte E9), and 404 for everything else. Requests are answered one after the other per thread.
class LoopbackServer {
 public:
  LoopbackServer();
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  /// "http://127.0.0.1:<port>" and the path.
  std::string url(const std::string& path) const;
  /// How often a path was asked for.
  int requests(const std::string& path);

 private:
  void serve();
  void answer(int connection);
  void respond(int connection, const std::string& path);

  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> ends_{false};
  std::thread acceptor_;
  std::vector<std::thread> answerers_;
  std::mutex mutex_;
  std::map<std::string, int> requests_;
};

}  // namespace vistrelle::testing
