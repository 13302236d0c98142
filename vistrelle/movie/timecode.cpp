#include "vistrelle/movie/timecode.h"

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/system/alerts.h"
#include "vistrelle/system/preferences.h"
#include "vistrelle/text/pieces.h"
#include "vistrelle/text/scanning.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

using Pieces = std::vector<std::string>;

constexpr std::int64_t kAlertStyle = 2;
constexpr std::int64_t kAlertSeconds = 60;

bool holds(const std::string& text, char character) {
  return text.find(character) != std::string::npos;
}

std::string withoutLeadingSpaces(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? std::string() : text.substr(first);
}

/// One reading, step by step in the order of its log lines; a silent one writes none.
class Reading {
 public:
  Reading(const std::string& text, bool silent) : text_(withoutLeadingSpaces(text)), silent_(silent) {
    pieces_ = piecesAt(piecesAt(text_, ' ').front(), ':');
  }

  float seconds() {
    if (tells()) log("tcMArray            : {}", joinWords(pieces_));
    turnDaysIntoHours();
    turnCommaIntoPoint();
    if (tells()) log("delimiterMsStr      : '{}'", holds(pieces_.back(), '.') ? "." : "nil");
    // Two pieces, and more than four, are not read: that gap is intended.
    float result = pieces_.size() == 1 ? number(text_) : 0.0F;
    turnFramesIntoFraction();
    if (pieces_.size() == 3) {
      double sum = number(pieces_[0]) * 60.0 * 60.0;
      sum += number(pieces_[1]) * 60.0;
      sum += number(pieces_[2]);
      result = static_cast<float>(sum);
    }
    if (tells()) log("returnedFloat       :-) {:f}", result);
    return result;
  }

  /// Whether the text itself holds a number other than zero.
  bool textIsNotZero() const { return number(text_) != 0.0F; }

 private:
  bool tells() const { return !silent_ && isVerbose(); }
  float number(const std::string& text) const { return silent_ ? readFloat(text) : str2Float(text); }

  void turnDaysIntoHours() {
    if (pieces_.size() != 4) return;
    const float days = number(pieces_[0]);
    const float hours = days * 24.0F + number(pieces_[1]);
    pieces_[1] = platform::format("{}", truncatedInteger(hours));
    pieces_.erase(pieces_.begin());
    if (tells()) log("tcMArray *3         : {}", platform::description(pieces_));
  }

  void turnCommaIntoPoint() {
    std::string& last = pieces_.back();
    if (holds(last, ',')) last = findAndReplace(last, ",", ".", false).value_or(last);
  }

  /// "02.12/25" becomes "2.480".
  void turnFramesIntoFraction() {
    if (pieces_.size() != 3 || !holds(pieces_.back(), '.')) return;
    const Pieces parts = piecesAt(pieces_.back(), '.');
    if (!holds(parts[1], '/')) return;
    const Pieces fraction = piecesAt(parts[1], '/');
    const float frames = number(fraction[0]);
    const float rate = number(findAndReplace(fraction[1], " ", "", false).value_or(fraction[1]));
    pieces_.back() = platform::format("{:.3f}", number(parts[0]) + frames / rate);
    if (tells()) log("tcMArray ms         : {}", platform::description(pieces_));
  }

  std::string text_;
  Pieces pieces_;
  bool silent_;
};

void warnOfSuspiciousZero(float seconds) {
  alertGiveUp("utils > timecodeStr2Float ? :-/", platform::format("…à revoir :-( returnedFloat = {:f}", seconds),
              std::nullopt, std::nullopt, std::nullopt, kAlertStyle, kAlertSeconds);
}

}  // namespace

float timecodeStr2Float(const platform::OptionalText& text) {
  if (!text) return 0.0F;
  Reading reading(*text, false);
  const float seconds = reading.seconds();
  const bool suspicious = std::fabs(static_cast<double>(seconds)) < 0.001 && reading.textIsNotZero();
  if (suspicious && (isVerbose() || isDeveloperMachine())) warnOfSuspiciousZero(seconds);
  return seconds;
}

float timecodeSeconds(const platform::OptionalText& text) {
  return text ? Reading(*text, true).seconds() : 0.0F;
}

}  // namespace vistrelle
