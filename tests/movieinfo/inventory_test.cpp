#include "vistrelle/movieinfo/inventory.h"

#include <cstdlib>

#include "tests/movieinfo/fake_movies.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::MediaTime;
using platform::MediaType;
using platform::Value;
using testing::codedTrack;
using testing::FakeAsset;
using testing::noisyPicture;
using Texts = std::vector<std::string>;
using Tracks = std::vector<std::shared_ptr<platform::Track>>;

const std::string kEnd = "qt > infosQtMovieTr - end\n----------";
const std::string kFailedEnd = "qt infosQtMovieTrack- end \n----------";

class Inventory : public testing::FakeMovies {
 protected:
  /// The value of a key of the inventory of a movie with these tracks; "-" without it.
  std::string entry(const Tracks& tracks, const std::string& key) {
    MYMOVIEset(nullptr);
    const Dictionary infos = infosQtMovieTrack(add(tracks));
    const auto found = infos.find(key);
    return found == infos.end() ? "-" : platform::description(found->second);
  }
  std::string audioName(const std::string& code) { return entry({codedTrack(MediaType::audio, {code})}, "a0_codec"); }
  std::string videoName(const std::string& code) { return entry({codedTrack(MediaType::video, {code})}, "v0_codec"); }
};

/// A movie of one H.264 track of 640 x 480 whose generator answers with a picture of that size.
std::shared_ptr<FakeAsset> plainMovie() {
  auto movie = std::make_shared<FakeAsset>();
  const auto track = codedTrack(MediaType::video, {"avc1"});
  track->range = testing::rangeOf(0, 10);
  track->size = {640, 480};
  movie->trackList = {track};
  movie->answer = [](int, const MediaTime& time) { return platform::FrameResult{noisyPicture(640, 480), time, ""}; };
  return movie;
}

TEST_F(Inventory, TheLastVideoTrackNamesTheCodec) {
  const Tracks tracks{codedTrack(MediaType::video, {"avc1"}), codedTrack(MediaType::video, {"mp4v"})};
  EXPECT_EQ(entry(tracks, "v0_codec"), "mpeg4");
  EXPECT_EQ(entry(tracks, "v1_codec"), "-");
}

TEST_F(Inventory, TheLastAudioTrackNamesTheCodec) {
  EXPECT_EQ(entry({codedTrack(MediaType::audio, {"twos"}), codedTrack(MediaType::audio, {"mp4a"})}, "a0_codec"), "aac");
}

TEST_F(Inventory, AudioCodes) {
  EXPECT_EQ(audioName("sowt"), "pcm_s16le");
  EXPECT_EQ(audioName("lpcm"), "lpcm");
  EXPECT_EQ(audioName("ac-3"), "ac3");
  EXPECT_EQ(audioName("ima4"), "adpcm_ima_qt");
}

TEST_F(Inventory, VideoCodes) {
  EXPECT_EQ(videoName("rle "), "rle ");
  EXPECT_EQ(videoName("DX50"), "divx");
}

TEST_F(Inventory, TheLastFormatDescriptionCounts) {
  EXPECT_EQ(entry({codedTrack(MediaType::video, {"avc1", "mp4v"})}, "v0_codec"), "mpeg4");
}

TEST_F(Inventory, QuotesInACodeAreDropped) {
  EXPECT_EQ(videoName("'a'b"), "ab");
  EXPECT_TRUE(record().has("fourCc              : ab"));
}

TEST_F(Inventory, TracksOfOtherTypesAreKeptUnderTheirIndex) {
  const auto text = std::make_shared<testing::FakeTrack>(MediaType::text);
  const auto timecode = std::make_shared<testing::FakeTrack>(MediaType::timecode);
  const auto video = codedTrack(MediaType::video, {"avc1"});
  const auto audio = codedTrack(MediaType::audio, {"mp4a"});
  EXPECT_EQ(entry({video, audio, text}, "toto2_mediaAttributes"), "text");
  EXPECT_TRUE(record().has("QTTrackMediaTypeAttr- 2 : text"));
  EXPECT_TRUE(record().has("track 2 format      : text"));
  EXPECT_EQ(entry({video, audio, timecode}, "toto2_mediaAttributes"), "tmcd");
  EXPECT_EQ(entry({timecode, video}, "toto0_mediaAttributes"), "tmcd");
}

