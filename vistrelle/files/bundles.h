#pragma once

#include <string>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Paths inside the package folders of other applications, as their users see them: recordings (folders whose names
/// end in ".eyetv", or ".eyetvsched" before they are made) and movie projects (".iMovieProject").
namespace vistrelle {

/// The bundle folder when the path is directly inside a recording bundle, else the path; absent for absent.
platform::OptionalText EyetvBundle(const platform::OptionalText& path);
/// The display name: the last component of EyetvBundle without its extension; absent for absent.
platform::OptionalText fichier_nom(const platform::OptionalText& path);
/// The containing folder as the user sees it: of a file directly in a recording bundle the folder that holds the
/// bundle, of a project's export folder the folder that holds the project. "" for absent.
std::string fichier_dirname(const platform::OptionalText& path);
/// What fichier_dirname answers for a path without "~", without a log line.
std::string containingFolder(const std::string& path);
/// The bundle's name for paths inside a project or recording, else the file name without its extension.
platform::OptionalText bundleTitleOfPath(const platform::OptionalText& path);
/// folder + "/" + the first entry, in the directory's own order, whose extension is exactly the given one, or "".
std::string fileFromFolder(const platform::OptionalText& folder, const platform::OptionalText& extension);
/// Duration in seconds that the description file of the recording around `path` states; 0 when unknown.
float eyetvBundleDuration(const platform::OptionalText& path);

}  // namespace vistrelle

#pragma GCC visibility pop
