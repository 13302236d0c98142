#include "vistrelle/platform/media/mov/sample_tables.h"

#include <algorithm>
#include <new>
#include <span>

#include "vistrelle/platform/media/mov/box_reader.h"
#include "vistrelle/platform/media/mov/box_writer.h"
#include "vistrelle/platform/media/mov/file_boxes.h"
#include "vistrelle/platform/media/mov/fragment_tables.h"
#include "vistrelle/platform/media/mov/sample_table_reader.h"
#include "vistrelle/platform/media/mov/sound_packets.h"

namespace vistrelle::platform::mov {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::int64_t kMaxLoadedBytes = std::int64_t{256} << 20;
constexpr std::size_t kBoxHeaderBytes = 8;

/// A complete box in a buffer of its own.
std::vector<std::uint8_t> wholeBox(const Box& box) {
  const auto size = static_cast<std::uint32_t>(box.content.size() + kBoxHeaderBytes);
  std::vector<std::uint8_t> whole;
  whole.reserve(size);
  for (const std::uint32_t word : {size, box.type}) {
    for (int shift = 24; shift >= 0; shift -= 8) whole.push_back(static_cast<std::uint8_t>(word >> shift));
  }
  whole.insert(whole.end(), box.content.begin(), box.content.end());
  return whole;
}

void readTrackHeader(Bytes content, SampleTables& track) {
  Cursor cursor(content);  // 14496-12, 8.3.2
  const FullBoxHeader header = readFullBoxHeader(cursor);
  const bool wide = header.version == 1;
  track.header.isEnabled = (header.flags & 1) != 0;
  cursor.skip(wide ? 16 : 8);
  track.id = cursor.u32();
  cursor.skip(wide ? 4 + 8 + 8 : 4 + 4 + 8);
  track.header.layer = static_cast<std::int16_t>(cursor.u16());
  track.header.alternateGroup = static_cast<std::int16_t>(cursor.u16());
  track.header.volume = cursor.u16();
  cursor.skip(2);
  for (std::int32_t& cell : track.header.matrix) cell = cursor.i32();
  track.header.width = cursor.u32();
  track.header.height = cursor.u32();
}

void readEdits(Bytes content, SampleTables& track) {
  Cursor cursor(content);  // 14496-12, 8.6.6
  const bool wide = readFullBoxHeader(cursor).version == 1;
  const std::uint64_t stated = cursor.u32();
  std::uint64_t left = std::min<std::uint64_t>(stated, cursor.remaining() / (wide ? 20 : 12));
  for (; left > 0; --left) {
    Edit edit;
    edit.duration = cursor.sized(wide);
    edit.mediaTime = wide ? cursor.i64() : cursor.i32();
    edit.rate = cursor.i32();
    track.edits.push_back(edit);
  }
}

void readReferences(Bytes content, SampleTables& track) {
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    TrackReference reference;
    reference.type = box->type;
    Cursor cursor(box->content);
    while (cursor.remaining() >= 4) reference.tracks.push_back(cursor.u32());
    track.references.push_back(std::move(reference));
  }
}

void readDescriptions(Bytes tables, SampleTables& track) {
  const std::optional<Box> box = findBox(tables, fourCc("stsd"));
  if (!box) return;
  Cursor cursor(box->content);
  cursor.skip(8);
  BoxList entries(cursor.bytes(cursor.remaining()));
  while (const std::optional<Box> entry = entries.next()) track.descriptions.push_back(wholeBox(*entry));
}

/// 14496-12, 8.7.2. A resource or an alias without the flag leads to another file too.
void readDataReferences(Bytes content, SampleTables& track) {
  const std::optional<Box> references = findBox(content, fourCc("dref"));
  if (!references) return;
  Cursor cursor(references->content);
  cursor.skip(8);
  BoxList entries(cursor.bytes(cursor.remaining()));
  while (const std::optional<Box> entry = entries.next()) {
    Cursor fields(entry->content);
    track.otherFiles.push_back((readFullBoxHeader(fields).flags & 1) == 0);
  }
}

/// User data (14496-12, 8.10.1) and metadata (8.11.1), complete. Lists of chapters are left out: their times are those
/// of the whole movie.
void readNotes(const Box& box, std::vector<std::uint8_t>& notes) {
  if (box.type != fourCc("udta") && box.type != fourCc("meta")) return;
  std::vector<std::uint8_t> whole = wholeBox(box);
  if (box.type == fourCc("udta") && findBox(box.content, fourCc("chpl"))) {
    BoxWriter kept;
    kept.begin(box.type);
    BoxList items(box.content);
    while (const std::optional<Box> item = items.next()) {
      if (item->type != fourCc("chpl")) kept.bytes(wholeBox(*item));
    }
    kept.end();
    whole = kept.take();
  }
  notes.insert(notes.end(), whole.begin(), whole.end());
}

