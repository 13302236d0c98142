#include "vistrelle/platform/media/ffmpeg/matroska_elements.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <set>
#include <span>

#include "vistrelle/platform/media/ffmpeg/ebml.h"

namespace vistrelle::platform {
namespace {

constexpr std::uint32_t kSegment = 0x18538067;
constexpr std::uint32_t kSeekHead = 0x114d9b74;
constexpr std::uint32_t kSeek = 0x4dbb;
constexpr std::uint32_t kSeekId = 0x53ab;
constexpr std::uint32_t kSeekPosition = 0x53ac;
constexpr std::uint32_t kCluster = 0x1f43b675;

constexpr std::size_t kLongestHeader = 12;
constexpr std::int64_t kMostIndexBytes = std::int64_t{4} << 20;
constexpr std::size_t kMostElements = 1000;

}  // namespace

MatroskaElements::Bytes MatroskaElements::bytesAt(std::int64_t offset, std::int64_t length) const {
  Bytes bytes(static_cast<std::size_t>(std::clamp<std::int64_t>(size_ - offset, 0, length)));
  std::size_t present = 0;
  while (present < bytes.size()) {
    const std::int64_t count = readAt_(offset + static_cast<std::int64_t>(present), std::span(bytes).subspan(present));
    if (count <= 0) break;
    present += static_cast<std::size_t>(count);
  }
  bytes.resize(present);
  return bytes;
}

std::optional<MatroskaElements::FileElement> MatroskaElements::elementAt(std::int64_t offset) const {
  if (offset < 0 || offset >= size_) return std::nullopt;
  const Bytes head = bytesAt(offset, kLongestHeader);
  const std::optional<EbmlElement> element = ebmlElementAt(head, 0, head.size());
  if (!element) return std::nullopt;
  FileElement found;
  found.id = element->id;
  found.content = offset + static_cast<std::int64_t>(element->content);
  const auto room = static_cast<std::uint64_t>(size_ - found.content);
  found.end = found.content + static_cast<std::int64_t>(std::min(element->size, room));
  return found;
}

std::optional<std::int64_t> MatroskaElements::segmentStart() const {
  std::optional<FileElement> element = elementAt(0);
  if (element) element = elementAt(element->end);  // behind the EBML header
  return element && element->id == kSegment ? std::optional(element->content) : std::nullopt;
}

/// Adds where an index says that elements of a kind lie.
void MatroskaElements::notePlaces(const Bytes& index, std::uint32_t wanted, std::int64_t segment,
                                  std::vector<std::int64_t>* places) {
  std::size_t at = 0;
  while (const std::optional<EbmlElement> seek = ebmlElementAt(index, at, index.size())) {
    at = seek->end;
    if (seek->id != kSeek) continue;
    std::uint64_t id = 0;
    std::uint64_t position = 0;
    std::size_t in = seek->content;
    while (const std::optional<EbmlElement> part = ebmlElementAt(index, in, seek->end)) {
      in = part->end;
      std::uint64_t number = 0;
      for (std::size_t i = part->content; i < part->end; ++i) number = number << 8 | index[i];
      if (part->id == kSeekId) id = number;
      if (part->id == kSeekPosition) position = number;
    }
    constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const bool isInside = position < kMost - static_cast<std::uint64_t>(segment);
    if (id == wanted && isInside && places->size() < kMostElements) {
      places->push_back(segment + static_cast<std::int64_t>(position));
    }
  }
}

std::vector<MatroskaElements::Bytes> MatroskaElements::contentsOf(std::uint32_t id, std::int64_t mostBytes) const {
  const std::optional<std::int64_t> segment = segmentStart();
  if (!segment) return {};
  std::vector<Bytes> contents;
  std::vector<std::int64_t> indexed;
  std::set<std::int64_t> taken;
  const auto take = [&](const FileElement& element) {
    if (!taken.insert(element.content).second) return;
    contents.push_back(bytesAt(element.content, std::min(element.end - element.content, mostBytes)));
    mostBytes -= std::ssize(contents.back());
  };
  std::int64_t offset = *segment;
  for (std::size_t count = 0; count < kMostElements; ++count) {
    const std::optional<FileElement> element = elementAt(offset);
    if (!element || element->id == kCluster) break;
    if (element->id == id) take(*element);
    if (element->id == kSeekHead) {
      notePlaces(bytesAt(element->content, std::min(element->end - element->content, kMostIndexBytes)), id, *segment,
                 &indexed);
    }
    offset = element->end;
  }
  for (const std::int64_t place : indexed) {
    const std::optional<FileElement> element = elementAt(place);
    if (element && element->id == id) take(*element);
  }
  return contents;
}

}  // namespace vistrelle::platform
