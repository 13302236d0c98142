#include "vistrelle/system/preferences.h"

#include <memory>
#include <string_view>
#include <utility>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/preferences/user_defaults.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::UserDefaults;

/// The defaults, empty where the machine has no place for them.
std::shared_ptr<UserDefaults> defaults() {
  auto object = platform::userDefaults().get();
  return object && object->available() ? object : nullptr;
}

std::string describe(const OptionalValue& value) {
  return value ? shortDescription(value) : "nil";
}

void logStored(const OptionalValue& value) {
  if (isVerbose()) log("prefRead            : {}", describe(value));
}

/// A value as a truth: a text counts by its first character after blanks, a sign and zeros.
bool asBoolean(const Value& value) {
  if (const auto* flag = value.get<bool>()) return *flag;
  if (const auto number = value.number()) return *number != 0;
  const auto* text = value.get<std::string>();
  if (!text) return false;
  std::string_view rest(*text);
  const auto skip = [&rest](std::string_view characters) {
    const auto first = rest.find_first_not_of(characters);
    rest.remove_prefix(first == std::string_view::npos ? rest.size() : first);
  };
  skip(" \t\r\n");
  if (rest.starts_with('+') || rest.starts_with('-')) rest.remove_prefix(1);
  skip("0");
  return !rest.empty() && std::string_view("YyTt123456789").find(rest.front()) != std::string_view::npos;
}

int booleanOrAbsent(const OptionalValue& value) {
  if (!value) return -1;
  return asBoolean(*value) ? 1 : 0;
}

Dictionary asDictionary(const OptionalValue& value) {
  const auto* dictionary = value ? value->get<Dictionary>() : nullptr;
  return dictionary ? *dictionary : Dictionary{};
}

}  // namespace

OptionalValue prefRead(const OptionalText& key) {
  auto value = prefObject(key);
  if (value) logStored(value);
  return value;
}

OptionalValue prefObject(const OptionalText& key) {
  const auto store = defaults();
  if (!key || !store) return std::nullopt;
  return store->object(*key);
}

std::string prefReadString(const OptionalText& key) {
  const auto value = prefRead(key);
  return value ? platform::description(*value) : std::string();
}

OptionalValue prefReadChild(const OptionalText& key, const OptionalText& child) {
  const auto value = prefObject(key);
  const auto* dictionary = value ? value->get<Dictionary>() : nullptr;
  if (!dictionary || !child) return std::nullopt;
  const auto entry = dictionary->find(*child);
  if (entry == dictionary->end()) return std::nullopt;
  return entry->second;
}

bool prefWrite(const OptionalText& key, const OptionalValue& object) {
  const auto store = defaults();
  if (!key || !object || !store) return false;
  if (isVerbose()) log("prefWrite           - old ? {}", describe(store->object(*key)));
  store->set(*key, *object);
  if (isVerbose()) log("prefWrite           - def : {}", describe(store->object(*key)));
  return true;
}

bool prefWriteBool(const OptionalText& key, bool flag) {
  const auto store = defaults();
  if (!key || !store) return false;
  if (isVerbose()) log("prefWrite           - old ? {}", booleanOrAbsent(store->object(*key)));
  store->set(*key, Value(flag));
  if (isVerbose()) {
    const auto stored = store->object(*key);
    log("prefWrite           - def : {}", stored && asBoolean(*stored) ? 1 : 0);
  }
  return true;
}

bool prefWriteDico(const OptionalText& key, const OptionalValue& object) {
  const auto store = defaults();
  if (!key || !object || !store) return false;
  if (store->object(*key)) {
    store->remove(*key);
    if (isVerbose() && !store->object(*key)) log("prefWriteDico       - old does not exist anymore :-)");
  }
  store->set(*key, *object);
  return true;
}

// The new dictionary takes the place of the old one in one change: with a removal written before it, a process that
// ends between the two would lose the other entries.
bool prefWriteChildDico(const OptionalText& key, const OptionalText& child, const OptionalValue& object) {
  const auto store = defaults();
  if (!key || !child || !object || !store) return false;
  Dictionary dictionary = asDictionary(store->object(*key));
  dictionary.insert_or_assign(*child, *object);
  if (isVerbose()) log("prefWriteChildDico  : new key={}, new value={}", *child, describe(object));
  store->set(*key, Value(std::move(dictionary)));
  return true;
}

bool prefDeleteChildDico(const OptionalText& key, const OptionalText& child) {
  const auto store = defaults();
  if (!key || !child || !store) return true;
  Dictionary dictionary = asDictionary(store->object(*key));
  const auto entry = dictionary.find(*child);
  if (entry == dictionary.end()) return true;
  if (isVerbose()) log("key to delete       : key={}, value={}", *child, describe(entry->second));
  dictionary.erase(entry);
  store->set(*key, Value(std::move(dictionary)));
  return true;
}

bool prefDelete(const OptionalText& key) {
  const auto store = defaults();
  if (!key || !store) return true;
  if (store->object(*key)) store->remove(*key);
  if (store->hasUnappliedChanges()) log("hasUnappliedChanges :-(");
  return true;
}

}  // namespace vistrelle
