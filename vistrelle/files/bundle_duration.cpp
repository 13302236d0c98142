#include <cstdint>
#include <string_view>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/bundles.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

// Descriptions are a few kilobytes; anything near this is not one.
constexpr std::int64_t largestDescription = 16 * 1024 * 1024;

constexpr std::string_view durationKey = "<key>actual duration</key><real>";
constexpr std::string_view durationEnd = "</real>";

/// The text after the duration key and before the end of its value, found in the text and not by reading the list:
/// descriptions hold many other keys.
OptionalText durationText(const std::string& description) {
  const auto key = description.find(durationKey);
  if (key == std::string::npos) return std::nullopt;
  const auto begin = key + durationKey.size();
  const auto end = description.find(durationEnd, begin);
  if (end == std::string::npos) return std::nullopt;
  return description.substr(begin, end - begin);
}

/// On one line, single blanks between words. Nothing for bytes that are no text.
OptionalText onOneLine(const platform::Data& bytes) {
  std::string text;
  for (const std::byte byte : bytes) text += static_cast<char>(byte);
  // What is not UTF-8 is not ASCII either.
  if (!platform::isValidUtf8(text)) return std::nullopt;
  const OptionalText joined = findAndReplace(findAndReplace(text, "\n", "", false), "\t", "", false);
  return findAndReplace(joined, "  ", " ", true);
}

}  // namespace

float eyetvBundleDuration(const OptionalText& path) {
  if (!path) return 0;
  if (path->find(".eyetv/") == std::string::npos && path->find(".eyetvsched/") == std::string::npos) return 0;
  logVerbose("bundledVideoEyetvDura- begin");
  logVerbose("input               : {}", *path);
  std::string folder = platform::deletingLastPathComponent(platform::expandingTilde(*path));
  if (!folder.ends_with('/')) folder += '/';
  logVerbose("input               : {}", folder);
  const std::string file = fileFromFolder(folder, "eyetvr");
  logVerbose("pathStrEyetvr         : {}", file);
  const auto files = platform::fileManager().get();
  if (file.empty() || !files->canOpenForReading(file)) {
    log("bundledVideoEyetvDura- not readable");
    return 0;
  }
  const auto bytes = files->contents(file, largestDescription);
  if (!bytes) {
    log("bundledVideoEyetvDura- no read");
    return 0;
  }
  float duration = 0;
  if (const OptionalText text = onOneLine(*bytes)) {
    if (const OptionalText value = durationText(*text)) duration = readFloat(value);
  }
  logVerbose("returnFloat          : {:f}", duration);
  return duration;
}

}  // namespace vistrelle
