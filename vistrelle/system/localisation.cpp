#include "vistrelle/system/localisation.h"

#include "vistrelle/platform/bundle/bundle.h"

namespace vistrelle {

using platform::OptionalText;

bool isLocalized(const OptionalText& key) {
  if (!key) return false;
  return platform::mainBundle().get()->localizedString(*key, "", "Localized") != *key;
}

}  // namespace vistrelle
