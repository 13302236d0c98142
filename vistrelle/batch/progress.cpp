#include "vistrelle/batch/progress.h"

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "vistrelle/platform/base/format.h"

namespace vistrelle {
namespace {

using platform::format;

constexpr std::chrono::milliseconds kPause{200};
constexpr int kBarColumns = 24;
constexpr int kUsualColumns = 80;
constexpr const char* kLineErased = "\r\x1b[K";

int columnsOfTerminal() {
  winsize size{};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualColumns;
}

void show(const std::string& text) {
  (void)!::write(STDERR_FILENO, text.data(), text.size());
}

std::string timeText(double seconds) {
  const auto whole = static_cast<std::int64_t>(std::min(seconds, 3.6e8));
  const std::int64_t hours = whole / 3600;
  if (hours == 0) return format("{}:{:02}", whole / 60, whole % 60);
  return format("{}:{:02}:{:02}", hours, whole / 60 % 60, whole % 60);
}

}  // namespace

Progress::Progress(bool isShown, std::optional<std::uint64_t> total)
    : isShown_(isShown), total_(total), begin_(Clock::now()) {}

void Progress::count(bool isSuccess) {
  ++ended_;
  if (!isSuccess) ++failed_;
}

std::string Progress::text(double seconds, int columns) const {
  const std::uint64_t past = ended_ + skipped_;
  const double rate = seconds > 0 ? static_cast<double>(ended_) / seconds : 0;
  std::string line;
  if (total_ && *total_ > 0) {
    const double part = std::min(1.0, static_cast<double>(past) / static_cast<double>(*total_));
    const auto filled = static_cast<std::size_t>(part * kBarColumns);
    line += format("[{}{}] {:3}% ", std::string(filled, '='), std::string(kBarColumns - filled, ' '),
                   static_cast<int>(part * 100));
    line += format("{}/{} jobs", past, *total_);
  } else {
    line += format("{} jobs", past);
  }
  line += format(", {:.1f}/s", rate);
  if (failed_ > 0) line += format(", {} failed", failed_);
  if (total_ && rate > 0 && past < *total_) {
    line += format(", {} left", timeText(static_cast<double>(*total_ - past) / rate));
  }
  // A line that reaches the last column may wrap around.
  return line.substr(0, static_cast<std::size_t>(std::max(columns - 1, 0)));
}

void Progress::draw() {
  const auto now = Clock::now();
  if (!isShown_ || (isDrawn_ && now - last_ < kPause)) return;
  last_ = now;
  isDrawn_ = true;
  show(kLineErased + text(std::chrono::duration<double>(now - begin_).count(), columnsOfTerminal()));
}

void Progress::clear() {
  if (!std::exchange(isDrawn_, false)) return;
  show(kLineErased);
}

}  // namespace vistrelle
