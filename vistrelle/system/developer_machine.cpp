#include <string_view>

#include "vistrelle/system/preferences.h"

namespace vistrelle {
namespace {

constexpr std::string_view kMakersDomain = "vistrelle.example";

}  // namespace

bool isDeveloperMachine() {
  const auto id = prefRead("id");
  const auto* text = id ? id->get<std::string>() : nullptr;
  return text && text->find(kMakersDomain) != std::string::npos;
}

}  // namespace vistrelle
