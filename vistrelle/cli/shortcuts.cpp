#include "vistrelle/cli/shortcuts.h"

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/text/text.h"
#include "vistrelle/text/titles.h"

namespace vistrelle {

float progressTime(const OptionalText& text) {
  return progressValueAfter(text, markerTime());
}
float progressSteps(const OptionalText& text) {
  return progressValueAfter(text, markerSteps());
}
float progressPourcentage(const OptionalText& text) {
  return progressValueAfter(text, markerPourcentage());
}
float progressBatch(const OptionalText& text) {
  return progressValueAfter(text, markerBatch());
}
float progressProcessing(const OptionalText& text) {
  return progressValueAfter(text, markerProcessing());
}
float progressBar(const OptionalText& text) {
  return progressValueAfter(text, markerBar());
}

float encodePercent(const OptionalText& text, std::int64_t count, float duration) {
  const float ofDuration = progressValueAfter(text, "Enc1") / duration;
  const float ofCount = ofDuration / static_cast<float>(count);
  return ofCount * 100.0F;
}

std::string descriptionClip(const OptionalValue& value) {
  return shortDescription(value);
}

OptionalText dateCreation2NameWithId(const OptionalText& path) {
  return dateCreation2Name(path, true);
}
OptionalText dateCreation2NameClip(const OptionalText& path) {
  return dateCreation2Name(path, false);
}

}  // namespace vistrelle
