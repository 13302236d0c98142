#pragma once

#include <string>
#include <string_view>

/// Paths as texts: these look at the text only, but for the home folder and standardizedPath.
/// An extension is what follows the last "." of the last component; a component that only begins with a point
/// (".profile"), ends in one, or an extension that holds a blank, has none.
namespace vistrelle::platform {

/// "/a/b.mov/" gives "b.mov"; "/" gives "/"; "" gives "".
std::string lastPathComponent(std::string_view path);
/// "/a/b.mov" gives "/a"; "/a" gives "/"; "a" gives "".
std::string deletingLastPathComponent(std::string_view path);
/// "/a/b.tar.gz" gives "gz".
std::string pathExtension(std::string_view path);
/// "/a/b.mov" gives "/a/b"; a path without extension comes back (trailing slashes dropped).
std::string deletingPathExtension(std::string_view path);
/// "/a/b" and "jpg" give "/a/b.jpg".
std::string appendingPathExtension(std::string_view path, std::string_view extension);
/// Joined by exactly one "/"; an empty path gives the component.
std::string appendingPathComponent(std::string_view path, std::string_view component);
/// The current user's home folder: HOME, else the password database; "/" when neither knows.
std::string homeFolder();
/// A leading "~" or "~user" replaced by the home folder; an unknown user leaves the path. Trailing slashes dropped.
std::string expandingTilde(std::string_view path);
/// "~" expanded, empty, "." and (in absolute paths) ".." components removed, no trailing "/"; ".." after a symbolic
/// link is resolved through the link's target.
std::string standardizedPath(std::string_view path);

}  // namespace vistrelle::platform
