#pragma once

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle {

/// The text of a web page, read with http or https as strict ASCII within 30 seconds and 16 MiB; empty when it cannot
/// be read, nothing for an absent URL. `withLines` asks for a verbose line before and after.
platform::OptionalText sourceOfWebPage(const platform::OptionalText& url, bool withLines);

/// Whether the content of a URL can be read, by the same rules.
bool isInternetReachable(const platform::OptionalText& url);

}  // namespace vistrelle

#pragma GCC visibility pop
