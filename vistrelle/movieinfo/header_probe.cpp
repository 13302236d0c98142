#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/movieinfo/classification.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle {
namespace {

using platform::Data;
using platform::UniqueFd;

constexpr std::array<unsigned char, 1> kTransportStream{0x47};
// ISO/IEC 13818-1, 2.5.3.3: a pack header of MPEG-2 with system clock reference 0 and extension 0.
constexpr std::array<unsigned char, 10> kProgramStream{0x00, 0x00, 0x01, 0xBA, 0x44, 0x00, 0x04, 0x00, 0x04, 0x01};
// ETSI TS 102 366, 4.3.1: the sync word, most significant byte first.
constexpr std::array<unsigned char, 2> kAc3{0x0B, 0x77};

std::span<const unsigned char> signatureOf(std::int64_t kind) {
  if (kind == 0) return kTransportStream;
  if (kind == 1) return kProgramStream;
  if (kind == 2) return kAc3;
  return {};
}

/// The first `count` bytes of a regular file, fewer when it is shorter; nothing when it cannot be read.
std::optional<Data> firstBytes(const std::string& path, std::size_t count) {
  // A FIFO or a tape must not be waited for, and a terminal must not become ours.
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  Data bytes(count);
  std::size_t used = 0;
  while (used < count) {
    const ssize_t got = ::pread(file.get(), bytes.data() + used, count - used, static_cast<off_t>(used));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
  }
  bytes.resize(used);
  return bytes;
}

void logOutcome(std::int64_t kind, bool matches, const std::string& bytes) {
  if (kind == 0) log("ts headers          :-{} {}", mood(matches), bytes);
  if (kind == 1) log("ps headers          :-{} {}", mood(matches), bytes);
  if (kind == 2) log("ac3 headers         :-{} {}", mood(matches), bytes);
}

}  // namespace

bool streamHeaderProbe(const platform::OptionalText& path, std::int64_t kind) {
  const std::span<const unsigned char> expected = signatureOf(kind);
  if (!path || expected.empty() || !testPresenceCocoa(platform::Value(*path))) return false;
  const std::optional<Data> bytes = firstBytes(platform::expandingTilde(*path), expected.size());
  const bool matches = bytes && std::ranges::equal(*bytes, std::as_bytes(expected));
  logOutcome(kind, matches, bytes ? platform::description(platform::Value(*bytes)) : "(null)");
  return matches;
}

}  // namespace vistrelle
