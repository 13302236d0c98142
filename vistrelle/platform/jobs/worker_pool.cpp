#include "vistrelle/platform/jobs/worker_pool.h"

#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "vistrelle/platform/files/unique_fd.h"
#include "vistrelle/platform/jobs/worker_process.h"

namespace vistrelle::platform {
namespace {

using Clock = std::chrono::steady_clock;

// Of a process that has closed its socket or was killed: it is gone in a moment, unless a file system holds it.
constexpr int kEndMilliseconds = 2000;

}  // namespace

struct WorkerPool::Worker {
  pid_t process = -1;
  UniqueFd socket;
  std::optional<std::uint64_t> task;
  Clock::time_point deadline;
  std::string out;  // not sent yet
  std::string in;   // not a whole answer yet

  /// Sends what can be sent. False when the process is gone.
  bool push() {
    while (!out.empty()) {
      const ssize_t sent = ::send(socket.get(), out.data(), out.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (sent < 0 && errno == EINTR) continue;
      if (sent < 0) return errno == EAGAIN;
      out.erase(0, static_cast<std::size_t>(sent));
    }
    return true;
  }

  /// Reads what has come. False when there will be nothing more.
  bool pull() {
    std::array<char, 65536> buffer{};
    for (;;) {
      const ssize_t count = ::recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return errno == EAGAIN;
      if (count == 0) return false;
      in.append(buffer.data(), static_cast<std::size_t>(count));
    }
  }

  /// Waits for the end that has been announced; nothing when it does not come.
  std::optional<int> waitForEnd() const {
    for (int waited = 0; waited < kEndMilliseconds; ++waited) {
      int status = 0;
      const pid_t ended = ::waitpid(process, &status, WNOHANG);
      if (ended == process) return status;
      if (ended < 0 && errno != EINTR) return std::nullopt;
      ::poll(nullptr, 0, 1);
    }
    return std::nullopt;
  }
};

WorkerPool::WorkerPool(WorkerSetup setup, const WorkerPoolOptions& options)
    : setup_(std::move(setup)), options_(options) {}

WorkerPool::~WorkerPool() {
  for (auto& worker : workers_) end(worker);
  for (int waited = 0; !leaving_.empty() && waited < kEndMilliseconds; ++waited) {
    reap();
    if (!leaving_.empty()) ::poll(nullptr, 0, 1);
  }
}

std::size_t WorkerPool::running() const {
  return static_cast<std::size_t>(std::ranges::count_if(workers_, [](const auto& w) { return w->task.has_value(); }));
}

bool WorkerPool::hasRoom() const {
  return running() < options_.workers;
}

std::unique_ptr<WorkerPool::Worker> WorkerPool::makeWorker() {
  auto worker = std::make_unique<Worker>();
  worker->process = forkWorker(setup_, options_.memoryBytes, &worker->socket);
  return worker->process > 0 ? std::move(worker) : nullptr;
}

/// Kills; the process may be held by a file system that does not answer, so nobody waits for it here.
void WorkerPool::end(std::unique_ptr<Worker>& worker) {
  ::kill(worker->process, SIGKILL);
  leaving_.push_back(worker->process);
  worker.reset();
}

void WorkerPool::reap() {
  std::erase_if(leaving_, [](pid_t process) {
    const pid_t ended = ::waitpid(process, nullptr, WNOHANG);
    return ended == process || (ended < 0 && errno != EINTR);
  });
}

bool WorkerPool::start(std::uint64_t task, std::string_view text) {
  auto place = workers_.end();
  for (;;) {
    place = std::ranges::find_if(workers_, [](const auto& worker) { return !worker->task; });
    if (place == workers_.end() || (*place)->pull()) break;
    end(*place);  // it ended while it had nothing to do
    workers_.erase(place);
  }
  if (place == workers_.end()) {
    auto fresh = makeWorker();
    if (!fresh) return false;
    place = workers_.insert(workers_.end(), std::move(fresh));
  }
  Worker& worker = **place;
  worker.task = task;
  worker.deadline = Clock::now() + options_.timeout;
  worker.out = framed(text);
  worker.push();  // when that fails, collect() sees the end
  return true;
}

void WorkerPool::addDescriptors(std::vector<pollfd>* descriptors) const {
  for (const auto& worker : workers_) {
    const int events = worker->out.empty() ? POLLIN : POLLIN | POLLOUT;
    descriptors->push_back({worker->socket.get(), static_cast<short>(events), 0});
  }
}

int WorkerPool::millisecondsLeft() const {
  std::optional<Clock::time_point> next;
  for (const auto& worker : workers_) {
    if (worker->task && (!next || worker->deadline < *next)) next = worker->deadline;
  }
  if (!next) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
  constexpr std::int64_t kMost = 3'600'000;
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, kMost));
}

std::vector<TaskEnd> WorkerPool::collect() {
  reap();
  std::vector<TaskEnd> ends;
  for (auto& worker : workers_) {
    const bool takesMore = worker->push();
    const bool saysMore = worker->pull();  // what it said before it went is wanted all the same
    const bool isThere = takesMore && saysMore;
    bool isSound = true;
    bool isLast = false;
    if (auto answer = takeAnswer(&worker->in, &isLast, &isSound); answer && worker->task) {
      ends.push_back({*std::exchange(worker->task, std::nullopt), TaskEnd::How::answered, std::move(*answer)});
    }
    if (isLast) {
      end(worker);
    } else if (!isThere || !isSound) {
      const std::optional<int> status = worker->waitForEnd();
      if (worker->task) {
        ends.push_back({*worker->task, TaskEnd::How::died, status ? textOfEnd(*status) : "unknown"});
      }
      if (status) {
        worker.reset();
      } else {
        end(worker);
      }
    } else if (worker->task && Clock::now() >= worker->deadline) {
      ends.push_back({*worker->task, TaskEnd::How::timedOut, {}});
      end(worker);
    }
  }
  std::erase(workers_, nullptr);
  return ends;
}

std::vector<TaskEnd> WorkerPool::cancelAll() {
  std::vector<TaskEnd> ends = collect();
  for (auto& worker : workers_) {
    if (!worker->task) continue;
    ends.push_back({*worker->task, TaskEnd::How::cancelled, {}});
    end(worker);
  }
  std::erase(workers_, nullptr);
  return ends;
}

std::vector<pid_t> WorkerPool::processes() const {
  std::vector<pid_t> list;
  for (const auto& worker : workers_) {
    if (worker->task) list.push_back(worker->process);
  }
  return list;
}

}  // namespace vistrelle::platform
