// Movies read by a worker give the same facts and pictures, to the last bit, as movies read in the process itself.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <random>

#include "tests/platform/confined/confined_movies.h"
#include "tests/support/recording_log.h"
#include "vistrelle/platform/imaging/frame_layout.h"
#include "vistrelle/platform/media/asset_reader.h"
#include "vistrelle/platform/media/confined/picture_transfer.h"
#include "vistrelle/platform/media/ffmpeg/asset.h"

namespace vistrelle::testing {
namespace {

using platform::ApertureMode;
using platform::Asset;
using platform::FrameResult;
using platform::ImageGenerator;
using platform::MediaTime;
using platform::PlanarImage;

std::vector<std::string> movies() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(VISTRELLE_TEST_DATA)) {
    const std::string extension = entry.path().extension();
    if (extension != ".md" && extension != ".sh" && entry.is_regular_file()) names.push_back(entry.path().filename());
  }
  std::ranges::sort(names);
  return names;
}

void expectSamePlanes(const PlanarImage& one, const PlanarImage& other, const std::string& what) {
  const auto places = platform::planePlaces(one.layout, one.width, one.height);
  ASSERT_TRUE(places) << what;
  for (std::size_t plane = 0; plane < static_cast<std::size_t>(places->planes); ++plane) {
    for (int row = 0; row < places->rows[plane]; ++row) {
      const auto* left = one.planes[plane].data + std::ptrdiff_t{row} * one.planes[plane].rowBytes;
      const auto* right = other.planes[plane].data + std::ptrdiff_t{row} * other.planes[plane].rowBytes;
      ASSERT_EQ(std::memcmp(left, right, static_cast<std::size_t>(places->usedBytes[plane])), 0)
          << what << " plane " << plane << " row " << row;
    }
  }
}

void expectSame(const FrameResult& one, const FrameResult& other, const std::string& what) {
  EXPECT_EQ(one.error, other.error) << what;
  EXPECT_EQ(one.actualTime.description(), other.actualTime.description()) << what;
  ASSERT_EQ(one.picture != nullptr, other.picture != nullptr) << what;
  if (!one.picture) return;
  const PlanarImage* left = one.picture->planar();
  const PlanarImage* right = other.picture->planar();
  ASSERT_TRUE(left && right) << what;
  EXPECT_EQ(left->layout, right->layout) << what;
  EXPECT_EQ(left->width, right->width) << what;
  EXPECT_EQ(left->height, right->height) << what;
  EXPECT_EQ(left->visible, right->visible) << what;
  EXPECT_EQ(left->colour, right->colour) << what;
  EXPECT_EQ(left->chromaLocation, right->chromaLocation) << what;
  EXPECT_EQ(left->orientation, right->orientation) << what;
  EXPECT_EQ(left->presentationWidth, right->presentationWidth) << what;
  EXPECT_EQ(left->presentationHeight, right->presentationHeight) << what;
  EXPECT_EQ(left->interlaced, right->interlaced) << what;
  EXPECT_EQ(left->topFieldFirst, right->topFieldFirst) << what;
  EXPECT_EQ(platform::isDrawable(*left), platform::isDrawable(*right)) << what;
  expectSamePlanes(*left, *right, what);
}

void expectSameTrack(const platform::Track& one, const platform::Track& other) {
  EXPECT_EQ(one.description(), other.description());
  EXPECT_EQ(one.trackId(), other.trackId());
  EXPECT_EQ(one.mediaType(), other.mediaType());
  EXPECT_EQ(one.mediaTypeCode(), other.mediaTypeCode());
  EXPECT_EQ(one.naturalSize(), other.naturalSize());
  EXPECT_EQ(one.isEnabled(), other.isEnabled());
  EXPECT_EQ(one.timeRange().description(), other.timeRange().description());
  EXPECT_EQ(one.nominalFrameRate(), other.nominalFrameRate());
  EXPECT_EQ(one.isDecodable(), other.isDecodable());
  EXPECT_EQ(one.isProtected(), other.isProtected());
  EXPECT_EQ(one.makeImageGenerator() != nullptr, other.makeImageGenerator() != nullptr);
  const auto formats = one.formatDescriptions();
  const auto others = other.formatDescriptions();
  ASSERT_EQ(formats.size(), others.size());
  for (std::size_t i = 0; i < formats.size(); ++i) {
    EXPECT_EQ(formats[i].code, others[i].code);
    EXPECT_EQ(formats[i].width, others[i].width);
    EXPECT_EQ(formats[i].height, others[i].height);
    EXPECT_EQ(formats[i].cleanAperture, others[i].cleanAperture);
  }
}

