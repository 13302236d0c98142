// The facts of the JSON report beside those of two other programs, over every sample movie. A difference must stand in
// the table of docs/information.md, and a row of that table must be a difference.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>

#include "tests/support/recording_log.h"
#include "tests/support/tool_run.h"
#include "vistrelle/movieinfo/report.h"

namespace vistrelle::testing {
namespace {

using Json = nlohmann::json;

constexpr double kTolerance = 0.01;  // seconds

std::vector<std::string> sampleMovies() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(VISTRELLE_TEST_DATA)) {
    const std::string extension = entry.path().extension();
    if (extension != ".md" && extension != ".sh") names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

Json parsed(const std::string& text) {
  return Json::parse(text, nullptr, false);
}

std::string textOf(const Json& value) {
  if (value.is_null() || value.is_discarded()) return "-";
  return value.is_string() ? value.get<std::string>() : value.dump();
}

/// A fact as the other program has it, in the words of this system.
std::string translated(const std::string& word) {
  static const std::map<std::string, std::string> words = {{"AVC", "h264"},
                                                           {"HEVC", "hevc"},
                                                           {"AV1", "av1"},
                                                           {"VP9", "vp9"},
                                                           {"AAC", "aac"},
                                                           {"H.263", "h263"},
                                                           {"JPEG", "mjpeg"},
                                                           {"PNG", "png"},
                                                           {"ProRes", "prores"},
                                                           {"RLE", "qtrle"},
                                                           {"BT.709", "bt709"},
                                                           {"BT.2020", "bt2020"},
                                                           {"Limited", "tv"},
                                                           {"Full", "pc"},
                                                           {"HLG", "arib-std-b67"},
                                                           {"PQ", "smpte2084"},
                                                           {"MPEG-4 Visual", "mpeg4"},
                                                           {"BT.2020 non-constant", "bt2020nc"},
                                                           {"BT.601", "smpte170m"},
                                                           {"BT.601 PAL", "bt470bg"},
                                                           {"BT.470 System B/G", "bt470bg"},
                                                           {"unknown", "-"}};
  const auto found = words.find(word);
  return found == words.end() ? word : found->second;
}

std::string fraction(std::int64_t numerator, std::int64_t denominator) {
  if (denominator == 0) return "-";
  const std::int64_t divisor = std::max<std::int64_t>(1, std::gcd(numerator, denominator));
  return std::to_string(numerator / divisor) + "/" + std::to_string(denominator / divisor);
}

std::string fraction(const std::string& text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) return text;
  return fraction(std::atoll(text.c_str()), std::atoll(text.c_str() + slash + 1));
}

Json at(const Json& object, const char* key) {
  return object.is_object() && object.contains(key) ? object[key] : Json();
}

class Comparison {
 public:
  std::set<std::string> differences;

  void compare(const std::string& name) {
    name_ = name;
    const std::string path = std::string(VISTRELLE_TEST_DATA) + "/" + name;
    const Json ours = parsed(movieInfosJson(path));
    const Json probe =
        parsed(runProgram({"ffprobe", "-v", "quiet", "-of", "json", "-show_streams", "-show_format", path}).output);
    const Json info = parsed(runProgram({"mediainfo", "--Output=JSON", path}).output);
    for (const auto& [type, code] : {std::pair("video", "vide"), std::pair("audio", "soun")}) {
      compareKind(ours, probe, info, type, code);
    }
  }

