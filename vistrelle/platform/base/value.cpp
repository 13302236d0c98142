#include "vistrelle/platform/base/value.h"

namespace vistrelle::platform {

bool Value::isNumber() const {
  return number().has_value();
}

std::optional<double> Value::number() const {
  if (const auto* whole = get<std::int64_t>()) return static_cast<double>(*whole);
  if (const auto* whole = get<std::uint64_t>()) return static_cast<double>(*whole);
  if (const auto* real = get<double>()) return *real;
  if (const auto* real = get<float>()) return static_cast<double>(*real);
  return std::nullopt;
}

}  // namespace vistrelle::platform
