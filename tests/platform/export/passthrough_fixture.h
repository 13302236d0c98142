#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/platform/export/numbered_movies.h"
#include "tests/platform/media/movie_loading.h"
#include "vistrelle/platform/media/composition.h"
#include "vistrelle/platform/media/export/passthrough.h"

namespace vistrelle::testing {

inline platform::MediaTime at(std::int64_t value, std::int32_t scale = 1) {
  return platform::MediaTime::make(value, scale);
}
inline platform::TimeRange range(std::int64_t start, std::int64_t duration, std::int32_t scale = 1) {
  return {at(start, scale), at(duration, scale)};
}

/// What an export to a file gave.
struct Written {
  bool succeeded = false;
  std::string error;
  std::string path;
  double progress = -1;
};

using MovieWriter = bool (*)(platform::Asset& asset, int fd, const platform::ExportControl& control,
                             std::string* error);

/// Writes to a file; what is reported of progress lies between 0 and 1 and never falls.
inline Written writeTo(
    platform::Asset& asset, const std::string& path, MovieWriter writer = &platform::writePassthrough,
    std::function<bool()> isCancelled = [] { return false; }) {
  Written written;
  written.path = path;
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  platform::ExportControl control;
  control.progress = [&written](double progress) {
    EXPECT_GE(progress, written.progress);
    EXPECT_LE(progress, 1.0);
    written.progress = progress;
  };
  control.isCancelled = std::move(isCancelled);
  written.succeeded = writer(asset, fd, control, &written.error);
  ::close(fd);
  return written;
}

/// A composition that holds the whole of a movie.
inline std::shared_ptr<platform::Composition> whole(const std::shared_ptr<platform::Asset>& movie) {
  auto composition = platform::Composition::make();
  std::string error;
  EXPECT_TRUE(composition->insertTimeRange({platform::MediaTime::zero(), movie->duration()}, movie,
                                           platform::MediaTime::zero(), &error))
      << error;
  return composition;
}

/// A frame of a numbered movie and when it comes.
using Shown = std::vector<std::pair<int, double>>;

/// What the timeline shows: frames of `rate` a second; every stretch takes the source's from `start` for `length`
/// seconds and plays them over `lasting` seconds. A negative first number is an empty stretch.
struct Stretch {
  double start = 0;
  double length = 0;
  double lasting = 0;
  int firstNumber = 0;
};
inline Shown shownBy(const std::vector<Stretch>& stretches, double rate) {
  Shown shown;
  double position = 0;
  for (const Stretch& stretch : stretches) {
    const double lasting = stretch.lasting > 0 ? stretch.lasting : stretch.length;
    if (stretch.firstNumber >= 0) {
      const auto first = static_cast<int>(std::floor(stretch.start * rate + 1e-6));
      for (int n = first; n < (stretch.start + stretch.length) * rate - 1e-6; ++n) {
        const double from = std::max(n / rate - stretch.start, 0.0);
        shown.push_back({stretch.firstNumber + n, position + from * lasting / stretch.length});
      }
    }
    position += lasting;
  }
  return shown;
}

/// libav's frames of a video track, the first unless another is asked for, are these, number for number and time for
/// time.
inline void expectDecodes(const std::string& path, const Shown& expected, int track = 0) {
  const DecodedMovie movie = decoded(path, track);
  EXPECT_EQ(movie.error, "");
  std::vector<int> wanted;
  for (const auto& [number, time] : expected) wanted.push_back(number);
  ASSERT_EQ(movie.numbers(), wanted);
  for (std::size_t i = 0; i < expected.size(); ++i) {
    ASSERT_NEAR(movie.frames[i].time.seconds(), expected[i].second, 0.0011) << "frame " << i;
  }
}

/// Our own generator shows them too, in the middle of each frame.
inline void expectGenerates(const std::string& path, const Shown& expected, double end) {
  const auto asset = loaded(path);
  ASSERT_TRUE(asset);
  const auto generator = asset->makeImageGenerator();
  ASSERT_TRUE(generator);
  generator->setApertureMode(platform::ApertureMode::encodedPixels);
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const double next = i + 1 < expected.size() ? expected[i + 1].second : end;
    const double middle = (expected[i].second + next) / 2;
    const platform::FrameResult result = generator->copyFrame(platform::MediaTime::makeWithSeconds(middle, 1000000));
    ASSERT_TRUE(result.picture) << "frame " << i << ": " << result.error;
    ASSERT_EQ(numberOf(*result.picture), expected[i].first) << "frame " << i << " at " << middle;
  }
}

inline void expectShows(const std::string& path, const Shown& expected, double end) {
  expectDecodes(path, expected);
  if (::testing::Test::HasFatalFailure()) return;
  expectGenerates(path, expected, end);
}

/// Programs of other makers open the movie and have nothing to say against it.
inline void expectReadable(const std::string& path) {
  const RunResult probe = runProgram({"ffprobe", "-v", "error", "-show_streams", "-show_format", path});
  EXPECT_EQ(probe.status, 0);
  EXPECT_EQ(probe.error, "");
  const RunResult info = runProgram({"mediainfo", path});
  EXPECT_EQ(info.status, 0);
  EXPECT_EQ(info.output.find("IsTruncated"), std::string::npos) << info.output;
  EXPECT_EQ(info.output.find("Conformance"), std::string::npos) << info.output;
  const RunResult discoverer = runProgram({"gst-discoverer-1.0", path});
  EXPECT_EQ(discoverer.status, 0) << discoverer.error;
  EXPECT_NE(discoverer.output.find("Done discovering"), std::string::npos);
  EXPECT_EQ(discoverer.output.find("rror"), std::string::npos) << discoverer.output;
  const RunResult played = runProgram(
      {"gst-launch-1.0", "-q", "playbin", "uri=file://" + path, "video-sink=fakesink", "audio-sink=fakesink"});
  EXPECT_EQ(played.status, 0) << played.error;
}

}  // namespace vistrelle::testing
