#include <gtest/gtest.h>

#include <filesystem>

#include "tests/platform/export/sound_clips.h"
#include "tests/platform/media/movie_loading.h"
#include "tests/support/child.h"
#include "tests/support/recording_log.h"
#include "vistrelle/platform/media/export/m4a_export.h"

namespace vistrelle::platform {
namespace {

using testing::at;
using testing::expectReadersContent;
using testing::inputOf;
using testing::isSame;
using testing::loaded;
using testing::probed;
using testing::range;
using testing::readFile;
using testing::runFfmpeg;
using testing::ScratchFolder;
using testing::signalToNoise;
using testing::Sound;
using testing::soundMovie;
using testing::soundOf;
using testing::sweep;

using Outcome = testing::Written;

Outcome exportTo(
    const std::string& path, Asset& asset, std::function<bool()> isCancelled = [] { return false; }) {
  return testing::writeTo(asset, path, &writeM4a, std::move(isCancelled));
}

class M4a : public ::testing::Test {
 protected:
  Outcome exported(const std::shared_ptr<Asset>& asset) { return exportTo(folder_.file("out.m4a"), *asset); }
  std::shared_ptr<Asset> movie(const std::string& name, const Sound& sound,
                               const std::vector<std::string>& options = {"-c:a", "pcm_s16le"}) {
    return loaded(soundMovie(folder_, name, sound, options));
  }
  /// What was written, cut to the length it declares; the declared length must be the wanted one.
  Sound written(const Outcome& outcome, std::int64_t wantedLength) {
    EXPECT_TRUE(outcome.succeeded) << outcome.error;
    EXPECT_EQ(probed(outcome.path, "a:0", "stream=duration_ts"), std::to_string(wantedLength));
    Sound sound = soundOf(folder_, outcome.path);
    // This decoder leaves the padding of the last block in.
    EXPECT_LT(sound.length(), wantedLength + 1024);
    return sound.cut(0, wantedLength);
  }
  void expectSounds(const Outcome& outcome, const Sound& wanted, double decibels = 25) {
    const Sound got = written(outcome, wanted.length());
    EXPECT_EQ(got.rate, wanted.rate);
    ASSERT_EQ(got.channels, wanted.channels);
    EXPECT_GT(signalToNoise(wanted, got), decibels);
    // A shift by a single sample is worse.
    EXPECT_GT(signalToNoise(wanted, got), signalToNoise(wanted, got.cut(1, wanted.length())) + 1);
    EXPECT_GT(signalToNoise(wanted, got), signalToNoise(wanted, got.cut(-1, wanted.length())) + 1);
  }

