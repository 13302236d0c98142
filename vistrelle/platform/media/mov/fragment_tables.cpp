#include "vistrelle/platform/media/mov/fragment_tables.h"

#include <algorithm>
#include <utility>

#include "vistrelle/platform/media/mov/box_reader.h"

namespace vistrelle::platform::mov {
namespace {

constexpr std::uint32_t kMaxRun = std::uint32_t{1} << 24;
constexpr std::uint32_t kIsNonSync = 0x10000;  // 14496-12, 8.8.3.1: sample_is_non_sync_sample

std::int64_t within(std::int64_t value) {
  return std::clamp(value, -kFarthest, kFarthest);
}

}  // namespace

void FragmentTables::readDefaults(std::span<const std::uint8_t> movie) {
  const auto extends = findBox(movie, fourCc("mvex"));
  if (!extends) return;
  BoxList boxes(extends->content);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type != fourCc("trex")) continue;
    Cursor cursor(box->content);  // 14496-12, 8.8.3
    readFullBoxHeader(cursor);
    const std::uint32_t id = cursor.u32();
    Defaults defaults;
    defaults.description = cursor.u32();
    defaults.duration = cursor.u32();
    defaults.size = cursor.u32();
    defaults.flags = cursor.u32();
    if (cursor.isGood()) defaults_[id] = defaults;
  }
}

void FragmentTables::read(std::span<const std::uint8_t> fragment, std::int64_t start,
                          const std::set<std::uint32_t>& wanted, std::vector<SampleTables>& tracks) {
  isFirst_ = true;
  BoxList boxes(fragment);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type != fourCc("traf")) continue;
    readTrack(box->content, start, wanted, tracks);
    isFirst_ = false;
  }
}

void FragmentTables::readTrack(std::span<const std::uint8_t> content, std::int64_t start,
                               const std::set<std::uint32_t>& wanted, std::vector<SampleTables>& tracks) {
  const std::optional<Box> header = findBox(content, fourCc("tfhd"));
  if (!header) return;
  Cursor cursor(header->content);  // 14496-12, 8.8.7
  const std::uint32_t flags = readFullBoxHeader(cursor).flags;
  const std::uint32_t id = cursor.u32();
  const auto track = std::ranges::find_if(tracks, [id](const SampleTables& each) { return each.id == id; });
  if (!cursor.isGood() || track == tracks.end()) return;
  Defaults defaults = defaults_[id];
  Place place;
  // Without a base of its own a track's data begins at the fragment, or behind the data of the track before it.
  place.base = (flags & 0x20000) != 0 || isFirst_ ? start : dataEnd_;
  if ((flags & 0x1) != 0) place.base = within(cursor.i64());
  if ((flags & 0x2) != 0) defaults.description = cursor.u32();
  if ((flags & 0x8) != 0) defaults.duration = cursor.u32();
  if ((flags & 0x10) != 0) defaults.size = cursor.u32();
  if ((flags & 0x20) != 0) defaults.flags = cursor.u32();
  place.next = place.base;
  // Past the last sample seen so far, where the fragment does not state its time.
  if (!track->samples.empty()) {
    place.decodeTime = within(track->samples.back().decodeTime + track->samples.back().span());
  }
  SampleTables unwanted;
  unwanted.header = track->header;
  const bool isWanted = wanted.contains(id);
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type == fourCc("tfdt")) {
      Cursor time(box->content);  // 14496-12, 8.8.12
      const bool wide = readFullBoxHeader(time).version == 1;
      const std::uint64_t decodeTime = time.sized(wide);
      if (time.isGood()) place.decodeTime = within(static_cast<std::int64_t>(decodeTime & 0x7fffffffffffffff));
    } else if (box->type == fourCc("trun")) {
      readRun(box->content, defaults, place, isWanted ? *track : unwanted);
      unwanted.samples.clear();
    }
  }
  dataEnd_ = place.next;
}

void FragmentTables::readRun(std::span<const std::uint8_t> content, const Defaults& defaults, Place& place,
                             SampleTables& track) {
  Cursor cursor(content);  // 14496-12, 8.8.8
  const std::uint32_t flags = readFullBoxHeader(cursor).flags;
  std::uint64_t left = std::min(cursor.u32(), kMaxRun);
  if ((flags & 0x1) != 0) place.next = within(place.base + cursor.i32());
  const bool hasFirstFlags = (flags & 0x4) != 0;
  const std::uint32_t firstFlags = hasFirstFlags ? cursor.u32() : 0;
  const std::size_t fields = std::size_t{(flags & 0x100) != 0} + std::size_t{(flags & 0x200) != 0} +
                             std::size_t{(flags & 0x400) != 0} + std::size_t{(flags & 0x800) != 0};
  if (fields > 0) left = std::min<std::uint64_t>(left, cursor.remaining() / (4 * fields));
  // Uncompressed sound: all samples of the run alike, one behind the other.
  const bool together =
      fields == 0 && track.header.handler == fourCc("soun") && defaults.duration == 1 && left > 0 && defaults.size > 0;
  if (together) track.packetBytes = defaults.size;
  for (bool isFirst = true; left > 0; --left, isFirst = false) {
    Sample sample;
    if (together) sample.count = static_cast<std::uint32_t>(std::exchange(left, 1));
    sample.duration = (flags & 0x100) != 0 ? cursor.u32() : defaults.duration;
    sample.size = (flags & 0x200) != 0 ? cursor.u32() : defaults.size;
    std::uint32_t sampleFlags = (flags & 0x400) != 0 ? cursor.u32() : defaults.flags;
    if (isFirst && hasFirstFlags) sampleFlags = firstFlags;
    if ((flags & 0x800) != 0) sample.compositionOffset = cursor.i32();
    sample.isSync = (sampleFlags & kIsNonSync) == 0;
    sample.offset = place.next;
    sample.decodeTime = place.decodeTime;
    sample.description = static_cast<std::uint16_t>(std::clamp<std::uint32_t>(defaults.description, 1, 0xffff) - 1);
    place.next = within(place.next + std::int64_t{sample.size} * sample.count);
    place.decodeTime = within(place.decodeTime + sample.span());
    track.samples.push_back(sample);
  }
}

}  // namespace vistrelle::platform::mov
