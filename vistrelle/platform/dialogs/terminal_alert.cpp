#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <string_view>
#include <thread>
#include <vector>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/dialogs/alert_state.h"
#include "vistrelle/platform/dialogs/listener.h"
#include "vistrelle/platform/dialogs/terminal.h"

namespace vistrelle::platform {
namespace {

using std::chrono::milliseconds;

constexpr int kEscape = 0x1B;
constexpr int kEndOfInput = 0x04;
/// How long the rest of a key's escape sequence may take.
constexpr milliseconds kSequenceGap{30};
constexpr milliseconds kPoll{50};

/// Set when a digit answered an alert and the Return that many people type after it has not come yet: one that waits
/// when the next alert is shown does not answer it.
std::atomic<bool> returnExpected{false};

/// The text without what a terminal would obey: control characters other than tab and line feed, and stray bytes, which
/// a terminal of eight bits may take for such, become "?".
std::string printable(std::string_view text) {
  std::string result;
  for (std::size_t offset = 0; offset < text.size();) {
    const Character character = characterAt(text, offset);
    const bool isLayout = character.code == U'\n' || character.code == U'\t';
    const bool isControl = character.code < 0x20 || (character.code >= 0x7F && character.code < 0xA0);
    if (!character.valid || (isControl && !isLayout)) {
      result += '?';
    } else {
      result += text.substr(offset, character.length);
    }
    offset += character.length;
  }
  return result;
}

/// The list positions of buttons 1, 2 and 3 (default, alternate, other), as far as there are such buttons.
std::vector<std::size_t> positionsByNumber(const AlertContent& content) {
  const auto buttons = alertButtons(content);
  std::vector<std::size_t> positions;
  for (const ButtonRole role : {ButtonRole::Default, ButtonRole::Alternate, ButtonRole::Other}) {
    for (std::size_t i = 0; i < buttons.size(); ++i) {
      if (buttons[i].role == role) positions.push_back(i);
    }
  }
  return positions;
}

std::string alertText(const AlertContent& content) {
  const auto buttons = alertButtons(content);
  std::string text = content.critical ? "[!] " : "[i] ";
  text.append(printable(content.message)).append("\n");
  if (!content.informative.empty()) text.append(printable(content.informative)).append("\n");
  // Unticked: there is no key for it.
  if (content.checkbox && !content.checkbox->empty())
    text.append("[ ] ").append(printable(*content.checkbox)).append("\n");
  int number = 0;
  for (const std::size_t position : positionsByNumber(content)) {
    text.append(format("  {}) {}", ++number, printable(buttons[position].caption)));
  }
  text.append("\n");
  if (content.field) text.append(format("[{}] ", printable(content.field->text)));
  return text;
}

/// Reads the answer on a thread of its own.
class TerminalPresenter final : public AlertPresenter {
 public:
  TerminalPresenter(const AlertContent& content, std::shared_ptr<AlertState> state)
      : content_(content), positions_(positionsByNumber(content)), state_(std::move(state)) {
    const std::string text = alertText(content_);
    logSink().get()->plain(text);
    if (terminal_.isForeground() && ::isatty(STDERR_FILENO) == 0) terminal_.write(text);
    if (terminal_.isOpen()) thread_ = startListener([this] { listen(); });
    if (!thread_.joinable()) state_->lose();
  }

  ~TerminalPresenter() override {
    ended_ = true;
    if (thread_.joinable()) thread_.join();
  }

 private:
  void listen() {
    bool foreground = true;
    while (!ended_ && !done_) {
      const bool now = terminal_.isForeground();
      if (foreground && !now) state_->lose();
      foreground = now;
      if (!foreground) {
        std::this_thread::sleep_for(kPoll);
        continue;
      }
      if (!content_.field) terminal_.readKeys();
      if (returnExpected.exchange(false)) skipReturn();
      if (!terminal_.waitReadable(kPoll)) continue;
      const auto byte = terminal_.readByte();
      if (!byte) continue;
      content_.field ? takeLineByte(*byte) : takeKey(*byte);
    }
  }

  void takeKey(int key) {
    if (key < 0) {
      state_->lose();
      done_ = true;
    } else if (key == '\n' || key == '\r') {
      answer(0);
    } else if (key == kEscape) {
      if (!skipSequence()) answer(cancelPosition(positions_.size()));
    } else if (key == kEndOfInput) {
      answer(cancelPosition(positions_.size()));
    } else if (const auto number = static_cast<std::size_t>(key - '1'); key >= '1' && number < positions_.size()) {
      answer(positions_[number]);
      returnExpected = !skipReturn();
    }
  }

  void takeLineByte(int byte) {
    if (byte < 0) {
      answer(cancelPosition(positions_.size()));
    } else if (byte == '\n') {
      answer(0, line_.empty() ? content_.field->text : line_);
    } else {
      line_ += static_cast<char>(byte);
    }
  }

  /// Whether the escape character began an arrow or function key, which is read over.
  bool skipSequence() {
    if (!terminal_.waitReadable(kSequenceGap)) return false;
    const int introducer = terminal_.readByte().value_or(-1);
    if (introducer != '[' && introducer != 'O') return false;
    while (terminal_.waitReadable(kSequenceGap)) {
      const int byte = terminal_.readByte().value_or(-1);
      if (byte < 0 || (byte >= 0x40 && byte <= 0x7E)) break;
    }
    return true;
  }

  /// Takes a Return that was typed already; another key that was is taken as a key of this alert.
  bool skipReturn() {
    if (!terminal_.waitReadable(milliseconds(0))) return false;
    const auto next = terminal_.readByte();
    if (!next || *next == '\n' || *next == '\r') return next.has_value();
    if (!done_) content_.field ? takeLineByte(*next) : takeKey(*next);
    return false;
  }

  void answer(std::size_t position, std::string field = {}) {
    done_ = true;
    state_->answer(position, std::move(field));
  }

  const AlertContent content_;
  const std::vector<std::size_t> positions_;
  const std::shared_ptr<AlertState> state_;
  Terminal terminal_;
  std::string line_;
  std::atomic<bool> ended_{false};
  bool done_ = false;
  std::thread thread_;
};

}  // namespace

std::unique_ptr<AlertPresenter> presentOnTerminal(const AlertContent& content, std::shared_ptr<AlertState> state) {
  return std::make_unique<TerminalPresenter>(content, std::move(state));
}

}  // namespace vistrelle::platform
