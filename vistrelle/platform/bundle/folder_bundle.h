#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "vistrelle/platform/bundle/bundle.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// What a host says about itself.
struct FolderBundleDescription {
  /// The bundle's name; absent or empty for none.
  OptionalText name;
  /// The folder of resources: plain files, "tools", and "<language>.lproj" folders with translated ones.
  std::string resourceFolder;
  /// Languages in order of preference ("fr", "pt-BR"); empty: those of the environment (see preferredLanguages).
  std::vector<std::string> languages;
};

/// A bundle over a folder of resources. A resource is looked for in the folder itself, then in "<language>.lproj" of
/// each preferred language, "Base.lproj" and the English folder. A strings table is the file "<table>.strings" found
/// the same way, translated folders first; it is read at its first use and kept. Any thread may use the bundle.
std::shared_ptr<Bundle> folderBundle(FolderBundleDescription description);

/// The environment's languages, most wanted first, from LANGUAGE, LC_ALL, LC_MESSAGES and LANG: "fr_CH.UTF-8" gives
/// "fr-CH" and "fr". Empty in the C locale.
std::vector<std::string> preferredLanguages();

/// Full path of the existing entry "name.type" (just "name" when the type is empty) in `folder`.
OptionalText resourceInFolder(std::string_view folder, std::string_view name, std::string_view type);

}  // namespace vistrelle::platform

#pragma GCC visibility pop
