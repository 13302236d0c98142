#include "vistrelle/platform/media/ffmpeg/movie_track.h"

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/ffmpeg/frame_generator.h"

namespace vistrelle::platform {
namespace {

const char* nameOf(MediaType type) {
  switch (type) {
    case MediaType::video:
      return "video";
    case MediaType::audio:
      return "audio";
    case MediaType::subtitle:
      return "subtitle";
    case MediaType::text:
      return "text";
    case MediaType::closedCaption:
      return "closed caption";
    case MediaType::timecode:
      return "timecode";
    case MediaType::metadata:
      return "metadata";
    default:
      return "other";
  }
}

}  // namespace

std::string MovieTrack::description() const {
  return format("<Track: {}, {}{}>", trackId(), nameOf(mediaType()), isEnabled() ? "" : ", disabled");
}

std::unique_ptr<ImageGenerator> MovieTrack::makeImageGenerator() const {
  if (mediaType() != MediaType::video || !isDecodable()) return nullptr;
  return makeFrameGenerator(source_, streamIndex_);
}

}  // namespace vistrelle::platform
