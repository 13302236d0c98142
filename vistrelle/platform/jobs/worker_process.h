#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "vistrelle/platform/files/unique_fd.h"
#include "vistrelle/platform/jobs/worker_pool.h"

/// The life of one worker process, and how it talks with its pool: texts with their length before them.
namespace vistrelle::platform {

/// No task and no answer is longer.
constexpr std::size_t kMaxTaskBytes = std::size_t{64} << 20;

/// `text` as it goes over the socket.
std::string framed(std::string_view text);
/// Takes a whole text off the beginning of `bytes`; nothing as long as it is not complete. False in `isSound` when what
/// stands there can never become one.
std::optional<std::string> takeFramed(std::string* bytes, bool* isSound);

/// The same for an answer, which a byte precedes that tells whether it is the worker's last.
std::optional<std::string> takeAnswer(std::string* bytes, bool* isLast, bool* isSound);

/// Forks a worker; -1 when the system refuses. `socket` receives this side's end, which does not block.
pid_t forkWorker(const WorkerSetup& setup, std::uint64_t memoryBytes, UniqueFd* socket);

/// "status 3", "signal 9 (Killed)", of what waitpid gave.
std::string textOfEnd(int status);

}  // namespace vistrelle::platform
