// Loading: the completion comes once, cancelling ends it quickly, dropping a movie is safe at any moment.

#include "tests/platform/media/movie_loading.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "tests/support/recording_log.h"
#include "vistrelle/platform/media/ffmpeg/asset.h"
#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::testing {
namespace {

using platform::Asset;
using platform::InputFile;
using platform::Signal;
using platform::UrlAsset;
using namespace std::chrono_literals;

TEST(MovieLoading, CompletionComesOnceOnAnotherThread) {
  const auto asset = platform::mediaLibrary().get()->openAsset(dataFile("prog_8s.mp4"), {});
  struct Seen {
    Signal ended;
    std::atomic<int> calls = 0;
    std::thread::id thread;
  };
  const auto seen = std::make_shared<Seen>();
  const std::string keys[] = {"playable", "hasProtectedContent", "tracks", "duration"};
  asset->loadValuesAsynchronously(keys, [seen] {
    ++seen->calls;
    seen->thread = std::this_thread::get_id();
    seen->ended.set();
  });
  ASSERT_TRUE(seen->ended.waitReal(kLong));
  EXPECT_NE(seen->thread, std::this_thread::get_id());
  EXPECT_EQ(asset->tracks().size(), 2U);
  // Cancelling afterwards changes nothing.
  asset->cancelLoading();
  EXPECT_EQ(seen->calls, 1);
  EXPECT_TRUE(asset->isPlayable());
  EXPECT_TRUE(asset->makeImageGenerator());
}

TEST(MovieLoading, EveryRequestIsCompleted) {
  const auto asset = platform::mediaLibrary().get()->openAsset(dataFile("v1.mp4"), {});
  std::vector<std::shared_ptr<Signal>> ended;
  for (int i = 0; i < 8; ++i) {
    ended.push_back(std::make_shared<Signal>());
    asset->loadValuesAsynchronously({}, [signal = ended.back()] { signal->set(); });
  }
  for (const auto& signal : ended) EXPECT_TRUE(signal->waitReal(kLong));
  EXPECT_TRUE(load(*asset));
  EXPECT_EQ(asset->tracks().size(), 2U);
}

TEST(MovieLoading, AStalledReadIsCancelledAtOnce) {
  const auto bytes = std::make_shared<StalledBytes>();
  const auto asset = std::make_shared<UrlAsset>(bytes, "stalled");
  const auto ended = std::make_shared<Signal>();
  const auto calls = std::make_shared<std::atomic<int>>(0);
  asset->loadValuesAsynchronously({}, [ended, calls] {
    ++*calls;
    ended->set();
  });
  ASSERT_TRUE(bytes->reached().waitReal(kLong));
  EXPECT_FALSE(ended->isSet());
  EXPECT_TRUE(asset->tracks().empty());
  const auto start = std::chrono::steady_clock::now();
  asset->cancelLoading();
  ASSERT_TRUE(ended->waitReal(kLong));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
  bytes->released().set();
  EXPECT_TRUE(load(*asset));  // ended: completed at once, nothing known
  EXPECT_TRUE(asset->tracks().empty());
  std::this_thread::sleep_for(20ms);
  EXPECT_EQ(*calls, 1);
}

TEST(MovieLoading, AMovieIsDroppedWhileItsReadIsStalled) {
  const auto bytes = std::make_shared<StalledBytes>();
  const auto ended = std::make_shared<Signal>();
  {
    const auto asset = std::make_shared<UrlAsset>(bytes, "stalled");
    asset->loadValuesAsynchronously({}, [ended] { ended->set(); });
    ASSERT_TRUE(bytes->reached().waitReal(kLong));
  }
  EXPECT_TRUE(ended->waitReal(kLong));
  bytes->released().set();
}

TEST(MovieLoading, AMovieMayBeDroppedFromItsOwnCompletion) {
  for (int round = 0; round < 20; ++round) {
    auto asset = platform::mediaLibrary().get()->openAsset(dataFile("v1.mp4"), {});
    const auto ended = std::make_shared<Signal>();
    platform::Asset& loading = *asset;
    auto holder = std::make_shared<std::shared_ptr<Asset>>(std::move(asset));
    loading.loadValuesAsynchronously({}, [holder, ended] {
      holder->reset();
      ended->set();
    });
    EXPECT_TRUE(ended->waitReal(kLong));
  }
}

TEST(MovieLoading, CancellingAtAnyMomentCompletesOnce) {
  for (int round = 0; round < 60; ++round) {
    const auto asset = platform::mediaLibrary().get()->openAsset(dataFile("sample_h264.ts"), {});
    const auto ended = std::make_shared<Signal>();
    const auto calls = std::make_shared<std::atomic<int>>(0);
    asset->loadValuesAsynchronously({}, [ended, calls] {
      ++*calls;
      ended->set();
    });
    std::this_thread::sleep_for(std::chrono::microseconds(round * 50));
    asset->cancelLoading();
    ASSERT_TRUE(ended->waitReal(kLong));
    EXPECT_EQ(*calls, 1);
    EXPECT_TRUE(asset->tracks().empty() || asset->isPlayable());
  }
}

TEST(MovieLoading, ManyMoviesLoadAtOnce) {
  std::vector<std::shared_ptr<Asset>> assets;
  std::vector<std::shared_ptr<Signal>> ended;
  for (const char* name : {"v1.mp4", "v2.mp4", "sample.avi", "sample_h264.ts", "sample.flv", "sample_with_av1c.mp4"}) {
    assets.push_back(platform::mediaLibrary().get()->openAsset(dataFile(name), {}));
    ended.push_back(std::make_shared<Signal>());
    assets.back()->loadValuesAsynchronously({}, [signal = ended.back()] { signal->set(); });
  }
  for (std::size_t i = 0; i < assets.size(); ++i) {
    ASSERT_TRUE(ended[i]->waitReal(kLong));
    EXPECT_TRUE(assets[i]->isPlayable()) << i;
  }
}

TEST(MovieLoading, ALoadedMovieStandsARequestThatNobodyWaitsFor) {
  const auto asset = platform::mediaLibrary().get()->openAsset(dataFile("v1.mp4"), {});
  for (int request = 0; request < 3; ++request) {
    asset->loadValuesAsynchronously({}, {});
    const auto ended = std::make_shared<Signal>();
    asset->loadValuesAsynchronously({}, [ended] { ended->set(); });
    ASSERT_TRUE(ended->waitReal(kLong));
  }
  EXPECT_TRUE(asset->isPlayable());
}

TEST(MovieLoading, ATrackOutlivesItsMovie) {
  std::shared_ptr<platform::Track> track;
  {
    const auto asset = loaded(dataFile("prog_8s.mp4"));
    track = asset->tracks()[1];
  }
  EXPECT_EQ(track->mediaType(), platform::MediaType::video);
  EXPECT_NEAR(track->timeRange().duration.seconds(), 8.0, 0.001);
  const auto generator = track->makeImageGenerator();
  ASSERT_TRUE(generator);
  EXPECT_TRUE(generator->copyFrame(platform::MediaTime::make(1, 1)).picture);
}

int openDescriptors() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

TEST(MovieLoading, NothingStaysOpen) {
  loaded(dataFile("v1.mp4"));
  const int before = openDescriptors();
  for (int i = 0; i < 10; ++i) {
    loaded(dataFile("v1.mp4"));
    loaded(dataFile("broken.mp4"));
    loaded(dataFile("sample_h264.ts"));
  }
  // A loading thread lets go of its movie shortly after its completion.
  for (int i = 0; i < 100 && openDescriptors() > before; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_LE(openDescriptors(), before);
}

/// Every read of an opened movie fails from one of them on, with an error or as if the file had been cut.
class FailingBytes : public platform::InputBytes {
 public:
  FailingBytes(std::shared_ptr<platform::InputBytes> inner, int failsAt, std::int64_t answer)
      : inner_(std::move(inner)), left_(failsAt), answer_(answer) {}
  std::int64_t size() const override { return inner_->size(); }
  std::int64_t readAt(std::int64_t offset, std::span<std::uint8_t> buffer) override {
    if (left_-- <= 0) return answer_;
    return inner_->readAt(offset, buffer.first(std::min<std::size_t>(buffer.size(), 1000)));
  }

 private:
  std::shared_ptr<platform::InputBytes> inner_;
  std::atomic<int> left_;
  std::int64_t answer_;
};

TEST(MovieLoading, FailingReadsAreEndedProperly) {
  const RecordingLog quiet;
  for (const char* name : {"v1.mp4", "sample_h264.ts", "sample_with_chapters.mkv"}) {
    for (const std::int64_t answer : {std::int64_t{-5}, std::int64_t{0}}) {
      for (int failsAt = 0; failsAt < 120; failsAt += 7) {
        const auto bytes = std::make_shared<FailingBytes>(InputFile::open(dataFile(name), nullptr), failsAt, answer);
        UrlAsset asset(bytes, name);
        ASSERT_TRUE(load(asset)) << name << " " << failsAt;
      }
    }
  }
}

}  // namespace
}  // namespace vistrelle::testing
