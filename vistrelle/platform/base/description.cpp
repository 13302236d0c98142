#include <charconv>
#include <ctime>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/value.h"

namespace vistrelle::platform {
namespace {

std::string describeDate(const Date& date) {
  const std::time_t seconds =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()))
          .count();
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  return format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday,
                utc.tm_hour, utc.tm_min, utc.tm_sec);
}

template <typename Number>
std::string shortest(Number number) {
  char digits[64];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  return std::string(digits, end);
}

}  // namespace

// The first form, replaced by the full old-style property-list printer.
std::string description(const Value& value) {
  return std::visit(
      [](const auto& stored) -> std::string {
        using T = std::decay_t<decltype(stored)>;
        if constexpr (std::is_same_v<T, std::string>) return stored;
        else if constexpr (std::is_same_v<T, bool>) return stored ? "1" : "0";
        else if constexpr (std::is_arithmetic_v<T>) return shortest(stored);
        else if constexpr (std::is_same_v<T, Date>) return describeDate(stored);
        else if constexpr (std::is_same_v<T, Url>) return stored.text;
        else if constexpr (std::is_same_v<T, std::shared_ptr<const Opaque>>) return stored ? stored->description() : "(null)";
        else if constexpr (std::is_same_v<T, List>) {
          std::string text = "(\n";
          for (const Value& element : stored) text += "    " + description(element) + "\n";
          return text + ")";
        } else return "";
      },
      value.stored());
}

std::string description(const OptionalValue& value) { return value ? description(*value) : "(null)"; }

std::string description(const std::vector<std::string>& list) {
  return description(Value(List(list.begin(), list.end())));
}

}  // namespace vistrelle::platform
