#include "vistrelle/platform/media/ffmpeg/movie_track.h"

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/ffmpeg/frame_generator.h"
#include "vistrelle/platform/media/ffmpeg/stream_details.h"
#include "vistrelle/platform/media/ffmpeg/track_shape.h"

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

OptionalText MovieTrack::mediaTypeCode() const {
  const std::string& stated = facts().notes.mediaTypeCode;
  return stated.empty() ? Track::mediaTypeCode() : stated;
}

Size MovieTrack::naturalSize() const {
  const StreamFacts& stream = facts();
  if (stream.type != MediaType::video) return {};
  int width = stream.parameters->width;
  int height = stream.parameters->height;
  AVRational aspect = stream.notes.pixelAspect;
  if (aspect.num <= 0 && !stream.notes.isLookedInto) {
    if (const std::shared_ptr<const FirstFrame> first = source_->firstFrame(streamIndex_)) {
      aspect = first->frame->sample_aspect_ratio;
      width = first->frame->width;
      height = first->frame->height;
    }
  }
  if (width <= 0 || height <= 0) return {};
  return presentationSize(cleanRect(stream.cleanAperture, width, height), aspect);
}

TrackDetails MovieTrack::details() const {
  return detailsOf(*source_, streamIndex_);
}

std::unique_ptr<ImageGenerator> MovieTrack::makeImageGenerator() const {
  if (mediaType() != MediaType::video) return nullptr;
  return makeFrameGenerator(source_, streamIndex_);
}

}  // namespace vistrelle::platform
