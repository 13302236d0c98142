#pragma once

namespace vistrelle {

/// Has the process end orderly when memory runs out on any thread or a library cannot be loaded (sayLastWords). `argv`
/// is main's; it is read when it comes to that. Once, before threads run.
void prepareLastWords(int argc, const char* const* argv);

/// Says what happened and which movie it was about, takes away a file under the destination's name that was not there
/// when the run began, and ends the process with status 1. Needs no memory. In a forked child it only ends the process.
[[noreturn]] void sayLastWords(const char* reason);

/// Whether memory was refused to this process: a library may have left something out and called that success.
bool wasMemoryRefused();

}  // namespace vistrelle
