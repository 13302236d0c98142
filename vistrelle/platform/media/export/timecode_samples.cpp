#include "vistrelle/platform/media/export/timecode_samples.h"

#include <algorithm>
#include <optional>

#include "vistrelle/platform/media/mov/box_reader.h"

namespace vistrelle::platform {
namespace {

constexpr std::uint32_t kDropFrame = 1;
constexpr std::uint32_t kWrapsAtMidnight = 2;
constexpr std::uint32_t kIsCounter = 8;
constexpr std::int64_t kSampleBytes = 4;

/// The fields of a timecode sample entry that tell how frames are counted.
struct TimecodeClock {
  std::uint32_t flags = 0;
  std::uint32_t timeScale = 0;
  std::uint32_t frameDuration = 0;
  std::uint32_t framesASecond = 0;
};

std::optional<TimecodeClock> readClock(const std::vector<std::uint8_t>& entry) {
  mov::Cursor cursor(entry);
  cursor.skip(16 + 4);
  TimecodeClock clock;
  clock.flags = cursor.u32();
  clock.timeScale = cursor.u32();
  clock.frameDuration = cursor.u32();
  clock.framesASecond = cursor.u8();
  if (!cursor.isGood() || clock.timeScale == 0 || clock.frameDuration == 0) return std::nullopt;
  return clock;
}

/// Two numbers are left out each minute but every tenth, for every 30 a second.
std::int64_t framesADay(const TimecodeClock& clock) {
  constexpr std::int64_t kSecondsADay = 86400;
  const std::int64_t frames = kSecondsADay * clock.framesASecond;
  const bool drops = (clock.flags & kDropFrame) != 0;
  return drops ? frames - std::int64_t{2} * clock.framesASecond / 30 * (24 * 54) : frames;
}

bool readNumber(const SourceTrack& source, const mov::Sample& sample, std::uint32_t& number, std::string* error) {
  std::vector<std::uint8_t> bytes;
  const ByteRange range{sample.offset, kSampleBytes};
  const auto keep = [&bytes](std::span<const std::uint8_t> more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return true;
  };
  if (!source.store->copy({&range, 1}, keep, error)) return false;
  mov::Cursor cursor(bytes);
  number = cursor.u32();
  return true;
}

std::uint32_t numberAfter(std::uint32_t number, const Ratio& seconds, const std::optional<TimecodeClock>& clock) {
  if (!clock) return number;
  const std::int64_t frames = (seconds * Ratio(clock->timeScale, clock->frameDuration)).floor();
  std::int64_t result = std::int64_t{number} + frames;
  const std::int64_t day = framesADay(*clock);
  const bool wraps = (clock->flags & kWrapsAtMidnight) != 0 && (clock->flags & kIsCounter) == 0;
  if (wraps && day > 0) result %= day;
  return static_cast<std::uint32_t>(result);
}

}  // namespace

bool makeTimecodes(PlannedTrack& plan, std::vector<std::int64_t>& mediaTimes, std::string* error) {
  const Ratio scale(plan.track.timeScale);
  std::int64_t position = 0;
  for (const Piece& piece : plan.pieces) {
    mediaTimes.push_back(piece.source == nullptr ? -1 : position);
    if (piece.source == nullptr) continue;
    const mov::SampleTables& tables = piece.source->tables;
    const Ratio ticks(tables.timeScale);
    const Ratio end = piece.media + piece.mediaLength;
    const std::int64_t begin = position;
    for (const mov::Sample& sample : tables.samples) {
      const Ratio from = std::max(Ratio(sample.decodeTime) / ticks, piece.media);
      const Ratio to = std::min(Ratio(sample.decodeTime + sample.span()) / ticks, end);
      if (to <= from) continue;
      std::uint32_t number = 0;
      if (!readNumber(*piece.source, sample, number, error)) return false;
      const auto& entry =
          tables.descriptions[std::min<std::size_t>(sample.description, tables.descriptions.size() - 1)];
      number = numberAfter(number, from - Ratio(sample.decodeTime) / ticks, readClock(entry));
      const std::int64_t next = begin + ((to - piece.media) * piece.stretch() * scale).rounded();
      if (next <= position) continue;
      mov::WrittenSample written;
      written.offset = std::ssize(plan.ownBytes);
      written.size = kSampleBytes;
      written.bytes = kSampleBytes;
      written.duration = static_cast<std::uint32_t>(next - position);
      written.description = plan.descriptionOf(*piece.source, sample.description);
      plan.track.samples.push_back(written);
      for (int shift = 24; shift >= 0; shift -= 8) plan.ownBytes.push_back(static_cast<std::uint8_t>(number >> shift));
      position = next;
    }
  }
  plan.origins.push_back({plan.track.samples.size(), nullptr});
  return true;
}

}  // namespace vistrelle::platform