void readMedia(Bytes content, bool withSamples, SampleTables& track) {
  if (const auto box = findBox(content, fourCc("mdhd"))) {
    Cursor cursor(box->content);  // 14496-12, 8.4.2
    const bool wide = readFullBoxHeader(cursor).version == 1;
    cursor.skip(wide ? 16 : 8);
    track.timeScale = cursor.u32();
    cursor.skip(wide ? 8 : 4);
    track.header.language = cursor.u16();
  }
  if (const auto box = findBox(content, fourCc("hdlr"))) {
    Cursor cursor(box->content);
    cursor.skip(8);
    track.header.handler = cursor.u32();
  }
  const auto information = findBox(content, fourCc("minf"));
  if (!information) return;
  BoxList boxes(information->content);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type == fourCc("stbl")) {
      readDescriptions(box->content, track);
      if (withSamples) readSampleTable(box->content, track);
    } else if (box->type == fourCc("dinf")) {
      readDataReferences(box->content, track);
    } else if (box->type != fourCc("hdlr") && track.header.mediaHeader.empty()) {
      track.header.mediaHeader = wholeBox(*box);
    }
  }
}

SampleTables readTrackTables(Bytes content, const std::set<std::uint32_t>& wanted) {
  SampleTables track;
  if (const auto header = findBox(content, fourCc("tkhd"))) readTrackHeader(header->content, track);
  const bool withSamples = wanted.contains(track.id);
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    readNotes(*box, track.header.notes);
    if (box->type == fourCc("tapt")) track.header.apertures = wholeBox(*box);
    if (box->type == fourCc("tref")) readReferences(box->content, track);
    if (box->type == fourCc("mdia")) readMedia(box->content, withSamples, track);
    if (box->type == fourCc("edts")) {
      if (const auto edits = findBox(box->content, fourCc("elst"))) readEdits(edits->content, track);
    }
  }
  return track;
}

/// Fragments may hold uncompressed sound in samples of many moments each: it is listed like that of tables.
void splitUncompressedSound(SampleTables& track) {
  if (track.header.handler != fourCc("soun") || track.packetBytes != 0 || track.descriptions.empty()) return;
  const SoundPackets packets = soundPackets(track.descriptions.front(), 0);
  if (packets.bytes == 0 || packets.samples != 1) return;
  const bool fits = std::ranges::all_of(track.samples, [&packets](const Sample& sample) {
    return sample.count == 1 && std::uint64_t{sample.size} == std::uint64_t{sample.duration} * packets.bytes;
  });
  if (!fits) return;
  track.packetBytes = packets.bytes;
  for (Sample& sample : track.samples) {
    sample.count = sample.duration;
    sample.duration = 1;
    sample.size = packets.bytes;
  }
}

void readMovie(Bytes content, const std::set<std::uint32_t>& wanted, MovieTables& movie) {
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    readNotes(*box, movie.notes);
    if (box->type == fourCc("mvhd")) {
      Cursor cursor(box->content);
      const bool wide = readFullBoxHeader(cursor).version == 1;
      cursor.skip(wide ? 16 : 8);
      movie.timeScale = cursor.u32();
    } else if (box->type == fourCc("trak")) {
      movie.tracks.push_back(readTrackTables(box->content, wanted));
    }
  }
}

}  // namespace

bool SampleTables::isElsewhere(std::uint16_t description) const {
  if (descriptions.empty()) return false;
  Cursor cursor(descriptions[std::min<std::size_t>(description, descriptions.size() - 1)]);
  cursor.skip(kBoxHeaderBytes + 6);
  const std::uint16_t reference = cursor.u16();
  return reference > 0 && reference <= otherFiles.size() && otherFiles[reference - 1U];
}

std::optional<MovieTables> readMovieTables(std::int64_t size, const ReadAt& readAt,
                                           const std::set<std::uint32_t>& wanted) {
  try {
    FileBoxes file(size, readAt, kMaxLoadedBytes);
    MovieTables movie;
    bool hasMovie = false;
    FragmentTables fragments;
    while (const std::optional<FileBox> box = file.next()) {
      const bool isMovie = box->type == fourCc("moov") && !hasMovie;
      if (!isMovie && !(box->type == fourCc("moof") && hasMovie)) continue;
      const auto content = file.load(*box);
      if (!content) return std::nullopt;
      if (isMovie) {
        readMovie(*content, wanted, movie);
        fragments.readDefaults(*content);
        hasMovie = true;
      } else {
        movie.hasFragments = true;
        fragments.read(*content, box->start, wanted, movie.tracks);
      }
    }
    if (!hasMovie) return std::nullopt;
    std::ranges::for_each(movie.tracks, splitUncompressedSound);
    return movie;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace vistrelle::platform::mov
