// The operations from end to end: real movies whose frames carry their number, the real writer, and the written file
// opened again.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/accuracy/numbered_frames.h"
#include "tests/movieedit/clean_slots.h"
#include "tests/support/recording_log.h"
#include "vistrelle/movieedit/cut.h"
#include "vistrelle/movieedit/export.h"
#include "vistrelle/movieedit/joining.h"
#include "vistrelle/movieedit/mux.h"
#include "vistrelle/platform/imaging/drawing.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::MediaTime;
using platform::MediaType;
using testing::ScratchFolder;
using Numbers = std::vector<int>;

constexpr int kRate = 25;

Numbers counted(int first, int count, int repeats = 1) {
  Numbers numbers;
  for (int i = 0; i < count * repeats; ++i) numbers.push_back(first + i / repeats);
  return numbers;
}
Numbers operator+(Numbers a, const Numbers& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

class WrittenMovies : public testing::CleanSlots {
 protected:
  /// A movie of 100 numbered frames, four seconds.
  static std::string numbered(const std::string& name) {
    const std::string made = (std::filesystem::current_path() / "numbered_movies").string();
    const std::string command = "exec '" VISTRELLE_TEST_DATA "/make_numbered.sh' '" + made + "' " + name;
    EXPECT_EQ(std::system(command.c_str()), 0);
    return made + "/" + name;
  }
  /// Two seconds of a tone that begins after half a second of silence, PCM.
  std::string tone() const {
    const std::string path = folder.file("tone.mov");
    const std::string command =
        "ffmpeg -nostdin -v error -y -f lavfi -i 'sine=frequency=440:sample_rate=48000:duration=1.5,adelay=500' -c:a "
        "pcm_s16le '" +
        path + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return path;
  }
  static Movie opened(const std::string& path) {
    clearSlots();
    EXPECT_TRUE(movieLoad(path));
    return MYMOVIEget();
  }
  /// The number of every frame, and one more that tells when the length is not a whole number of frames.
  static Numbers shown(const std::string& path) {
    Numbers numbers;
    const Movie movie = opened(path);
    if (!movie) return {};
    const auto generator = movie->makeImageGenerator();
    const MediaTime end = movieTracksTimeRange(movie, kVideoTracks).isValid()
                              ? movieTrackTypes(movie, kVideoTracks)->front()->timeRange().end()
                              : MediaTime::zero();
    for (int i = 0; MediaTime::make(i, kRate) < end; ++i) {
      const auto result = generator->copyFrame(MediaTime::make(i, kRate));
      const auto raster = platform::Bitmap::make(160, 96);
      if (result.picture) {
        platform::DrawingContext(*raster).draw(*result.picture, {0, 0, 160, 96}, {},
                                               platform::CompositeOperation::sourceOver, 1);
      }
      numbers.push_back(testing::numberIn(*raster).value_or(-1));
    }
    return numbers;
  }
  /// The second at which the tone begins, in whole milliseconds, by a decode of ffmpeg's; -1 for silence.
  int toneBegins(const std::string& path) const {
    const std::string raw = folder.file("sound.raw");
    const std::string command = "ffmpeg -nostdin -v error -y -i '" + path +
                                "' -vn -af aresample=async=1:first_pts=0 -f s16le -ac 1 -ar 48000 '" + raw + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    const std::string bytes = testing::readFile(raw);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
      const int sample = static_cast<std::int16_t>(static_cast<unsigned char>(bytes[i]) |
                                                   static_cast<unsigned char>(bytes[i + 1]) << 8);
      if (std::abs(sample) > 100) return static_cast<int>(i / 2 / 48);
    }
    return -1;
  }

  std::string output = folder.file("out.mov");
  testing::RecordingLog record;
};

TEST_F(WrittenMovies, AStretchIsCutToTheFrame) {
  for (const char* name : {"h264_open.mp4", "mpeg4.mp4"}) {
    ASSERT_TRUE(movieCutForceSize(numbered(name), output, 2, 1.2)) << name;
    EXPECT_EQ(shown(output), counted(30, 50)) << name;
  }
}

TEST_F(WrittenMovies, AHoleInTheMiddleClosesToTheFrame) {
  const Composition movie = mutableCompositionOf(opened(numbered("h264_pyramid.mp4")));
  ASSERT_TRUE(movie);
  movieCut(movie, 10, 20, kRate);
  ASSERT_TRUE(qtAvExport(movie, output, kExportPassthrough));
  EXPECT_EQ(shown(output), counted(0, 10) + counted(30, 70));
}