using DetailTexts = std::vector<platform::OptionalText>;
using DetailNumbers = std::vector<std::optional<std::int64_t>>;

DetailTexts textsOf(const platform::TrackDetails& details) {
  return {details.codec,           details.profile,        details.language,     details.pixelFormat,
          details.colourPrimaries, details.colourTransfer, details.colourMatrix, details.colourRange,
          details.hdrClass,        details.startTimecode};
}

DetailNumbers numbersOf(const platform::TrackDetails& details) {
  const auto& rate = details.frameRate;
  DetailNumbers numbers{details.bitDepth, details.rotation, details.sampleRate, details.channels, details.isMirrored};
  numbers.push_back(rate ? std::optional(rate->numerator) : std::nullopt);
  numbers.push_back(rate ? std::optional(rate->denominator) : std::nullopt);
  numbers.push_back(rate && rate->varies ? std::optional<std::int64_t>(*rate->varies) : std::nullopt);
  return numbers;
}

void expectSameDetails(const platform::TrackDetails& one, const platform::TrackDetails& other) {
  EXPECT_EQ(textsOf(one), textsOf(other));
  EXPECT_EQ(numbersOf(one), numbersOf(other));
  EXPECT_EQ(one.headerDuration.description(), other.headerDuration.description());
  EXPECT_EQ(one.decodedDuration.description(), other.decodedDuration.description());
}

/// Reads both tracks side by side, `most` samples.
void expectSameSamples(Asset& one, Asset& other, std::size_t track, int most) {
  std::string error;
  const auto left = one.makeReader(&error);
  const auto right = other.makeReader(&error);
  ASSERT_TRUE(left && right) << error;
  EXPECT_FALSE(right->canAddOutput(one.tracks()[track]));  // another movie's
  for (const auto& [reader, movie] : {std::pair(left.get(), &one), std::pair(right.get(), &other)}) {
    ASSERT_TRUE(reader->canAddOutput(movie->tracks()[track]));
    reader->addOutput(movie->tracks()[track]);
    EXPECT_FALSE(reader->canAddOutput(movie->tracks()[track]));
    EXPECT_TRUE(reader->startReading());
    EXPECT_FALSE(reader->startReading());
  }
  for (int i = 0; i < most; ++i) {
    const auto wanted = left->copyNextSampleBuffer();
    const auto sample = right->copyNextSampleBuffer();
    EXPECT_EQ(left->status(), right->status());
    EXPECT_EQ(left->error(), right->error());
    ASSERT_EQ(wanted.has_value(), sample.has_value()) << i;
    if (!wanted) return;
    ASSERT_EQ(wanted->bytes, sample->bytes) << i;
    EXPECT_EQ(wanted->presentation.description(), sample->presentation.description());
    EXPECT_EQ(wanted->duration.description(), sample->duration.description());
  }
  right->cancelReading();
  EXPECT_EQ(right->status(), platform::ReaderStatus::cancelled);
  EXPECT_FALSE(right->copyNextSampleBuffer());
}

class EveryMovie : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    const std::string path = dataFile(GetParam());
    {
      RecordingLog log;
      inProcess = platform::FfmpegMediaLibrary().openAsset(path, {});
      ASSERT_TRUE(inProcess && load(*inProcess));
      linesInProcess = log.lines();
    }
    RecordingLog log;
    confined = loadedConfined(path);
    ASSERT_TRUE(confined);
    linesConfined = log.lines();
  }

  std::shared_ptr<Asset> inProcess;
  std::shared_ptr<platform::ConfinedAsset> confined;
  std::vector<std::string> linesInProcess;
  std::vector<std::string> linesConfined;
};

