// Random edits on a composition and the same edits on plain lists of frame numbers: what is on screen must agree.
// VISTRELLE_LONG takes many more edits; VISTRELLE_SEED repeats a run.

#include <gtest/gtest.h>

#include <cstdlib>
#include <numeric>
#include <random>

#include "tests/accuracy/numbered_frames.h"
#include "tests/platform/media/composition_sources.h"
#include "tests/platform/media/frame_movies.h"
#include "tests/platform/media/movie_loading.h"
#include "vistrelle/platform/imaging/drawing.h"

namespace vistrelle::testing {
namespace {

using platform::Asset;
using platform::Composition;
using platform::CompositionTrack;
using platform::MediaTime;
using platform::MediaType;
using platform::TimeRange;
using platform::Track;

constexpr int kRate = 25;
constexpr std::size_t kLongest = 6000;  // entries: beyond, nothing is made longer

using Frames = std::vector<int>;

Frames without(Frames frames, int tail) {
  while (!frames.empty() && frames.back() == tail) frames.pop_back();
  return frames;
}

/// A timeline as one frame number for every 1/(25 x fineness) of a second; all tracks share the fineness. What is
/// scaled down makes everything else finer, so that nothing is ever lost between two entries.
class FrameLists {
 public:
  std::vector<Frames> tracks;
  int fineness = 1;

  std::int32_t scale() const { return kRate * fineness; }
  std::size_t length() const {
    std::size_t most = 0;
    for (const Frames& track : tracks) most = std::max(most, track.size());
    return most;
  }
  void insert(Frames& track, std::size_t at, const Frames& piece) {
    if (piece.empty()) return;
    if (at > track.size()) track.resize(at, kNoFrame);
    track.insert(track.begin() + static_cast<std::ptrdiff_t>(at), piece.begin(), piece.end());
  }
  void remove(std::size_t start, std::size_t length) {
    for (Frames& track : tracks) {
      const std::size_t first = std::min(start, track.size());
      const std::size_t last = std::min(start + length, track.size());
      track.erase(track.begin() + static_cast<std::ptrdiff_t>(first),
                  track.begin() + static_cast<std::ptrdiff_t>(last));
    }
  }
  /// Every entry in the stretch `times` times.
  void repeat(Frames& track, std::size_t start, std::size_t length, int times) {
    Frames made;
    for (std::size_t i = 0; i < track.size(); ++i) {
      const bool isInside = i >= start && i < start + length;
      made.insert(made.end(), isInside ? static_cast<std::size_t>(times) : 1, track[i]);
    }
    track = made;
  }
  void scaleUp(std::size_t start, std::size_t length, int times) {
    for (Frames& track : tracks) repeat(track, start, length, times);
  }
  void scaleDown(std::size_t start, std::size_t length, int times) {
    for (Frames& track : tracks) {
      const std::size_t end = start + length;
      repeat(track, end, std::max(track.size(), end) - end, times);
      repeat(track, 0, start, times);
    }
    fineness *= times;
  }
  /// Back to fewer entries where all runs allow it.
  void coarsen() {
    std::size_t common = static_cast<std::size_t>(fineness);
    for (const Frames& track : tracks) {
      std::size_t run = 0;
      for (std::size_t i = 0; i < track.size(); ++i) {
        ++run;
        if (i + 1 < track.size() && track[i + 1] == track[i]) continue;
        common = std::gcd(common, run);
        run = 0;
      }
    }
    for (Frames& track : tracks) {
      Frames made;
      for (std::size_t i = 0; i < track.size(); i += common) made.push_back(track[i]);
      track = made;
    }
    fineness /= static_cast<int>(common);
  }
};

/// Two tracks of pictures: the second begins later and ends earlier.
struct Source {
  std::shared_ptr<Asset> movie;
  std::vector<Frames> frames;  // at 25 a second
  std::size_t duration = 0;
};

Frames numbers(int start, int count, int first) {
  Frames made(static_cast<std::size_t>(start), kNoFrame);
  for (int i = 0; i < count; ++i) made.push_back(first + i);
  return made;
}

class RandomEdits {
 public:
  explicit RandomEdits(unsigned seed) : random_(seed) {
    int first = 0;
    for (int i = 0; i < 3; ++i) {
      Source source;
      const int count = 10 + below(30);
      const int late = below(6);
      const int fewer = 1 + below(count - late);
      const auto main = std::make_shared<NumberedTrack>(kRate, count, first);
      const auto other = std::make_shared<NumberedTrack>(kRate, fewer, first + 500, late);
      source.frames = {numbers(0, count, first), numbers(late, fewer, first + 500)};
      std::vector<std::shared_ptr<Track>> tracks{main, other};
      if (i == 2) {
        tracks.pop_back();
        source.frames.pop_back();
      }
      source.duration = static_cast<std::size_t>(std::max(count, late + fewer) + below(3));
      source.movie = std::make_shared<MovieOfTracks>(tracks, timeOf(static_cast<std::int64_t>(source.duration), kRate));
      sources_.push_back(source);
      first += 1000;
    }
  }

