#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Titles and file names for readers, made from the paths and dates of movies. An absent or empty path gives an absent
/// result. Safe on any thread.
namespace vistrelle {

/// A title from a movie's display name: without the extra suffixes, "-PAL", "-NV" and "-NF", blanks for underscores.
/// A suffix at the end cuts the name at its first occurrence.
platform::OptionalText pathes2Titles(const platform::OptionalText& path,
                                     const std::optional<std::vector<std::string>>& extraSuffixes);

/// The path with its name cleaned ("`" out, "-" for ":") and cut to `maximum` characters. What follows the last point
/// is dropped when it is longer than 12 characters.
platform::OptionalText trimPathStr(const platform::OptionalText& path, std::int64_t maximum);

/// The path of a movie's master copy: "_MASTER" behind its base name, which is shortened to 20 characters unless the
/// whole path is short.
platform::OptionalText masterName(const platform::OptionalText& path);

/// "2015-03-01 12:34:56" (UTC), or the day alone: the creation date of the file, or `date` where there is no path.
platform::OptionalText dateCreation(const platform::OptionalText& path, const std::optional<platform::Date>& date,
                                    bool withTime);

/// "201503011234.56" for "2015-03-01 12:34:56 +0000", as the touch command's time option takes it.
platform::OptionalText dateCreationForTouch(const platform::OptionalText& date);

/// A clip's name from its date: "2015-03-01 12;34;56 (id) base" or "clip-2015-03-01 12;34;56-base".
platform::OptionalText dateCreation2Name(const platform::OptionalText& path, bool withId);

}  // namespace vistrelle

#pragma GCC visibility pop
