#include "vistrelle/platform/media/mov/movie_header.h"

#include <new>

#include "vistrelle/platform/media/mov/box_reader.h"
#include "vistrelle/platform/media/mov/file_boxes.h"
#include "vistrelle/platform/media/mov/metadata_reader.h"
#include "vistrelle/platform/media/mov/track_reader.h"
#include "vistrelle/platform/text/encoding.h"

namespace vistrelle::platform::mov {
namespace {

constexpr std::int64_t kMaxLoadedBytes = std::int64_t{64} << 20;   // of all boxes together
constexpr std::int64_t kMaxMetadataBytes = std::int64_t{8} << 20;  // of a box of it outside the movie box
constexpr std::size_t kMaxTracks = 100;

/// Walks the boxes of a file and loads those that say something about samples.
class FileReader {
 public:
  FileReader(std::int64_t size, const ReadAt& readAt) : file_(size, readAt, kMaxLoadedBytes) {}

  std::optional<MovieHeader> read();

 private:
  void readMovie(std::span<const std::uint8_t> content);
  void readFragmentDefaults(std::span<const std::uint8_t> content);
  void noteChapterLanguages();
  void readFragment(std::span<const std::uint8_t> content);

  FileBoxes file_;
  bool hasMovie_ = false;
  bool hasChapterList_ = false;
  MovieHeader header_;
  std::vector<OpenTrack> tracks_;
};

void FileReader::readFragmentDefaults(std::span<const std::uint8_t> content) {
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type != fourCc("trex")) continue;
    Cursor cursor(box->content);  // 14496-12, 8.8.3
    readFullBoxHeader(cursor);
    const std::uint32_t id = cursor.u32();
    cursor.skip(4);
    const std::uint32_t duration = cursor.u32();
    for (OpenTrack& track : tracks_) {
      if (track.facts.id == id) track.defaultDuration = duration;
    }
  }
}

void FileReader::readMovie(std::span<const std::uint8_t> content) {
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type == fourCc("mvhd")) {
      Cursor cursor(box->content);  // 14496-12, 8.2.2
      const bool wide = readFullBoxHeader(cursor).version == 1;
      cursor.skip(wide ? 16 : 8);
      header_.timeScale = cursor.u32();
      header_.headerDuration = cursor.sized(wide);
    } else if (box->type == fourCc("trak") && tracks_.size() < kMaxTracks) {
      tracks_.push_back(readTrack(box->content));
    }
  }
  header_.metadata = readMovieMetadata(content);
  header_.metadataItems += metadataItemCount(content);
  const std::optional<Box> userData = findBox(content, fourCc("udta"));
  hasChapterList_ = userData && findBox(userData->content, fourCc("chpl"));
  if (const std::optional<Box> extends = findBox(content, fourCc("mvex"))) {
    header_.allowsFragments = true;
    readFragmentDefaults(extends->content);
  }
}

void FileReader::readFragment(std::span<const std::uint8_t> content) {
  ++header_.fragmentCount;
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type == fourCc("traf")) readTrackFragment(box->content, tracks_);
  }
}

/// Chapters are a track of texts that other tracks refer to, else a list in the user data that names no language.
void FileReader::noteChapterLanguages() {
  for (const OpenTrack& track : tracks_) {
    for (const std::uint32_t id : track.facts.chapterTracks) {
      for (const OpenTrack& chapters : tracks_) {
        const bool isText = chapters.facts.handler != fourCc("vide");  // pictures of chapters have no language
        if (chapters.facts.id == id && isText) addChapterLocale(header_.metadata, chapters.facts.language);
      }
    }
  }
  if (hasChapterList_ && header_.metadata.chapterLocales.empty()) addChapterLocale(header_.metadata, {});
}

std::optional<MovieHeader> FileReader::read() {
  while (const std::optional<FileBox> box = file_.next()) {
    const bool isMovie = box->type == fourCc("moov") && !hasMovie_;
    const bool isMetadata = box->type == fourCc("udta") || box->type == fourCc("meta");
    if (isMetadata && box->end - box->content <= kMaxMetadataBytes) {
      if (const auto content = file_.load(*box)) header_.metadataItems += metadataItemCount(*content);
    }
    // Fragments mean nothing without the movie box before them.
    if (isMovie || (box->type == fourCc("moof") && hasMovie_)) {
      const auto content = file_.load(*box);
      if (content && isMovie) readMovie(*content);
      if (content && !isMovie) readFragment(*content);
      hasMovie_ = hasMovie_ || content.has_value();
    }
  }
  if (file_.hasFailed() || !hasMovie_) return std::nullopt;
  noteChapterLanguages();
  for (OpenTrack& track : tracks_) {
    track.facts.samples = track.span.facts();
    header_.isProtected = header_.isProtected || track.facts.isProtected;
    header_.tracks.push_back(std::move(track.facts));
  }
  return std::move(header_);
}

}  // namespace

std::string textOf(FourCc code) {
  std::string text;
  for (const int shift : {24, 16, 8, 0}) text += static_cast<char>(code >> shift & 0xff);
  return decodeText(text, kMacRomanEncoding).value_or(text);
}

std::optional<MovieHeader> readMovieHeader(std::int64_t size, const ReadAt& readAt) {
  try {
    return FileReader(size, readAt).read();
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace vistrelle::platform::mov