TEST_P(EveryMovie, HasTheSameFactsAndLines) {
  EXPECT_EQ(inProcess->description(), confined->description());
  EXPECT_EQ(inProcess->kind(), confined->kind());
  EXPECT_EQ(inProcess->duration().description(), confined->duration().description());
  EXPECT_EQ(inProcess->isPlayable(), confined->isPlayable());
  EXPECT_EQ(inProcess->hasProtectedContent(), confined->hasProtectedContent());
  EXPECT_EQ(inProcess->naturalSize(), confined->naturalSize());
  const auto tracks = inProcess->tracks();
  const auto others = confined->tracks();
  ASSERT_EQ(tracks.size(), others.size());
  for (std::size_t i = 0; i < tracks.size(); ++i) expectSameTrack(*tracks[i], *others[i]);
  EXPECT_EQ(linesInProcess, linesConfined);
}

TEST_P(EveryMovie, HasTheSameMetadataAndDetails) {
  const platform::MovieMetadata wanted = inProcess->metadata();
  const platform::MovieMetadata metadata = confined->metadata();
  EXPECT_EQ(wanted.common, metadata.common);
  EXPECT_EQ(wanted.formats, metadata.formats);
  EXPECT_EQ(wanted.chapterLocales, metadata.chapterLocales);
  EXPECT_EQ(wanted.lyrics, metadata.lyrics);
  EXPECT_EQ(inProcess->headerDuration().description(), confined->headerDuration().description());
  const auto tracks = inProcess->tracks();
  const auto others = confined->tracks();
  ASSERT_EQ(tracks.size(), others.size());
  for (std::size_t i = 0; i < tracks.size(); ++i) expectSameDetails(tracks[i]->details(), others[i]->details());
}

TEST_P(EveryMovie, GivesTheSameSamples) {
  for (std::size_t i = 0; i < inProcess->tracks().size(); ++i) {
    SCOPED_TRACE("track " + std::to_string(i));
    expectSameSamples(*inProcess, *confined, i, 100);
  }
}

TEST_P(EveryMovie, GivesTheSamePicturesInEveryShape) {
  const auto one = inProcess->makeImageGenerator();
  const auto other = confined->makeImageGenerator();
  ASSERT_EQ(one != nullptr, other != nullptr);
  if (!one) return;
  const double seconds = std::min(10.0, inProcess->duration().seconds());
  const std::pair<bool, ApertureMode> shapes[] = {{false, ApertureMode::cleanAperture},
                                                  {true, ApertureMode::cleanAperture},
                                                  {true, ApertureMode::productionAperture},
                                                  {true, ApertureMode::encodedPixels}};
  for (const double part : {0.0, 0.37, 1.5}) {
    const MediaTime time = MediaTime::makeWithSeconds(seconds * part, 600);
    for (const auto& [turns, mode] : shapes) {
      for (ImageGenerator* generator : {one.get(), other.get()}) {
        generator->setAppliesPreferredTrackTransform(turns);
        generator->setApertureMode(mode);
      }
      expectSame(one->copyFrame(time), other->copyFrame(time), GetParam() + " " + time.description());
    }
  }
  EXPECT_FALSE(one->copyFrame(MediaTime::indefinite()).picture);
  expectSame(one->copyFrame(MediaTime::indefinite()), other->copyFrame(MediaTime::indefinite()), GetParam());
}

TEST_P(EveryMovie, GivesTheSamePicturesOfAnAnnouncedListInDisorder) {
  const auto one = inProcess->makeImageGenerator();
  const auto other = confined->makeImageGenerator();
  if (!one) return;
  std::vector<MediaTime> times;
  const double seconds = std::min(4.0, inProcess->duration().seconds());
  for (int i = 0; i < 10; ++i) times.push_back(MediaTime::makeWithSeconds(seconds * i / 10, 600));
  std::shuffle(times.begin(), times.end(), std::mt19937(7));
  one->announce(times);
  other->announce(times);
  for (const MediaTime& time : times) {
    expectSame(one->copyFrame(time), other->copyFrame(time), GetParam() + " " + time.description());
  }
}

INSTANTIATE_TEST_SUITE_P(All, EveryMovie, ::testing::ValuesIn(movies()), [](const auto& each) {
  std::string name = each.param;
  std::ranges::replace_if(
      name, [](unsigned char c) { return !std::isalnum(c); }, '_');
  return name;
});

}  // namespace
}  // namespace vistrelle::testing
