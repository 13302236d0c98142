#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Strings tables of the main bundle, looked up forwards and backwards.
namespace vistrelle {

/// Whether the table "Localized" translates the key into something other than the key itself.
bool isLocalized(const platform::OptionalText& key);

/// The key whose value is `text` in a strings file, given by path or by its name in the main bundle (the extension
/// may be left out); the text itself when there is none. An absent or empty text gives nothing.
/// Lines are read one by one: a title over several lines is not found.
platform::OptionalText localisedTitleFromStrings(const platform::OptionalText& text,
                                                 const platform::OptionalText& file);

/// The keys of a strings file of the main bundle in file order; nothing when there is no such file or no key.
std::optional<std::vector<std::string>> stringsFileKeys(const platform::OptionalText& name);

}  // namespace vistrelle

#pragma GCC visibility pop