  ScratchFolder folder_;
};

TEST_F(M4a, StereoIsAacOf256KilobitsWithoutGaps) {
  const Sound sound = sweep(3.3);
  const Outcome outcome = exported(movie("in.mov", sound));
  expectSounds(outcome, sound);
  EXPECT_EQ(outcome.progress, 1.0);
  EXPECT_EQ(probed(outcome.path, "a:0", "stream=codec_name,profile,sample_rate,channels"), "aac,LC,48000,2");
  EXPECT_EQ(probed(outcome.path, "a:0", "stream=start_pts"), "0");
  const std::string file = readFile(outcome.path);
  EXPECT_EQ(file.substr(4, 8), "ftypM4A ");
  // The edit list cuts 2048 samples of lead-in, the encoder's and ours, off and ends with the sound: ISO/IEC 14496-12,
  // 8.6.6.
  const std::size_t edits = file.find("elst");
  ASSERT_NE(edits, std::string::npos);
  EXPECT_EQ(file.substr(edits + 8, 12), std::string("\0\0\0\1\0\2\x6a\xc0\0\0\x8\0", 12));
  // A decoder that begins in the middle needs one block before: roll distance -1, ISO/IEC 14496-12, 10.1.
  EXPECT_NE(file.find("sgpd"), std::string::npos);
  EXPECT_NE(file.find("roll"), std::string::npos);
  expectReadersContent(outcome.path);
}

TEST_F(M4a, SoundThatIsThereAtOnceIsNotSmeared) {
  const Sound sound = sweep(1);
  const Sound got = written(exported(movie("in.mov", sound)), sound.length());
  EXPECT_GT(signalToNoise(sound.cut(0, 1024), got.cut(0, 1024)), 40);
  EXPECT_LT(*std::ranges::max_element(got.samples), 0.42F);
}

TEST_F(M4a, TheBitRateIsUsedByMusic) {
  Sound noise = sweep(4);
  std::uint32_t state = 1;
  for (float& sample : noise.samples) {
    state = state * 1664525U + 1013904223U;
    sample = 0.5F * sample + static_cast<float>(static_cast<std::int32_t>(state)) / 2147483648.0F * 0.3F;
  }
  const Outcome outcome = exported(movie("in.mov", noise));
  ASSERT_TRUE(outcome.succeeded) << outcome.error;
  EXPECT_NEAR(std::stod(probed(outcome.path, "a:0", "stream=bit_rate")), 256000, 20000);
}

TEST_F(M4a, MonoStaysMonoAndRatesAreKept) {
  for (const int rate : {44100, 48000, 32000, 22050, 96000, 8000}) {
    const Sound sound = sweep(1.5, rate, 1);
    expectSounds(exported(movie("in.mov", sound)), sound, 20);
  }
}

TEST_F(M4a, RatesThatAacDoesNotHaveGoToTheNearest) {
  for (const auto& [rate, wanted] : {std::pair{192000, 96000}, std::pair{50000, 48000}}) {
    expectSounds(exported(movie("in.wav", sweep(1.5, rate, 2))), sweep(1.5, wanted, 2), 20);
  }
}

TEST_F(M4a, MoreChannelsAreMixedDownToTwoWithoutLeavingTheRange) {
  Sound loud{48000, 6, {}};
  for (int i = 0; i < 48000; ++i) {
    for (int channel = 0; channel < 6; ++channel) {
      loud.samples.push_back(0.9F * static_cast<float>(std::sin(2 * std::numbers::pi * 440 * i / 48000)));
    }
  }
  const Outcome outcome = exported(movie("in.mov", loud));
  const Sound got = written(outcome, 48000);
  EXPECT_EQ(got.channels, 2);
  const float peak = *std::ranges::max_element(got.samples);
  EXPECT_GT(peak, 0.8F);
  EXPECT_LT(peak, 0.95F);
}

/// Two movies' sounds as two tracks of one.
std::string twoTracks(const ScratchFolder& folder, const Sound& one, const Sound& other) {
  std::vector<std::string> arguments = inputOf(folder, "one", one);
  const std::vector<std::string> second = inputOf(folder, "other", other);
  arguments.insert(arguments.end(), second.begin(), second.end());
  const std::string path = folder.file("two.mov");
  for (const char* word : {"-map", "0", "-map", "1", "-c", "pcm_s16le", "-disposition:a", "default"}) {
    arguments.push_back(word);
  }
  arguments.push_back(path);
  runFfmpeg(arguments);
  return path;
}

TEST_F(M4a, SeveralTracksAreAddedUpAtFullVolume) {
  Sound one = sweep(2, 48000, 2, 0.3);
  const Sound other = sweep(1.5, 48000, 1, 0.4);
  const Outcome outcome = exported(loaded(twoTracks(folder_, one, other)));
  for (std::int64_t i = 0; i < other.length(); ++i) {
    const float value = other.samples[static_cast<std::size_t>(i)];
    one.samples[static_cast<std::size_t>(2 * i)] += value;
    one.samples[static_cast<std::size_t>(2 * i + 1)] += value;
  }
  expectSounds(outcome, one);
}

TEST_F(M4a, ASumBeyondTheRangeStopsAtTheLimit) {
  Sound one = sweep(2, 48000, 2, 0.8);
  const Outcome outcome = exported(loaded(twoTracks(folder_, one, one)));
  for (float& sample : one.samples) sample = std::clamp(2 * sample, -1.0F, 1.0F);
  const Sound got = written(outcome, one.length());
  EXPECT_GT(signalToNoise(one, got), 20);
}

TEST_F(M4a, ATimelineIsKeptToTheSample) {
  const Sound sound = sweep(4);
  const auto source = movie("in.mov", sound);
  const auto composition = Composition::make();
  std::string error;
  // A cut in the middle, a repeat, and silence between them; times that lie between samples go to the nearest.
  ASSERT_TRUE(composition->insertTimeRange(range(1, 1), source, at(0), &error)) << error;
  ASSERT_TRUE(composition->insertTimeRange(range(10001, 12345, 48000), source, at(1), &error)) << error;
  ASSERT_TRUE(composition->insertTimeRange(range(1, 1), source, at(2), &error)) << error;
  Sound wanted = sound.cut(48000, 48000);
  wanted += sound.cut(10001, 12345);
  wanted += Sound::silence(48000, 2, 48000 - 12345);
  wanted += sound.cut(48000, 48000);
  expectSounds(exported(composition), wanted, 25);
}

TEST_F(M4a, AScaledPieceIsPlayedSlowerOrFaster) {
  const Sound sound = sweep(2);
  const auto source = movie("in.mov", sound);
  for (const double factor : {2.0, 0.5, 1.25}) {
    const auto composition = testing::whole(source);
    const auto duration = MediaTime::makeWithSeconds(2 * factor, 48000);
    composition->scaleTimeRange(range(0, 2), duration);
    Sound wanted{48000, 2, {}};
    for (std::int64_t i = 0; i < duration.value; ++i) {
      const double time = static_cast<double>(i) / 48000 / factor;
      for (int channel = 0; channel < 2; ++channel) {
        const double phase = (200 + 170 * channel + (300 + 40 * channel) * time) * time;
        wanted.samples.push_back(static_cast<float>(0.4 * std::sin(2 * std::numbers::pi * phase)));
      }
    }
    expectSounds(exported(composition), wanted, 20);
  }
}

TEST_F(M4a, SourcesOfAllKindsStandWhereTheyStood) {
  struct Kind {
    const char* name;
    std::vector<std::string> options;
    double decibels;
    std::int64_t late = 0;  // how much later than the movie the sound begins
  };
  const Sound sound = sweep(4);
  for (const Kind& kind :
       {Kind{"aac.mp4", {"-c:a", "aac", "-b:a", "256k"}, 20}, Kind{"aac.mkv", {"-c:a", "aac", "-b:a", "256k"}, 20},
        Kind{"flac.mkv", {"-c:a", "flac", "-sample_fmt", "s16"}, 25},
        Kind{"ac3.mov", {"-c:a", "ac3", "-b:a", "448k"}, 20}, Kind{"alac.m4a", {"-c:a", "alac"}, 25},
        Kind{"pcm.avi", {"-c:a", "pcm_s16le"}, 25}, Kind{"opus.mkv", {"-c:a", "libopus", "-b:a", "256k"}, 15, 336}}) {
    const auto source = movie(kind.name, sound, kind.options);
    // What the file holds, lead-in that it does not declare included.
    const Sound held = soundOf(folder_, folder_.file(kind.name));
    const auto composition = Composition::make();
    std::string error;
    ASSERT_TRUE(composition->insertTimeRange(range(1, 1), source, at(0), &error)) << kind.name << error;
    const Outcome outcome = exported(composition);
    ASSERT_TRUE(outcome.succeeded) << kind.name << ": " << outcome.error;
    SCOPED_TRACE(kind.name);
    expectSounds(outcome, held.cut(48000 - kind.late, 48000), kind.decibels);
  }
}

TEST_F(M4a, AMovieWithoutSoundFails) {
  const auto silent = loaded(testing::clip("m4a_silent.mov", {testing::numberedPictures(5), {"-c:v", "mjpeg"}}));
  const Outcome outcome = exported(silent);
  EXPECT_FALSE(outcome.succeeded);
  EXPECT_EQ(outcome.error, "the movie has no sound");
}

TEST_F(M4a, ATruncatedMovieFails) {
  const std::string path = soundMovie(folder_, "in.mov", sweep(5), {"-c:a", "pcm_s16le", "-movflags", "faststart"});
  std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
  const auto movie = loaded(path);
  ASSERT_TRUE(movie);
  const Outcome outcome = exported(movie);
  EXPECT_FALSE(outcome.succeeded);
  EXPECT_NE(outcome.error, "");
}

TEST_F(M4a, DamagedSoundIsSilenceAndNamed) {
  const Sound sound = sweep(4);
  const std::string path = soundMovie(folder_, "in.mov", sound, {"-c:a", "ac3", "-b:a", "448k"});
  // The edit list is told in milliseconds.
  const Sound before = soundOf(folder_, path).cut(0, 191712);
  testing::damagePacket(path, "a:0", 60, 0);
  const testing::RecordingLog log;
  const Sound got = written(exported(loaded(path)), before.length());
  // Blocks of 1536 samples; the decoder gives the one before the damaged one up too.
  EXPECT_GT(signalToNoise(before.cut(0, 59 * 1536), got.cut(0, 59 * 1536)), 25);
  EXPECT_GT(signalToNoise(before.cut(62 * 1536, 48000), got.cut(62 * 1536, 48000)), 25);
  EXPECT_TRUE(log.has("movie export        :-( damaged sound from 1.883 to 1.947 s"))
      << ::testing::PrintToString(log.lines());
}

TEST_F(M4a, ASourceThatIsRemovedMeanwhileIsStillRead) {
  const Sound sound = sweep(2);
  const std::string path = soundMovie(folder_, "in.mov", sound);
  const auto movie = loaded(path);
  ASSERT_TRUE(std::filesystem::remove(path));
  expectSounds(exported(movie), sound);
}

TEST_F(M4a, CancellingEndsIt) {
  const auto source = movie("in.mov", sweep(5));
  int asked = 0;
  const Outcome outcome = exportTo(folder_.file("out.m4a"), *source, [&asked] { return ++asked > 20; });
  EXPECT_FALSE(outcome.succeeded);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(asked, 21);
}

TEST_F(M4a, AFullDiskFails) {
  if (!testing::canMount()) GTEST_SKIP() << "this machine does not let a test mount a disk";
  Sound noise = sweep(20);
  for (std::size_t i = 0; i < noise.samples.size(); ++i)
    noise.samples[i] += static_cast<float>(i * 7919 % 1000) * 0.0005F;
  const auto source = movie("in.mov", noise);
  const std::string disk = folder_.makeFolder("disk");
  EXPECT_TRUE(testing::inChild([&] {
    ASSERT_TRUE(testing::mountScratch(disk.c_str(), "size=256k"));
    const Outcome outcome = exportTo(disk + "/out.m4a", *source);
    EXPECT_FALSE(outcome.succeeded);
    EXPECT_EQ(outcome.error, "No space left on device");
  }));
}

}  // namespace
}  // namespace vistrelle::platform
