#pragma once

#include <memory>
#include <string>

#include "vistrelle/platform/media/asset_reader.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::platform {

/// Delivers the samples of one track of an opened movie as stored, from the first to the last. Where a MOV or MP4 file
/// ends before the samples that its index names, reading fails at the first one that is missing.
std::unique_ptr<AssetReader> makeSampleReader(std::shared_ptr<MovieSource> source);

}  // namespace vistrelle::platform
