#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/text/encoding.h"

/// Whole text files. Paths are taken as they are. Files above 256 MiB, and what is no regular file, cannot be read.
namespace vistrelle {

struct TextFile {
  platform::OptionalText text;
  /// The encoding it was read in; kNoEncoding when none was detected.
  platform::EncodingNumber encoding = platform::kNoEncoding;
  /// Why there is no text.
  std::string error;
};

/// Reads a file in the encoding that it seems to have (see platform::detectEncoding).
TextFile readDetecting(const std::string& path);
TextFile readInEncoding(const std::string& path, platform::EncodingNumber encoding);
/// The first `count` bytes of a file, fewer when it is shorter; nothing when it cannot be read.
std::optional<std::string> readStart(const std::string& path, std::size_t count);

}  // namespace vistrelle
