#pragma once

#include <string>
#include <string_view>

/// Paths as texts: these look at the text only, but for the home folder, standardizedPath and canonicalPath.
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
/// "/a/b" and "jpg" give "/a/b.jpg"; an empty path stays empty.
std::string appendingPathExtension(std::string_view path, std::string_view extension);
/// Joined by exactly one "/"; an empty path gives the component.
std::string appendingPathComponent(std::string_view path, std::string_view component);
/// Without the "/" at its end; "/" and "//" give "/".
std::string droppingTrailingSlashes(std::string_view path);
/// The current user's home folder: HOME, else the password database; "/" when neither knows. No trailing "/".
std::string homeFolder();
/// The home folder that the password database names, whatever HOME says; "" when it names none.
std::string homeFolderOfRecord();
/// The login name of the user id in the password database; "" when it has none.
std::string loginName();
/// A leading "~" or "~user" replaced by the home folder, then trailing slashes dropped; a path that does not begin
/// with "~", or names an unknown user, comes back as it is.
std::string expandingTilde(std::string_view path);
/// "~" expanded, empty, "." and (in absolute paths) ".." components removed, no trailing "/"; ".." after a symbolic
/// link is resolved through the link's target.
std::string standardizedPath(std::string_view path);
/// A relative path put behind the current folder; an absolute or empty one as it is.
std::string absolutePath(std::string_view path);
/// The place in the tree that a path names, without following a link in its last component: the parent with every
/// link resolved, then the name. "" when the parent does not exist.
std::string canonicalPath(std::string_view path);
/// The text of the path's file URL (a relative path counts from the current folder): everything but unreserved
/// characters and "/" percent-encoded.
std::string fileUrlText(std::string_view path);
/// The path that a file URL names, percent-decoded; "" for any other text, for a URL that names another host and for
/// one that holds a zero byte.
std::string pathOfFileUrl(std::string_view url);

}  // namespace vistrelle::platform