TEST_F(Inventory, EveryVideoTypeIsVideo) {
  for (const char* type : {"vide", "MPEG", "flsh", "movi"}) {
    const auto track = codedTrack(MediaType::other, {"mp4v"});
    track->typeCode = type;
    EXPECT_EQ(entry({track}, "v0_codec"), "mpeg4") << type;
    EXPECT_EQ(entry({track}, "toto0_mediaAttributes"), "-") << type;
  }
  const auto lower = codedTrack(MediaType::other, {"mp4v"});
  lower->typeCode = "mpeg";
  EXPECT_EQ(entry({lower}, "toto0_mediaAttributes"), "mpeg");
}

TEST_F(Inventory, TweensAreOnlyLogged) {
  const auto track = codedTrack(MediaType::other, {"abcd"});
  track->typeCode = "twen";
  EXPECT_EQ(infosQtMovieTrack(add(Tracks{track})).size(), 2U);
  EXPECT_TRUE(record().has("track 0 format      : twen"));
}

TEST_F(Inventory, ATrackWithoutTypeIsPassedOver) {
  const auto track = codedTrack(MediaType::other, {"avc1"});
  track->typeCode = platform::OptionalText();
  EXPECT_EQ(infosQtMovieTrack(add(Tracks{track, codedTrack(MediaType::audio, {"mp4a"})})).size(), 3U);
  EXPECT_TRUE(record().has("currTrackTypeStr    : (null)"));
  EXPECT_FALSE(record().has("video track…"));
}

TEST_F(Inventory, ATrackWithoutFormatDescriptionHasNoCodec) {
  const auto video = codedTrack(MediaType::video, {});
  video->size = {1.9, 2.9};
  const auto audio = codedTrack(MediaType::audio, {});
  beVerbose();
  EXPECT_EQ(infosQtMovieTrack(add(Tracks{video, audio})).size(), 2U);
  EXPECT_TRUE(record().has("video track…"));
  EXPECT_TRUE(record().has("QTTrackMediaTypeAttr- 0 :-) vide"));
  EXPECT_TRUE(record().has("size WrapperCompute : (1,2) :-/"));
  EXPECT_TRUE(record().has("audio track…"));
  EXPECT_FALSE(record().hasContaining("c:v"));
  EXPECT_FALSE(record().hasContaining("c:a"));
}

TEST_F(Inventory, DurationIsTruncated) {
  auto movie = plainMovie();
  movie->length = MediaTime::make(599, 10);
  const Dictionary infos = infosQtMovieTrack(add(movie));
  EXPECT_EQ(infos.at("w_duration"), Value(std::int64_t{59}));
  EXPECT_EQ(infos.at("v0_fps"), Value(25.0F));
  EXPECT_TRUE(record().has("Duree en secondes   : 59"));
}

TEST_F(Inventory, ARefusedFrameRateIsZero) {
  auto movie = plainMovie();
  static_cast<testing::FakeTrack&>(*movie->trackList[0]).frameRate = 0.05F;
  EXPECT_EQ(infosQtMovieTrack(add(movie)).at("v0_fps"), Value(0.0F));
  EXPECT_TRUE(record().has("movieFps >fpsWrapper= 0.000"));
}

TEST_F(Inventory, UnreadableMovieIsEmpty) {
  EXPECT_TRUE(infosQtMovieTrack(addUnreadable()).empty());
  const Texts lines = record().lines();
  EXPECT_EQ(lines.front(), "qt infosQtMovieTrack- begin");
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(Texts(lines.end() - 2, lines.end()), (Texts{"Error               : non-readable movie", kFailedEnd}));
  EXPECT_TRUE(infosQtMovieTrack(std::nullopt).empty());
}

