#pragma once

#include <memory>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::platform {

/// The first frame that a stream's decoder delivers, and what the decoder knew when it had seen it.
struct FirstFrame {
  AvPtr<AVFrame> frame;
  int profile = kUnknownProfile;
};

/// Decodes from the demuxer's start. Empty when no frame comes out of the first packets.
std::shared_ptr<const FirstFrame> readFirstFrame(Demuxer& demuxer, int streamIndex,
                                                 const AVCodecParameters& parameters);

}  // namespace vistrelle::platform
