#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Running other programs. Which operation hands text to a shell:
///   - `taskArray` hands none: each word reaches its tool as it is.
///   - `taskWithStr` runs its command line with /bin/sh. A ready text is a shell program and everything in it is
///     interpreted: never build one from file names. In a list, an element is passed on unquoted only when
///     `isStringSafeForTask` accepts it.
///   - `isStringSafeForTask` runs /bin/echo with the tested text unquoted, so the shell interprets it: substitutions
///     like $(...) are carried out. Only texts with a blank, a tab or a line end are judged without the shell. Do not
///     call it, or `taskWithStr` with a list, for texts from an untrusted source; `taskArray` is the operation for
///     them.
///   - `taskLaunchNoWait` runs its text with /bin/sh, everything in it is interpreted.
///   - `readContentsTxtViaCat` hands a path to the shell in double quotes with everything special escaped: nothing of
///     it is interpreted.
/// All of them but `taskLaunchNoWait` block the caller. Exit statuses are not examined. Any thread may call, but two
/// calls of `taskWithStr` at once share the work folder.
namespace vistrelle {

/// Runs a pipeline: words, with "|" between the tools. The first word of each tool is its full path. A word without
/// "://" has a leading "~" expanded. Returns the last tool's output and errors together, line ends as they are, read
/// until every writer has closed; nothing when a tool is missing, the output is "", " ", "\n" or " \n", or it is not
/// UTF-8. The children's environment has LC_CTYPE, FONTCONFIG_FILE and FONTCONFIG_PATH set.
platform::OptionalText taskArray(const std::optional<std::vector<std::string>>& words);

/// Runs a command line with the shell: a text as it is, or a list of texts made into one. Of a list, "2>&1", ">", "<",
/// "|" and what isStringSafeForTask accepts stay as they are; an element that names an existing item becomes the path
/// of a link to it in the folder "taskWithStr" of the private temporary folder; everything else is put in quotes
/// (double quotes, with nothing escaped, when it holds one). `folder`, where it exists, is the current folder. Returns
/// the standard output without one trailing line end; nothing when that is empty. Output is read while the child runs
/// and all that came until its end counts; what a grandchild writes later is not waited for.
platform::OptionalText taskWithStr(const platform::OptionalValue& command, const platform::OptionalText& folder);

/// Starts a shell command and returns at once; its output goes where this process's goes.
void taskLaunchNoWait(const platform::OptionalText& command);

/// Whether a text may stand unquoted on a shell command line: the shell's echo of it is the text itself, or the text
/// without its backslashes. A text with a blank, a tab or a line end never is.
bool isStringSafeForTask(const platform::OptionalText& text);

/// The text of a file in the encoding that it seems to have. A file whose encoding is unknown is copied with cat to
/// the path with ".txt" added, and the copy is read as ASCII; the copy stays beside the file, and a path that named
/// nothing names an empty file afterwards. Nothing when that fails too.
platform::OptionalText readContentsTxtViaCat(const platform::OptionalText& path);

}  // namespace vistrelle

#pragma GCC visibility pop
