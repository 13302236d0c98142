// The facts of every sample movie: duration, what the tracks cover, frame rates, whether it can be played.
// The figures were compared with the packet lists of libavformat's own prober.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>

#include "tests/platform/media/movie_loading.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::testing {
namespace {

using platform::Asset;
using platform::MediaType;

struct ExpectedTrack {
  MediaType type;
  bool enabled;
  double start;
  double duration;
  float frameRate;
};

struct ExpectedMovie {
  const char* name;
  double duration;
  bool playable;
  bool isProtected;
  std::vector<ExpectedTrack> tracks;
};

constexpr MediaType kVideo = MediaType::video;
constexpr MediaType kAudio = MediaType::audio;
constexpr MediaType kSubtitle = MediaType::subtitle;
constexpr MediaType kText = MediaType::text;
constexpr MediaType kMetadata = MediaType::metadata;

const std::vector<ExpectedMovie>& expectedMovies() {
  static const std::vector<ExpectedMovie> movies = {
      {"animation.mov", 1.000, true, false, {{kVideo, true, 0.000, 1.000, 25.000F}}},
      {"apple-prores-422-proxy.mov", 1.000, true, false, {{kVideo, true, 0.000, 1.000, 25.000F}}},
      {"bbb_176x144_128kbps_15fps_h263.3gp", 1.000, true, false, {{kVideo, true, 0.000, 1.000, 15.000F}}},
      {"bbb_642x642_768kbps_30fps_vp9.webm", 3.000, true, false, {{kVideo, true, 0.000, 3.000, 30.000F}}},
      {"bbb_800x640_768kbps_30fps_avc_pyramid_3b.mp4", 4.000, true, false, {{kVideo, true, 0.000, 4.000, 30.000F}}},
      {"bear-vp9-odd-dimensions.webm", 1.001, true, false, {{kVideo, true, 0.000, 1.001, 29.970F}}},
      {"cursed-vfr.mp4", 8.726, true, false, {{kVideo, true, 0.000, 8.726, 7.220F}}},
      {"edit_list_positive_shift.mp4",
       10.005,
       true,
       false,
       {{kVideo, true, 1.000, 9.000, 30.000F}, {kAudio, true, 0.000, 10.005, 0.000F}}},
      {"fixture.mxf", 10.640, true, false, {{kVideo, true, 0.000, 10.640, 25.000F}}},
      {"h265_10bits.mp4", 1.000, true, false, {{kVideo, true, 0.000, 1.000, 30.000F}}},
      {"hlg10-color-test.mp4",
       0.300,
       true,
       false,
       {{kAudio, true, 0.000, 0.289, 0.000F}, {kVideo, true, 0.000, 0.300, 29.990F}}},
      {"iibbibb_editlist_videoonly.mp4", 12.500, true, false, {{kVideo, true, 0.000, 12.500, 1.000F}}},
      {"metadata.mp4",
       0.040,
       true,
       false,
       {{kVideo, true, 0.000, 0.040, 25.000F}, {kAudio, true, 0.000, 0.040, 0.000F}}},
      {"nasa_13013.mp4",
       16.570,
       true,
       false,
       {{kVideo, true, 0.000, 13.000, 25.000F},
        {kAudio, true, 0.000, 13.056, 0.000F},
        {kSubtitle, true, 0.000, 16.570, 0.000F},
        {kVideo, true, 0.000, 13.013, 29.970F},
        {kAudio, true, 0.000, 13.056, 0.000F},
        {kSubtitle, true, 0.000, 16.570, 0.000F}}},
      {"photo-jpeg.mov", 1.000, true, false, {{kVideo, true, 0.000, 1.000, 25.000F}}},
      {"png.mov", 1.000, true, false, {{kVideo, true, 0.000, 1.000, 25.000F}}},
      {"prog_8s.mp4",
       8.067,
       true,
       false,
       {{kAudio, true, 0.000, 8.000, 0.000F}, {kVideo, true, 0.067, 8.000, 30.000F}}},
      {"rotated_hdr_video.mov",
       1.667,
       true,
       false,
       {{kVideo, true, 0.000, 1.667, 24.000F},
        {kMetadata, true, 0.000, 1.667, 0.000F},
        {kMetadata, true, 0.000, 1.667, 0.000F}}},
      {"rotated_video.mp4",
       5.228,
       true,
       false,
       {{kVideo, true, 0.226, 5.002, 8.797F}, {kAudio, true, 0.000, 5.167, 0.000F}}},
      {"sample.avi", 4.087, true, false, {{kVideo, true, 0.000, 4.087, 23.976F}, {kAudio, true, 0.000, 4.080, 0.000F}}},
      {"sample.flv", 1.090, true, false, {{kVideo, true, 0.000, 1.001, 29.970F}, {kAudio, true, 0.045, 1.045, 0.000F}}},
      {"sample_fragmented.mp4",
       1.068,
       true,
       false,
       {{kVideo, true, 0.067, 1.001, 29.970F}, {kAudio, true, 0.000, 1.068, 0.000F}}},
      {"sample_fragmented_sgpd_v2.mp4", 34.560, false, true, {{kVideo, true, 0.000, 34.560, 25.000F}}},
      {"sample_h262_mpeg_audio.ts",
       0.111,
       true,
       false,
       {{kVideo, true, 0.011, 0.100, 29.970F}, {kAudio, true, 0.000, 0.104, 0.000F}}},
      {"sample_h264.ts", 1.000, true, false, {{kVideo, true, 0.000, 1.000, 30.000F}}},
      {"sample_mdat_too_long.mp4",
       1.067,
       true,
       false,
       {{kVideo, true, 0.000, 1.001, 29.970F}, {kAudio, true, 0.044, 1.023, 0.000F}}},
      {"sample_rotate_and_reflect.mp4",
       1.067,
       true,
       false,
       {{kVideo, true, 0.000, 1.001, 29.970F}, {kAudio, true, 0.044, 1.023, 0.000F}}},
      {"sample_with_av1c.mp4", 1.000, true, false, {{kVideo, true, 0.000, 1.000, 30.000F}}},
      {"sample_with_chapters.mkv",
       5.038,
       true,
       false,
       {{kVideo, true, 0.023, 5.000, 30.000F}, {kAudio, true, 0.000, 5.038, 0.000F}}},
      {"sample_with_chapters.mp4",
       1.089,
       true,
       false,
       {{kVideo, true, 0.000, 1.001, 29.970F},
        {kAudio, true, 0.000, 1.089, 0.000F},
        {kText, false, 0.000, 0.850, 0.000F}}},
      {"sample_with_colr_mdcv_and_clli.mp4",
       1.022,
       true,
       false,
       {{kVideo, true, 0.000, 1.001, 59.940F}, {kAudio, true, 0.000, 1.022, 0.000F}}},
      {"sample_with_increasing_timestamps_320w_240h_5s.mp4",
       5.019,
       true,
       false,
       {{kVideo, true, 0.000, 5.000, 60.000F}, {kAudio, true, 0.000, 5.019, 0.000F}}},
      {"sideways_movie.mov",
       1.017,
       true,
       false,
       {{kVideo, true, 0.000, 1.017, 24.038F}, {kAudio, true, 0.000, 1.017, 0.000F}}},
      {"testWMV.wmv", 5.000, true, false, {{kAudio, true, 0.000, 5.000, 0.000F}, {kVideo, true, 0.000, 5.000, 5.000F}}},
      {"v1.mp4", 2.040, true, false, {{kVideo, true, 0.000, 2.040, 25.000F}, {kAudio, true, 0.000, 2.020, 0.000F}}},
      {"v2.mp4", 7.430, true, false, {{kVideo, true, 0.000, 7.120, 25.000F}, {kAudio, true, 0.000, 7.430, 0.000F}}},
      {"v3.mp4", 3.040, true, false, {{kVideo, true, 0.000, 3.040, 25.000F}, {kAudio, true, 0.000, 2.995, 0.000F}}},
      {"video_with_rectangular_samples.mp4",
       5.229,
       true,
       false,
       {{kVideo, true, 0.000, 5.229, 8.797F}, {kAudio, true, 0.000, 5.178, 0.000F}}},
      {"video_without_video_stream.mp4", 1.000, true, false, {{kAudio, true, 0.000, 1.000, 0.000F}}},
      {"weird_aspect.small.mpg",
       1.480,
       true,
       false,
       {{kVideo, true, 0.000, 1.480, 25.000F}, {kAudio, true, 0.000, 1.254, 0.000F}}},
      {"xdcam-ex-720p24.mov", 1.000, true, false, {{kVideo, true, 0.000, 1.000, 25.000F}}},
      {"xdcam-hd-1080i60.mov", 1.000, true, false, {{kVideo, true, 0.000, 1.000, 25.000F}}},
  };
  return movies;
}

class SampleFacts : public ::testing::TestWithParam<ExpectedMovie> {};

TEST_P(SampleFacts, AreThoseOfTheSamples) {
  const ExpectedMovie& expected = GetParam();
  const std::shared_ptr<Asset> asset = loaded(dataFile(expected.name));
  ASSERT_TRUE(asset);
  EXPECT_NEAR(asset->duration().seconds(), expected.duration, 0.0006);
  EXPECT_EQ(asset->isPlayable(), expected.playable);
  EXPECT_EQ(asset->hasProtectedContent(), expected.isProtected);
  const auto tracks = asset->tracks();
  ASSERT_EQ(tracks.size(), expected.tracks.size());
  std::set<std::int32_t> numbers;
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(tracks[i]->mediaType(), expected.tracks[i].type);
    EXPECT_EQ(tracks[i]->isEnabled(), expected.tracks[i].enabled);
    EXPECT_NEAR(tracks[i]->timeRange().start.seconds(), expected.tracks[i].start, 0.0006);
    EXPECT_NEAR(tracks[i]->timeRange().duration.seconds(), expected.tracks[i].duration, 0.0006);
    EXPECT_NEAR(tracks[i]->nominalFrameRate(), expected.tracks[i].frameRate, 0.0006F);
    EXPECT_GT(tracks[i]->trackId(), 0);
    EXPECT_TRUE(numbers.insert(tracks[i]->trackId()).second);
  }
}

