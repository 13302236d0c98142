#pragma once

#include <string>

/// The places that nothing removes.
namespace vistrelle {

enum class Protection {
  none,
  silent,     ///< refused without a word
  topFolder,  ///< refused with the alert about the containing folder
  wildcard,   ///< refused with the alert about wildcards
};

/// Whether the item at `path` ("~" expanded already) may be removed. The rules by the path's text are those that users
/// know; those that look at what the path leads to cover every other spelling of the same places (doubled slashes,
/// "." and "..", links on the way, bind mounts): the home folder by HOME and by the password database, the folders
/// above it, whatever lies in /, /Volumes or /Users, and folders in /home, /media, /mnt and /run/media/<user>.
Protection protectionOf(const std::string& path);

}  // namespace vistrelle
