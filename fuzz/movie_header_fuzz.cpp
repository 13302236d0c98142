// Our own readers of headers: movie boxes, sample tables, ID3 tags, Matroska chapters. However the bytes are read, in
// large pieces or small ones, they say the same.

#include <cstdint>
#include <set>

#include "fuzz/movie_bytes.h"
#include "fuzz/support.h"
#include "vistrelle/platform/media/ffmpeg/matroska_chapters.h"
#include "vistrelle/platform/media/ffmpeg/matroska_tags.h"
#include "vistrelle/platform/media/ffmpeg/mov_facts.h"
#include "vistrelle/platform/media/ffmpeg/track_shape.h"
#include "vistrelle/platform/media/id3.h"
#include "vistrelle/platform/media/mov/sample_tables.h"

namespace {

using namespace vistrelle::platform;

void checkTrack(const mov::Track& track, const mov::MovieHeader& header) {
  if (track.cleanAperture) {
    const mov::CleanAperture& clean = *track.cleanAperture;
    for (const mov::Fraction& part : {clean.width, clean.height, clean.horizontalOffset, clean.verticalOffset}) {
      require(part.denominator != 0);
    }
  }
  require(track.samples.count > 0 || track.samples.duration == 0);
  const TimeRange range = rangeOf(track, header);
  require(!range.duration.isNumeric() || range.duration >= MediaTime::zero());
  require(frameRateOf(track) >= 0);
  (void)shapeOf(track);
  (void)hasUnreachableData(track);
}

// Places are what the file says, perhaps none in it, and fragments may go back in time.
void checkTables(const mov::SampleTables& track) {
  for (const mov::Sample& sample : track.samples) {
    require(sample.count > 0 && sample.decodeTime >= 0);
    require(track.bytesOf(sample) >= 0);
    (void)track.isElsewhere(sample.description);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto whole = std::make_shared<MemoryBytes>(std::span(data, size));
  const auto pieces = std::make_shared<MemoryBytes>(std::span(data, size), 7);
  const auto header = mov::readMovieHeader(whole->size(), readsOf(whole));
  const auto again = mov::readMovieHeader(pieces->size(), readsOf(pieces));
  require(header.has_value() == again.has_value());
  std::set<std::uint32_t> numbers;
  if (header) {
    require(header->tracks.size() <= 100 && header->tracks.size() == again->tracks.size());
    require(header->headerDuration == again->headerDuration && header->fragmentCount == again->fragmentCount);
    require(header->metadataItems == again->metadataItems);
    for (std::size_t i = 0; i < header->tracks.size(); ++i) {
      checkTrack(header->tracks[i], *header);
      require(header->tracks[i].samples.count == again->tracks[i].samples.count);
      numbers.insert(header->tracks[i].id);
    }
  }
  if (const auto tables = mov::readMovieTables(whole->size(), readsOf(whole), numbers)) {
    for (const mov::SampleTables& track : tables->tracks) checkTables(track);
  }
  MovieMetadata metadata;
  (void)readId3(whole->size(), readsOf(whole), metadata);
  require(metadata.common.size() <= 1000);
  require(matroskaChapterLanguages(whole->size(), readsOf(whole)) ==
          matroskaChapterLanguages(pieces->size(), readsOf(pieces)));
  require(matroskaTagCount(whole->size(), readsOf(whole)) == matroskaTagCount(pieces->size(), readsOf(pieces)));
  return 0;
}
