#include "vistrelle/platform/media/ffmpeg/movie_metadata_facts.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "vistrelle/platform/media/ffmpeg/matroska_chapters.h"
#include "vistrelle/platform/media/id3.h"

namespace vistrelle::platform {
namespace {

constexpr std::size_t kMaxTextBytes = std::size_t{1} << 20;

std::string formatName(const AVFormatContext& container) {
  const std::string_view name = container.iformat->name;
  return std::string(name.substr(0, name.find(',')));
}

/// libavformat puts the language of a Matroska tag behind its name: "TITLE-eng".
std::string takeLanguage(std::string& key) {
  constexpr std::size_t kCodeLength = 3;
  const std::size_t dash = key.rfind('-');
  if (dash == std::string::npos || dash == 0 || key.size() - dash - 1 != kCodeLength) return {};
  const std::string language = key.substr(dash + 1);
  if (!std::ranges::all_of(language, [](char c) { return c >= 'a' && c <= 'z'; })) return {};
  key.resize(dash);
  return language;
}

/// What containers note of themselves, which is no metadata.
bool isTechnical(std::string_view key) {
  constexpr std::array<std::string_view, 4> kTechnical = {"major_brand", "minor_version", "compatible_brands",
                                                          "duration"};
  return std::ranges::find(kTechnical, key) != kTechnical.end();
}

void addDictionary(MovieMetadata& metadata, const AVFormatContext& container) {
  const std::string space = formatName(container);
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(container.metadata, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
    if (isTechnical(entry->key)) continue;
    MetadataItem item;
    item.keySpace = space;
    item.key = entry->key;
    if (space == "matroska") item.locale = takeLanguage(item.key);
    const std::string_view value = entry->value;
    if (value.size() > kMaxTextBytes) continue;
    item.value = std::string(value);
    addMetadata(metadata, std::move(item));
  }
}

mov::ReadAt readerOf(InputBytes& bytes) {
  return [&bytes](std::int64_t offset, std::span<std::uint8_t> buffer) { return bytes.readAt(offset, buffer); };
}

}  // namespace

MovieMetadata metadataOf(const AVFormatContext& container, InputBytes& bytes) {
  MovieMetadata metadata;
  const mov::ReadAt readAt = readerOf(bytes);
  const bool hasId3 = readId3(bytes.size(), readAt, metadata);
  // libavformat puts the entries of an ID3 tag at the start of a file into its dictionary under other names.
  if (!hasId3) addDictionary(metadata, container);
  if (formatName(container) == "matroska") {
    for (const std::string& language : matroskaChapterLanguages(bytes.size(), readAt)) {
      addChapterLocale(metadata, language);
    }
  }
  if (container.nb_chapters > 0 && metadata.chapterLocales.empty()) addChapterLocale(metadata, {});
  return metadata;
}

MediaTime durationOf(const mov::MovieHeader& header) {
  constexpr std::uint64_t kUnknown32 = std::numeric_limits<std::uint32_t>::max();
  constexpr auto kMostTicks = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  constexpr std::uint32_t kMostScale = std::numeric_limits<std::int32_t>::max();
  if (header.timeScale == 0 || header.timeScale > kMostScale) return MediaTime::invalid();
  const bool isStated = header.headerDuration > 0 && header.headerDuration != kUnknown32;  // 0 in fragmented movies
  if (!isStated || header.headerDuration > kMostTicks) return MediaTime::invalid();
  return MediaTime::make(static_cast<std::int64_t>(header.headerDuration), static_cast<std::int32_t>(header.timeScale));
}

MediaTime durationOf(const AVFormatContext& container) {
  if (container.duration <= 0) return MediaTime::invalid();
  return MediaTime::make(container.duration, AV_TIME_BASE);
}

}  // namespace vistrelle::platform
