#pragma once

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/input_file.h"
#include "vistrelle/platform/media/media_time.h"
#include "vistrelle/platform/media/mov/movie_header.h"
#include "vistrelle/platform/media/movie_metadata.h"

namespace vistrelle::platform {

/// What a movie that is not of the MOV family says about itself: Matroska tags and chapters, ID3, and what libavformat
/// finds in other containers.
MovieMetadata metadataOf(const AVFormatContext& container, InputBytes& bytes);

/// The duration that a header states; invalid when it states none.
MediaTime durationOf(const mov::MovieHeader& header);
MediaTime durationOf(const AVFormatContext& container);

}  // namespace vistrelle::platform
