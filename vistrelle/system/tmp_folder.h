#pragma once

#include <string>

#pragma GCC visibility push(default)

namespace vistrelle {

/// The program's private temporary folder: the installed one, else "/private/tmp/" and the main bundle's name
/// ("(null)" without one). Only named, not made.
std::string tmpFolderPath();

/// Installs the folder that tmpFolderPath answers from now on; "" goes back to the default.
void tmpFolderSet(const std::string& path);

/// Makes the temporary folder, closed to other users, unless it is there. False, with one log line, when it cannot be
/// made or was prepared by another user: not a folder, a link of somebody else, somebody else's folder (the system
/// administrator's are trusted), or one where others may change what they do not own. To be called before writing
/// there.
bool tmpFolderReady();

}  // namespace vistrelle

#pragma GCC visibility pop