  void edit() {
    switch (below(8)) {
      case 0:
      case 1:
      case 2:
        return insertMovie();
      case 3:
        return insertItself();
      case 4:
        return insertPieceOfATrack();
      case 5:
      case 6:
        return remove();
      default:
        return scale();
    }
  }

  /// Asks for every entry, in the middle of it and at its beginning.
  void compare() const {
    const std::int32_t scale = lists_.scale();
    ASSERT_EQ(composition_->duration(), timeOf(static_cast<std::int64_t>(lists_.length()), scale)) << history_;
    const auto tracks = composition_->mutableTracks();
    ASSERT_EQ(tracks.size(), lists_.tracks.size()) << history_;
    for (std::size_t t = 0; t < tracks.size(); ++t) {
      Frames shown = without(lists_.tracks[t], kNoFrame);
      const auto generator = tracks[t]->makeImageGenerator();
      ASSERT_EQ(generator != nullptr, !shown.empty()) << history_;
      // What comes before the first frame shows it, and what comes after the last one that.
      const auto first = std::ranges::find_if(shown, [](int number) { return number != kNoFrame; });
      std::fill(shown.begin(), first, shown.empty() ? kNoFrame : *first);
      if (!shown.empty()) shown.resize(lists_.tracks[t].size(), shown.back());
      for (std::size_t i = 0; i < shown.size(); ++i) {
        const auto entry = static_cast<std::int64_t>(i);
        ASSERT_EQ(numberOf(generator->copyFrame(timeOf(entry, scale))), shown[i]) << i << " of track " << t << history_;
        ASSERT_EQ(numberOf(generator->copyFrame(timeOf(2 * entry + 1, 2 * scale))), shown[i])
            << i << " and a half of track " << t << history_;
      }
    }
  }

 private:
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random_); }
  std::size_t upTo(std::size_t limit) { return static_cast<std::size_t>(below(static_cast<int>(limit) + 1)); }
  MediaTime at(std::size_t entries) const { return timeOf(static_cast<std::int64_t>(entries), lists_.scale()); }
  TimeRange range(std::size_t start, std::size_t length) const { return {at(start), at(length)}; }
  void note(const std::string& what, std::size_t a, std::size_t b, std::size_t c) {
    history_ += "\n" + what + " " + std::to_string(a) + "+" + std::to_string(b) + " (" + std::to_string(c) + ") of 1/" +
                std::to_string(lists_.scale());
  }
  Frames refined(const Frames& frames) const {
    Frames made;
    for (const int number : frames) made.insert(made.end(), static_cast<std::size_t>(lists_.fineness), number);
    return made;
  }
  static Frames slice(const Frames& frames, std::size_t start, std::size_t length) {
    const std::size_t first = std::min(start, frames.size());
    const std::size_t last = std::min(start + length, frames.size());
    return {frames.begin() + static_cast<std::ptrdiff_t>(first), frames.begin() + static_cast<std::ptrdiff_t>(last)};
  }

