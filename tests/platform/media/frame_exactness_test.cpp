// Every picture of every movie against a linear decode: by the hash of its planes and by its presentation time.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>

#include "frame_movies.h"
#include "frame_reference.h"

namespace vistrelle::testing {
namespace {

using platform::FrameGenerator;
using platform::FrameOptions;
using platform::FrameResult;
using platform::MediaTime;

// How many single requests a movie gets where every one of them may cost a decode from a far key.
constexpr std::size_t kCostlyRequests = 12;
// Movies with more pixels than this in all get fewer requests, so that the test stays quick.
constexpr std::int64_t kManyPixels = 20'000'000;
constexpr std::size_t kRequestsOfLargeMovies = 40;

struct Tally {
  std::size_t checked = 0;
  std::size_t exact = 0;
  std::string firstMiss;

  void note(const Reference& reference, const MediaTime& time, const FrameResult& result, const std::string& how) {
    ++checked;
    const ReferenceFrame& wanted = reference.frames[reference.indexAt(time)];
    const platform::PlanarImage* image = result.picture ? result.picture->planar() : nullptr;
    if (image != nullptr && hashOf(*image) == wanted.hash && reference.isTimeOf(wanted, result.actualTime)) {
      ++exact;
    } else if (firstMiss.empty()) {
      firstMiss = how + " at " + time.description() + ": wanted " + wanted.time.description() + ", got " +
                  result.actualTime.description() + (image == nullptr ? " " + result.error : " (picture)");
    }
  }
};

std::vector<MediaTime> timesToAsk(const Reference& reference) {
  std::vector<MediaTime> times = {MediaTime::make(-10, 1), MediaTime::zero(), MediaTime::make(1000, 1),
                                  MediaTime::positiveInfinity()};
  const std::vector<ReferenceFrame>& frames = reference.frames;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    times.push_back(frames[i].time);
    if (i + 1 == frames.size() || !(frames[i].time < frames[i + 1].time)) continue;
    const MediaTime next = frames[i + 1].time;
    const MediaTime sum = frames[i].time + next;
    times.push_back(MediaTime::make(sum.value, sum.scale * 2));
    if (next.value > 0) times.push_back(MediaTime::make(next.value - 1, next.scale));
  }
  for (MediaTime time = MediaTime::zero(); time <= frames.back().time; time = time + MediaTime::make(1, 2)) {
    times.push_back(time);
  }
  return times;
}

std::vector<MediaTime> some(std::vector<MediaTime> times, std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::shuffle(times.begin(), times.end(), random);
  if (times.size() > count) times.resize(count);
  return times;
}

class Comparison {
 public:
  explicit Comparison(const std::string& path) : movie_(path) {
    if (movie_.hasPictures()) reference_ = referenceOf(path);
  }

  bool isPossible() const { return movie_.hasPictures() && reference_.error.empty(); }
  const OpenedMovie& movie() const { return movie_; }
  const Reference& reference() const { return reference_; }
  const Tally& tally() const { return tally_; }

  void ask(const std::vector<MediaTime>& times, bool announced, const FrameOptions& options, const std::string& how) {
    const auto generator = movie_.generator(options);
    if (announced) generator->announce(times);
    for (const MediaTime& time : times) tally_.note(reference_, time, generator->copyFrame(time), how);
  }

  void askEverything() {
    const bool isLarge = reference_.pixels > kManyPixels;
    const std::size_t costly = isLarge ? kCostlyRequests / 3 : kCostlyRequests;
    std::vector<MediaTime> all = timesToAsk(reference_);
    if (isLarge) all = some(std::move(all), kRequestsOfLargeMovies, 5);
    std::vector<MediaTime> forwards = all;
    std::sort(forwards.begin(), forwards.end(), [](const auto& a, const auto& b) { return a < b; });
    std::vector<MediaTime> backwards(forwards.rbegin(), forwards.rend());
    FrameOptions one;
    one.threads = 1;
    FrameOptions many;
    many.threads = 4;
    FrameOptions tight;
    tight.keptBytes = 0;
    tight.threads = 1;
    // Each of these decodes the whole movie once; of a large one two must do, with many threads and with one.
    ask(forwards, true, many, "forwards, announced");
    ask(backwards, true, tight, "backwards, announced, one thread, nothing kept in memory");
    if (!isLarge) {
      ask(forwards, false, one, "forwards, one thread");
      ask(some(all, all.size(), 1), true, {}, "shuffled, announced");
    }
    ask(some(all, costly, 2), false, {}, "shuffled");
    std::vector<MediaTime> fewBackwards = some(all, costly, 3);
    std::sort(fewBackwards.begin(), fewBackwards.end(), [](const auto& a, const auto& b) { return a > b; });
    ask(fewBackwards, false, many, "backwards");
    for (const MediaTime& time : some(all, costly, 4)) ask({time}, false, {}, "alone");
  }

