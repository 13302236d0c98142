#include "vistrelle/platform/media/confined/worker_answers.h"

#include <algorithm>
#include <cmath>

#include "vistrelle/platform/media/confined/picture_transfer.h"

namespace vistrelle::platform {
namespace {

using wire::Kind;

constexpr std::uint32_t kMostTracks = 256;
constexpr std::size_t kMostFormats = 64;
constexpr double kLargestSide = 1e9;

bool isSide(double value) {
  return std::isfinite(value) && value >= 0 && value <= kLargestSide;
}

std::uint32_t flag(bool value) {
  return value ? 1 : 0;
}

wire::Track trackAnswer(const Track& track, std::size_t formats) {
  wire::Track answer;
  const TimeRange range = track.timeRange();
  answer.range = {toWire(range.start), toWire(range.duration)};
  const OptionalText code = track.mediaTypeCode();
  answer.hasTypeCode = flag(code.has_value());
  answer.typeCode = codeOf(code.value_or(""));
  answer.id = track.trackId();
  answer.type = static_cast<std::uint32_t>(track.mediaType());
  answer.isEnabled = flag(track.isEnabled());
  answer.isDecodable = flag(track.isDecodable());
  answer.isProtected = flag(track.isProtected());
  answer.hasPictures = flag(track.makeImageGenerator() != nullptr);
  answer.formats = static_cast<std::uint32_t>(formats);
  answer.frameRate = track.nominalFrameRate();
  return answer;
}

wire::Format formatAnswer(const FormatDescription& format) {
  const Rect& clean = format.cleanAperture;
  return {codeOf(format.code), format.width, format.height, {clean.x, clean.y, clean.width, clean.height}};
}

}  // namespace

std::vector<Message> answersAbout(Asset& movie) {
  const auto tracks = movie.tracks();
  wire::Movie answer;
  answer.duration = toWire(movie.duration());
  answer.headerDuration = toWire(movie.headerDuration());
  answer.isPlayable = flag(movie.isPlayable());
  answer.isProtected = flag(movie.hasProtectedContent());
  answer.hasPictures = flag(movie.makeImageGenerator() != nullptr);
  answer.tracks = static_cast<std::uint32_t>(tracks.size());
  std::vector<Message> messages;
  messages.emplace_back(number(Kind::movie), answer);
  for (const auto& track : tracks) {
    std::vector<FormatDescription> formats = track->formatDescriptions();
    if (formats.size() > kMostFormats) formats.resize(kMostFormats);
    const std::string description = track->description();
    messages.emplace_back(number(Kind::track), trackAnswer(*track, formats.size()),
                          std::string_view(description).substr(0, kMaxTextBytes));
    for (const FormatDescription& format : formats) messages.emplace_back(number(Kind::format), formatAnswer(format));
  }
  return messages;
}

bool MovieRecordReader::take(const Message& message) {
  switch (static_cast<Kind>(message.kind())) {
    case Kind::movie:
      return takeMovie(message);
    case Kind::track:
      return takeTrack(message);
    case Kind::format:
      return takeFormat(message);
    default:
      return false;
  }
}

std::optional<Size> sizeOf(const Message& message) {
  wire::Size size;
  if (message.kind() != number(Kind::size) || !message.read(&size)) return std::nullopt;
  if (!isSide(size.width) || !isSide(size.height)) return std::nullopt;
  return Size{size.width, size.height};
}

bool MovieRecordReader::isComplete() const {
  return hasMovie_ && record_.tracks.size() == record_.expectedTracks && expectedFormats_ == 0;
}

bool MovieRecordReader::takeMovie(const Message& message) {
  wire::Movie movie;
  if (hasMovie_ || !message.read(&movie) || movie.tracks > kMostTracks) return false;
  const auto duration = fromWire(movie.duration);
  const auto headerDuration = fromWire(movie.headerDuration);
  if (!duration || !headerDuration) return false;
  record_.duration = *duration;
  record_.headerDuration = *headerDuration;
  record_.isPlayable = movie.isPlayable != 0;
  record_.isProtected = movie.isProtected != 0;
  record_.hasPictures = movie.hasPictures != 0;
  record_.expectedTracks = movie.tracks;
  hasMovie_ = true;
  return true;
}

bool MovieRecordReader::takeTrack(const Message& message) {
  wire::Track track;
  std::string_view description;
  if (!hasMovie_ || expectedFormats_ > 0 || record_.tracks.size() >= record_.expectedTracks ||
      !message.read(&track, &description)) {
    return false;
  }
  const auto start = fromWire(track.range.start);
  const auto duration = fromWire(track.range.duration);
  const auto code = textOf(track.typeCode);
  if (!start || !duration || !code || track.type > static_cast<std::uint32_t>(MediaType::other) ||
      track.formats > kMostFormats || !std::isfinite(track.frameRate) || track.frameRate < 0) {
    return false;
  }
  TrackRecord record;
  record.description = description;
  record.id = track.id;
  record.type = static_cast<MediaType>(track.type);
  if (track.hasTypeCode != 0) record.typeCode = *code;
  record.range = {*start, *duration};
  record.frameRate = track.frameRate;
  record.isEnabled = track.isEnabled != 0;
  record.isDecodable = track.isDecodable != 0;
  record.isProtected = track.isProtected != 0;
  record.hasPictures = track.hasPictures != 0;
  record_.tracks.push_back(std::move(record));
  expectedFormats_ = track.formats;
  return true;
}

bool MovieRecordReader::takeFormat(const Message& message) {
  wire::Format format;
  if (expectedFormats_ == 0 || !message.read(&format)) return false;
  const auto code = textOf(format.code);
  const bool isSane = code && format.width >= 0 && format.height >= 0 &&
                      std::ranges::all_of(format.cleanAperture, [](double value) { return std::isfinite(value); });
  if (!isSane) return false;
  const auto [x, y, width, height] = format.cleanAperture;
  record_.tracks.back().formats.push_back({*code, format.width, format.height, {x, y, width, height}});
  --expectedFormats_;
  return true;
}

}  // namespace vistrelle::platform
