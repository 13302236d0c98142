#include "vistrelle/platform/media/ffmpeg/matroska_tags.h"

#include <span>

#include "vistrelle/platform/media/ffmpeg/ebml.h"
#include "vistrelle/platform/media/ffmpeg/matroska_elements.h"

namespace vistrelle::platform {
namespace {

constexpr std::uint32_t kTags = 0x1254c367;
constexpr std::uint32_t kTag = 0x7373;
constexpr std::uint32_t kSimpleTag = 0x67c8;

constexpr std::int64_t kMostBytes = std::int64_t{16} << 20;
constexpr int kMostDepth = 16;

std::size_t simpleTagsIn(std::span<const std::uint8_t> bytes, int depth) {
  if (depth > kMostDepth) return 0;
  std::size_t count = 0;
  std::size_t at = 0;
  while (const std::optional<EbmlElement> element = ebmlElementAt(bytes, at, bytes.size())) {
    at = element->end;
    if (element->id != kTag && element->id != kSimpleTag) continue;
    count += element->id == kSimpleTag ? 1 : 0;
    count += simpleTagsIn(bytes.subspan(element->content, element->end - element->content), depth + 1);
  }
  return count;
}

}  // namespace

std::size_t matroskaTagCount(std::int64_t size, const mov::ReadAt& readAt) {
  std::size_t count = 0;
  for (const auto& tags : MatroskaElements(size, readAt).contentsOf(kTags, kMostBytes)) count += simpleTagsIn(tags, 0);
  return count;
}

}  // namespace vistrelle::platform
