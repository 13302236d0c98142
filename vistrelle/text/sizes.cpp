#include "vistrelle/platform/text/unicode.h"
#include "vistrelle/text/numbers.h"

namespace vistrelle {

double sizeInUnit(std::int64_t bytes, const platform::OptionalText& unit) {
  const auto count = static_cast<double>(bytes);
  if (bytes < 1) return count;
  const std::string upper = platform::uppercased(unit.value_or("k"));
  if (upper == "K") return count * 0.0009765625;
  if (upper == "M") return count * 9.5367431640625e-7;
  if (upper == "G") return count * 9.313225746154785e-10;
  return count;
}

}  // namespace vistrelle
