#include "vistrelle/movieinfo/report.h"

#include <memory>
#include <optional>
#include <utility>

#include "vistrelle/movie/loader.h"
#include "vistrelle/movieinfo/inventory.h"
#include "vistrelle/platform/base/json_text.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::jsonNull;
using platform::jsonOrNull;
using platform::List;
using platform::MediaTime;
using platform::Value;

constexpr const char* kNothing = "{}";

/// Exact, and as seconds for those who do not mind rounding.
Value timeFacts(const MediaTime& time) {
  if (!time.isNumeric()) return jsonNull();
  return Dictionary{{"value", time.value}, {"scale", time.scale}, {"seconds", time.seconds()}};
}

Value sizeFacts(const platform::Size& size) {
  if (size.width <= 0 || size.height <= 0) return jsonNull();
  return Dictionary{{"width", size.width}, {"height", size.height}};
}

Value rectFacts(const platform::Rect& rect) {
  if (rect.width <= 0 || rect.height <= 0) return jsonNull();
  return Dictionary{{"x", rect.x}, {"y", rect.y}, {"width", rect.width}, {"height", rect.height}};
}

List formatFacts(const platform::Track& track) {
  List formats;
  for (const platform::FormatDescription& description : track.formatDescriptions()) {
    const bool isPicture = description.width > 0 && description.height > 0;
    formats.emplace_back(Dictionary{{"code", description.code},
                                    {"width", isPicture ? Value(description.width) : jsonNull()},
                                    {"height", isPicture ? Value(description.height) : jsonNull()},
                                    {"cleanAperture", rectFacts(description.cleanAperture)}});
  }
  return formats;
}

Value frameRateFacts(const std::optional<platform::FrameRate>& rate) {
  if (!rate) return jsonNull();
  return Dictionary{
      {"numerator", rate->numerator}, {"denominator", rate->denominator}, {"varies", jsonOrNull(rate->varies)}};
}

Dictionary colourFacts(const platform::TrackDetails& details) {
  return {{"primaries", jsonOrNull(details.colourPrimaries)},
          {"transfer", jsonOrNull(details.colourTransfer)},
          {"matrix", jsonOrNull(details.colourMatrix)},
          {"range", jsonOrNull(details.colourRange)}};
}

void addPictureFacts(Dictionary& facts, const platform::Track& track, const platform::TrackDetails& details) {
  facts.emplace("naturalSize", sizeFacts(track.naturalSize()));
  facts.emplace("pixelFormat", jsonOrNull(details.pixelFormat));
  facts.emplace("colour", colourFacts(details));
  facts.emplace("hdrClass", jsonOrNull(details.hdrClass));
  facts.emplace("rotation", jsonOrNull(details.rotation));
  facts.emplace("isMirrored", details.isMirrored);
  facts.emplace("frameRate", frameRateFacts(details.frameRate));
}

Dictionary trackFacts(const platform::Track& track) {
  const platform::TrackDetails details = track.details();
  const platform::TimeRange range = track.timeRange();
  Dictionary facts{{"id", track.trackId()},
                   {"mediaType", jsonOrNull(track.mediaTypeCode())},
                   {"isEnabled", track.isEnabled()},
                   {"isDecodable", track.isDecodable()},
                   {"isProtected", track.isProtected()},
                   {"formats", formatFacts(track)},
                   {"codec", jsonOrNull(details.codec)},
                   {"profile", jsonOrNull(details.profile)},
                   {"language", jsonOrNull(details.language)},
                   {"bitDepth", jsonOrNull(details.bitDepth)},
                   {"start", timeFacts(range.start)},
                   {"durations", Dictionary{{"header", timeFacts(details.headerDuration)},
                                            {"track", timeFacts(range.duration)},
                                            {"decoded", timeFacts(details.decodedDuration)}}},
                   {"startTimecode", jsonOrNull(details.startTimecode)}};
  if (track.mediaType() == platform::MediaType::video) addPictureFacts(facts, track, details);
  if (track.mediaType() == platform::MediaType::audio) {
    facts.emplace("sampleRate", jsonOrNull(details.sampleRate));
    facts.emplace("channels", jsonOrNull(details.channels));
  }
  return facts;
}

Dictionary movieFacts(const platform::Asset& movie) {
  const platform::MovieMetadata metadata = movie.metadata();
  return {
      {"naturalSize", sizeFacts(movie.naturalSize())},
      {"isPlayable", movie.isPlayable()},
      {"isProtected", movie.hasProtectedContent()},
      {"durations", Dictionary{{"header", timeFacts(movie.headerDuration())}, {"movie", timeFacts(movie.duration())}}},
      {"metadata", Dictionary{{"common", metadata.common},
                              {"formats", metadata.formats},
                              {"chapterLocales", metadata.chapterLocales},
                              {"lyrics", jsonOrNull(metadata.lyrics)}}}};
}

}  // namespace

std::string movieInfosJson(const platform::OptionalText& path) {
  Dictionary information = qtInfos(path);
  if (!MYMOVIEinstantiate(path, false, false)) return kNothing;
  const Movie movie = MYMOVIEget();
  List tracks;
  for (const std::shared_ptr<platform::Track>& track : movie->tracks()) tracks.emplace_back(trackFacts(*track));
  return platform::jsonText(Dictionary{
      {"information", std::move(information)}, {"movie", movieFacts(*movie)}, {"tracks", std::move(tracks)}});
}

}  // namespace vistrelle