INSTANTIATE_TEST_SUITE_P(Movies, SampleFacts, ::testing::ValuesIn(expectedMovies()), [](const auto& each) {
  std::string name = each.param.name;
  for (char& letter : name) {
    if (std::isalnum(static_cast<unsigned char>(letter)) == 0) letter = '_';
  }
  return name;
});

TEST(MovieFactsTable, NamesEveryMovieOfTheData) {
  std::set<std::string> named = {"broken.mp4", "empty.flv", "README.md", "make_movies.sh", "make_numbered.sh"};
  for (const ExpectedMovie& movie : expectedMovies()) named.insert(movie.name);
  for (const auto& entry : std::filesystem::directory_iterator(VISTRELLE_TEST_DATA)) {
    EXPECT_TRUE(entry.is_directory() || named.contains(entry.path().filename())) << entry.path();
  }
}

TEST(MovieFacts, BrokenMoviesHaveNoTrackAndCannotBePlayed) {
  for (const char* name : {"broken.mp4", "empty.flv", "README.md"}) {
    const std::shared_ptr<Asset> asset = loaded(dataFile(name));
    ASSERT_TRUE(asset) << name;
    EXPECT_TRUE(asset->tracks().empty());
    EXPECT_EQ(asset->duration(), platform::MediaTime::zero());
    EXPECT_FALSE(asset->isPlayable());
    EXPECT_FALSE(asset->hasProtectedContent());
    EXPECT_FALSE(asset->makeImageGenerator());
  }
}

