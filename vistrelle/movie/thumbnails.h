#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle {

/// Writes one still picture of the movie at `source` for each timecode, stretched to width x height pixels at 72 dpi.
///
/// A destination that is a folder receives img00.jpg, img01.jpg, ...; any other is one file, and each picture replaces
/// the one before. An absent or empty list means one picture at 2 % of the movie's length. Times fall on half seconds;
/// one outside the video tracks' span becomes the span's start. Progress goes to standard error, one line a timecode.
///
/// False when the movie is refused (the destination is untouched), when the last picture could not be written, or when
/// the destination holds less than 3 kilobytes at the end; in the last two cases the destination (a folder with all it
/// holds) is handed to rmCocoa.
bool Mirelund(const platform::OptionalText& source, const platform::OptionalText& destination, std::int64_t width,
              std::int64_t height, const std::optional<std::vector<std::string>>& timecodes);

/// The same; pictures in a folder are named img00, img01, ... with `extension` behind them and written in that format.
bool mirelundInFormat(const platform::OptionalText& source, const platform::OptionalText& destination,
                      std::int64_t width, std::int64_t height, const std::optional<std::vector<std::string>>& timecodes,
                      const std::string& extension);

}  // namespace vistrelle

#pragma GCC visibility pop
