#pragma once

#include <optional>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Property-list files, and a date. A leading "~" in a path is expanded.
namespace vistrelle {

/// The dictionary in a property-list file, binary or XML; nothing, with a log line, when the file is missing, damaged,
/// or breaks platform::PropertyListLimits. A number under "Birthdate" comes back as 1564.0.
std::optional<platform::Dictionary> readPlist(const platform::OptionalText& path);

/// Writes a property list in the binary form, as a whole or not at all. Colons are removed from the path, and ".plist"
/// is added unless it is there. True when the file exists afterwards, also when it is an older one that could not be
/// replaced (one log line then says so).
bool writePlist(const platform::OptionalText& path, const platform::OptionalValue& object);

/// When an item came into being: the older of its birth time and its modification time; of a link its own.
std::optional<platform::Date> creationDateOfPath(const platform::OptionalText& path);

}  // namespace vistrelle

#pragma GCC visibility pop