  void lay(const std::vector<Frames>& slices, std::size_t place, std::size_t length) {
    lists_.tracks.resize(std::max(lists_.tracks.size(), slices.size()));
    for (std::size_t t = 0; t < lists_.tracks.size(); ++t) {
      Frames piece = t < slices.size() ? slices[t] : Frames();
      if (place < lists_.tracks[t].size()) piece.resize(length, kNoFrame);
      lists_.insert(lists_.tracks[t], place, piece);
    }
    if (lists_.length() < place + length) lists_.tracks[0].resize(place + length, kNoFrame);
  }

  void insertMovie() {
    if (lists_.length() > kLongest) return;
    const Source& source = sources_[static_cast<std::size_t>(below(3))];
    const std::size_t whole = source.duration * static_cast<std::size_t>(lists_.fineness);
    const std::size_t start = below(3) == 0 ? upTo(whole - 1) : 0;
    const std::size_t wanted = 1 + upTo(whole + 5);
    const std::size_t place = upTo(lists_.length() + 5);
    note("movie", start, wanted, place);
    ASSERT_TRUE(composition_->insertTimeRange(range(start, wanted), source.movie, at(place), nullptr));
    const std::size_t length = std::min(wanted, whole - start);
    std::vector<Frames> slices;
    // A stretch before the first or after the last sample is nothing to lay down.
    for (const Frames& each : source.frames) slices.push_back(without(slice(refined(each), start, length), kNoFrame));
    lay(slices, place, length);
  }

  void insertItself() {
    if (lists_.length() == 0 || lists_.length() > kLongest / 2) return;
    const std::size_t start = upTo(lists_.length() - 1);
    const std::size_t length = std::min(1 + upTo(lists_.length()), lists_.length() - start);
    const std::size_t place = upTo(lists_.length());
    note("itself", start, length, place);
    ASSERT_TRUE(composition_->insertTimeRange(range(start, length), composition_, at(place), nullptr));
    std::vector<Frames> slices;
    for (const Frames& each : lists_.tracks) slices.push_back(slice(each, start, length));
    lay(slices, place, length);
  }

  void insertPieceOfATrack() {
    if (lists_.tracks.empty() || lists_.length() > kLongest) return;
    const Source& source = sources_[static_cast<std::size_t>(below(3))];
    const std::size_t which = static_cast<std::size_t>(below(static_cast<int>(source.frames.size())));
    const std::size_t target = static_cast<std::size_t>(below(static_cast<int>(lists_.tracks.size())));
    const Frames all = refined(source.frames[which]);
    const std::size_t start = upTo(all.size() - 1);
    const std::size_t length = 1 + upTo(all.size());
    const std::size_t place = upTo(lists_.tracks[target].size() + 3);
    note("track " + std::to_string(target), start, length, place);
    ASSERT_TRUE(composition_->mutableTracks()[target]->insertTimeRange(
        range(start, length), source.movie->tracks()[which], at(place), nullptr));
    lists_.insert(lists_.tracks[target], place, without(slice(all, start, length), kNoFrame));
  }

  void remove() {
    const std::size_t start = upTo(lists_.length());
    const std::size_t length = upTo(lists_.length() / 3 + 2);
    note("remove", start, length, 0);
    composition_->removeTimeRange(range(start, length));
    lists_.remove(start, length);
  }

  void scale() {
    if (lists_.length() == 0 || lists_.length() > kLongest / 3) return;
    const int times = 2 + below(2);
    const std::size_t start = upTo(lists_.length() - 1);
    const std::size_t length = 1 + upTo(lists_.length() - start - 1);
    const bool isUp = below(2) == 0;
    note(isUp ? "slower" : "faster", start, length, static_cast<std::size_t>(times));
    const MediaTime wanted = isUp ? at(length * static_cast<std::size_t>(times))
                                  : timeOf(static_cast<std::int64_t>(length), lists_.scale() * times);
    composition_->scaleTimeRange(range(start, length), wanted);
    if (isUp) lists_.scaleUp(start, length, times);
    if (!isUp) lists_.scaleDown(start, length, times);
    lists_.coarsen();
  }

  std::mt19937 random_;
  std::vector<Source> sources_;
  std::shared_ptr<Composition> composition_ = Composition::make();
  FrameLists lists_;
  std::string history_;
};

