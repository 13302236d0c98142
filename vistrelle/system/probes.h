#pragma once

#include <cstdint>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/system/web.h"

#pragma GCC visibility push(default)

/// Small questions about the machine and its tools. Versions are numbers: "a.b.c" is a + b/100 + c/10000.
namespace vistrelle {

/// The version of spumux (true) or dvdauthor in the folder "tools" of the main bundle's resources; 0 when unknown.
float dvdToolVersion(bool spumux);

/// The operating system's version; -1 when unknown.
float versionOS();
/// The version of QuickTime, which this system does not have: 0.
float versionQT();

/// Whether the display is accelerated; false without a display.
bool isQuartzExtreme();
/// Whether the processor is a G3; false where that cannot be asked.
bool cpuG3();
std::int64_t processorCount();

/// A colour for a text of hexadecimal digits ("#ff8000", the "#" may be missing), six lower-case hexadecimal digits for
/// a colour, nothing for anything else.
platform::OptionalValue colorHexaRgb(const platform::OptionalValue& textOrColour);

/// Has the desktop open a URL. Nothing happens where there is none.
void openURLText(const platform::OptionalText& url);

/// There is no AppleScript here: does nothing, answers nothing, one log line.
platform::OptionalValue runAppleScript(const platform::OptionalText& source);

}  // namespace vistrelle

#pragma GCC visibility pop