 private:
  void compareKind(const Json& ours, const Json& probe, const Json& info, const std::string& type, const char* code) {
    std::vector<Json> tracks;
    for (const Json& track : at(ours, "tracks")) {
      if (track["mediaType"] == code) tracks.push_back(track);
    }
    std::vector<Json> streams;
    for (const Json& stream : at(probe, "streams")) {
      if (at(stream, "codec_type") == type) streams.push_back(stream);
    }
    std::vector<Json> medias;
    const std::string capital = type == "video" ? "Video" : "Audio";
    for (const Json& media : at(at(info, "media"), "track")) {
      if (at(media, "@type") == capital) medias.push_back(media);
    }
    program_ = "ffprobe";
    track_ = type;
    note("count", std::to_string(tracks.size()), std::to_string(streams.size()));
    for (std::size_t i = 0; i < std::min(tracks.size(), streams.size()); ++i) {
      track_ = type + " " + std::to_string(i);
      compareStream(tracks[i], streams[i], type == "video");
    }
    program_ = "mediainfo";
    track_ = type;
    note("count", std::to_string(tracks.size()), std::to_string(medias.size()));
    for (std::size_t i = 0; i < std::min(tracks.size(), medias.size()); ++i) {
      track_ = type + " " + std::to_string(i);
      compareMedia(tracks[i], medias[i], type == "video");
    }
  }

  void note(const std::string& fact, const std::string& ours, const std::string& theirs) {
    if (ours == theirs) return;
    differences.insert("| " + name_ + " | " + track_ + " | " + fact + " | " + program_ + " | " + ours + " | " + theirs +
                       " |");
  }

  void note(const std::string& fact, const Json& ours, const Json& theirs) {
    note(fact, textOf(ours), translated(textOf(theirs)));
  }

  void noteSeconds(const std::string& fact, const Json& ours, const Json& theirs) {
    const double own = ours.is_number() ? ours.get<double>() : std::nan("");
    const double other = theirs.is_string() ? std::atof(theirs.get<std::string>().c_str()) : std::nan("");
    if (std::isnan(own) && std::isnan(other)) return;
    if (std::abs(own - other) <= kTolerance) return;
    const auto rounded = [](double value) {
      return std::isnan(value) ? std::string("-") : parsed(std::to_string(std::round(value * 1000) / 1000)).dump();
    };
    note(fact, rounded(own), rounded(other));
  }

  void compareStream(const Json& track, const Json& stream, bool isVideo) {
    note("codec", track["codec"], at(stream, "codec_name"));
    note("profile", track["profile"], at(stream, "profile"));
    noteSeconds("duration", at(track["durations"]["track"], "seconds"), at(stream, "duration"));
    if (!isVideo) {
      note("sampleRate", textOf(track["sampleRate"]), textOf(at(stream, "sample_rate")));
      note("channels", track["channels"], at(stream, "channels"));
      return;
    }
    const Json format = track["formats"].empty() ? Json() : track["formats"][0];
    note("width", at(format, "width"), at(stream, "width"));
    note("height", at(format, "height"), at(stream, "height"));
    note("frameRate", rateOf(track), fraction(textOf(at(stream, "avg_frame_rate"))));
    note("pixelFormat", track["pixelFormat"], at(stream, "pix_fmt"));
    if (stream.contains("bits_per_raw_sample")) {
      note("bitDepth", textOf(track["bitDepth"]), textOf(stream["bits_per_raw_sample"]));
    }
    int rotation = 0;
    for (const Json& data : at(stream, "side_data_list")) {
      // Counter-clockwise, from -180.
      if (data.contains("rotation")) rotation = (360 - data["rotation"].get<int>()) % 360;
    }
    note("rotation", textOf(track["rotation"]), std::to_string(rotation));
    const Json& colour = track["colour"];
    note("primaries", colour["primaries"], at(stream, "color_primaries"));
    note("transfer", colour["transfer"], at(stream, "color_transfer"));
    note("matrix", colour["matrix"], at(stream, "color_space"));
    note("range", colour["range"], at(stream, "color_range"));
  }

  static std::string rateOf(const Json& track) {
    const Json& rate = track["frameRate"];
    return rate.is_null() ? "-" : fraction(rate["numerator"], rate["denominator"]);
  }

