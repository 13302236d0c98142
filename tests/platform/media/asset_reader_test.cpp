// Samples as stored: every kind of track, statuses, movies that end too early, cancelling.

#include "vistrelle/platform/media/asset_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

#include "tests/platform/media/information_clips.h"
#include "tests/platform/media/movie_loading.h"

namespace vistrelle::testing {
namespace {

using platform::Asset;
using platform::AssetReader;
using platform::MediaTime;
using platform::MediaType;
using platform::ReaderStatus;
using platform::SampleBuffer;
using platform::Track;

using Words = std::vector<std::string>;

const Words kH264{"-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"};

std::shared_ptr<Track> trackOf(const Asset& movie, MediaType type) {
  for (const auto& track : movie.tracks()) {
    if (track->mediaType() == type) return track;
  }
  return nullptr;
}

std::unique_ptr<AssetReader> readerOf(Asset& movie, const std::shared_ptr<Track>& track) {
  std::string error;
  auto reader = movie.makeReader(&error);
  if (reader) reader->addOutput(track);
  return reader;
}

std::vector<SampleBuffer> readAll(AssetReader& reader) {
  std::vector<SampleBuffer> samples;
  while (auto sample = reader.copyNextSampleBuffer()) samples.push_back(std::move(*sample));
  return samples;
}

std::string textOf(const platform::Data& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

TEST(AssetReader, OneTimecodeSampleAsStored) {
  const ScratchFolder folder;
  const auto movie =
      loaded(makeClip(folder, "a.mov", patternInput("160x120") + kH264 + Words{"-timecode", "00:00:10:05"}));
  ASSERT_TRUE(movie);
  const auto reader = readerOf(*movie, trackOf(*movie, MediaType::timecode));
  EXPECT_EQ(reader->status(), ReaderStatus::unknown);
  ASSERT_TRUE(reader->startReading());
  EXPECT_EQ(reader->status(), ReaderStatus::reading);
  const std::vector<SampleBuffer> samples = readAll(*reader);
  EXPECT_EQ(reader->status(), ReaderStatus::completed);
  EXPECT_FALSE(reader->error());
  ASSERT_EQ(samples.size(), 1U);
  EXPECT_EQ(textOf(samples[0].bytes), bigEndian(255));  // 10 s x 25 + 5 frames
  EXPECT_EQ(samples[0].presentation, MediaTime::zero());
  EXPECT_EQ(samples[0].duration, MediaTime::make(4, 10));
}

/// A movie with nothing but a timecode track of `count` samples of 4 bytes, of which the file holds `present`.
std::string timecodeMovie(std::uint32_t count, std::uint32_t present) {
  std::string media;
  for (std::uint32_t i = 0; i < present; ++i) media += bigEndian(i * 25);
  const std::string start = boxOf("ftyp", "qt  " + bigEndian(0) + "qt  ");
  const std::string description = boxOf("tmcd", std::string(6, '\0') + bigEndian(1, 2) + bigEndian(0) + bigEndian(0) +
                                                    bigEndian(600) + bigEndian(24) + std::string("\x19\0", 2));
  const auto header = [&](std::uint32_t mediaStart) {
    const std::string tables =
        boxOf("stsd", bigEndian(0) + bigEndian(1) + description) +
        boxOf("stts", bigEndian(0) + bigEndian(1) + bigEndian(count) + bigEndian(600)) +
        boxOf("stsc", bigEndian(0) + bigEndian(1) + bigEndian(1) + bigEndian(count) + bigEndian(1)) +
        boxOf("stsz", bigEndian(0) + bigEndian(4) + bigEndian(count)) +
        boxOf("stco", bigEndian(0) + bigEndian(1) + bigEndian(mediaStart));
    const std::string references =
        boxOf("dinf", boxOf("dref", bigEndian(0) + bigEndian(1) + boxOf("url ", bigEndian(1))));
    const std::string mediaBoxes = boxOf("mdhd", bigEndian(0) + std::string(8, '\0') + bigEndian(600) +
                                                     bigEndian(600 * count) + std::string(4, '\0')) +
                                   boxOf("hdlr", bigEndian(0) + "mhlrtmcd" + std::string(13, '\0')) +
                                   boxOf("minf", boxOf("gmhd", "") + references + boxOf("stbl", tables));
    const std::string track = boxOf("tkhd", bigEndian(1) + std::string(8, '\0') + bigEndian(1) + bigEndian(0) +
                                                bigEndian(600 * count) + std::string(60, '\0'));
    return boxOf("moov", boxOf("mvhd", bigEndian(0) + std::string(8, '\0') + bigEndian(600) + bigEndian(600 * count) +
                                           std::string(80, '\0')) +
                             boxOf("trak", track + boxOf("mdia", mediaBoxes)));
  };
  const auto mediaStart = static_cast<std::uint32_t>(start.size() + header(0).size() + 8);
  return start + header(mediaStart) + bigEndian(count * 4 + 8) + "mdat" + media;
}

TEST(AssetReader, ManyTimecodeSamples) {
  const ScratchFolder folder;
  const auto movie = loaded(folder.write("many.mov", timecodeMovie(5, 5)));
  ASSERT_TRUE(movie);
  ASSERT_EQ(movie->tracks().size(), 1U);
  const auto reader = readerOf(*movie, movie->tracks()[0]);
  ASSERT_TRUE(reader->startReading());
  const std::vector<SampleBuffer> samples = readAll(*reader);
  ASSERT_EQ(samples.size(), 5U);
  for (std::uint32_t i = 0; i < 5; ++i) {
    EXPECT_EQ(textOf(samples[i].bytes), bigEndian(i * 25));
    EXPECT_EQ(samples[i].presentation, MediaTime::make(i, 1));
  }
  EXPECT_EQ(reader->status(), ReaderStatus::completed);
}

TEST(AssetReader, ATimecodeTrackWithoutSamplesCompletesEmpty) {
  const ScratchFolder folder;
  const auto movie = loaded(folder.write("none.mov", timecodeMovie(0, 0)));
  ASSERT_TRUE(movie);
  ASSERT_EQ(movie->tracks().size(), 1U);
  const auto reader = readerOf(*movie, movie->tracks()[0]);
  ASSERT_TRUE(reader->startReading());
  EXPECT_TRUE(readAll(*reader).empty());
  EXPECT_EQ(reader->status(), ReaderStatus::completed);
}

TEST(AssetReader, AFileThatEndsBeforeItsSamplesFailsAtTheFirstMissingOne) {
  const ScratchFolder folder;
  const auto movie = loaded(folder.write("cut.mov", timecodeMovie(5, 3)));
  ASSERT_TRUE(movie);
  const auto reader = readerOf(*movie, movie->tracks().at(0));
  ASSERT_TRUE(reader->startReading());
  EXPECT_EQ(readAll(*reader).size(), 3U);
  EXPECT_EQ(reader->status(), ReaderStatus::failed);
  EXPECT_EQ(reader->error(), "the movie ends before its last sample");
  EXPECT_FALSE(reader->copyNextSampleBuffer());
}

TEST(AssetReader, APictureTrackCutInTheMiddleOfASample) {
  const ScratchFolder folder;
  const std::string whole = readFile(
      makeClip(folder, "whole.mp4", patternInput("320x240", "25", "2") + kH264 + Words{"-movflags", "+faststart"}));
  const auto movie = loaded(folder.write("cut.mp4", whole.substr(0, whole.size() * 2 / 3)));
  ASSERT_TRUE(movie);
  const auto reader = readerOf(*movie, movie->tracks().at(0));
  ASSERT_TRUE(reader->startReading());
  const std::size_t count = readAll(*reader).size();
  EXPECT_GT(count, 0U);
  EXPECT_LT(count, 50U);
  EXPECT_EQ(reader->status(), ReaderStatus::failed);
}

TEST(AssetReader, PicturesAndSoundComeWholeAndInDecodingOrder) {
  const ScratchFolder folder;
  const Words both = patternInput("160x120", "25", "2") + Words{"-f", "lavfi", "-i", "sine=duration=2"};
  const std::string path = makeClip(folder, "a.mp4", both + Words{"-c:v", "libx264", "-bf", "2", "-c:a", "aac"});
  const auto movie = loaded(path);
  ASSERT_TRUE(movie);
  for (const auto& track : movie->tracks()) {
    const auto reader = readerOf(*movie, track);
    ASSERT_TRUE(reader->startReading());
    const std::vector<SampleBuffer> samples = readAll(*reader);
    EXPECT_EQ(reader->status(), ReaderStatus::completed);
    const std::string type = track->mediaType() == MediaType::video ? "v" : "a";
    const RunResult probe = runProgram(
        {"ffprobe", "-v", "error", "-select_streams", type, "-show_entries", "packet=size", "-of", "csv=p=0", path});
    std::string sizes;
    for (const SampleBuffer& sample : samples) sizes += std::to_string(sample.bytes.size()) + "\n";
    std::string expected;
    for (const char c : probe.output) {
      const bool isPart = (c >= '0' && c <= '9') || (c == '\n' && !expected.empty() && expected.back() != '\n');
      if (isPart) expected += c;
    }
    EXPECT_EQ(sizes, expected);
  }
}

TEST(AssetReader, EveryTrackOfEverySampleMovieIsReadToItsEnd) {
  for (const char* name : {"sample_with_chapters.mp4", "nasa_13013.mp4", "rotated_hdr_video.mov", "sample.avi",
                           "sample_h264.ts", "sample_fragmented.mp4", "bear-vp9-odd-dimensions.webm", "fixture.mxf"}) {
    SCOPED_TRACE(name);
    const auto movie = loaded(dataFile(name));
    ASSERT_TRUE(movie);
    for (const auto& track : movie->tracks()) {
      const auto reader = readerOf(*movie, track);
      ASSERT_TRUE(reader->startReading());
      EXPECT_FALSE(readAll(*reader).empty());
      EXPECT_EQ(reader->status(), ReaderStatus::completed) << reader->error().value_or("");
    }
  }
}

TEST(AssetReader, TakesOneTrackOfItsOwnMovieOnly) {
  const auto movie = loaded(dataFile("nasa_13013.mp4"));
  const auto other = loaded(dataFile("nasa_13013.mp4"));
  ASSERT_TRUE(movie && other);
  std::string error;
  const auto reader = movie->makeReader(&error);
  ASSERT_TRUE(reader);
  EXPECT_FALSE(reader->canAddOutput(nullptr));
  EXPECT_FALSE(reader->canAddOutput(other->tracks().at(0)));
  ASSERT_TRUE(reader->canAddOutput(movie->tracks().at(1)));
  reader->addOutput(movie->tracks()[1]);
  EXPECT_FALSE(reader->canAddOutput(movie->tracks()[0]));
}

TEST(AssetReader, WithoutATrackReadingFails) {
  const auto movie = loaded(dataFile("metadata.mp4"));
  ASSERT_TRUE(movie);
  const auto reader = movie->makeReader(nullptr);
  EXPECT_FALSE(reader->copyNextSampleBuffer());
  EXPECT_FALSE(reader->startReading());
  EXPECT_EQ(reader->status(), ReaderStatus::failed);
  EXPECT_EQ(reader->error(), "no track is to be read");
  EXPECT_FALSE(reader->startReading());
}

TEST(AssetReader, CancelledReadingDeliversNothingMore) {
  const auto movie = loaded(dataFile("nasa_13013.mp4"));
  ASSERT_TRUE(movie);
  const auto reader = readerOf(*movie, movie->tracks().at(0));
  ASSERT_TRUE(reader->startReading());
  ASSERT_TRUE(reader->copyNextSampleBuffer());
  reader->cancelReading();
  EXPECT_EQ(reader->status(), ReaderStatus::cancelled);
  EXPECT_FALSE(reader->copyNextSampleBuffer());
  EXPECT_FALSE(reader->error());
}

TEST(AssetReader, CancellingAfterTheEndChangesNothing) {
  const auto movie = loaded(dataFile("metadata.mp4"));
  ASSERT_TRUE(movie);
  const auto reader = readerOf(*movie, movie->tracks().at(0));
  ASSERT_TRUE(reader->startReading());
  readAll(*reader);
  reader->cancelReading();
  EXPECT_EQ(reader->status(), ReaderStatus::completed);
}

TEST(AssetReader, AMovieThatIsNotLoadedHasNone) {
  const auto movie = platform::mediaLibrary().get()->openAsset(dataFile("metadata.mp4"), {});
  ASSERT_TRUE(movie);
  std::string error;
  EXPECT_FALSE(movie->makeReader(&error));
  EXPECT_EQ(error, "the movie has not been loaded");
}

TEST(AssetReader, OutlivesItsMovie) {
  auto movie = loaded(dataFile("metadata.mp4"));
  ASSERT_TRUE(movie);
  const auto reader = readerOf(*movie, movie->tracks().at(0));
  movie.reset();
  ASSERT_TRUE(reader->startReading());
  EXPECT_EQ(readAll(*reader).size(), 1U);
}

}  // namespace
}  // namespace vistrelle::testing
