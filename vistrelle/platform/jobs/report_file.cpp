#include "vistrelle/platform/jobs/report_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "vistrelle/platform/jobs/line_source.h"

namespace vistrelle::platform {
namespace {

constexpr mode_t kMode = 0666;

bool writeAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(file, bytes.data(), bytes.size());
    if (count < 0 && errno == EAGAIN) {
      pollfd ready{file, POLLOUT, 0};
      ::poll(&ready, 1, -1);
      continue;
    }
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool endsInLine(int file) {
  const off_t size = ::lseek(file, 0, SEEK_END);
  char last = '\n';
  return size == 0 || (::pread(file, &last, 1, size - 1) == 1 && last == '\n');
}

/// Copies the lines that stay, from the beginning of `from`.
bool copyLines(int from, int to, const ReportFile::Keep& keep, bool* allStay) {
  *allStay = endsInLine(from);
  const bool lastIsWhole = *allStay;
  if (::lseek(from, 0, SEEK_SET) != 0) return false;
  LineSource lines(UniqueFd(::fcntl(from, F_DUPFD_CLOEXEC, 0)));
  const std::uint64_t count = lines.countLines().value_or(0);
  std::string line;
  for (auto status = lines.next(&line); status != LineSource::Status::end; status = lines.next(&line)) {
    if (status == LineSource::Status::failed || status == LineSource::Status::wait) return false;
    const bool isWhole = lastIsWhole || lines.number() != count;
    const bool stays = isWhole && status == LineSource::Status::line && keep(line);
    *allStay = *allStay && stays;
    if (stays && !writeAll(to, line + "\n")) return false;
  }
  return true;
}

}  // namespace

std::unique_ptr<ReportFile> ReportFile::standardOutput() {
  return std::unique_ptr<ReportFile>(new ReportFile(UniqueFd(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0))));
}

std::unique_ptr<ReportFile> ReportFile::make(const std::string& path, std::string* error) {
  UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC | O_NOCTTY, kMode));
  if (!file) {
    *error = std::strerror(errno);
    return nullptr;
  }
  ::flock(file.get(), LOCK_EX | LOCK_NB);
  return std::unique_ptr<ReportFile>(new ReportFile(std::move(file)));
}

std::unique_ptr<ReportFile> ReportFile::goOn(const std::string& path, const Keep& keep, std::string* error) {
  const auto failed = [error](const char* cause) {
    *error = cause;
    return nullptr;
  };
  UniqueFd file(::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, kMode));
  struct stat facts {};
  if (!file) return failed(std::strerror(errno));
  if (::fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode)) return failed("not a regular file");
  if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    return failed("another process writes to it");
  bool allStay = true;
  const std::string fresh = path + ".new";
  UniqueFd copy(
      ::open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOFOLLOW, facts.st_mode & 0777U));
  if (!copy) return failed(std::strerror(errno));
  ::flock(copy.get(), LOCK_EX | LOCK_NB);
  const bool isWritten = copyLines(file.get(), copy.get(), keep, &allStay);
  if (!isWritten || (!allStay && (::fsync(copy.get()) != 0 || std::rename(fresh.c_str(), path.c_str()) != 0))) {
    failed(std::strerror(errno));
    ::unlink(fresh.c_str());
    return nullptr;
  }
  if (allStay) {
    ::unlink(fresh.c_str());
    return std::unique_ptr<ReportFile>(new ReportFile(std::move(file)));
  }
  std::unique_ptr<ReportFile> report(new ReportFile(std::move(copy)));
  report->former_ = std::move(file);
  return report;
}

bool ReportFile::append(std::string_view line) {
  const off_t before = ::lseek(file_.get(), 0, SEEK_END);  // fails for a pipe or a terminal
  if (writeAll(file_.get(), std::string(line) + "\n")) return true;
  const int cause = errno;
  if (before >= 0) (void)!::ftruncate(file_.get(), before);
  errno = cause;
  return false;
}

bool ReportFile::isTerminal() const {
  return ::isatty(file_.get()) == 1;
}

}  // namespace vistrelle::platform
