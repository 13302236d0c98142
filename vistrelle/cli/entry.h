#pragma once

#include <string>

#pragma GCC visibility push(default)

namespace vistrelle {

/// The command line, from the banner to the exit status: 0 when every stage succeeded, else 1. `argv` is main's,
/// program path first; arguments are bytes and need not be valid UTF-8.
///
/// A value-taking option without a value throws std::out_of_range after the banner, which is meant to end the process.
int vistrelleMain(int argc, const char* const* argv);

/// The banner on standard error; 1.
int bannerPrint();

/// `text` as it is on standard error; 1.
int stderrPrint(const std::string& text);

/// Makes the process fit to run whatever it was started with: missing standard descriptors are /dev/null, so that no
/// output file takes their place, and a standard error that nobody reads does not end it.
void prepareProcess();

}  // namespace vistrelle

#pragma GCC visibility pop
