#pragma once

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/file_io.h"

namespace vistrelle::platform {

/// Whether a stream says that its samples are encrypted.
bool isStreamProtected(const AVStream& stream);

/// Whether a movie says so as a whole: protection objects of ASF, encrypted tracks of Matroska, scrambled packets in
/// the first part of a transport stream.
bool isWholeMovieProtected(const AVFormatContext& context, InputBytes& bytes);

}  // namespace vistrelle::platform
