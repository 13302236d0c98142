#include "vistrelle/files/protected_places.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "vistrelle/files/bundles.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle {

using platform::deletingLastPathComponent;
using platform::FileAttributes;
using platform::fileManager;

namespace {

constexpr std::string_view authoringArea = "/ZRKauthoring";

/// Nothing directly in these is removed. Devices and the standard streams are files that may be written to.
constexpr std::array<std::string_view, 4> topFolders{"/", "/Volumes", "/Users", "/dev"};
/// No folder directly in these is removed: they hold homes and volumes; a file there is an ordinary file.
constexpr std::array<std::string_view, 3> volumeFolders{"/home", "/media", "/mnt"};
constexpr std::string_view userVolumeFolders = "/run/media";
constexpr std::array<std::string_view, 4> wildcards{"*", "/*", "/Volumes/*", "/Volumes/Users/*"};

/// The empty text is found nowhere.
bool isPieceOf(const std::string& piece, const std::string& text) {
  return !piece.empty() && text.find(piece) != std::string::npos;
}

template <typename Texts>
bool isOneOf(const std::string& text, const Texts& texts) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

bool beginsWithWildcard(const std::string& path) {
  return std::any_of(wildcards.begin(), wildcards.end(), [&](std::string_view mark) { return path.starts_with(mark); });
}

std::optional<FileAttributes> itemAt(const std::string& path, bool followLink) {
  return fileManager().get()->attributes(path, followLink);
}

bool isSameItem(const std::optional<FileAttributes>& item, std::string_view path) {
  if (!item) return false;
  const auto other = itemAt(std::string(path), true);
  return other && item->sameFile(*other);
}

/// Two characters, not one: "/a/bc/" is looked for as "/a/b". Intended.
std::string withoutTwoCharacters(const std::string& path) {
  return std::string(platform::prefixOfCharacters(path, platform::characterCount(path) - 2));
}

/// The rules by the text alone, as it was given.
Protection protectionByText(const std::string& path) {
  if (path == "/") return Protection::silent;
  const std::string trimmed = path.ends_with('/') ? withoutTwoCharacters(path) : path;
  const std::string home = deletingLastPathComponent(platform::expandingTilde("~/Movies"));
  if (isPieceOf(trimmed, home) || isPieceOf(trimmed, "/Users/" + platform::loginName())) return Protection::silent;
  if (path.starts_with(authoringArea)) return Protection::none;
  if (isOneOf(fichier_dirname(path), topFolders)) return Protection::topFolder;
  return beginsWithWildcard(path) ? Protection::wildcard : Protection::none;
}

/// Whether the item is a home folder, in whatever spelling, or a folder above one.
bool isHomeOrAbove(const std::string& path, const std::string& place) {
  const auto target = itemAt(path, true);
  // A link to a folder above the home is an ordinary link, but not when a "/" at the end leads through it.
  const auto item = itemAt(path.ends_with('/') ? path : place, false);
  for (const std::string& home : {platform::homeFolder(), platform::homeFolderOfRecord()}) {
    if (home.empty()) continue;
    if (place == home || isSameItem(target, home)) return true;
    const std::string real = fileManager().get()->resolvedPath(home).value_or(home);
    for (const std::string& spelling : {platform::standardizedPath(home), real}) {
      for (std::string above = spelling; above.size() > 1;) {
        above = deletingLastPathComponent(above);
        if (place == above || (!above.empty() && isSameItem(item, above))) return true;
      }
    }
  }
  return false;
}

/// Whether the place is a folder, leads to one, or is not there at all.
bool isNoFile(const std::string& place) {
  const auto item = itemAt(place, true);
  return item ? item->kind == platform::FileKind::folder : !itemAt(place, false);
}

/// Whether the item lies directly in a folder whose items, or folders, are protected.
bool isDirectlyInTop(const std::string& place) {
  const std::string folder = containingFolder(place);
  const auto item = itemAt(folder, true);
  const auto isFolder = [&](std::string_view top) { return folder == top || isSameItem(item, top); };
  if (!place.starts_with(authoringArea) && std::any_of(topFolders.begin(), topFolders.end(), isFolder)) return true;
  const bool holdsVolumes = std::any_of(volumeFolders.begin(), volumeFolders.end(), isFolder) ||
                            isFolder(userVolumeFolders) || deletingLastPathComponent(folder) == userVolumeFolders ||
                            isSameItem(itemAt(folder + "/..", true), userVolumeFolders);
  return holdsVolumes && isNoFile(place);
}

}  // namespace

Protection protectionOf(const std::string& path) {
  if (const Protection byText = protectionByText(path); byText != Protection::none) return byText;
  if (path.empty()) return Protection::none;
  // By the kernel's reading of the path and, where a part of it is missing, by its text.
  const std::string absolute = platform::absolutePath(path);
  for (const std::string& place : {platform::canonicalPath(path), platform::standardizedPath(absolute)}) {
    if (place.empty()) continue;
    if (isHomeOrAbove(path, place) || isDirectlyInTop(place)) return Protection::topFolder;
    if (beginsWithWildcard(place)) return Protection::wildcard;
  }
  return Protection::none;
}

}  // namespace vistrelle
