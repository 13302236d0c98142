#include "vistrelle/text/lists.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>

#include "vistrelle/platform/text/unicode.h"
#include "vistrelle/text/scanning.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

/// Numbers and booleans of the same value get the same key, and so do any two equal objects.
std::string keyOf(const Value& value) {
  if (const auto* flag = value.get<bool>()) return *flag ? "1" : "0";
  const bool isReal = value.get<double>() || value.get<float>();
  if (!isReal) return platform::description(value);
  const double number = value.number().value_or(0);
  const std::int64_t whole = truncatedInteger(number);
  return static_cast<double>(whole) == number ? std::to_string(whole) : platform::description(Value(number));
}

bool isSame(const Value& a, const Value& b) {
  const auto isNumeric = [](const Value& value) { return value.isNumber() || value.get<bool>(); };
  // Their keys are equal already.
  return (isNumeric(a) && isNumeric(b)) || a == b;
}

}  // namespace

std::optional<std::vector<std::string>> sortedTexts(const OptionalList& list) {
  if (!list) return std::nullopt;
  struct Entry {
    std::string folded;
    std::string text;
  };
  std::vector<Entry> entries;
  entries.reserve(list->size());
  for (const Value& element : *list) {
    std::string text = textOf(element);
    entries.push_back({platform::caseFolded(text), std::move(text)});
  }
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    const int folded = a.folded.compare(b.folded);
    return folded != 0 ? folded < 0 : a.text < b.text;
  });
  std::vector<std::string> texts;
  texts.reserve(entries.size());
  for (Entry& entry : entries) texts.push_back(std::move(entry.text));
  return texts;
}

bool isFirstInOrder(const platform::OptionalText& first, const platform::OptionalText& second) {
  if (!first || !second) return true;
  return platform::caseFolded(*first) <= platform::caseFolded(*second);
}

OptionalList reversedList(const OptionalList& list) {
  if (!list) return std::nullopt;
  return platform::List(list->rbegin(), list->rend());
}

OptionalList uniqueList(const OptionalList& list) {
  if (!list) return std::nullopt;
  platform::List distinct;
  std::unordered_multimap<std::string, std::size_t> known;
  for (const Value& element : *list) {
    const std::string key = keyOf(element);
    const auto [first, last] = known.equal_range(key);
    if (std::any_of(first, last, [&](const auto& entry) { return isSame(distinct[entry.second], element); })) continue;
    known.emplace(key, distinct.size());
    distinct.push_back(element);
  }
  std::reverse(distinct.begin(), distinct.end());
  return distinct;
}

OptionalList copyList(const OptionalList& list) {
  if (!list || list->empty()) return std::nullopt;
  return list;
}

std::optional<platform::Dictionary> copyDictionary(const std::optional<platform::Dictionary>& dictionary) {
  if (!dictionary || dictionary->empty()) return std::nullopt;
  return dictionary;
}

OptionalList insertList(const std::optional<std::vector<platform::OptionalValue>>& inserted, const OptionalList& list,
                        std::int64_t index) {
  if (!list) return std::nullopt;
  platform::List result = *list;
  if (!inserted) return result;
  platform::List present;
  for (const platform::OptionalValue& element : *inserted) {
    if (element) present.push_back(*element);
  }
  const auto size = static_cast<std::int64_t>(result.size());
  result.insert(result.begin() + std::clamp<std::int64_t>(index, 0, size), std::make_move_iterator(present.begin()),
                std::make_move_iterator(present.end()));
  return result;
}

}  // namespace vistrelle
