#include "vistrelle/files/bundles.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle {

using platform::deletingLastPathComponent;
using platform::expandingTilde;
using platform::OptionalText;

namespace {

constexpr std::string_view exportFolderMarker = ".iMovieProject/Shared Movies/iDVD";

bool contains(const std::string& text, std::string_view piece) {
  return text.find(piece) != std::string::npos;
}

/// The path without its last characters, as many as the marker has, wherever in the path the marker stands: the rule
/// is made for paths that end in it.
std::string cuttingExportFolder(const std::string& path) {
  const auto kept = platform::characterCount(path) - platform::characterCount(exportFolderMarker);
  return std::string(platform::prefixOfCharacters(path, kept));
}

/// Only an item directly inside the bundle is lifted out of it.
std::string liftedOutOfRecording(const std::string& path) {
  if (!contains(path, ".eyetv/") && !contains(path, ".eyetvsched/")) return path;
  const std::string parent = deletingLastPathComponent(path);
  return parent.ends_with(".eyetv") || parent.ends_with(".eyetvsched") ? parent : path;
}

}  // namespace

OptionalText EyetvBundle(const OptionalText& path) {
  if (!path) return std::nullopt;
  logVerbose("EyetvBundle    start: {}", *path);
  std::string bundle = liftedOutOfRecording(*path);
  logVerbose("EyetvBundle      end: '{}'", bundle);
  return bundle;
}

OptionalText fichier_nom(const OptionalText& path) {
  if (!path) return std::nullopt;
  logVerbose("fichier_nom         - begin - {}", *path);
  const OptionalText bundle = EyetvBundle(expandingTilde(*path));
  std::string name = platform::deletingPathExtension(platform::lastPathComponent(*bundle));
  logVerbose("fichier_nom         - end   - {}", name);
  return name;
}

std::string fichier_dirname(const OptionalText& path) {
  if (!path) return "";
  std::string expanded = expandingTilde(*path);
  if (contains(expanded, exportFolderMarker)) {
    expanded = cuttingExportFolder(expanded);
    logVerbose("bundle imovie        : {}", expanded);
  }
  std::string folder = deletingLastPathComponent(*EyetvBundle(expanded));
  logVerbose("fichier_dirname     - end   - {}", folder);
  return folder;
}

std::string containingFolder(const std::string& path) {
  const std::string cut = contains(path, exportFolderMarker) ? cuttingExportFolder(path) : path;
  return deletingLastPathComponent(liftedOutOfRecording(cut));
}

OptionalText bundleTitleOfPath(const OptionalText& path) {
  if (!path) return std::nullopt;
  logVerbose("input               : {}", *path);
  static constexpr std::array<std::string_view, 3> markers{".iMovieProject/", ".eyetv/", ".eyetvsched/"};
  const std::string expanded = expandingTilde(*path);
  for (const std::string_view marker : markers) {
    const auto position = expanded.find(marker);
    if (position != std::string::npos) return platform::lastPathComponent(expanded.substr(0, position));
  }
  return platform::deletingPathExtension(platform::lastPathComponent(expanded));
}

std::string fileFromFolder(const OptionalText& folder, const OptionalText& extension) {
  if (!folder || !extension) return "";
  const auto entries = platform::fileManager().get()->entries(expandingTilde(*folder));
  if (isVerbose()) log("lsFolder : {}", entries ? platform::description(*entries) : "(null)");
  std::string path;
  if (entries) {
    const auto found = std::find_if(entries->begin(), entries->end(), [&](const std::string& entry) {
      return platform::pathExtension(entry) == *extension;
    });
    if (found != entries->end()) {
      path = *folder + "/" + *found;
      logVerbose("fichier: {}, extension : {}", *found, *extension);
    }
  }
  logVerbose("fileFromFolder str : {}", path);
  return path;
}

}  // namespace vistrelle