TEST(MovieFacts, BeforeLoadingNothingIsKnown) {
  const auto asset = platform::mediaLibrary().get()->openAsset(dataFile("prog_8s.mp4"), {});
  ASSERT_TRUE(asset);
  EXPECT_TRUE(asset->tracks().empty());
  EXPECT_EQ(asset->duration(), platform::MediaTime::zero());
  EXPECT_FALSE(asset->isPlayable());
  EXPECT_FALSE(asset->makeImageGenerator());
}

TEST(MovieFacts, EncryptedTrackHasNoDecoderAndEveryPictureFails) {
  const auto asset = loaded(dataFile("sample_fragmented_sgpd_v2.mp4"));
  ASSERT_TRUE(asset);
  ASSERT_EQ(asset->tracks().size(), 1U);
  EXPECT_TRUE(asset->tracks()[0]->isProtected());
  EXPECT_FALSE(asset->tracks()[0]->isDecodable());
  const auto generator = asset->makeImageGenerator();
  ASSERT_TRUE(generator);
  const platform::FrameResult result = generator->copyFrame(platform::MediaTime::zero());
  EXPECT_FALSE(result.picture);
  EXPECT_EQ(result.error, "the movie's pictures are encrypted");
}

std::shared_ptr<platform::MovieSource> openSource(const std::shared_ptr<platform::InputBytes>& bytes) {
  return platform::MovieSource::open(bytes, std::make_shared<platform::Interrupt>(), nullptr);
}

