#include "vistrelle/platform/media/mov/movie_writer.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "vistrelle/platform/media/mov/box_writer.h"
#include "vistrelle/platform/media/mov/sample_table_writer.h"

namespace vistrelle::platform::mov {
namespace {

constexpr std::array<std::int32_t, 9> kIdentity{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};
constexpr std::uint64_t kMax32 = std::numeric_limits<std::uint32_t>::max();

/// 14496-12, 8.2.2. Times of creation are left at zero, which says nothing: the same movie gives the same bytes.
void writeMovieHeader(const WrittenMovie& movie, BoxWriter& out) {
  const bool wide = movie.duration > kMax32;
  std::uint32_t nextId = 1;
  for (const WrittenTrack& track : movie.tracks) nextId = std::max(nextId, track.id + 1);
  out.beginFull(fourCc("mvhd"), wide ? 1 : 0);
  out.zeros(wide ? 16 : 8);
  out.u32(movie.timeScale);
  out.sized(wide, movie.duration);
  out.u32(0x10000);  // preferred rate
  out.u16(0x100);    // preferred volume
  out.zeros(10);
  for (const std::int32_t cell : kIdentity) out.i32(cell);
  out.zeros(24);
  out.u32(nextId);
  out.end();
}

std::uint64_t durationOf(const WrittenTrack& track) {
  std::uint64_t duration = 0;
  for (const Edit& edit : track.edits) duration += edit.duration;
  return duration;
}

/// 14496-12, 8.3.2. Flags: enabled, in the movie, in its preview and poster.
void writeTrackHeader(const WrittenTrack& track, BoxWriter& out) {
  const std::uint64_t duration = durationOf(track);
  const bool wide = duration > kMax32;
  out.beginFull(fourCc("tkhd"), wide ? 1 : 0, track.header.isEnabled ? 0xf : 0xe);
  out.zeros(wide ? 16 : 8);
  out.u32(track.id);
  out.u32(0);
  out.sized(wide, duration);
  out.zeros(8);
  out.i16(track.header.layer);
  out.i16(track.header.alternateGroup);
  out.u16(track.header.volume);
  out.u16(0);
  for (const std::int32_t cell : track.header.matrix) out.i32(cell);
  out.u32(track.header.width);
  out.u32(track.header.height);
  out.end();
}

/// 14496-12, 8.6.6.
void writeEdits(const WrittenTrack& track, BoxWriter& out) {
  if (track.edits.empty()) return;
  const bool wide = std::ranges::any_of(track.edits, [](const Edit& edit) {
    return edit.duration > kMax32 || edit.mediaTime > std::numeric_limits<std::int32_t>::max();
  });
  out.begin(fourCc("edts"));
  out.beginFull(fourCc("elst"), wide ? 1 : 0);
  out.u32(static_cast<std::uint32_t>(track.edits.size()));
  for (const Edit& edit : track.edits) {
    out.sized(wide, edit.duration);
    out.sized(wide, static_cast<std::uint64_t>(edit.mediaTime));
    out.i32(edit.rate);
  }
  out.end();
  out.end();
}

void writeReferences(const WrittenTrack& track, BoxWriter& out) {
  if (track.references.empty()) return;
  out.begin(fourCc("tref"));
  for (const TrackReference& reference : track.references) {
    out.begin(reference.type);
    for (const std::uint32_t id : reference.tracks) out.u32(id);
    out.end();
  }
  out.end();
}

/// 14496-12, 8.4.2.
void writeMediaHeader(const WrittenTrack& track, BoxWriter& out) {
  std::uint64_t duration = 0;
  for (const WrittenSample& sample : track.samples) duration += std::uint64_t{sample.duration} * sample.count;
  const bool wide = duration > kMax32;
  out.beginFull(fourCc("mdhd"), wide ? 1 : 0);
  out.zeros(wide ? 16 : 8);
  out.u32(track.timeScale);
  out.sized(wide, duration);
  out.u16(track.header.language);
  out.u16(0);
  out.end();
}

/// QuickTime's form of 14496-12, 8.4.3: a component type, and the name as a Pascal string.
void writeHandler(FourCc component, FourCc handler, std::string_view name, BoxWriter& out) {
  out.beginFull(fourCc("hdlr"));
  out.u32(component);
  out.u32(handler);
  out.zeros(12);
  out.u8(static_cast<std::uint8_t>(name.size()));
  for (const char character : name) out.u8(static_cast<std::uint8_t>(character));
  out.end();
}

std::string_view handlerName(FourCc handler) {
  switch (handler) {
    case fourCc("vide"):
      return "VideoHandler";
    case fourCc("soun"):
      return "SoundHandler";
    case fourCc("tmcd"):
      return "TimeCodeHandler";
    default:
      return "DataHandler";
  }
}

/// The media header of the source, else one that its kind of media asks for.
void writeKindHeader(const WrittenTrack& track, BoxWriter& out) {
  if (!track.header.mediaHeader.empty()) return out.bytes(track.header.mediaHeader);
  if (track.header.handler == fourCc("vide")) {
    out.beginFull(fourCc("vmhd"), 0, 1);  // 14496-12, 12.1.2
    out.zeros(8);
    out.end();
  } else if (track.header.handler == fourCc("soun")) {
    out.beginFull(fourCc("smhd"));  // 14496-12, 12.2.2
    out.zeros(4);
    out.end();
  } else {
    out.begin(fourCc("gmhd"));  // QuickTime: base media header, graphics mode "dither copy"
    out.beginFull(fourCc("gmin"));
    out.u16(0x40);
    for (int i = 0; i < 3; ++i) out.u16(0x8000);
    out.zeros(4);
    out.end();
    out.end();
  }
}

/// 14496-12, 8.7.2: one reference, to this file.
void writeDataReferences(BoxWriter& out) {
  out.begin(fourCc("dinf"));
  out.beginFull(fourCc("dref"));
  out.u32(1);
  out.beginFull(fourCc("url "), 0, 1);
  out.end();
  out.end();
  out.end();
}

void writeTrack(const WrittenTrack& track, BoxWriter& out) {
  out.begin(fourCc("trak"));
  writeTrackHeader(track, out);
  out.bytes(track.header.apertures);
  writeEdits(track, out);
  writeReferences(track, out);
  out.begin(fourCc("mdia"));
  writeMediaHeader(track, out);
  writeHandler(fourCc("mhlr"), track.header.handler, handlerName(track.header.handler), out);
  out.begin(fourCc("minf"));
  writeKindHeader(track, out);
  writeHandler(fourCc("dhlr"), fourCc("url "), "DataHandler", out);
  writeDataReferences(out);
  writeSampleTable(track, out);
  out.end();
  out.end();
  out.bytes(track.header.notes);
  out.end();
}

}  // namespace

std::vector<std::uint8_t> movieBox(const WrittenMovie& movie) {
  BoxWriter out;
  out.begin(fourCc("moov"));
  writeMovieHeader(movie, out);
  for (const WrittenTrack& track : movie.tracks) writeTrack(track, out);
  out.bytes(movie.notes);
  out.end();
  return out.take();
}

std::vector<std::uint8_t> mediaDataHead(std::uint64_t mediaBytes) {
  BoxWriter out;
  out.begin(fourCc("ftyp"));  // 14496-12, 4.3
  out.u32(fourCc("qt  "));
  out.u32(0x200);
  out.u32(fourCc("qt  "));
  out.end();
  if (mediaBytes + 8 <= kMax32) {
    out.begin(fourCc("wide"));
    out.end();
    out.u32(static_cast<std::uint32_t>(mediaBytes + 8));
    out.u32(fourCc("mdat"));
  } else {
    out.u32(1);
    out.u32(fourCc("mdat"));
    out.u64(mediaBytes + 16);
  }
  return out.take();
}

}  // namespace vistrelle::platform::mov
