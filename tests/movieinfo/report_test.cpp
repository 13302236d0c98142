#include "vistrelle/movieinfo/report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "tests/support/clips.h"
#include "tests/support/recording_log.h"
#include "tests/support/tool_run.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movieinfo/inventory.h"

namespace vistrelle::testing {
namespace {

using Json = nlohmann::json;

class Report : public ::testing::Test {
 protected:
  ~Report() override { MYMOVIErelease(); }

  static Json of(const std::string& path) { return Json::parse(movieInfosJson(path)); }
  static std::set<std::string> keysOf(const Json& object) {
    std::set<std::string> keys;
    for (const auto& [key, value] : object.items()) keys.insert(key);
    return keys;
  }

  RecordingLog log_;
};

TEST_F(Report, HoldsTheInformationDictionary) {
  const std::string path = sampleMovie("xdcam-hd-1080i60.mov");
  const Json report = of(path);
  EXPECT_EQ(report["information"], Json::parse(R"({"w_duration": 1, "v0_fps": 25.0, "v0_codec": "xdv2", "w_width": 1888,
    "w_height": 1062, "v0_width": 1440, "v0_height": 1080, "v0_dar": "16:9", "v0_par": "4:3"})"));
  EXPECT_EQ(report["movie"]["naturalSize"], Json::parse(R"({"width": 1888.0, "height": 1062.0})"));
  const Json& format = report["tracks"][0]["formats"][0];
  EXPECT_EQ(format["code"], "xdv2");
  EXPECT_EQ(format["cleanAperture"], Json::parse(R"({"x": 12.0, "y": 9.0, "width": 1416.0, "height": 1062.0})"));
  EXPECT_EQ(report["tracks"][0]["frameRate"], Json::parse(R"({"numerator": 25, "denominator": 1, "varies": false})"));
}

TEST_F(Report, KeysAreStable) {
  const Json report = of(sampleMovie("metadata.mp4"));
  EXPECT_EQ(keysOf(report), (std::set<std::string>{"information", "movie", "tracks"}));
  EXPECT_EQ(keysOf(report["movie"]),
            (std::set<std::string>{"durations", "isPlayable", "isProtected", "metadata", "naturalSize"}));
  EXPECT_EQ(keysOf(report["movie"]["metadata"]),
            (std::set<std::string>{"chapterLocales", "common", "formats", "lyrics"}));
  const std::set<std::string> common{"bitDepth",    "codec",     "durations",    "formats",  "id",
                                     "isDecodable", "isEnabled", "isProtected",  "language", "mediaType",
                                     "profile",     "start",     "startTimecode"};
  std::set<std::string> picture = common;
  picture.insert({"colour", "frameRate", "hdrClass", "isMirrored", "naturalSize", "pixelFormat", "rotation"});
  std::set<std::string> sound = common;
  sound.insert({"channels", "sampleRate"});
  ASSERT_EQ(report["tracks"].size(), 2U);
  EXPECT_EQ(keysOf(report["tracks"][0]), picture);
  EXPECT_EQ(keysOf(report["tracks"][1]), sound);
  EXPECT_EQ(keysOf(report["tracks"][0]["durations"]), (std::set<std::string>{"decoded", "header", "track"}));
  EXPECT_EQ(keysOf(report["tracks"][0]["colour"]), (std::set<std::string>{"matrix", "primaries", "range", "transfer"}));
}

TEST_F(Report, FactsThatAMovieDoesNotStateAreNull) {
  const Json track = of(sampleMovie("metadata.mp4"))["tracks"][0];
  EXPECT_TRUE(track["startTimecode"].is_null());
  EXPECT_TRUE(track["durations"]["decoded"].is_null());
  EXPECT_TRUE(track["colour"]["primaries"].is_null());
  EXPECT_EQ(track["durations"]["header"], Json::parse(R"({"value": 512, "scale": 12800, "seconds": 0.04})"));
}

TEST_F(Report, EveryTrackInOrder) {
  const Json report = of(sampleMovie("nasa_13013.mp4"));
  std::vector<std::string> types;
  for (const Json& track : report["tracks"]) types.push_back(track["mediaType"]);
  EXPECT_EQ(types, (std::vector<std::string>{"vide", "soun", "sbtl", "vide", "soun", "sbtl"}));
  EXPECT_EQ(report["tracks"][3]["frameRate"]["numerator"], 30000);
  EXPECT_EQ(report["tracks"][3]["frameRate"]["denominator"], 1001);
  EXPECT_FALSE(report["tracks"][3]["isEnabled"].is_null());
}

TEST_F(Report, HdrAndRotation) {
  const Json track = of(sampleMovie("rotated_hdr_video.mov"))["tracks"][0];
  EXPECT_EQ(track["hdrClass"], "Dolby Vision profile 8.4");
  EXPECT_EQ(track["bitDepth"], 10);
  EXPECT_EQ(track["colour"]["transfer"], "arib-std-b67");
  EXPECT_EQ(track["rotation"], 90);
}

TEST_F(Report, UnreadableMoviesGiveAnEmptyObject) {
  EXPECT_EQ(movieInfosJson(sampleMovie("broken.mp4")), "{}");
  EXPECT_EQ(movieInfosJson("/nowhere/at/all.mov"), "{}");
  EXPECT_EQ(movieInfosJson(std::nullopt), "{}");
  EXPECT_EQ(movieInfosJson(""), "{}");
}

TEST_F(Report, ProtectedTracksEmptyTheDictionaryAndAreListed) {
  const ScratchFolder folder;
  std::string bytes = readFile(sampleMovie("metadata.mp4"));
  const std::size_t entry = bytes.find("avc1", bytes.find("stsd"));
  ASSERT_NE(entry, std::string::npos);
  bytes.replace(entry, 4, "drmi");
  const Json report = of(folder.write("protected.mp4", bytes));
  EXPECT_EQ(report["information"], Json::object());
  EXPECT_EQ(report["movie"]["isProtected"], true);
  EXPECT_EQ(report["tracks"][0]["formats"][0]["code"], "drmi");
}

TEST_F(Report, CommonEncryptionKeepsItsCode) {
  const ScratchFolder folder;
  const Json report = of(encryptedClip(folder));
  EXPECT_EQ(report["information"]["v0_codec"], "encv");
  EXPECT_EQ(report["movie"]["isProtected"], true);
  EXPECT_EQ(report["tracks"][0]["codec"], "h264");
}

TEST_F(Report, LoadsTheMovieIntoItsSlot) {
  const std::string path = sampleMovie("metadata.mp4");
  of(path);
  EXPECT_EQ(MYMOVIEpathGet(), path);
}

}  // namespace
}  // namespace vistrelle::testing