TEST_F(WrittenMovies, TheSourceItselfCanBeTheDestination) {
  const std::string path = folder.file("src.mov");
  std::filesystem::copy_file(numbered("h264_closed.mp4"), path);
  ASSERT_TRUE(movieCutForceSize(path, path, 1, 2));
  EXPECT_EQ(shown(path), counted(50, 25));
}

TEST_F(WrittenMovies, RepeatsAndJoinsFollowEachOtherToTheFrame) {
  const Movie first = opened(numbered("h264_open.mp4"));
  ASSERT_TRUE(moviesConcatenate(first, nullptr, 3, output));
  EXPECT_EQ(shown(output), counted(0, 100) + counted(0, 100) + counted(0, 100));
  ASSERT_TRUE(moviesConcatenate(first, nullptr, 1, output));
  EXPECT_EQ(shown(output), counted(0, 100));
  // Other codec parameters.
  const Movie second = opened(numbered("h264_pyramid.mp4"));
  ASSERT_TRUE(moviesConcatenate(first, second, 0, output));
  EXPECT_EQ(shown(output), counted(0, 100) + counted(0, 100));
}

TEST_F(WrittenMovies, AJoinOfCutPiecesShowsNothingBetweenThem) {
  const Composition first = mutableCompositionOf(opened(numbered("h264_open.mp4")));
  movieCut(first, 37, 100, kRate);
  const Composition second = mutableCompositionOf(opened(numbered("h264_open.mp4")));
  movieCut(second, 0, 61, kRate);
  ASSERT_TRUE(moviesConcatenate(first, second, 0, output));
  EXPECT_EQ(shown(output), counted(0, 37) + counted(61, 39));
}

TEST_F(WrittenMovies, AWholeFactorMakesEveryFrameLastLonger) {
  ASSERT_TRUE(movieToRescaleExport(opened(numbered("h264_closed.mp4")), 50, 24, output));
  EXPECT_EQ(shown(output), counted(0, 100, 2));
}

TEST_F(WrittenMovies, PicturesAndSoundOfTwoFilesAreOneMovie) {
  const std::vector<std::string> paths{numbered("h264_closed.mp4"), tone()};
  ASSERT_TRUE(muxAvQtExport(paths, output, std::nullopt));
  EXPECT_EQ(shown(output), counted(0, 100));
  EXPECT_EQ(toneBegins(output), 500);
  ASSERT_TRUE(muxAvQtExport(paths, output, Dictionary{{"a0_id", 1}, {"a1_offsetMs", 500}}));
  EXPECT_EQ(toneBegins(output), 1000);
  ASSERT_TRUE(muxAvQtExport(paths, output, Dictionary{{"a0_id", 1}, {"a1_offsetMs", -200}}));
  EXPECT_NEAR(toneBegins(output), 299, 1);
  EXPECT_EQ(shown(output), counted(0, 100));
}

TEST_F(WrittenMovies, CutSoundStaysWhatItWasWhenTheNextOneIsCut) {
  const std::vector<std::string> paths{numbered("h264_closed.mp4"), tone()};
  const Composition first = muxAvQt(paths, Dictionary{{"a0_id", 1}, {"a1_offsetMs", -100}});
  const Composition second = muxAvQt(paths, Dictionary{{"a0_id", 1}, {"a1_offsetMs", -400}});
  ASSERT_TRUE(qtAvExport(second, output, kExportPassthrough));
  EXPECT_NEAR(toneBegins(output), 99, 1);
  ASSERT_TRUE(qtAvExport(first, output, kExportPassthrough));
  EXPECT_NEAR(toneBegins(output), 399, 1);
}

TEST_F(WrittenMovies, SoundUnderTheNameOfWavIsM4a) {
  const std::string wav = folder.file("out.wav");
  ASSERT_TRUE(moviesConcatenate(opened(tone()), nullptr, 2, wav));
  const Movie movie = opened(wav);
  ASSERT_TRUE(movie);
  EXPECT_NEAR(movie->duration().seconds(), 4, 0.05);
  EXPECT_EQ(testing::readFile(wav).substr(4, 7), "ftypM4A");
}

}  // namespace
}  // namespace vistrelle
