#pragma once

#include <optional>
#include <string>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// The user's preferences of the running program, by key. An absent key, child key or object is an empty optional.
/// Nothing here fails loudly: reads give nothing, writes give false for missing arguments or where the machine has no
/// place for preferences. Any thread may call; an update of a child dictionary is not atomic against another writer
/// of the same key.
namespace vistrelle {

/// The stored object; nothing when the key is absent or not given. Verbose: one line with the object.
platform::OptionalValue prefRead(const platform::OptionalText& key);
/// The same without any log line.
platform::OptionalValue prefObject(const platform::OptionalText& key);
/// The stored object's text; empty when there is none.
std::string prefReadString(const platform::OptionalText& key);
/// The entry `child` of the dictionary stored under `key`.
platform::OptionalValue prefReadChild(const platform::OptionalText& key, const platform::OptionalText& child);

/// Stores an object. True when both are given, whether or not the disk took it (see UserDefaults).
bool prefWrite(const platform::OptionalText& key, const platform::OptionalValue& object);
bool prefWriteBool(const platform::OptionalText& key, bool flag);
/// As prefWrite, but the old value is removed first.
bool prefWriteDico(const platform::OptionalText& key, const platform::OptionalValue& object);
/// Sets one entry of the dictionary stored under `key`; a value that is no dictionary, or none, makes way for a new
/// dictionary with this entry.
bool prefWriteChildDico(const platform::OptionalText& key, const platform::OptionalText& child,
                        const platform::OptionalValue& object);

/// Removes one entry of the dictionary stored under `key`. Always true.
bool prefDeleteChildDico(const platform::OptionalText& key, const platform::OptionalText& child);
/// Removes a key. Always true.
bool prefDelete(const platform::OptionalText& key);

/// Whether the preference "id" holds a text with the makers' domain, "vistrelle.example". It switches on extra
/// diagnostics.
bool isDeveloperMachine();

}  // namespace vistrelle

#pragma GCC visibility pop
