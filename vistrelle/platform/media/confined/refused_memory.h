#pragma once

namespace vistrelle::platform {

/// The exit status of a worker that memory was refused to: it must not go on and give another picture.
constexpr int kOutOfMemoryStatus = 71;

/// True in the process that makes decoders and in the decoders. A library that gets no memory may leave something out
/// and call that success; so a program whose own allocation functions see every request (vistrelle/cli/allocation.cpp)
/// ends such a process with kOutOfMemoryStatus at the first one that is refused. Set after the fork, before threads.
extern bool endsOnRefusedMemory;

}  // namespace vistrelle::platform
