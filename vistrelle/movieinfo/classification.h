#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Families of media files: fixed lists, and small tests on a file or on an information dictionary. The lists come in
/// a fixed order; extensions are lower case, without the point.
namespace vistrelle {

/// Codec codes of protected tracks.
std::vector<std::string> drmFourCcList();

/// Names that the ffmpeg route is not used for. The kind "A" (either case) names "dv" where all others name "ffts".
std::vector<std::string> ffmpegUnsupportedVideoList(const platform::OptionalText& kind);

/// MPEG and AC-3 audio files.
std::vector<std::string> mpegAudioExtensionList();
/// Uncompressed audio files.
std::vector<std::string> pcmAudioExtensionList();
/// MPEG-2 elementary video.
std::vector<std::string> mpeg2ElementaryExtensionList();
/// MPEG-1 and MPEG-2 elementary video.
std::vector<std::string> mpegElementaryExtensionList();
/// MPEG program and transport streams.
std::vector<std::string> mpegProgramExtensionList();
/// The same with the streams of camcorders and DVD recorders.
std::vector<std::string> mpegProgramExtensionListAll();

/// Frames a second in pairs of half rate and full rate: 12.5, 25, 11.99, 23.98, ...
std::vector<float> standardFrameRateList();

/// Whether the value of any key that holds "_codec" is a protected codec's code; one log line names the first.
bool infoDicoHasDrm(const std::optional<platform::Dictionary>& dico);

/// Whether a file begins with the header of kind 0 (MPEG transport stream), 1 (MPEG-2 program stream whose first clock
/// reference is zero, and no other) or 2 (AC-3). Only regular files are opened; any other kind is false.
bool streamHeaderProbe(const platform::OptionalText& path, std::int64_t kind);

/// Kilobits a second of video that fit into `maxMB` megabytes beside 192 kb/s of audio. Negative when the audio alone
/// is too large. The duration must not be 0.
std::int64_t bitrateLimit(std::int64_t maxMB, float seconds);

}  // namespace vistrelle

#pragma GCC visibility pop