  void compareMedia(const Json& track, const Json& media, bool isVideo) {
    note("codec", textOf(track["codec"]), codecIn(media));
    if (media.contains("Duration")) {
      noteSeconds("duration", at(track["durations"]["track"], "seconds"), media["Duration"]);
    }
    if (!isVideo) {
      if (media.contains("Channels")) note("channels", textOf(track["channels"]), textOf(media["Channels"]));
      if (media.contains("SamplingRate"))
        note("sampleRate", textOf(track["sampleRate"]), textOf(media["SamplingRate"]));
      return;
    }
    const Json format = track["formats"].empty() ? Json() : track["formats"][0];
    const auto size = [&media](const char* sampled, const char* plain) {
      return textOf(media.contains(sampled) ? media[sampled] : at(media, plain));
    };
    note("width", textOf(at(format, "width")), size("Sampled_Width", "Width"));
    note("height", textOf(at(format, "height")), size("Sampled_Height", "Height"));
    const Json& rate = track["frameRate"];
    if (media.contains("FrameRate") && !rate.is_null()) {
      const double own = rate["numerator"].get<double>() / rate["denominator"].get<double>();
      const std::string theirs = media["FrameRate"];
      if (std::abs(own - std::atof(theirs.c_str())) > 0.0015) note("frameRate", rateOf(track), theirs);
    }
    if (media.contains("FrameRate_Mode") && !rate.is_null() && !rate["varies"].is_null()) {
      note("varies", textOf(rate["varies"]), media["FrameRate_Mode"] == "VFR" ? "true" : "false");
    }
    if (media.contains("BitDepth")) note("bitDepth", textOf(track["bitDepth"]), textOf(media["BitDepth"]));
    const std::string rotation = media.contains("Rotation") ? textOf(media["Rotation"]) : "0";
    note("rotation", textOf(track["rotation"]), std::to_string(std::lround(std::atof(rotation.c_str()))));
    const Json& colour = track["colour"];
    compareColour(colour, media, "primaries", "colour_primaries");
    compareColour(colour, media, "transfer", "transfer_characteristics");
    compareColour(colour, media, "matrix", "matrix_coefficients");
    compareColour(colour, media, "range", "colour_range");
  }

  static std::string codecIn(const Json& media) {
    const std::string format = textOf(at(media, "Format"));
    const std::string version = textOf(at(media, "Format_Version"));
    const std::string profile = textOf(at(media, "Format_Profile"));
    if (format == "MPEG Video") return "mpeg" + version + "video";
    if (format == "MPEG Audio" && profile.starts_with("Layer ")) return "mp" + profile.substr(6);
    return translated(format);
  }

  /// Only what the program states: it leaves out what a decoder implies.
  void compareColour(const Json& colour, const Json& media, const char* ours, const char* theirs) {
    if (media.contains(theirs)) note(ours, colour[ours], media[theirs]);
  }

  std::string name_;
  std::string track_;
  std::string program_;
};

/// The rows of the table without their reasons.
std::set<std::string> explainedDifferences() {
  std::ifstream page(std::string(VISTRELLE_SOURCE_DIR) + "/docs/information.md");
  std::set<std::string> rows;
  bool isInSection = false;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with("## ")) isInSection = line == "## Beside ffprobe and mediainfo";
    if (!isInSection) continue;
    if (line.find("| ffprobe |") == std::string::npos && line.find("| mediainfo |") == std::string::npos) continue;
    const std::size_t end = line.rfind('|');
    const std::size_t reason = line.rfind('|', end - 1);
    EXPECT_GT(end - reason, 10U) << "no reason: " << line;
    rows.insert(line.substr(0, reason + 1));
  }
  return rows;
}

TEST(PeerFacts, EveryDifferenceIsExplainedAndEveryExplanationIsADifference) {
  const RecordingLog log;
  if (runProgram({"mediainfo", "--Version"}).status != 0) GTEST_SKIP() << "mediainfo is not installed";
  Comparison comparison;
  const std::vector<std::string> movies = sampleMovies();
  ASSERT_GT(movies.size(), 30U);
  for (const std::string& name : movies) comparison.compare(name);
  const std::set<std::string> explained = explainedDifferences();
  for (const std::string& row : comparison.differences)
    EXPECT_TRUE(explained.contains(row)) << "not explained: " << row;
  for (const std::string& row : explained) {
    EXPECT_TRUE(comparison.differences.contains(row)) << "is no difference: " << row;
  }
}

}  // namespace
}  // namespace vistrelle::testing
