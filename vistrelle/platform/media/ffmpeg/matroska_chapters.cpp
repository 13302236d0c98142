#include "vistrelle/platform/media/ffmpeg/matroska_chapters.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <span>

#include "vistrelle/platform/media/ffmpeg/ebml.h"

namespace vistrelle::platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

// RFC 9559, 5.1.
constexpr std::uint32_t kSegment = 0x18538067;
constexpr std::uint32_t kSeekHead = 0x114d9b74;
constexpr std::uint32_t kSeek = 0x4dbb;
constexpr std::uint32_t kSeekId = 0x53ab;
constexpr std::uint32_t kSeekPosition = 0x53ac;
constexpr std::uint32_t kCluster = 0x1f43b675;
constexpr std::uint32_t kChapters = 0x1043a770;
constexpr std::uint32_t kEditionEntry = 0x45b9;
constexpr std::uint32_t kChapterAtom = 0xb6;
constexpr std::uint32_t kChapterDisplay = 0x80;
constexpr std::uint32_t kChapLanguage = 0x437c;
constexpr std::uint32_t kChapLanguageBcp47 = 0x437d;

constexpr std::size_t kLongestHeader = 12;
constexpr std::int64_t kMaxLoadedBytes = std::int64_t{4} << 20;
constexpr int kMaxElements = 1000;
constexpr std::size_t kMaxLanguages = 1000;
constexpr std::size_t kLongestLanguage = 64;
constexpr int kMaxDepth = 16;

/// An element of the file: where its content begins, and its stated size cut to the file.
struct FileElement {
  std::uint32_t id = 0;
  std::int64_t content = 0;
  std::int64_t end = 0;
};

class ChapterReader {
 public:
  ChapterReader(std::int64_t size, const mov::ReadAt& readAt) : size_(size), readAt_(readAt) {}

  std::vector<std::string> read() {
    std::optional<FileElement> element = elementAt(0);
    if (element) element = elementAt(element->end);  // behind the EBML header
    if (!element || element->id != kSegment) return {};
    segment_ = element->content;
    if (const auto chapters = findChapters(segment_)) walk(load(*chapters), 0);
    return std::move(languages_);
  }

 private:
  Bytes bytesAt(std::int64_t offset, std::int64_t length) {
    Bytes bytes(static_cast<std::size_t>(std::clamp<std::int64_t>(size_ - offset, 0, length)));
    std::size_t present = 0;
    while (present < bytes.size()) {
      const std::int64_t count =
          readAt_(offset + static_cast<std::int64_t>(present), std::span(bytes).subspan(present));
      if (count <= 0) break;
      present += static_cast<std::size_t>(count);
    }
    bytes.resize(present);
    return bytes;
  }

  std::optional<FileElement> elementAt(std::int64_t offset) {
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

  Bytes load(const FileElement& element) {
    return bytesAt(element.content, std::min(element.end - element.content, kMaxLoadedBytes));
  }

  std::optional<FileElement> findChapters(std::int64_t offset) {
    std::optional<std::int64_t> indexed;
    for (int count = 0; count < kMaxElements; ++count) {
      const std::optional<FileElement> element = elementAt(offset);
      if (element && element->id == kChapters) return element;
      if (!element || element->id == kCluster) break;
      if (element->id == kSeekHead && !indexed) indexed = chaptersIn(load(*element));
      offset = element->end;
    }
    if (!indexed) return std::nullopt;
    const std::optional<FileElement> element = elementAt(*indexed);
    return element && element->id == kChapters ? element : std::nullopt;
  }

  std::optional<std::int64_t> chaptersIn(const Bytes& seekHead) const {
    std::size_t at = 0;
    while (const std::optional<EbmlElement> seek = ebmlElementAt(seekHead, at, seekHead.size())) {
      at = seek->end;
      if (seek->id != kSeek) continue;
      std::uint64_t id = 0;
      std::uint64_t position = 0;
      std::size_t in = seek->content;
      while (const std::optional<EbmlElement> part = ebmlElementAt(seekHead, in, seek->end)) {
        in = part->end;
        std::uint64_t number = 0;
        for (std::size_t i = part->content; i < part->end; ++i) number = number << 8 | seekHead[i];
        if (part->id == kSeekId) id = number;
        if (part->id == kSeekPosition) position = number;
      }
      constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
      if (id == kChapters && position < kMost - static_cast<std::uint64_t>(segment_)) {
        return segment_ + static_cast<std::int64_t>(position);
      }
    }
    return std::nullopt;
  }

  void walk(std::span<const std::uint8_t> bytes, int depth) {
    if (depth > kMaxDepth) return;
    std::size_t at = 0;
    while (const std::optional<EbmlElement> element = ebmlElementAt(bytes, at, bytes.size())) {
      at = element->end;
      const auto content = bytes.subspan(element->content, element->end - element->content);
      if (element->id == kEditionEntry || element->id == kChapterAtom) walk(content, depth + 1);
      if (element->id == kChapterDisplay) noteLanguage(content);
    }
  }

  void noteLanguage(std::span<const std::uint8_t> display) {
    std::string language;
    std::string tag;
    std::size_t at = 0;
    while (const std::optional<EbmlElement> part = ebmlElementAt(display, at, display.size())) {
      at = part->end;
      const auto content = display.subspan(part->content, std::min(part->end - part->content, kLongestLanguage));
      std::string text(content.begin(), std::ranges::find(content, std::uint8_t{0}));
      if (part->id == kChapLanguage) language = std::move(text);
      if (part->id == kChapLanguageBcp47) tag = std::move(text);
    }
    if (languages_.size() >= kMaxLanguages) return;
    if (language.empty()) language = "eng";
    languages_.push_back(tag.empty() ? language : tag);
  }

  std::int64_t size_;
  const mov::ReadAt& readAt_;
  std::int64_t segment_ = 0;
  std::vector<std::string> languages_;
};

}  // namespace

std::vector<std::string> matroskaChapterLanguages(std::int64_t size, const mov::ReadAt& readAt) {
  return ChapterReader(size, readAt).read();
}

}  // namespace vistrelle::platform
