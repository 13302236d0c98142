#pragma once

#include <cstdint>
#include <string>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Operations with some of their arguments fixed.
namespace vistrelle {

/// progressValueAfter one of the progress markers (diagnostics.h).
float progressTime(const platform::OptionalText& text);
float progressSteps(const platform::OptionalText& text);
float progressPourcentage(const platform::OptionalText& text);
float progressBatch(const platform::OptionalText& text);
float progressProcessing(const platform::OptionalText& text);
float progressBar(const platform::OptionalText& text);

/// The percentage done from an encoder's "Enc1" figure, a count and a duration: figure / duration / count * 100.
float encodePercent(const platform::OptionalText& text, std::int64_t count, float duration);

/// shortDescription at its default length.
std::string descriptionClip(const platform::OptionalValue& value);

/// dateCreation2Name with and without the "(id)" form.
platform::OptionalText dateCreation2NameWithId(const platform::OptionalText& path);
platform::OptionalText dateCreation2NameClip(const platform::OptionalText& path);

}  // namespace vistrelle

#pragma GCC visibility pop
