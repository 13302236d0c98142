#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "tests/platform/export/passthrough_fixture.h"

// Pieces of a movie in any order, of any length, some of them slower, with empty stretches between: what is written
// shows the very frames. The seeds are fixed; VISTRELLE_LONG tries many more of them.

namespace vistrelle::testing {
namespace {

using platform::Composition;
using platform::MediaTime;

struct Coding {
  const char* name;
  std::vector<std::string> video;
  bool isExact = true;
  bool hasBlackGaps = false;
};

[[maybe_unused]] void PrintTo(const Coding& coding, std::ostream* out) {
  *out << coding.name;
}

constexpr int kRate = 25;
constexpr int kSeconds = 4;
constexpr int kTicks = 1000;

class RandomPieces : public ::testing::TestWithParam<Coding> {
 protected:
  void SetUp() override {
    movie_ = loaded(clip(GetParam().name, {numberedPictures(kSeconds * kRate), GetParam().video}));
    ASSERT_TRUE(movie_);
  }
  int draw(int from, int to) { return std::uniform_int_distribution<int>(from, to)(random_); }

  /// Appends a piece or a stretch without anything; times on frames in half of the compositions.
  void append(Composition& composition, std::vector<Stretch>& shown, bool isOnFrames) {
    const int step = isOnFrames ? kTicks / kRate : 1;
    const int length = draw(kTicks / kRate / step + 1, kTicks / step) * step;
    const MediaTime end = at(std::llround(end_ * kTicks), kTicks);
    if (!shown.empty() && shown.back().firstNumber >= 0 && draw(0, 4) == 0) {
      shown.push_back({0, 0, length / 1000.0, -1});
    } else {
      const int start = draw(0, (kSeconds * kTicks - length) / step) * step;
      ASSERT_TRUE(composition.insertTimeRange(range(start, length, kTicks), movie_, end, nullptr));
      const bool isSlower = draw(0, 5) == 0;
      if (isSlower) composition.scaleTimeRange({end, at(length, kTicks)}, at(2 * length, kTicks));
      shown.push_back({start / 1000.0, length / 1000.0, length * (isSlower ? 2 : 1) / 1000.0, 0});
    }
    end_ += shown.back().lasting;
  }

  /// A black frame, of number 0, for each stretch without anything.
  static void addBlack(const std::vector<Stretch>& parts, Shown& shown) {
    double position = 0;
    for (const Stretch& part : parts) {
      const auto place =
          std::ranges::find_if(shown, [&](const auto& frame) { return frame.second >= position - 1e-9; });
      if (part.firstNumber < 0) shown.insert(place, {0, position});
      position += part.lasting;
    }
  }

  /// Whether libav's frames are the wanted ones; a test that wants exactness fails with all that differs.
  bool tryOne(unsigned seed) {
    random_.seed(seed);
    end_ = 0;
    const auto composition = Composition::make();
    std::vector<Stretch> shown;
    const bool isOnFrames = draw(0, 1) == 0;
    const int pieces = draw(2, 5);
    const auto isUnfinished = [&] { return static_cast<int>(shown.size()) < pieces || shown.back().firstNumber < 0; };
    while (!HasFatalFailure() && isUnfinished()) append(*composition, shown, isOnFrames);
    std::ostringstream trace;
    trace << "seed " << seed;
    for (const Stretch& part : shown) {
      trace << (part.firstNumber < 0 ? " -" : " " + std::to_string(part.start)) << "+" << part.length << "/"
            << part.lasting;
    }
    SCOPED_TRACE(trace.str());
    const Written written = writeTo(*composition, folder_.file("written.mov"));
    EXPECT_TRUE(written.succeeded) << written.error;
    Shown wanted = shownBy(shown, kRate);
    if (GetParam().isExact) expectGenerates(written.path, wanted, end_);
    if (GetParam().hasBlackGaps) addBlack(shown, wanted);
    if (GetParam().isExact) expectDecodes(written.path, wanted);
    std::vector<int> numbers;
    for (const auto& [number, time] : wanted) numbers.push_back(number);
    return decoded(written.path).numbers() == numbers;
  }

  ScratchFolder folder_;
  std::shared_ptr<platform::Asset> movie_;
  std::mt19937 random_;
  double end_ = 0;
};

TEST_P(RandomPieces, showTheVeryFrames) {
  const int count = std::getenv("VISTRELLE_LONG") != nullptr ? 300 : 6;
  int wrong = 0;
  for (int seed = 1; seed <= count && !HasFatalFailure(); ++seed) wrong += tryOne(static_cast<unsigned>(seed)) ? 0 : 1;
  EXPECT_LE(wrong, GetParam().isExact ? 0 : count / 100);
}

std::vector<std::string> x264(const std::vector<std::string>& more) {
  std::vector<std::string> options{"-c:v", "libx264", "-preset", "veryfast", "-g", "12", "-bf", "2"};
  options.insert(options.end(), more.begin(), more.end());
  return options;
}

const char* const kOpenHevc = "log-level=error:keyint=12:bframes=3:open-gop=1";

INSTANTIATE_TEST_SUITE_P(
    codings, RandomPieces,
    ::testing::Values(Coding{"closed.mov", x264({})},
                      Coding{"pyramid.mp4", x264({"-bf", "3", "-x264-params", "b-pyramid=normal"})},
                      // Pictures of such groups are ordered by a count that runs on over sync samples and is coded
                      // modulo a small number, so that a decoder that jumps may take a picture for one shown already.
                      Coding{"open.mov", x264({"-x264-params", "open-gop=1:scenecut=0:b-adapt=0", "-bf", "3"}), false},
                      Coding{"plain.mp4", {"-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-g", "25"}},
                      Coding{"hevc.mp4",
                             {"-c:v", "libx265", "-preset", "ultrafast", "-x265-params", kOpenHevc, "-tag:v", "hvc1"}},
                      Coding{"mpeg4.mov", {"-c:v", "mpeg4", "-q:v", "3", "-bf", "2", "-g", "12"}},
                      Coding{"mpeg2.ts", {"-c:v", "mpeg2video", "-q:v", "3", "-bf", "2", "-g", "12"}},
                      Coding{"prores.mov", {"-c:v", "prores_ks", "-profile:v", "0"}},
                      Coding{"mjpeg.mov", {"-c:v", "mjpeg", "-q:v", "3"}, true, true}),
    [](const ::testing::TestParamInfo<Coding>& tested) {
      std::string name = tested.param.name;
      std::ranges::replace(name, '.', '_');
      return name;
    });

}  // namespace
}  // namespace vistrelle::testing