TEST(MovieFacts, PictureComesFromTheFirstEnabledVideoTrack) {
  // Two video tracks, the second larger; and a movie whose sound comes first.
  EXPECT_EQ(openSource(platform::InputFile::open(dataFile("nasa_13013.mp4"), nullptr))->pictureStream(), 0);
  EXPECT_EQ(openSource(platform::InputFile::open(dataFile("hlg10-color-test.mp4"), nullptr))->pictureStream(), 1);
  EXPECT_EQ(openSource(platform::InputFile::open(dataFile("video_without_video_stream.mp4"), nullptr))->pictureStream(),
            -1);
}

/// A copy of nasa_13013.mp4 in which the enabled flag of some tracks is cleared (tkhd flags, ISO/IEC 14496-12, 8.3.2).
std::string withDisabledTracks(const ScratchFolder& folder, const std::set<int>& disabled) {
  std::string movie = readFile(dataFile("nasa_13013.mp4"));
  std::size_t at = 0;
  for (int index = 0; (at = movie.find("tkhd", at)) != std::string::npos; ++index, ++at) {
    if (disabled.contains(index)) movie[at + 7] = static_cast<char>(movie[at + 7] & ~1);
  }
  return folder.write("disabled.mp4", movie);
}

TEST(MovieFacts, DisabledVideoTracksAreSkippedUnlessAllAre) {
  const ScratchFolder folder;
  EXPECT_EQ(openSource(platform::InputFile::open(withDisabledTracks(folder, {0}), nullptr))->pictureStream(), 3);
  EXPECT_EQ(openSource(platform::InputFile::open(withDisabledTracks(folder, {0, 3}), nullptr))->pictureStream(), 0);
}

TEST(MovieFacts, CleanApertureAndPixelAspectAreThoseStored) {
  const auto source = openSource(platform::InputFile::open(dataFile("xdcam-hd-1080i60.mov"), nullptr));
  const platform::StreamFacts& facts = source->streams()[0];
  ASSERT_TRUE(facts.cleanAperture && facts.pixelAspect);
  EXPECT_EQ(facts.cleanAperture->width.numerator / facts.cleanAperture->width.denominator, 1416);
  EXPECT_EQ(facts.cleanAperture->height.numerator / facts.cleanAperture->height.denominator, 1062);
  EXPECT_EQ(facts.pixelAspect->horizontal * 3, facts.pixelAspect->vertical * 4);
}

TEST(MovieFacts, ZeroIsTheContainersStartUnlessItIsMov) {
  const auto transport = openSource(platform::InputFile::open(dataFile("sample_h264.ts"), nullptr));
  EXPECT_EQ(transport->zero(), platform::MediaTime::make(132000, 90000));
  EXPECT_EQ(transport->timeOf(0, 132000), platform::MediaTime::zero());
  const auto movie = openSource(platform::InputFile::open(dataFile("edit_list_positive_shift.mp4"), nullptr));
  EXPECT_EQ(movie->zero(), platform::MediaTime::zero());
  EXPECT_TRUE(movie->isMovFamily());
}

/// Packs the header of a movie as old QuickTime files do, which our own header reader does not look into. The room
/// that becomes free is filled, so that the samples stay where they are.
constexpr const char* kPackHeader = R"(
import struct, sys, zlib
movie = open(sys.argv[1], 'rb').read()
at = movie.index(b'moov') - 4
size = struct.unpack('>I', movie[at:at + 4])[0]
def box(kind, content): return struct.pack('>I', 8 + len(content)) + kind + content
packed = struct.pack('>I', size) + zlib.compress(movie[at:at + size])
header = box(b'moov', box(b'cmov', box(b'dcom', b'zlib') + box(b'cmvd', packed)))
filler = box(b'free', bytes(size - len(header) - 8))
open(sys.argv[2], 'wb').write(movie[:at] + header + filler + movie[at + size:])
)";

