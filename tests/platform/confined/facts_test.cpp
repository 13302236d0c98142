// Metadata, details of tracks and samples that come from a worker: whole, bounded, and nothing when they are lies.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <random>

#include "tests/platform/confined/confined_movies.h"
#include "tests/platform/media/information_clips.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/media/asset_reader.h"
#include "vistrelle/platform/media/confined/fact_bytes.h"
#include "vistrelle/platform/media/confined/movie_facts.h"
#include "vistrelle/platform/media/confined/pieces.h"
#include "vistrelle/platform/media/ffmpeg/asset.h"

namespace vistrelle::testing {
namespace {

using platform::Data;
using platform::FactWriter;
using platform::Message;
using platform::MovieMetadata;
using platform::TrackDetails;
using platform::Value;
namespace wire = platform::wire;

using Words = std::vector<std::string>;

const Words kTags{"-metadata", "title=Ein Titel äöü", "-metadata", "artist=Somebody", "-metadata", "album=Collected",
                  "-metadata", "comment=A remark",    "-metadata", "copyright=2026",  "-metadata", "lyrics=La\nla la"};

void expectSame(const MovieMetadata& one, const MovieMetadata& other) {
  EXPECT_EQ(one.common, other.common);
  EXPECT_EQ(one.formats, other.formats);
  EXPECT_EQ(one.chapterLocales, other.chapterLocales);
  EXPECT_EQ(one.lyrics, other.lyrics);
}

/// The metadata as a worker reads it; as many entries as in the process, and the same.
MovieMetadata bothWays(const std::string& path) {
  const auto inProcess = platform::FfmpegMediaLibrary().openAsset(path, {});
  const auto confined = loadedConfined(path);
  EXPECT_TRUE(inProcess && load(*inProcess) && confined) << path;
  if (!confined) return {};
  RecordingLog log;
  const MovieMetadata metadata = confined->metadata();
  EXPECT_TRUE(log.lines().empty()) << log.lines().front();
  expectSame(inProcess->metadata(), metadata);
  return metadata;
}

/// `count` entries, one of each kind of value after the other.
MovieMetadata someMetadata(int count) {
  const Value values[] = {"text\x01\xff", std::int64_t{-5}, std::uint64_t{1} << 63, 0.5F, -1e300, Data(300)};
  MovieMetadata metadata;
  for (int i = 0; i < count; ++i) {
    const std::string locale = i % 2 == 0 ? "" : "fr";
    platform::addMetadata(metadata, {"ilst", "desc", locale, values[static_cast<std::size_t>(i) % std::size(values)]});
  }
  platform::addMetadata(metadata, {"nothing common", "key", {}, "value"});
  platform::addMetadata(metadata, {"id3", "USLT", {}, "la la"});
  platform::addChapterLocale(metadata, "de");
  platform::addChapterLocale(metadata, {});
  return metadata;
}

TrackDetails someDetails() {
  TrackDetails details;
  details.codec = "h264";
  details.language = "";
  details.bitDepth = 10;
  details.rotation = 270;
  details.isMirrored = true;
  details.frameRate = platform::FrameRate{30000, 1001, false};
  details.headerDuration = platform::MediaTime::make(7, 30);
  return details;
}

TEST(ConfinedFacts, TagsOfEveryContainer) {
  const ScratchFolder folder;
  for (const std::string name : {"a.mp4", "a.mov", "a.mkv", "a.avi"}) {
    const auto arguments = patternInput("160x120") + Words{"-c:v", "mpeg4"} + kTags;
    EXPECT_FALSE(bothWays(makeClip(folder, name, arguments)).common.empty()) << name;
  }
  const Words sound{"-f", "lavfi", "-i", "sine=duration=0.5", "-c:a", "libmp3lame"};
  EXPECT_FALSE(bothWays(makeClip(folder, "a.mp3", sound + kTags)).common.empty());
}

TEST(ConfinedFacts, HostileMetadata) {
  const ScratchFolder folder;
  const std::string clip = makeClip(folder, "a.mov", patternInput("160x120") + Words{"-c:v", "mpeg4"});
  const auto text = [](const std::string& words, int language = 0x55c4) {
    return boxOf("\xa9nam", bigEndian(words.size(), 2) + bigEndian(static_cast<std::uint64_t>(language), 2) + words);
  };
  std::string many;
  for (int i = 0; i < 3000; ++i) many += text("entry " + std::to_string(i));
  std::string large;
  for (int i = 0; i < 20; ++i) large += boxOf("titl", bigEndian(0) + bigEndian(0x55c4, 2) + std::string(1 << 19, 'x'));
  const std::string broken = text("\xff\xfe\x80\xd8\x01") + text("\x1b[31m\r\n\b\x9b", 0x55c4) + text("\xc3", 0) +
                             text(std::string("a\0b", 3)) + text("\xfe\xff\xdc", 0) + boxOf("titl", "\x01") +
                             boxOf("\xa9nam", bigEndian(60000, 2) + bigEndian(0, 2) + "short") +
                             boxOf("meta", boxOf("hdlr", std::string(24, '\xff')) + boxOf("ilst", bigEndian(1)));
  const std::pair<const char*, std::string> kinds[] = {{"many", many}, {"large", large}, {"broken", broken}};
  for (const auto& [what, boxes] : kinds) {
    SCOPED_TRACE(what);
    const MovieMetadata metadata = bothWays(MovieBytes(clip).append({"moov", "udta"}, boxes).write(folder, "b.mov"));
    EXPECT_FALSE(metadata.common.empty());
    EXPECT_LE(metadata.common.size(), 1000U);
  }
}

TEST(ConfinedFacts, ComeBackFromBytes) {
  const MovieMetadata metadata = someMetadata(600);
  ASSERT_EQ(metadata.common.size(), 600U);
  const auto found = platform::metadataFrom(platform::bytesOf(metadata, platform::kMostMetadataBytes));
  ASSERT_TRUE(found);
  expectSame(metadata, *found);
  const TrackDetails details = someDetails();
  const auto foundDetails = platform::detailsFrom(platform::bytesOf(details));
  ASSERT_TRUE(foundDetails);
  EXPECT_EQ(platform::bytesOf(*foundDetails), platform::bytesOf(details));
  EXPECT_EQ(foundDetails->language, "");
  EXPECT_EQ(foundDetails->profile, std::nullopt);
  EXPECT_EQ(foundDetails->frameRate->varies, false);
  EXPECT_EQ(foundDetails->headerDuration, details.headerDuration);
}

TEST(ConfinedFacts, WhatFindsNoRoomIsLeftOut) {
  MovieMetadata metadata = someMetadata(60);
  for (const std::size_t most : {std::size_t{200}, std::size_t{1000}, std::size_t{2500}}) {
    const Data bytes = platform::bytesOf(metadata, most);
    EXPECT_LE(bytes.size(), most);
    const auto found = platform::metadataFrom(bytes);
    ASSERT_TRUE(found);
    EXPECT_FALSE(found->common.empty());
    EXPECT_LT(found->common.size(), 60U);
    EXPECT_EQ(found->lyrics, "la la");
  }
  metadata.lyrics = std::string(5000, 'x');
  const auto found = platform::metadataFrom(platform::bytesOf(metadata, 1000));
  ASSERT_TRUE(found);
  EXPECT_FALSE(found->lyrics);
  EXPECT_FALSE(found->common.empty());
}

TEST(ConfinedFacts, PartsOfThemAreNone) {
  const Data metadata = platform::bytesOf(someMetadata(12), platform::kMostMetadataBytes);
  for (std::size_t size = 0; size < metadata.size(); ++size) {
    ASSERT_FALSE(platform::metadataFrom(std::span(metadata).first(size))) << size;
  }
  const Data details = platform::bytesOf(someDetails());
  for (std::size_t size = 0; size < details.size(); ++size) {
    ASSERT_FALSE(platform::detailsFrom(std::span(details).first(size))) << size;
  }
  Data more = metadata;
  more.push_back(std::byte{0});
  EXPECT_FALSE(platform::metadataFrom(more));
}

TEST(ConfinedFacts, ChangedBytesStayWithinBounds) {
  std::mt19937 random(7);
  const Data metadata = platform::bytesOf(someMetadata(12), platform::kMostMetadataBytes);
  const Data details = platform::bytesOf(someDetails());
  for (int i = 0; i < 20000; ++i) {
    Data changed = i % 2 == 0 ? metadata : details;
    for (auto n = random() % 3 + 1; n > 0; --n) {
      changed[random() % changed.size()] = static_cast<std::byte>(random() % 4 == 0 ? 0xff : random() % 256);
    }
    if (const auto found = platform::metadataFrom(changed)) {
      EXPECT_LE(found->common.size(), 1000U);
      EXPECT_LE(found->formats.size(), 101U);
    }
    if (const auto found = platform::detailsFrom(changed)) {
      EXPECT_GT(found->frameRate.value_or(platform::FrameRate{}).denominator, 0);
      EXPECT_EQ(found->rotation.value_or(0) % 90, 0);
    }
  }
}

TEST(ConfinedFacts, NothingBeforeLoading) {
  const auto asset = confinedLibrary()->openAsset(dataFile("prog_8s.mp4"), {});
  RecordingLog log;
  expectSame(asset->metadata(), {});
  EXPECT_FALSE(asset->headerDuration().isValid());
  std::string error;
  EXPECT_FALSE(asset->makeReader(&error));
  EXPECT_EQ(error, "the movie has not been loaded");
  EXPECT_TRUE(log.lines().empty());
}

TEST(ConfinedFacts, AFreshWorkerTellsThemAgain) {
  const auto asset = loadedConfined(dataFile("nasa_13013.mp4"));
  ASSERT_TRUE(asset);
  const MovieMetadata metadata = asset->metadata();
  EXPECT_FALSE(metadata.common.empty());
  ASSERT_EQ(::kill(asset->movie()->workerProcess(), SIGKILL), 0);
  RecordingLog log;
  expectSame(asset->metadata(), {});
  EXPECT_TRUE(log.hasContaining("movie facts         :-( '" + dataFile("nasa_13013.mp4") + "': the decoder ended: "))
      << (log.lines().empty() ? "no line" : log.lines().back());
  expectSame(asset->metadata(), metadata);
  EXPECT_EQ(asset->tracks()[0]->details().codec, "h264");
}

TEST(ConfinedFacts, ReadingEndsWithItsWorker) {
  const auto asset = loadedConfined(dataFile("prog_8s.mp4"));
  ASSERT_TRUE(asset);
  const auto reading = [&asset] {
    auto reader = asset->makeReader(nullptr);
    reader->addOutput(asset->tracks()[0]);
    EXPECT_TRUE(reader->startReading());
    EXPECT_TRUE(reader->copyNextSampleBuffer());
    return reader;
  };
  const auto first = reading();
  const auto second = reading();
  ASSERT_EQ(::kill(asset->movie()->workerProcess(), SIGKILL), 0);
  EXPECT_FALSE(first->copyNextSampleBuffer());
  EXPECT_EQ(first->status(), platform::ReaderStatus::failed);
  EXPECT_TRUE(first->error().value_or("").starts_with("the decoder ended: "));
  // The fresh worker does not know where the other one was.
  EXPECT_FALSE(second->copyNextSampleBuffer());
  EXPECT_EQ(second->error(), "the decoder that was reading has ended");
  EXPECT_TRUE(reading()->copyNextSampleBuffer());
}

TEST(ConfinedFacts, AReaderWithoutATrackFails) {
  const auto asset = loadedConfined(dataFile("prog_8s.mp4"));
  ASSERT_TRUE(asset);
  const auto reader = asset->makeReader(nullptr);
  EXPECT_EQ(reader->status(), platform::ReaderStatus::unknown);
  EXPECT_FALSE(reader->copyNextSampleBuffer());
  EXPECT_FALSE(reader->startReading());
  EXPECT_EQ(reader->status(), platform::ReaderStatus::failed);
  EXPECT_EQ(reader->error(), "no track is to be read");
}

}  // namespace
}  // namespace vistrelle::testing
