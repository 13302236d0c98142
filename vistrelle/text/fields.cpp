#include <algorithm>
#include <cmath>
#include <string_view>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/base/format.h"
#include "vistrelle/text/numbers.h"
#include "vistrelle/text/replacing.h"
#include "vistrelle/text/scanning.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

constexpr std::int64_t kLastButOne = 666;
constexpr std::int64_t kLast = 777;

std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
  const TextSearch search(separator);
  std::vector<std::string_view> fields;
  std::size_t start = 0;
  for (std::size_t at = search.find(text, 0); at != std::string_view::npos; at = search.find(text, start)) {
    fields.push_back(text.substr(start, at - start));
    start = at + separator.size();
  }
  fields.push_back(text.substr(start));
  return fields;
}

/// -1, 0 or 1; numbers of different kinds are compared by their exact values. NaN is below all.
int order(const Value& a, const Value& b) {
  const auto* wholeA = a.get<std::int64_t>();
  const auto* wholeB = b.get<std::int64_t>();
  if (wholeA && wholeB) return (*wholeA > *wholeB) - (*wholeA < *wholeB);
  const auto exact = [](const Value& value) -> long double {
    if (const auto* whole = value.get<std::int64_t>()) return static_cast<long double>(*whole);
    if (const auto* whole = value.get<std::uint64_t>()) return static_cast<long double>(*whole);
    if (const auto* flag = value.get<bool>()) return *flag ? 1 : 0;
    return value.number().value_or(0);
  };
  const long double x = exact(a);
  const long double y = exact(b);
  if (std::isnan(x) || std::isnan(y)) return std::isnan(y) - std::isnan(x);
  return (x > y) - (x < y);
}

}  // namespace

std::string ASTID(const platform::OptionalText& text, const platform::OptionalText& separator, std::int64_t index) {
  if (!text) return "";
  if (!separator) return *text;
  logVerbose("ASTID               - begin : ({}) {}", *separator, *text);
  if (*text == std::to_string(integerValue(*text))) {
    logVerbose("ASTID               - NSInteger detected ;-)");
    return *text;
  }
  if (*text == platform::format("{:f}", floatValue(*text))) {
    logVerbose("ASTID               - float detected ;-)");
    return *text;
  }
  const std::vector<std::string_view> fields = split(*text, *separator);
  if (fields.size() < 2) return *text;
  const auto count = static_cast<std::int64_t>(fields.size());
  if (index == kLastButOne) index = count - 2;
  if (index == kLast) index = count - 1;
  if (index < 0 || index >= count) return *text;
  return std::string(fields[static_cast<std::size_t>(index)]);
}

float versionStr2Float(const platform::OptionalText& version) {
  const std::vector<std::string_view> parts = split(version ? std::string_view(*version) : "", ".");
  const auto part = [&parts](std::size_t index) {
    return index < parts.size() ? static_cast<float>(integerValue(parts[index])) : 0.0F;
  };
  const float whole = part(0);
  const float hundredths = part(1) / 100.0F;
  const float tenThousandths = part(2) / 100.0F / 100.0F;
  const float number = whole + hundredths + tenThousandths;
  logVerbose("returnedFloat       : {:f}", number);
  return number;
}

std::optional<platform::List> sortedNumbers(const std::optional<platform::List>& list) {
  if (!list || list->empty()) return std::nullopt;
  platform::List numbers;
  for (const Value& element : *list) {
    log("{}", platform::description(element));
    const bool isNumber = element.isNumber() || element.get<bool>();
    numbers.push_back(isNumber ? element : Value(str2Float(platform::description(element))));
  }
  std::stable_sort(numbers.begin(), numbers.end(), [](const Value& a, const Value& b) { return order(a, b) < 0; });
  return numbers;
}

}  // namespace vistrelle
