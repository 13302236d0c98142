#pragma once

#include <cstdint>
#include <string>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Movies that may not be decodable, and two ways around them.
namespace vistrelle {

/// Whether a thumbnail of the movie's first frame can be made. Nothing is left of it; the private temporary folder is
/// made when it is missing. False for an absent path.
bool qtDecodingProbe(const platform::OptionalText& path);

/// Rewraps the movie with /usr/local/bin/ffmpeg, video as it is, into the path with ".mov" appended (an existing file
/// is overwritten), loads that into MYMOVIE and asks it for its first picture. True when a picture can be asked for,
/// whether or not one comes. The tool's success is not looked at: what counts is the file that stands there afterwards.
bool ffmpegRemuxMov(const platform::OptionalText& path);

/// The command line that makes a percentage of `total` seconds out of the last "A:" line of a player's log, for the
/// shell. The log is not quoted: only for texts that one trusts.
std::string progressCommand(const platform::OptionalText& text, std::int64_t total);
/// The number at the beginning of that command line, which is not run: always 0. Hosts that want the percentage run the
/// command line.
float progressPercentFromLog(const platform::OptionalText& text, std::int64_t total);

}  // namespace vistrelle

#pragma GCC visibility pop
