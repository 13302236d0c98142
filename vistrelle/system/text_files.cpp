#include "vistrelle/system/text_files.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <system_error>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/files/unique_fd.h"
#include "vistrelle/platform/text/unicode.h"
#include "vistrelle/system/alerts.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

using platform::EncodingNumber;
using platform::UniqueFd;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::int64_t kLongestFile = std::int64_t{1} << 30;
constexpr std::int64_t kCriticalStyle = 2;
constexpr int kOpening = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
constexpr mode_t kNewFile = 0666;

bool isNothing(const OptionalText& text) {
  return !text || text->empty();
}

std::string lastError() {
  return std::error_code(errno, std::generic_category()).message();
}

/// Makes an empty file; one that is there although the existence test does not see it keeps its content.
bool makeEmptyFile(const std::string& path) {
  return static_cast<bool>(UniqueFd(::open(path.c_str(), O_WRONLY | O_CREAT | kOpening, kNewFile)));
}

bool writeAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// Writes at the end of the file; when that fails it is cut back to what it held.
bool append(UniqueFd file, const std::string& path, std::string_view bytes) {
  struct stat before {};
  const bool isFile = ::fstat(file.get(), &before) == 0 && S_ISREG(before.st_mode);
  if (writeAll(file.get(), bytes) && file.close() == 0) return true;
  log("ecrit               :-( '{}' ({})", path, lastError());
  if (isFile && file && ::ftruncate(file.get(), before.st_size) != 0) {
    log("ecrit               :-(( '{}' cannot be cut back ({})", path, lastError());
  }
  return false;
}

struct NamedEncoding {
  EncodingNumber number;
  /// What the alert shows; null for no alert.
  const char* constant;
};

NamedEncoding encodingOfName(const OptionalText& name) {
  const std::string lower = platform::lowercased(name.value_or(""));
  const auto has = [&lower](std::string_view piece) { return lower.find(piece) != std::string::npos; };
  if (has("roman")) return {platform::kMacRomanEncoding, nullptr};
  if (has("utf") && has("16")) {
    if (has("be")) return {platform::kUtf16BeEncoding, "NSUTF16BigEndianStringEncoding"};
    if (has("le")) return {platform::kUtf16LeEncoding, "NSUTF16LittleEndianStringEncoding"};
    return {platform::kUtf16Encoding, "NSUnicodeStringEncoding"};
  }
  if (has("utf") && has("8")) return {platform::kUtf8Encoding, "NSUTF8StringEncoding"};
  return {platform::kAsciiEncoding, nullptr};
}

std::string withPlainLineEnds(const std::string& text) {
  const auto joined = findAndReplace(text, "\r\n", "\n", false);
  return findAndReplace(joined, "\r", "\n", false).value_or(text);
}

}  // namespace

bool ecrit(const OptionalText& path, const OptionalText& text, bool withBom) {
  if (isNothing(path) || isNothing(text)) return false;
  const std::string full = platform::expandingTilde(*path);
  if (!testPresenceCocoa(full)) {
    logVerbose("a creer…");
    if (!makeEmptyFile(full)) {
      platform::plain("Impossible to create destination file !\n");
      return false;
    }
    if (withBom) writeUtf8Bom(full);
  }
  UniqueFd file(::open(full.c_str(), O_RDWR | O_APPEND | kOpening));
  if (!file) return false;
  if (!append(std::move(file), full, *text)) return false;
  logVerbose("ecrit               :-) {}", full);
  return true;
}

bool ecritNoBom(const OptionalText& path, const OptionalText& text) {
  return ecrit(path, text, false);
}
bool ecritWithBom(const OptionalText& path, const OptionalText& text) {
  return ecrit(path, text, true);
}

bool ecritWithEncoding(const OptionalText& path, const OptionalText& text, const OptionalText& name) {
  if (isNothing(path) || isNothing(text)) return false;
  const std::string full = platform::expandingTilde(*path);
  // What the guarded removal refuses to touch is not written over either.
  if (testPresenceCocoa(full) && (!rmCocoa(full) || testPresenceCocoa(full))) return false;
  if (!makeEmptyFile(full)) return false;
  const NamedEncoding encoding = encodingOfName(name);
  if (encoding.constant) alertSimple("encoding", encoding.constant, kCriticalStyle, {});
  const auto bytes = platform::encodeText(*text, encoding.number, true);
  UniqueFd file(::open(full.c_str(), O_WRONLY | kOpening));
  if (!file || !bytes || !append(std::move(file), full, *bytes)) return false;
  logVerbose("ecrit               :-) {}", full);
  return true;
}

bool ecritureFichier(const OptionalText& path, const OptionalText& text, std::int64_t number) {
  if (!path || !text) return false;
  const std::string full = platform::expandingTilde(*path);
  if (isVerbose()) {
    log("utils > ecritureFichier > pathStr : {}", full);
    if (const std::string name = fileNameOfPath(full); !name.empty()) log("nomFichier : {}", name);
  }
  log("{}", number);
  const std::string content = withPlainLineEnds(*text);
  const auto written = platform::fileManager().get()->writeInPlace(full, platform::bytesOf(content));
  if (!written.ok()) {
    log("Error writing file at {}\n{}", full, written.description());
    return false;
  }
  logVerbose("ecritureFichier     :-)");
  return true;
}

bool prependToFile(const OptionalText& path, const OptionalText& text) {
  if (!path || !text) return false;
  const std::string full = platform::expandingTilde(*path);
  const auto files = platform::fileManager().get();
  const auto former = files->contents(full, kLongestFile);
  if (!former) {
    log("Failed to open fileRead");
    return false;
  }
  const auto added = platform::bytesOf(*text);
  platform::Data content(added.begin(), added.end());
  if (isVerbose()) log("dataAdd = {}", platform::description(Value(content)));
  content.insert(content.end(), former->begin(), former->end());
  const auto written = files->writeInPlace(full, content);
  if (!written.ok()) log("prependToFile       :-( '{}' {}", full, written.description());
  return written.ok();
}

bool writeUtf8Bom(const OptionalText& path) {
  if (!path) return false;
  const std::string full = platform::expandingTilde(*path);
  const UniqueFd file(::open(full.c_str(), O_WRONLY | kOpening));
  if (!file || !writeAll(file.get(), kByteOrderMark)) log("Fixed BOM           :-( {} ({})", full, lastError());
  // Intended: the path is all that counts.
  logVerbose("Fixed BOM           :-) {}", full);
  return true;
}

}  // namespace vistrelle
