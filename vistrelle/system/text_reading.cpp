#include "vistrelle/system/text_reading.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle {
namespace {

using platform::EncodingNumber;
using platform::format;

constexpr std::int64_t kLongestText = std::int64_t{256} << 20;
constexpr std::size_t kBlock = 65536;

std::optional<std::string> contents(const std::string& path) {
  const auto data = platform::fileManager().get()->contents(path, kLongestText);
  if (!data) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(data->data()), data->size());
}

TextFile unreadable(const std::string& path, EncodingNumber encoding) {
  return {std::nullopt, encoding, format("the file cannot be read: '{}'", path)};
}

}  // namespace

TextFile readDetecting(const std::string& path) {
  const auto bytes = contents(path);
  if (!bytes) return unreadable(path, platform::kNoEncoding);
  const EncodingNumber encoding = platform::detectEncoding(*bytes);
  if (encoding == platform::kNoEncoding) {
    return {std::nullopt, encoding, format("the text encoding is unknown: '{}'", path)};
  }
  return {platform::decodeText(*bytes, encoding), encoding, {}};
}

TextFile readInEncoding(const std::string& path, EncodingNumber encoding) {
  const auto bytes = contents(path);
  if (!bytes) return unreadable(path, encoding);
  auto text = platform::decodeText(*bytes, encoding);
  if (!text) return {std::nullopt, encoding, format("not a text in encoding {}: '{}'", encoding, path)};
  return {std::move(text), encoding, {}};
}

std::optional<std::string> readStart(const std::string& path, std::size_t count) {
  const platform::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  std::string bytes;
  while (bytes.size() < count) {
    const std::size_t before = bytes.size();
    bytes.resize(before + std::min(count - before, kBlock));
    const ssize_t got = ::read(file.get(), bytes.data() + before, bytes.size() - before);
    bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
  }
  return bytes;
}

}  // namespace vistrelle
