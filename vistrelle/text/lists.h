#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Small operations on lists of objects. An absent list gives an absent result.
namespace vistrelle {

/// A list that may be absent.
using OptionalList = std::optional<platform::List>;

/// Every element's text, in case-insensitive order.
std::optional<std::vector<std::string>> sortedTexts(const OptionalList& list);
/// Whether the first text sorts before the second or is equal to it but for case; true when either is absent.
bool isFirstInOrder(const platform::OptionalText& first, const platform::OptionalText& second);
OptionalList reversedList(const OptionalList& list);
/// The distinct elements, the last one's first occurrence first. Numbers are equal when their values are, whatever
/// their kind.
OptionalList uniqueList(const OptionalList& list);
/// A shallow copy; absent for an empty list.
OptionalList copyList(const OptionalList& list);
std::optional<platform::Dictionary> copyDictionary(const std::optional<platform::Dictionary>& dictionary);
/// `list` with the elements of `inserted` that are present put in, in order, the first at `index` (taken to the
/// nearest end when outside).
OptionalList insertList(const std::optional<std::vector<platform::OptionalValue>>& inserted, const OptionalList& list,
                        std::int64_t index);

}  // namespace vistrelle

#pragma GCC visibility pop