TEST(MovieFacts, MovieWithAPackedHeaderIsMeasuredByItsPackets) {
  const ScratchFolder folder;
  const std::string script = folder.write("pack.py", kPackHeader);
  const std::string packed = folder.file("packed.mov");
  ASSERT_EQ(std::system(("python3 '" + script + "' '" + dataFile("v1.mp4") + "' '" + packed + "'").c_str()), 0);
  const auto asset = loaded(packed);
  ASSERT_TRUE(asset);
  ASSERT_EQ(asset->tracks().size(), 2U);
  EXPECT_TRUE(asset->isPlayable());
  EXPECT_NEAR(asset->duration().seconds(), 2.04, 0.001);
  EXPECT_NEAR(asset->tracks()[0]->timeRange().start.seconds(), 0, 0.001);
  EXPECT_NEAR(asset->tracks()[0]->nominalFrameRate(), 25.0F, 0.01F);
}

TEST(OpeningCost, AnIndexedMovieIsOpenedWithoutReadingItsMedia) {
  for (const char* name : {"bbb_800x640_768kbps_30fps_avc_pyramid_3b.mp4", "cursed-vfr.mp4", "nasa_13013.mp4",
                           "video_with_rectangular_samples.mp4", "xdcam-hd-1080i60.mov"}) {
    const auto bytes = std::make_shared<CountedBytes>(platform::InputFile::open(dataFile(name), nullptr));
    ASSERT_TRUE(openSource(bytes)) << name;
    // Probing, a header read twice, and read-ahead of one buffer at each place.
    EXPECT_LT(bytes->read(), 150000) << name;
  }
}

TEST(OpeningCost, ThePictureReaderGetsTheDemuxerThatIsOpenAlready) {
  const auto bytes = std::make_shared<CountedBytes>(platform::InputFile::open(dataFile("prog_8s.mp4"), nullptr));
  const auto source = openSource(bytes);
  const std::int64_t opened = bytes->read();
  ASSERT_TRUE(source->makeDemuxer(nullptr));
  EXPECT_EQ(bytes->read(), opened);
  ASSERT_TRUE(source->makeDemuxer(nullptr));
  EXPECT_GT(bytes->read(), opened);
}

/// A minute of pictures, large enough that its end is looked for at its end.
std::string makeLongMovie(const ScratchFolder& folder, const std::string& name, const std::string& options) {
  const std::string path = folder.file(name);
  const std::string command = "ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=176x144:rate=25:duration=60 " +
                              options + " '" + path + "'";
  return std::system(command.c_str()) == 0 ? path : std::string();
}

class LongMovie : public ::testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(LongMovie, IsMeasuredAtItsEndOnly) {
  const ScratchFolder folder;
  const std::string path = makeLongMovie(folder, GetParam().first, GetParam().second);
  ASSERT_FALSE(path.empty());
  const auto bytes = std::make_shared<CountedBytes>(platform::InputFile::open(path, nullptr));
  const auto source = openSource(bytes);
  ASSERT_TRUE(source);
  EXPECT_EQ(source->streams().size(), 1U);
  EXPECT_NEAR(source->duration().seconds(), 60.0, 0.003);
  EXPECT_NEAR(source->streams()[0].frameRate, 25.0F, 0.001F);
  ASSERT_GT(bytes->size(), 8 << 20);
  EXPECT_LT(bytes->read(), bytes->size() * 8 / 10);
  // Reading starts at the start again.
  const auto demuxer = source->makeDemuxer(nullptr);
  const platform::AvPtr<AVPacket> packet(av_packet_alloc());
  ASSERT_EQ(demuxer->read(*packet), 0);
  EXPECT_LT(source->timeOf(0, packet->pts).seconds(), 0.2);
}

// 2 Mbit/s and more of intra pictures: quick to make and some 15 MB.
INSTANTIATE_TEST_SUITE_P(Containers, LongMovie,
                         ::testing::Values(std::pair{"a.ts", "-c:v mpeg2video -g 12 -bf 2 -qscale 2"},
                                           std::pair{"a.vob", "-c:v mpeg2video -g 12 -bf 2 -qscale 2"},
                                           std::pair{"a.mkv", "-c:v mpeg2video -g 12 -bf 2 -qscale 2"}));

}  // namespace
}  // namespace vistrelle::testing
