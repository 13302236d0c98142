#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "tests/platform/export/mov_tables.h"
#include "tests/platform/export/passthrough_fixture.h"

namespace vistrelle::testing {
namespace {

using platform::Composition;
using platform::MediaTime;

/// Four seconds of a rising saw: the value of a sample is its number.
std::vector<std::string> numberedSound(int rate) {
  return {"-f", "lavfi", "-i",
          "aevalsrc=exprs='(mod(n\\,60000)-30000)/32768':nb_samples=1000:sample_rate=" + std::to_string(rate) +
              ":duration=4"};
}
std::int16_t numbered(std::int64_t n) {
  return static_cast<std::int16_t>(n % 60000 - 30000);
}

std::vector<std::int16_t> soundOf(const std::string& path) {
  const DecodedMovie movie = decoded(path);
  EXPECT_EQ(movie.error, "");
  return movie.sound.empty() ? std::vector<std::int16_t>() : movie.sound.begin()->second;
}

struct Plain {
  const char* name;
  std::vector<std::string> coding;
  int rate;
};

// Without names of their own the parameters would print as bytes.
[[maybe_unused]] void PrintTo(const Plain& plain, std::ostream* out) {
  *out << plain.name;
}

class PlainSound : public ::testing::TestWithParam<Plain> {
 protected:
  void SetUp() override {
    movie_ = loaded(clip(GetParam().name, {numberedSound(GetParam().rate), GetParam().coding}));
    ASSERT_TRUE(movie_);
    composition_ = whole(movie_);
  }
  /// Stretches of the source, in samples: first and count.
  void expectHears(const std::vector<std::pair<std::int64_t, std::int64_t>>& stretches) {
    const Written written = writeTo(*composition_, folder_.file("sound.mov"));
    ASSERT_TRUE(written.succeeded) << written.error;
    std::vector<std::int16_t> wanted;
    for (const auto& [first, count] : stretches) {
      for (std::int64_t n = first; n < first + count; ++n) wanted.push_back(numbered(n));
    }
    const std::vector<std::int16_t> heard = soundOf(written.path);
    ASSERT_EQ(heard.size(), wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i) ASSERT_NEAR(heard[i], wanted[i], 1) << "sample " << i;
  }
  std::int64_t samples(double seconds) const { return std::llround(seconds * GetParam().rate); }
  /// Of the source; some containers round it to their clock.
  std::int64_t all() const { return samples(movie_->duration().seconds()); }

  ScratchFolder folder_;
  std::shared_ptr<platform::Asset> movie_;
  std::shared_ptr<Composition> composition_;
};

TEST_P(PlainSound, whole) {
  expectHears({{0, all()}});
}

TEST_P(PlainSound, bothEndsToTheSample) {
  composition_->removeTimeRange(range(31, 100, 10));
  composition_->removeTimeRange(range(0, 123, 1000));
  expectHears({{samples(0.123), samples(3.1) - samples(0.123)}});
}

TEST_P(PlainSound, middleOut) {
  composition_->removeTimeRange(range(1111, 1000, 1000));
  expectHears({{0, samples(1.111)}, {samples(2.111), all() - samples(2.111)}});
}

TEST_P(PlainSound, repeated) {
  ASSERT_TRUE(composition_->insertTimeRange({MediaTime::zero(), movie_->duration()}, movie_, composition_->duration(),
                                            nullptr));
  expectHears({{0, all()}, {0, all()}});
}

TEST_P(PlainSound, piecesInAnyOrder) {
  const auto mixed = Composition::make();
  ASSERT_TRUE(mixed->insertTimeRange(range(2345, 700, 1000), movie_, MediaTime::zero(), nullptr));
  ASSERT_TRUE(mixed->insertTimeRange(range(33, 470, 1000), movie_, mixed->duration(), nullptr));
  composition_ = mixed;
  expectHears({{samples(2.345), samples(0.7)}, {samples(0.033), samples(0.47)}});
}

INSTANTIATE_TEST_SUITE_P(
    codings, PlainSound,
    ::testing::Values(Plain{"s16.mov", {"-c:a", "pcm_s16le"}, 48000}, Plain{"twos.mov", {"-c:a", "pcm_s16be"}, 44000},
                      Plain{"s24.mov", {"-c:a", "pcm_s24le", "-af", "pan=stereo|c0=c0|c1=c0"}, 48000},
                      Plain{"f32.mov", {"-c:a", "pcm_f32le"}, 48000},
                      Plain{"fragments.mov", {"-c:a", "pcm_s16le", "-movflags", "frag_keyframe+delay_moov"}, 48000},
                      Plain{"s16.avi", {"-c:a", "pcm_s16le", "-af", "pan=stereo|c0=c0|c1=c0"}, 48000},
                      Plain{"s16.mkv", {"-c:a", "pcm_s16le"}, 44000}, Plain{"s16.wav", {"-c:a", "pcm_s16le"}, 44000}),
    [](const ::testing::TestParamInfo<Plain>& tested) {
      std::string name = tested.param.name;
      std::ranges::replace(name, '.', '_');
      return name;
    });

constexpr int kTolerance = 150;  // of 10,000; a shift by one sample makes more

struct Coded {
  const char* name;
  std::vector<std::string> coding;
  int packet;     // samples
  int delay = 0;  // of the first packet's samples, those before the sound begins
  int mixed = 0;  // samples on both sides of a seam that libavformat's parser of this coding mixes up
  int slack = 0;  // by how much the container's clock misplaces the sound
};

[[maybe_unused]] void PrintTo(const Coded& coded, std::ostream* out) {
  *out << coded.name;
}

/// Coded sound is compared with what libav decodes of the source itself.
class CodedSound : public ::testing::TestWithParam<Coded> {
 protected:
  void SetUp() override {
    const std::string path =
        clip(GetParam().name,
             {{"-f", "lavfi", "-i", "aevalsrc=exprs=0.3*sin(2*PI*(200*t+150*t*t)):sample_rate=48000:duration=4"},
              GetParam().coding});
    movie_ = loaded(path);
    ASSERT_TRUE(movie_);
    source_ = soundOf(path);
    composition_ = whole(movie_);
  }
  /// Where `piece` of the source's sound stands best in what is heard from `at` on: the greatest difference there.
  static int difference(const std::vector<std::int16_t>& heard, std::size_t at, const std::vector<std::int16_t>& source,
                        std::size_t from, std::size_t count) {
    int least = 0x10000;
    const auto slack = static_cast<std::size_t>(GetParam().slack);
    const std::size_t earliest = from - std::min(from, slack);
    for (std::size_t start = earliest; start <= from + slack; ++start) {
      int worst = 0;
      for (std::size_t i = slack; i + slack < count; ++i) {
        worst = std::max(worst, std::abs(heard[at + i] - source[start + i]));
      }
      least = std::min(least, worst);
    }
    return least;
  }

