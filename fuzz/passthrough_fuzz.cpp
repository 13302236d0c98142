// A movie is edited and written without coding anew; what was written opens again and lasts as long. The last bytes of
// the input, which a movie has no use for, say what is edited.

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "fuzz/movie_bytes.h"
#include "fuzz/support.h"
#include "vistrelle/platform/media/composition.h"
#include "vistrelle/platform/media/export/passthrough.h"

namespace {

using namespace vistrelle::platform;

constexpr std::size_t kEditBytes = 12;
constexpr off_t kMostBytes = 64 << 20;

/// A time within the first `seconds` and a bit beyond.
MediaTime timeFrom(Input& input, double seconds) {
  return MediaTime::makeWithSeconds(seconds * input.take<std::uint8_t>() / 200, 600);
}

std::shared_ptr<Composition> edited(const std::shared_ptr<Asset>& movie, Input edits) {
  const double seconds = movie->duration().isNumeric() ? movie->duration().seconds() : 0;
  auto composition = Composition::make();
  std::string error;
  composition->insertTimeRange({MediaTime::zero(), movie->duration()}, movie, MediaTime::zero(), &error);
  while (edits.remaining() >= 4) {
    const int kind = edits.take<std::uint8_t>() % 4;
    const TimeRange range{timeFrom(edits, seconds), timeFrom(edits, seconds)};
    const MediaTime to = timeFrom(edits, seconds);
    if (kind == 1) composition->removeTimeRange(range);
    if (kind == 2) composition->scaleTimeRange(range, to);
    if (kind == 3) composition->insertTimeRange(range, movie, to, &error);
  }
  return composition;
}

std::vector<std::uint8_t> contentOf(int file) {
  struct stat facts {};
  require(::fstat(file, &facts) == 0);
  if (facts.st_size > kMostBytes) return {};
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(facts.st_size));
  require(::pread(file, bytes.data(), bytes.size(), 0) == std::ssize(bytes));
  return bytes;
}

// Packets of other containers may go back in time where they are damaged; what they cannot show is not written.
void checkWritten(const std::vector<std::uint8_t>& bytes, const Composition& composition, bool isFromTables) {
  if (bytes.empty()) return;
  const auto memory = std::make_shared<MemoryBytes>(bytes);
  const auto header = mov::readMovieHeader(memory->size(), readsOf(memory));
  require(header.has_value() && header->timeScale > 0 && !header->tracks.empty());
  const double stated = static_cast<double>(header->headerDuration) / header->timeScale;
  const double wanted = composition.duration().seconds();
  // Whole units of the written time scale; each track's length is rounded to them.
  const double difference = stated - wanted;
  const double rounding = 2.0 / header->timeScale + wanted * 1e-9;
  require(difference <= rounding && (difference >= -rounding || !isFromTables));
  const auto again = openMovie(bytes);
  require(!again->tracks().empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  require(silenced);
  if (size < kEditBytes) return 0;
  const auto movie = openMovie({data, size});
  if (movie->tracks().empty()) return 0;
  const auto composition = edited(movie, Input(data + size - kEditBytes, kEditBytes));
  std::string reason;
  (void)canPassThrough(*composition, &reason);
  const int file = ::memfd_create("written", MFD_CLOEXEC);
  require(file >= 0);
  ExportControl control;
  double progress = 0;
  control.progress = [&progress](double now) {
    require(now >= progress && now <= 1);
    progress = now;
  };
  control.isCancelled = [file] {
    struct stat facts {};
    return ::fstat(file, &facts) != 0 || facts.st_size > kMostBytes;
  };
  std::string error;
  const bool isWritten = writePassthrough(*composition, file, control, &error);
  require(isWritten == error.empty());
  // No stretch of a movie can be said to be longer.
  const double longest = 2147483647;
  require(!isWritten || composition->duration().seconds() <= longest);
  const auto memory = std::make_shared<MemoryBytes>(std::span(data, size));
  const bool isFromTables = mov::readMovieHeader(memory->size(), readsOf(memory)).has_value();
  if (isWritten) checkWritten(contentOf(file), *composition, isFromTables);
  ::close(file);
  return 0;
}
