#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Questions about files and folders, and a few actions on the user's desktop. An absent path and an empty one both
/// mean that no path was given; a leading "~" is expanded unless an operation says otherwise.
namespace vistrelle {

/// Whether a path exists. Any object may name it, by its text: a URL is tested by its printed form, which names no
/// file. Something that cannot be opened for reading counts as absent unless it is a symbolic link whose target is
/// there; a dangling link counts as absent. Never blocks on what the path names.
bool testPresenceCocoa(const platform::OptionalValue& object);

/// Tells the workspace that a path changed.
void noteFsChanged(const platform::OptionalText& path);

/// Whether the path, taken as it is ("~" is not expanded), is a folder or a link to one.
bool isDirCocoa(const platform::OptionalText& path);

/// Whether the file can be opened for reading and writing.
bool isWritableCocoa(const platform::OptionalText& path);

/// The last path component; "" for an absent path.
std::string fileNameOfPath(const platform::OptionalText& path);
/// The last path component without its extension; "" for an absent path.
std::string fileBaseNameOfPath(const platform::OptionalText& path);

/// Full paths of every item below a folder at any depth, a folder before its content, in the directories' own order;
/// nothing when there is none. Links below the folder are items and never entered.
std::optional<std::vector<std::string>> listAllPathsCocoa(const platform::OptionalText& folder);

/// The target that a symbolic link holds, or nothing.
platform::OptionalText symlinkDestinationCocoa(const platform::OptionalText& path);

/// The final target of a chain of symbolic links; any other path, and a chain that ends nowhere, as passed in.
platform::OptionalText resolveAliasPath(const platform::OptionalText& path);

/// Sets the item's modification date; false for an absent item or date.
bool setModificationDate(const platform::OptionalText& path, const std::optional<platform::Date>& date);

/// Size in a unit ("o" or "B" bytes, "K", "M", "G" powers of 1,024, any case), -1 on failure. Of a folder the size of
/// its contents when the unit is one of these, else the folder entry's own size; bytes without a unit.
double poidsFile(const platform::OptionalText& path, const platform::OptionalText& unit);
/// poidsFile with the unit "m".
float poidsFileMo(const platform::OptionalText& path);
/// The size found by opening the file and seeking to its end; bytes for "o" and without a unit, -1 on failure.
double poidsFileC(const platform::OptionalText& path, const platform::OptionalText& unit);
/// Total of the entries' own sizes below a folder, folders included, in units of 1,048,576 bytes, added up in single
/// precision in the order of listAllPathsCocoa.
float folderSizeMo(const platform::OptionalText& path);
/// Whole units of 1,048,576 bytes that an ordinary user may still write on the path's volume; -1 on failure.
std::int64_t freeDiskSpaceMo(const platform::OptionalText& path);

/// Opens the folder, or the file's folder, in the file browser; the workspace's answer, false for an absent path.
bool openFolderOfPath(const platform::OptionalText& path);
/// Opens a file. With the empty application name the workspace's answer; with none or any other name, which is not
/// used, the default application opens it and the answer is true. False for an absent path.
bool openFileCocoa(const platform::OptionalText& path, const platform::OptionalText& application);
/// Moves the item to the Trash. Always true, whatever the workspace did.
bool trashCocoa(const platform::OptionalText& path);

}  // namespace vistrelle

#pragma GCC visibility pop