  ScratchFolder folder_;
  std::shared_ptr<platform::Asset> movie_;
  std::vector<std::int16_t> source_;
  std::shared_ptr<Composition> composition_;
};

TEST_P(CodedSound, whole) {
  const Written written = writeTo(*composition_, folder_.file("sound.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const std::vector<std::int16_t> heard = soundOf(written.path);
  ASSERT_GE(heard.size(), source_.size() - 100);
  EXPECT_LE(heard.size(), source_.size() + static_cast<std::size_t>(GetParam().packet));
  EXPECT_LE(difference(heard, 0, source_, 0, source_.size() - 100), kTolerance);
}

TEST_P(CodedSound, headCutToTheSample) {
  composition_->removeTimeRange(range(0, 1234, 1000));
  const Written written = writeTo(*composition_, folder_.file("sound.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const std::vector<std::int16_t> heard = soundOf(written.path);
  const std::size_t from = 48 * 1234;
  ASSERT_GE(heard.size(), source_.size() - from - 100);
  EXPECT_LE(difference(heard, 0, source_, from, source_.size() - from - 100), kTolerance);
}

TEST_P(CodedSound, middleOutAtPackets) {
  const std::int64_t packet = GetParam().packet;
  // libavformat takes whole packets behind the first edit.
  const std::int64_t first = packet * 10 - GetParam().delay;
  composition_->removeTimeRange({at(first, 48000), at(packet * 20, 48000)});
  const Written written = writeTo(*composition_, folder_.file("sound.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const std::vector<std::int16_t> heard = soundOf(written.path);
  const auto seam = static_cast<std::size_t>(first);
  const auto behind = static_cast<std::size_t>(first + packet * 20);
  const auto mixed = static_cast<std::size_t>(GetParam().mixed);
  ASSERT_GE(heard.size(), seam + mixed + 20000);
  EXPECT_LE(difference(heard, 0, source_, 0, seam - mixed), kTolerance);
  EXPECT_LE(difference(heard, seam + mixed, source_, behind + mixed, 20000), kTolerance);
}

/// A packet of a sound track and where in it a time of the media lies.
struct Place {
  std::string packet;
  std::int64_t offset = 0;  // in ticks of the track
};
Place placeOf(const std::string& path, std::int64_t mediaTime, const platform::mov::SampleTables& track) {
  const auto after = std::ranges::upper_bound(track.samples, mediaTime, {}, &platform::mov::Sample::decodeTime);
  if (after == track.samples.begin()) return {};
  const platform::mov::Sample& sample = *std::prev(after);
  return {readFile(path).substr(static_cast<std::size_t>(sample.offset), sample.size), mediaTime - sample.decodeTime};
}

// What readers make of edits is theirs; what the edits say is the very sample, in the very packet.
TEST(CodedSoundEdits, sayTheVerySample) {
  for (const auto& [name, coding] : std::vector<std::pair<std::string, std::vector<std::string>>>{
           {"edits.aac.mov", {"-c:a", "aac", "-b:a", "192k", "-aac_pns", "0"}},
           {"edits.ac3.mov", {"-c:a", "ac3", "-b:a", "448k"}},
           {"edits.alac.m4a", {"-c:a", "alac"}}}) {
    SCOPED_TRACE(name);
    const ScratchFolder folder;
    const std::string path = clip(
        name,
        {{"-f", "lavfi", "-i", "aevalsrc=exprs=0.3*sin(2*PI*(200*t+150*t*t)):sample_rate=48000:duration=4"}, coding});
    const auto movie = loaded(path);
    const auto composition = Composition::make();
    // Starts and lengths in samples, none of them on a packet.
    const std::vector<std::pair<std::int64_t, std::int64_t>> pieces{{12345, 30011}, {99991, 7919}, {54321, 48611}};
    for (const auto& [start, length] : pieces) {
      ASSERT_TRUE(composition->insertTimeRange(range(start, length, 48000), movie, composition->duration(), nullptr));
    }
    const Written written = writeTo(*composition, folder.file("sound.mov"));
    ASSERT_TRUE(written.succeeded) << written.error;
    const auto source = tablesOf(path);
    const auto tables = tablesOf(written.path);
    ASSERT_EQ(tables.tracks.size(), 1U);
    const platform::mov::SampleTables& track = tables.tracks[0];
    ASSERT_EQ(track.timeScale, 48000U);
    ASSERT_EQ(track.edits.size(), pieces.size());
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      const auto& [start, length] = pieces[i];
      EXPECT_EQ(track.edits[i].duration * 48000, static_cast<std::uint64_t>(length) * tables.timeScale);
      const std::int64_t shift = source.tracks[0].edits.empty() ? 0 : source.tracks[0].edits[0].mediaTime;
      const Place wanted = placeOf(path, start + shift, source.tracks[0]);
      const Place found = placeOf(written.path, track.edits[i].mediaTime, track);
      EXPECT_EQ(found.offset, wanted.offset) << "piece " << i;
      EXPECT_FALSE(wanted.packet.empty());
      EXPECT_EQ(found.packet == wanted.packet, true) << "piece " << i;
    }
  }
}

// The packet that is lost at each seam is there until libavformat's parser of AC-3 has had it.
TEST(CodedSoundEdits, noPacketOfAc3IsMissingInTheFile) {
  const ScratchFolder folder;
  const std::string path =
      clip("edits.ac3.mov",
           {{"-f", "lavfi", "-i", "aevalsrc=exprs=0.3*sin(2*PI*(200*t+150*t*t)):sample_rate=48000:duration=4"},
            {"-c:a", "ac3", "-b:a", "448k"}});
  const auto composition = whole(loaded(path));
  constexpr int kPacket = 1536;
  composition->removeTimeRange(range(10 * kPacket - 256, 20 * kPacket, 48000));
  const Written written = writeTo(*composition, folder.file("sound.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const auto count = [&](int flags) {
    const DecodedMovie movie = MovieDecode(written.path, 0, flags).run();
    return movie.sound.empty() ? std::int64_t{0} : std::ssize(movie.sound.begin()->second);
  };
  EXPECT_NEAR(static_cast<double>(count(AVFMT_FLAG_NOPARSE)), 4 * 48000 - 20 * kPacket, kPacket);
  EXPECT_LE(count(0), count(AVFMT_FLAG_NOPARSE));
}

INSTANTIATE_TEST_SUITE_P(
    codings, CodedSound,
    ::testing::Values(Coded{"aac.mov", {"-c:a", "aac", "-b:a", "192k", "-aac_pns", "0"}, 1024},
                      Coded{"aac.m4a", {"-c:a", "aac", "-b:a", "192k", "-aac_pns", "0"}, 1024},
                      Coded{"aac.mkv", {"-c:a", "aac", "-b:a", "192k", "-aac_pns", "0"}, 1024, 0, 0, 1100},
                      Coded{"aac.ts", {"-c:a", "aac", "-b:a", "192k", "-aac_pns", "0"}, 1024},
                      Coded{"ac3.mov", {"-c:a", "ac3", "-b:a", "448k"}, 1536, 256, 1536},
                      Coded{"ac3.mkv", {"-c:a", "ac3", "-b:a", "448k"}, 1536, 256, 1536},
                      Coded{"mp3.avi", {"-c:a", "libmp3lame", "-b:a", "256k"}, 1152},
                      Coded{"alac.m4a", {"-c:a", "alac"}, 4096}),
    [](const ::testing::TestParamInfo<Coded>& tested) {
      std::string name = tested.param.name;
      std::ranges::replace(name, '.', '_');
      return name;
    });

}  // namespace
}  // namespace vistrelle::testing
