#include "registry.h"
#include "vistrelle/system/alerts.h"
#include "vistrelle/system/localisation.h"

namespace call {

using namespace vistrelle;

void addDialogOperations(Registry& registry) {
  registry.add("alertGiveUp", &alertGiveUp);
  registry.add("alertGiveUpWithCheckbox", &alertGiveUpWithCheckbox);
  registry.add("alertSheetGiveUp", &alertSheetGiveUp);
  registry.add("alertSheetSimple", &alertSheetSimple);
  registry.add("alertSimple", &alertSimple);
  registry.add("alertTextField", &alertTextField);
  registry.add("alertUnexpected", &alertUnexpected);
  registry.add("isLocalized", &isLocalized);
  registry.add("localisedTitleFromStrings", &localisedTitleFromStrings);
  registry.add("stringsFileKeys", &stringsFileKeys);
  registry.add("setControlsEnabled", &setControlsEnabled);
}

}  // namespace call