TEST_F(Inventory, AMovieWithoutTracksKeepsDurationAndRate) {
  // The loader refuses such a file, so the movie loses its track after it was loaded.
  auto movie = plainMovie();
  const std::string path = add(movie);
  ASSERT_TRUE(MYMOVIEinstantiateCurrent(path));
  movie->trackList.clear();
  const Dictionary infos = infosQtMovieTrack(path);
  EXPECT_EQ(infos.size(), 2U);
  EXPECT_EQ(infos.at("w_duration"), Value(std::int64_t{10}));
  EXPECT_EQ(linesFrom("echec                :-( code pas bon ou source non compatible QT (= pas trouve de track!!!)"),
            (Texts{"echec                :-( code pas bon ou source non compatible QT (= pas trouve de track!!!)",
                   "qt infosQtMovieTrack- end\n----------"}));
}

TEST_F(Inventory, AProtectedVideoTrackEndsTheWalk) {
  const auto never = codedTrack(MediaType::audio, {"mp4a"});
  EXPECT_TRUE(infosQtMovieTrack(add(Tracks{codedTrack(MediaType::video, {"drmi"}), never})).empty());
  EXPECT_EQ(linesFrom("movie protected     : DRM (drmi)"), (Texts{"movie protected     : DRM (drmi)", kFailedEnd}));
  EXPECT_FALSE(record().has("audio track…"));
}

TEST_F(Inventory, AProtectedAudioTrackEmptiesTheDictionary) {
  const Tracks tracks{codedTrack(MediaType::video, {"avc1"}), codedTrack(MediaType::audio, {"drms"})};
  EXPECT_TRUE(infosQtMovieTrack(add(tracks)).empty());
  EXPECT_TRUE(record().has("movie protected     : DRM (drms)"));
}

TEST_F(Inventory, ProtectedCodesAreComparedAsTheyStand) {
  EXPECT_EQ(videoName("DRMI"), "drmi");
  EXPECT_EQ(videoName("encv"), "encv");
  const auto text = codedTrack(MediaType::text, {"drmi"});
  EXPECT_EQ(entry({text}, "toto0_mediaAttributes"), "text");
}

TEST_F(Inventory, QuietLines) {
  auto movie = plainMovie();
  auto& track = static_cast<testing::FakeTrack&>(*movie->trackList[0]);
  track.formats = {{.code = "avc1", .width = 720, .height = 576, .cleanAperture = {9, 0, 702, 576}}};
  movie->trackList.push_back(codedTrack(MediaType::audio, {"aac "}));
  const Dictionary infos = infosQtMovieTrack(add(movie));
  EXPECT_EQ(platform::description(Value(infos)),
            "{\n    \"a0_codec\" = aac;\n    \"v0_codec\" = h264;\n    \"v0_fps\" = 25;\n    \"w_duration\" = 10;\n}");
  EXPECT_EQ(linesFrom("Duree en secondes   : 10"),
            (Texts{"Duree en secondes   : 10",
                   "#0 framerateFloat   = 25.000",
                   "tracksDurationSecFl…= 10.000",
                   "Framerate           : 25.000000",
                   "movieFps >fpsWrapper= 25.000",
                   "movieFps > infosDico: {\n    \"v0_fps\" = 25;\n    \"w_duration\" = 10;\n}",
                   "pass 0#0",
                   "fourCc              : avc1",
                   "CGRect x=9.000000 y=0.000000 w=702.000000 h=576.000000",
                   "trackDim            : w=720 h=576",
                   "currTrackTypeStr    : vide",
                   "video track…",
                   "pass 1#0",
                   "fourCc              : aac ",
                   "CGRect x=0.000000 y=0.000000 w=0.000000 h=0.000000",
                   "trackDim            : w=0 h=0",
                   "currTrackTypeStr    : soun",
                   "audio track…",
                   "c:a                 : aac ",
                   kEnd}));
}

