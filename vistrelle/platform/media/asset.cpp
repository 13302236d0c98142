#include "vistrelle/platform/media/asset.h"

#include "vistrelle/platform/media/asset_reader.h"

namespace vistrelle::platform {

OptionalText Track::mediaTypeCode() const {
  switch (mediaType()) {
    case MediaType::video:
      return "vide";
    case MediaType::audio:
      return "soun";
    case MediaType::subtitle:
      return "sbtl";
    case MediaType::text:
      return "text";
    case MediaType::closedCaption:
      return "clcp";
    case MediaType::timecode:
      return "tmcd";
    case MediaType::metadata:
      return "meta";
    case MediaType::other:
      break;
  }
  return std::nullopt;
}

Size Asset::naturalSize() const {
  for (const std::shared_ptr<Track>& track : tracks()) {
    if (track->mediaType() == MediaType::video) return track->naturalSize();
  }
  return {};
}

std::unique_ptr<AssetReader> Asset::makeReader(std::string* error) {
  if (error != nullptr) *error = "the movie cannot be read again";
  return nullptr;
}

}  // namespace vistrelle::platform