 private:
  OpenedMovie movie_;
  Reference reference_;
  Tally tally_;
};

// Movies of which no picture may come, and why.
const std::map<std::string, std::string>& moviesWithoutPictures() {
  static const std::map<std::string, std::string> movies = {
      {"broken.mp4", "cut off before its header"},
      {"empty.flv", "holds nothing"},
      {"video_without_video_stream.mp4", "has sound only"},
      {"sample_fragmented_sgpd_v2.mp4", "is encrypted"},
  };
  return movies;
}

bool isMovie(const std::string& name) {
  return !name.ends_with(".md") && !name.ends_with(".sh") && !name.ends_with(".txt") && !name.starts_with("making.");
}

std::vector<std::string> moviesIn(const std::string& folder) {
  std::vector<std::string> paths;
  for (const std::string& name : filesIn(folder)) {
    if (isMovie(name)) paths.push_back(folder + "/" + name);
  }
  return paths;
}

// One line of the table: movie | status | frames checked | exact.
void printRow(const std::string& name, const std::string& status, const Tally& tally) {
  std::printf("| %s | %s | %zu | %zu |\n", name.c_str(), status.c_str(), tally.checked, tally.exact);
}

void expectExact(const std::string& path) {
  const std::string name = std::filesystem::path(path).filename().string();
  Comparison comparison(path);
  if (moviesWithoutPictures().contains(name)) {
    if (comparison.movie().hasPictures()) {
      const FrameResult result = comparison.movie().generator()->copyFrame(MediaTime::zero());
      EXPECT_FALSE(result.picture) << name << ": a picture of a movie that " << moviesWithoutPictures().at(name);
      EXPECT_FALSE(result.error.empty());
      EXPECT_FALSE(result.actualTime.isValid());
    }
    printRow(name, "refused (" + moviesWithoutPictures().at(name) + ")", {});
    return;
  }
  ASSERT_TRUE(comparison.isPossible()) << name << ": " << comparison.movie().error << comparison.reference().error;
  comparison.askEverything();
  const Tally& tally = comparison.tally();
  printRow(name, std::to_string(comparison.reference().frames.size()) + " frames", tally);
  EXPECT_EQ(tally.exact, tally.checked) << name << ": " << tally.firstMiss;
}

TEST(FrameExactness, EverySampleMovie) {
  const std::vector<std::string> paths = moviesIn(VISTRELLE_TEST_DATA);
  ASSERT_GE(paths.size(), 40U);
  for (const std::string& path : paths) expectExact(path);
}

TEST(FrameExactness, EveryMadeMovie) {
  ASSERT_FALSE(madeMovies().empty()) << "the movies could not be made";
  const std::vector<std::string> paths = moviesIn(madeMovies());
  ASSERT_GE(paths.size(), 40U);
  for (const std::string& path : paths) {
    if (!path.ends_with("/damaged.mp4")) expectExact(path);
  }
}

// Prints the table of any movies: VISTRELLE_MOVIES=folder-or-file platform_media_tests --gtest_filter='*AnyMovie*'.
TEST(FrameExactness, AnyMovieGiven) {
  const char* given = std::getenv("VISTRELLE_MOVIES");
  if (given == nullptr) GTEST_SKIP() << "VISTRELLE_MOVIES names no movies";
  const bool isFolder = std::filesystem::is_directory(given);
  for (const std::string& path : isFolder ? moviesIn(given) : std::vector<std::string>{given}) expectExact(path);
}

}  // namespace
}  // namespace vistrelle::testing
