#include "vistrelle/system/probes.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/bundle/bundle.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/process/machine.h"
#include "vistrelle/platform/workspace/workspace.h"
#include "vistrelle/system/commands.h"
#include "vistrelle/text/numbers.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

using platform::Colour;

constexpr std::string_view kVersionWord = "version ";
// Systems before this answer the parts of their version in one packed decimal number.
constexpr std::int64_t kFirstWithParts = 0x1040;
constexpr std::int64_t kUnknownSubtype = 750;
constexpr std::int64_t kG3Subtype = 9;
// 256 minus 2 to the power -16: the largest single-precision number below 256.
constexpr double kComponentScale = 255.99998474121094;

struct VersionParts {
  std::int64_t major;
  std::int64_t minor;
  std::int64_t bugFix;
  std::string text() const { return platform::format("{}.{}.{}", major, minor, bugFix); }
};

std::optional<VersionParts> askedSystemVersion() {
  const auto machine = platform::machine().get();
  const auto packed = machine->answer("sysv");
  if (!packed) return std::nullopt;
  if (*packed < kFirstWithParts) {
    return VersionParts{(*packed >> 12 & 15) * 10 + (*packed >> 8 & 15), *packed >> 4 & 15, *packed & 15};
  }
  const auto major = machine->answer("sys1");
  const auto minor = machine->answer("sys2");
  const auto bugFix = machine->answer("sys3");
  if (!major || !minor || !bugFix) return std::nullopt;
  return VersionParts{*major, *minor, *bugFix};
}

/// The second of at least three pieces between blanks.
platform::OptionalText secondPiece(const std::string& text) {
  const auto first = text.find(' ');
  if (first == std::string::npos) return std::nullopt;
  const auto second = text.find(' ', first + 1);
  if (second == std::string::npos) return std::nullopt;
  return text.substr(first + 1, second - first - 1);
}

std::uint32_t hexadecimal(std::string_view text) {
  constexpr std::uint64_t kMost = 0xFFFFFFFF;
  std::uint64_t value = 0;
  for (const char c : text) {
    const auto digit = std::string_view("0123456789abcdef").find(static_cast<char>(c >= 'A' && c <= 'F' ? c + 32 : c));
    if (digit == std::string_view::npos) break;
    value = std::min(value * 16 + digit, kMost);
  }
  return static_cast<std::uint32_t>(value);
}

Colour colourOf(std::string_view text) {
  if (text.starts_with('#')) text.remove_prefix(1);
  const std::uint32_t value = hexadecimal(text);
  const auto component = [value](unsigned shift) { return (value >> shift & 255U) / 255.0; };
  return {component(16), component(8), component(0), 1};
}

platform::OptionalText digitsOf(const Colour& colour) {
  std::string digits;
  for (const double component : {colour.red, colour.green, colour.blue}) {
    if (!std::isfinite(component)) return std::nullopt;
    const auto number = static_cast<std::int64_t>(std::clamp(component, 0.0, 1.0) * kComponentScale);
    digits += platform::format("{:02x}", number);
  }
  return digits;
}

}  // namespace

float dvdToolVersion(bool spumux) {
  const std::string folder = platform::appendingPathComponent(platform::mainBundle().get()->resourcePath(), "tools");
  const std::string tool = platform::appendingPathComponent(folder, spumux ? "spumux" : "dvdauthor");
  if (!testPresenceCocoa(tool)) return 0;
  const auto output = taskArray(std::vector<std::string>{tool, "-h"});
  if (isVerbose()) log("versionSpumux       : {}", output.value_or("nil"));
  if (!output) return 0;
  float version = 0;
  for (const std::string& line : splitLines(output)) {
    const auto word = line.find(kVersionWord);
    if (word == std::string::npos) continue;
    version = versionStr2Float(line.substr(word + kVersionWord.size()));
    if (version > 0) break;
  }
  logVerbose("versionSpumuxDvdauth: {:f}", version);
  return version;
}

float versionOS() {
  if (const auto parts = askedSystemVersion()) {
    const std::string text = parts->text();
    log("Operating System    : {}", text);
    return versionStr2Float(text);
  }
  const std::string whole = platform::machine().get()->systemVersion();
  const auto text = secondPiece(whole);
  if (!text) return -1;
  log("OS version (#2)     : {} (->{:.1f})", *text, str2Float(whole));
  return versionStr2Float(*text);
}

float versionQT() {
  const auto packed = platform::machine().get()->answer("qtim");
  if (!packed) {
    log("versionQT           :-( echec");
    return 0;
  }
  const std::string text = VersionParts{*packed >> 24 & 255, *packed >> 20 & 15, *packed >> 16 & 15}.text();
  log("QuickTime           : {}", text);
  const float version = versionStr2Float(text);
  logVerbose("{:f}", version);
  return version;
}

bool isQuartzExtreme() {
  if (platform::workspace().get()->displayIsAccelerated()) {
    log("Quartz Extreme      :-) compatible video card");
    return true;
  }
  log("Quartz Extreme      :-( not compatible video card");
  log("INFORMATION         : if you have two graphic cards, the two cards must be Quartz Extreme compatible.");
  log("                      if this is not the case, please remove the non compatible card.");
  return false;
}

bool cpuG3() {
  const auto subtype = platform::machine().get()->hardwareNumber("hw.cpusubtype").value_or(kUnknownSubtype);
  logVerbose("cpuSubtype          : {}", subtype);
  const bool isG3 = subtype == kG3Subtype;
  if (isG3) {
    log("cpuG3               :-(");
  } else {
    log("cpu > G3            :-)");
  }
  return isG3;
}

std::int64_t processorCount() {
  const std::int64_t count = platform::machine().get()->processorCount();
  log("Processors/Cores    x {}", count);
  return count;
}

OptionalValue colorHexaRgb(const OptionalValue& textOrColour) {
  logVerbose("colorHexaRgb…");
  if (!textOrColour) return std::nullopt;
  if (const auto* text = textOrColour->get<std::string>()) {
    logVerbose("colorHexaRgb: hexa -> …");
    const Value colour(colourOf(*text));
    if (isVerbose()) log("colorHexaRgb        :-) {}", platform::description(colour));
    return colour;
  }
  const auto* colour = textOrColour->get<Colour>();
  if (!colour) return std::nullopt;
  const auto digits = digitsOf(*colour);
  if (!digits) {
    log("colorHexaRgb        :-( nil");
    return std::nullopt;
  }
  logVerbose("colorHexaRgb: rgb -> …");
  log("colorHexaRgb        :-) {}", *digits);
  return Value(*digits);
}

void openURLText(const OptionalText& url) {
  if (url) platform::workspace().get()->openUrl(platform::Url{*url});
}

OptionalValue runAppleScript(const OptionalText& /*source*/) {
  log("runAppleScript      :-( not available");
  return std::nullopt;
}

}  // namespace vistrelle
