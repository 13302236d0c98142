// Our own reader of movie headers, on headers put together box by box.

#include "vistrelle/platform/media/mov/movie_header.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tests/platform/media/movie_loading.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/media/ffmpeg/mov_facts.h"

namespace vistrelle::testing {
namespace {

using platform::MediaTime;
using platform::mov::fourCc;
using platform::mov::MovieHeader;
using platform::mov::Track;

std::string big(std::uint64_t value, int bytes = 4) {
  std::string text;
  for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) text += static_cast<char>(value >> shift & 0xff);
  return text;
}

std::string box(const std::string& kind, const std::string& content) {
  return big(content.size() + 8) + kind + content;
}

std::string zeros(std::size_t count) {
  return std::string(count, '\0');
}

std::optional<MovieHeader> read(const std::string& file) {
  return platform::mov::readMovieHeader(std::ssize(file), [&file](std::int64_t offset, std::span<std::uint8_t> buffer) {
    if (offset >= std::ssize(file)) return std::int64_t{0};
    const std::size_t count = std::min(buffer.size(), file.size() - static_cast<std::size_t>(offset));
    std::memcpy(buffer.data(), file.data() + offset, count);
    return static_cast<std::int64_t>(count);
  });
}

struct TrackParts {
  std::uint32_t id = 1;
  std::uint32_t flags = 1;
  std::string handler = "vide";
  std::string description = "avc1";
  std::string descriptionBoxes;
  std::uint32_t timeScale = 600;
  std::string durations = big(0) + big(1) + big(10) + big(60);  // ten samples of a tenth
  std::string offsets;
  std::uint32_t sampleCount = 10;
  std::string edits;
};

std::string visualEntry(const std::string& kind, const std::string& boxes) {
  return box(kind, zeros(6) + big(1, 2) + zeros(70) + boxes);
}

std::string trackBox(const TrackParts& parts) {
  const std::string entry = parts.handler == "vide" ? visualEntry(parts.description, parts.descriptionBoxes)
                                                    : box(parts.description, zeros(6) + big(1, 2) + zeros(20));
  const std::string tables = box("stsd", big(0) + big(1) + entry) + box("stts", parts.durations) +
                             (parts.offsets.empty() ? "" : box("ctts", parts.offsets)) +
                             box("stsz", big(0) + big(0) + big(parts.sampleCount));
  const std::string references = box("dinf", box("dref", big(0) + big(1) + box("url ", big(1))));
  const std::string media = box("mdhd", big(0) + zeros(8) + big(parts.timeScale) + big(600) + zeros(4)) +
                            box("hdlr", big(0) + zeros(4) + parts.handler + zeros(13)) +
                            box("minf", references + box("stbl", tables));
  return box("trak", box("tkhd", big(parts.flags) + zeros(8) + big(parts.id) + zeros(68)) +
                         (parts.edits.empty() ? "" : box("edts", box("elst", parts.edits))) + box("mdia", media));
}

std::string movieBox(const std::string& tracks, const std::string& more = {}) {
  return box("moov", box("mvhd", big(0) + zeros(8) + big(600) + big(600) + zeros(80)) + tracks + more);
}

Track onlyTrack(const std::string& file) {
  const std::optional<MovieHeader> header = read(file);
  return header && header->tracks.size() == 1 ? header->tracks[0] : Track{};
}

TEST(MovieHeader, ReadsATrack) {
  const Track track = onlyTrack(box("ftyp", "isom") + movieBox(trackBox({})) + box("mdat", zeros(100)));
  EXPECT_EQ(track.id, 1U);
  EXPECT_TRUE(track.isEnabled);
  EXPECT_EQ(track.handler, fourCc("vide"));
  EXPECT_EQ(track.sampleEntry, fourCc("avc1"));
  EXPECT_EQ(track.timeScale, 600U);
  EXPECT_EQ(track.samples.count, 10U);
  EXPECT_EQ(track.samples.duration, 600U);
  EXPECT_EQ(track.samples.endOfPresentation, 600);
  EXPECT_FALSE(track.isProtected);
  ASSERT_EQ(track.dataReferences.size(), 1U);
  EXPECT_TRUE(track.dataReferences[0].isSelfContained);
}

TEST(MovieHeader, TheMovieMayStandBehindTheMediaAndInAWideBox) {
  const std::string content = movieBox(trackBox({}));
  const std::string wide = big(1) + "moov" + big(content.size() + 8, 8) + content.substr(8);
  EXPECT_EQ(onlyTrack(box("mdat", zeros(5000)) + wide).samples.count, 10U);
  // A last box of size 0 reaches to the end of the file.
  EXPECT_EQ(onlyTrack(movieBox(trackBox({})) + big(0) + "mdat" + zeros(50)).samples.count, 10U);
}

TEST(MovieHeader, DisabledTracksAreToldApart) {
  TrackParts parts;
  parts.flags = 0xe;
  EXPECT_FALSE(onlyTrack(movieBox(trackBox(parts))).isEnabled);
}

TEST(MovieHeader, CompositionOffsetsMoveWhatIsCovered) {
  TrackParts parts;
  parts.durations = big(0) + big(1) + big(4) + big(100);
  parts.sampleCount = 4;
  parts.offsets = big(0) + big(3) + big(1) + big(100) + big(1) + big(300) + big(2) + big(0);
  const Track track = onlyTrack(movieBox(trackBox(parts)));
  EXPECT_EQ(track.samples.firstPresentation, 100);
  EXPECT_EQ(track.samples.endOfPresentation, 500);
}

TEST(MovieHeader, NegativeOffsetsAreSignedWhateverTheVersion) {
  TrackParts parts;
  parts.offsets = big(0) + big(1) + big(10) + big(0xffffffc4);  // -60
  const Track track = onlyTrack(movieBox(trackBox(parts)));
  EXPECT_EQ(track.samples.firstPresentation, -60);
  EXPECT_EQ(track.samples.endOfPresentation, 540);
}

TEST(MovieHeader, TheSampleCountDecidesNotTheTableOfDurations) {
  TrackParts parts;
  parts.sampleCount = 4;  // the durations speak of ten
  EXPECT_EQ(onlyTrack(movieBox(trackBox(parts))).samples.duration, 240U);
  parts.sampleCount = 20;  // the last duration goes on
  EXPECT_EQ(onlyTrack(movieBox(trackBox(parts))).samples.duration, 1200U);
}

TEST(MovieHeader, FindsCleanApertureAndPixelAspect) {
  TrackParts parts;
  parts.descriptionBoxes =
      box("clap", big(704) + big(1) + big(480) + big(1) + big(0xfffffff8) + big(2) + big(0) + big(1)) +
      box("pasp", big(10) + big(11));
  const Track track = onlyTrack(movieBox(trackBox(parts)));
  ASSERT_TRUE(track.cleanAperture && track.pixelAspect);
  EXPECT_EQ(track.cleanAperture->width.numerator, 704);
  EXPECT_EQ(track.cleanAperture->horizontalOffset.numerator, -8);
  EXPECT_EQ(track.cleanAperture->horizontalOffset.denominator, 2);
  EXPECT_EQ(track.pixelAspect->vertical, 11U);
}

TEST(MovieHeader, ApertureOrAspectWithoutMeaningIsLeftOut) {
  TrackParts parts;
  parts.descriptionBoxes = box("clap", big(704) + big(0) + big(480) + big(1) + big(0) + big(1) + big(0) + big(1)) +
                           box("pasp", big(10) + big(0));
  const Track track = onlyTrack(movieBox(trackBox(parts)));
  EXPECT_FALSE(track.cleanAperture);
  EXPECT_FALSE(track.pixelAspect);
  parts.descriptionBoxes = box("clap", big(704) + big(1));
  EXPECT_FALSE(onlyTrack(movieBox(trackBox(parts))).cleanAperture);
}

TEST(MovieHeader, FindsProtectionInTypesAndSchemes) {
  TrackParts parts;
  for (const char* kind : {"encv", "drmi"}) {
    parts.description = kind;
    EXPECT_TRUE(onlyTrack(movieBox(trackBox(parts))).isProtected) << kind;
    EXPECT_EQ(onlyTrack(movieBox(trackBox(parts))).sampleEntry, fourCc(kind == std::string("encv") ? "encv" : "drmi"));
  }
  parts.description = "avc1";
  parts.descriptionBoxes = box("sinf", box("frma", "avc1"));
  EXPECT_TRUE(onlyTrack(movieBox(trackBox(parts))).isProtected);
  TrackParts sound;
  sound.handler = "soun";
  sound.description = "drms";
  EXPECT_TRUE(read(movieBox(trackBox({}) + trackBox(sound)))->isProtected);
}

TEST(MovieHeader, ReadsReferencesToOtherFiles) {
  std::string movie = movieBox(trackBox({}));
  movie[movie.find("url ") + 7] = 0;
  const Track track = onlyTrack(movie);
  ASSERT_EQ(track.dataReferences.size(), 1U);
  EXPECT_FALSE(track.dataReferences[0].isSelfContained);
  EXPECT_TRUE(platform::hasUnreachableData(track));
}

// ---- fragments --------------------------------------------------------------------------------------

std::string fragment(std::uint32_t id, std::uint32_t decodeTime, const std::string& run, const std::string& more = {}) {
  return box("moof",
             box("mfhd", zeros(8)) + box("traf", box("tfhd", big(0) + big(id)) + box("tfdt", big(0) + big(decodeTime)) +
                                                     box("trun", run) + more));
}

const std::string& fragmentedMovie() {
  static const std::string movie = [] {
    TrackParts parts;
    parts.sampleCount = 0;
    parts.durations = big(0) + big(0);
    return movieBox(trackBox(parts), box("mvex", box("trex", big(0) + big(1) + big(1) + big(50) + big(0) + big(0))));
  }();
  return movie;
}

TEST(MovieHeader, FragmentsAddTheirSamples) {
  const auto header =
      read(fragmentedMovie() + fragment(1, 0, big(0) + big(4)) +  // default duration 50
           box("mdat", zeros(10)) + fragment(1, 1000, big(0x900) + big(2) + big(60) + big(30) + big(70) + big(0)));
  ASSERT_TRUE(header);
  EXPECT_TRUE(header->allowsFragments);
  EXPECT_EQ(header->fragmentCount, 2U);
  const platform::mov::SampleFacts& samples = header->tracks[0].samples;
  EXPECT_EQ(samples.count, 6U);
  EXPECT_EQ(samples.duration, 330U);
  EXPECT_EQ(samples.firstPresentation, 0);
  EXPECT_EQ(samples.endOfPresentation, 1130);
}

TEST(MovieHeader, FragmentsOfUnknownTracksAndCutOnesDoNoHarm) {
  const auto header = read(fragmentedMovie() + fragment(9, 0, big(0) + big(4)) +
                           fragment(1, 0, big(0x100) + big(0xffffffff) + big(60)));
  ASSERT_TRUE(header);
  EXPECT_EQ(header->tracks[0].samples.count, 1U);
}

TEST(MovieHeader, SampleKeysInAFragmentMeanProtection) {
  const auto header = read(fragmentedMovie() + fragment(1, 0, big(0) + big(4), box("senc", zeros(8))));
  ASSERT_TRUE(header);
  EXPECT_TRUE(header->isProtected);
}

// ---- what it stands ---------------------------------------------------------------------------------

TEST(MovieHeader, WhatHoldsNoMovieBoxIsRefused) {
  EXPECT_FALSE(read(""));
  EXPECT_FALSE(read("abc"));
  EXPECT_FALSE(read(box("ftyp", "isom")));
  EXPECT_FALSE(read(zeros(1000)));
  EXPECT_FALSE(read(fragment(1, 0, big(0) + big(1))));
}

TEST(MovieHeader, ABoxLargerThanTheLimitIsRefusedUnread) {
  std::int64_t largest = 0;
  const std::string head = big(1) + "moov" + big(std::uint64_t{1} << 40, 8);
  const auto header =
      platform::mov::readMovieHeader(std::int64_t{1} << 41, [&](std::int64_t, std::span<std::uint8_t> buffer) {
        largest = std::max(largest, std::int64_t{std::ssize(buffer)});
        std::memcpy(buffer.data(), head.data(), std::min(buffer.size(), head.size()));
        return std::int64_t{std::ssize(buffer)};
      });
  EXPECT_FALSE(header);
  EXPECT_LE(largest, 16);
}

TEST(MovieHeader, AFailingReadEndsIt) {
  const auto header = platform::mov::readMovieHeader(1000, [](std::int64_t, std::span<std::uint8_t>) { return -5; });
  EXPECT_FALSE(header);
}

TEST(MovieHeader, AbsurdCountsCostNothing) {
  TrackParts parts;
  parts.sampleCount = 0xffffffff;
  parts.durations = big(0) + big(0xffffffff) + big(0xffffffff) + big(0x7fffffff);
  parts.offsets = big(0) + big(0xffffffff) + big(0xffffffff) + big(0x7fffffff);
  parts.edits = big(0) + big(0xffffffff) + big(0xffffffff) + big(0) + big(0x10000);
  const auto header = read(movieBox(trackBox(parts)));
  ASSERT_TRUE(header);
  EXPECT_EQ(header->tracks[0].edits.size(), 1U);
  EXPECT_TRUE(platform::rangeOf(header->tracks[0], *header).isValid());
}

TEST(MovieHeader, EveryTruncationOfAHeaderIsRead) {
  const std::string movie = movieBox(trackBox({}));
  for (std::size_t length = 0; length <= movie.size(); ++length) {
    const auto header = read(movie.substr(0, length));
    EXPECT_TRUE(!header || header->tracks.size() <= 1) << length;
  }
}

// ---- ranges -----------------------------------------------------------------------------------------

platform::TimeRange rangeWith(const std::string& edits, const std::string& offsets = {}) {
  TrackParts parts;
  parts.edits = edits;
  parts.offsets = offsets;
  const auto header = read(movieBox(trackBox(parts)));
  return platform::rangeOf(header->tracks[0], *header);
}

std::string edit(std::uint32_t duration, std::uint32_t mediaTime) {
  return big(duration) + big(mediaTime) + big(0x10000);
}

MediaTime tick(std::int64_t value) {
  return MediaTime::make(value, 600);
}

TEST(MovieRanges, WithoutEditsTheSamplesLieWhereTheyAre) {
  EXPECT_EQ(rangeWith({}), (platform::TimeRange{tick(0), tick(600)}));
  EXPECT_EQ(rangeWith({}, big(0) + big(1) + big(10) + big(40)), (platform::TimeRange{tick(40), tick(600)}));
}

TEST(MovieRanges, EmptyEditsDelayAndMediaTimesCut) {
  constexpr std::uint32_t kEmpty = 0xffffffff;
  EXPECT_EQ(rangeWith(big(0) + big(2) + edit(300, kEmpty) + edit(600, 0)), (platform::TimeRange{tick(300), tick(600)}));
  EXPECT_EQ(rangeWith(big(0) + big(1) + edit(200, 100)), (platform::TimeRange{tick(0), tick(200)}));
  EXPECT_EQ(rangeWith(big(0) + big(3) + edit(200, 100) + edit(50, kEmpty) + edit(100, 0)),
            (platform::TimeRange{tick(0), tick(350)}));
  // An edit that promises more than there are samples for.
  EXPECT_EQ(rangeWith(big(0) + big(1) + edit(90000, 100)), (platform::TimeRange{tick(0), tick(500)}));
  // Edits that show nothing at all are not believed.
  EXPECT_EQ(rangeWith(big(0) + big(1) + edit(100, 5000)), (platform::TimeRange{tick(0), tick(600)}));
  // A duration of zero is "to the end".
  EXPECT_EQ(rangeWith(big(0) + big(1) + edit(0, 150)), (platform::TimeRange{tick(0), tick(450)}));
}

TEST(MovieRanges, ATrackWithoutSamplesHasNone) {
  TrackParts parts;
  parts.sampleCount = 0;
  const auto header = read(movieBox(trackBox(parts)));
  EXPECT_FALSE(platform::rangeOf(header->tracks[0], *header).start.isValid());
  EXPECT_EQ(platform::frameRateOf(header->tracks[0]), 0);
}

TEST(MovieRanges, TheMovieThatClaimsFortyHoursHoldsOneSecond) {
  const std::string file = readFile(dataFile("sample_fragmented.mp4"));
  const auto header = read(file);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->fragmentCount, 1U);
  EXPECT_EQ(header->tracks[0].samples.count, 30U);
  EXPECT_EQ(platform::rangeOf(header->tracks[0], *header).duration, MediaTime::make(1001, 1000));
}

}  // namespace
}  // namespace vistrelle::testing
