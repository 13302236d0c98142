#include "vistrelle/platform/media/ffmpeg/matroska_chapters.h"

#include <algorithm>
#include <optional>
#include <span>

#include "vistrelle/platform/media/ffmpeg/ebml.h"
#include "vistrelle/platform/media/ffmpeg/matroska_elements.h"

namespace vistrelle::platform {
namespace {

// RFC 9559, 5.1.
constexpr std::uint32_t kChapters = 0x1043a770;
constexpr std::uint32_t kEditionEntry = 0x45b9;
constexpr std::uint32_t kChapterAtom = 0xb6;
constexpr std::uint32_t kChapterDisplay = 0x80;
constexpr std::uint32_t kChapLanguage = 0x437c;
constexpr std::uint32_t kChapLanguageBcp47 = 0x437d;

constexpr std::int64_t kMaxLoadedBytes = std::int64_t{4} << 20;
constexpr std::size_t kMaxLanguages = 1000;
constexpr std::size_t kLongestLanguage = 64;
constexpr int kMaxDepth = 16;

class ChapterReader {
 public:
  /// Only the first element of chapters counts.
  std::vector<std::string> read(const MatroskaElements& elements) {
    const auto chapters = elements.contentsOf(kChapters, kMaxLoadedBytes);
    if (!chapters.empty()) walk(chapters.front(), 0);
    return std::move(languages_);
  }

 private:
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

  std::vector<std::string> languages_;
};

}  // namespace

std::vector<std::string> matroskaChapterLanguages(std::int64_t size, const mov::ReadAt& readAt) {
  return ChapterReader().read(MatroskaElements(size, readAt));
}

}  // namespace vistrelle::platform
