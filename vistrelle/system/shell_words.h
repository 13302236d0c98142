#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "vistrelle/platform/base/value.h"

/// How taskWithStr makes a command line of a list.
namespace vistrelle {

/// The command line of `elements`, one blank between them. Links to existing items are made in `workFolder`. Nothing,
/// with a log line, when that folder is needed and cannot be made.
std::optional<std::string> shellLine(const platform::List& elements, const std::string& workFolder);

/// Whether a text begins and ends with the quote.
bool isWrappedIn(std::string_view text, char quote);
/// The text without its first and last character; a shorter one becomes empty.
std::string withoutEndCharacters(std::string_view text);
/// A word that the shell reads as exactly this text.
std::string inDoubleQuotes(std::string_view text);

}  // namespace vistrelle