TEST_F(Inventory, VerboseLines) {
  auto movie = plainMovie();
  movie->trackList.push_back(codedTrack(MediaType::audio, {"sowt"}));
  const std::string path = add(movie);
  beVerbose();
  const Dictionary infos = infosQtMovieTrack(path);
  EXPECT_EQ(record().lines()[1], "srcPathStr          : " + path);
  EXPECT_TRUE(record().has("tracksMArray 2tracks: (\n    \"<track>\",\n    \"<track>\"\n)"));
  EXPECT_EQ(linesFrom("currTrack #0        : <track>"),
            (Texts{"currTrack #0        : <track>",
                   "pass 0#0",
                   "fourCc              : avc1",
                   "CGRect x=0.000000 y=0.000000 w=0.000000 h=0.000000",
                   "trackDim            : w=0 h=0",
                   "currTrackTypeStr    : vide",
                   "video track…",
                   "c:v                 : avc1",
                   "c:v                 : 'h264'",
                   "QTTrackMediaTypeAttr- 0 :-) vide",
                   "size WrapperCompute : (640,480) :-/",
                   "currTrack #1        : <track>",
                   "pass 1#0",
                   "fourCc              : sowt",
                   "CGRect x=0.000000 y=0.000000 w=0.000000 h=0.000000",
                   "trackDim            : w=0 h=0",
                   "currTrackTypeStr    : soun",
                   "audio track…",
                   "c:a                 : sowt",
                   "c:a                 : pcm_s16le",
                   "infosQtMovieTrack   : " + platform::description(Value(infos)),
                   kEnd}));
}

TEST_F(Inventory, LeavesTheMovieInItsSlot) {
  const auto movie = plainMovie();
  infosQtMovieTrack(add(movie));
  EXPECT_EQ(MYMOVIEget(), movie);
}

TEST_F(Inventory, QtInfosOfAnUnreadableFileAsksNoFurther) {
  EXPECT_TRUE(qtInfos(addUnreadable()).empty());
  EXPECT_FALSE(record().has("qt qtOffsetMs       - begin"));
  EXPECT_FALSE(record().has("movieSize           - begin"));
  EXPECT_FALSE(record().hasContaining("qtDico"));
}

TEST_F(Inventory, QtInfosAddsTheSizes) {
  const Dictionary infos = qtInfos(add(plainMovie()));
  EXPECT_EQ(infos, (Dictionary{{"w_duration", 10},
                               {"v0_fps", 25.0F},
                               {"v0_codec", "h264"},
                               {"w_width", 640},
                               {"w_height", 480},
                               {"v0_width", 640},
                               {"v0_height", 480},
                               {"v0_dar", "4:3"},
                               {"v0_par", "1:1"}}));
  EXPECT_TRUE(
      record().has("qtDico 1            : {\n    \"v0_codec\" = h264;\n    \"v0_fps\" = 25;\n"
                   "    \"w_duration\" = 10;\n}"));
  EXPECT_TRUE(record().has("qtDico 2            : " + platform::description(Value(infos))));
  EXPECT_TRUE(record().hasContaining("videoSizesDico : {\n"));
  EXPECT_FALSE(record().hasContaining("qtDico              : "));
  EXPECT_FALSE(record().hasContaining("qt infos            : "));
  EXPECT_FALSE(record().hasContaining("qtAudioOffsetMsDico"));
  EXPECT_TRUE(record().has("qt qtOffsetMs       - begin"));
}

TEST_F(Inventory, QtInfosVerboseLines) {
  const std::string path = add(plainMovie());
  beVerbose();
  const Dictionary infos = qtInfos(path);
  EXPECT_TRUE(record().has("qtDico              : " + platform::description(Value(infos))));
  EXPECT_TRUE(record().hasContaining("qt infos            : {\n"));
}

TEST_F(Inventory, QtInfosWithoutSizesKeepsTheRest) {
  const Dictionary infos = qtInfos(add(Tracks{codedTrack(MediaType::audio, {"mp4a"})}));
  EXPECT_EQ(infos.size(), 3U);
  EXPECT_TRUE(record().has("movieSize           - begin"));
  EXPECT_FALSE(record().hasContaining("videoSizesDico"));
}

TEST_F(Inventory, ATildeIsExpanded) {
  const char* home = ::getenv("HOME");
  const std::string former = home == nullptr ? "" : home;
  const std::string path = add(plainMovie());
  ::setenv("HOME", folder.path().c_str(), 1);
  beVerbose();
  const std::size_t count = qtInfos("~/a.mov").size();
  home == nullptr ? ::unsetenv("HOME") : ::setenv("HOME", former.c_str(), 1);
  EXPECT_EQ(count, 9U);
  EXPECT_TRUE(record().has("srcPathStr          : " + path));
}

}  // namespace
}  // namespace vistrelle