unsigned firstSeed() {
  const char* given = std::getenv("VISTRELLE_SEED");
  return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : 20261121U;
}

TEST(CompositionProperty, RandomEditsShowTheFramesOfPlainLists) {
  const unsigned runs = std::getenv("VISTRELLE_LONG") != nullptr ? 5000 : 300;
  for (unsigned run = 0; run < runs; ++run) {
    const unsigned seed = firstSeed() + run;
    SCOPED_TRACE("VISTRELLE_SEED=" + std::to_string(seed));
    RandomEdits edits(seed);
    for (int i = 0; i < 14; ++i) {
      edits.edit();
      if (::testing::Test::HasFatalFailure()) return;
    }
    edits.compare();
    if (::testing::Test::HasFatalFailure()) return;
  }
}

// ---- a real movie -----------------------------------------------------------------------------------

std::string numberedMovie(const std::string& name) {
  const std::string folder = (std::filesystem::current_path() / "numbered_movies").string();
  const std::string command = "exec '" VISTRELLE_TEST_DATA "/make_numbered.sh' '" + folder + "' " + name;
  return std::system(command.c_str()) == 0 ? folder + "/" + name : std::string();
}

int shownNumber(platform::ImageGenerator& generator, const MediaTime& time) {
  const platform::FrameResult result = generator.copyFrame(time);
  if (!result.picture) return kNoFrame;
  const auto raster = platform::Bitmap::make(160, 96);
  platform::DrawingContext(*raster).draw(*result.picture, {0, 0, 160, 96}, {}, platform::CompositeOperation::sourceOver,
                                         1);
  return numberIn(*raster).value_or(-2);
}

TEST(CompositionProperty, RandomEditsOfARealMovieShowItsFrames) {
  const std::string path = numberedMovie("h264_open.mp4");
  ASSERT_FALSE(path.empty());
  const auto movie = loaded(path);
  ASSERT_TRUE(movie);
  const unsigned runs = std::getenv("VISTRELLE_LONG") != nullptr ? 100 : 4;
  for (unsigned run = 0; run < runs; ++run) {
    const unsigned seed = firstSeed() + run;
    SCOPED_TRACE("VISTRELLE_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    const auto upTo = [&random](std::size_t limit) {
      return std::uniform_int_distribution<std::size_t>(0, limit)(random);
    };
    const auto at = [](std::size_t frames) { return timeOf(static_cast<std::int64_t>(frames), kRate); };
    const Frames all = numbers(0, 100, 0);
    FrameLists lists;
    lists.tracks = {{}};
    const auto composition = Composition::make();
    for (int i = 0; i < 5; ++i) {
      const std::size_t start = upTo(90);
      const std::size_t length = 1 + upTo(99 - start);
      const std::size_t place = upTo(lists.length());
      ASSERT_TRUE(composition->insertTimeRange({at(start), at(length)}, movie, at(place), nullptr));
      lists.insert(lists.tracks[0], place,
                   {all.begin() + static_cast<std::ptrdiff_t>(start),
                    all.begin() + static_cast<std::ptrdiff_t>(start + length)});
      const std::size_t from = upTo(lists.length());
      const std::size_t many = upTo(lists.length() / 4);
      composition->removeTimeRange({at(from), at(many)});
      lists.remove(from, many);
    }
    const std::size_t slow = lists.length() / 2;
    composition->scaleTimeRange({at(0), at(slow)}, at(2 * slow));
    lists.scaleUp(0, slow, 2);
    ASSERT_EQ(composition->duration(), at(lists.length()));
    const auto generator = composition->makeImageGenerator();
    ASSERT_TRUE(generator || lists.length() == 0);
    for (int i = 0; i < 40 && lists.length() > 0; ++i) {
      const std::size_t asked = upTo(lists.length() - 1);
      ASSERT_EQ(shownNumber(*generator, at(asked)), lists.tracks[0][asked]) << "at " << asked << "/25";
    }
  }
}

}  // namespace
}  // namespace vistrelle::testing
