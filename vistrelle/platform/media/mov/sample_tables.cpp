#include "vistrelle/platform/media/mov/sample_tables.h"

#include <algorithm>
#include <limits>
#include <new>
#include <span>

#include "vistrelle/platform/media/mov/box_reader.h"
#include "vistrelle/platform/media/mov/box_writer.h"
#include "vistrelle/platform/media/mov/file_boxes.h"
#include "vistrelle/platform/media/mov/fragment_tables.h"
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

/// A table of entries of `entryBytes` behind a full box's header and a count that is cut to what is there.
class EntryTable {
 public:
  EntryTable(Bytes tables, FourCc type, std::size_t entryBytes) : cursor_(Bytes{}) {
    const std::optional<Box> box = findBox(tables, type);
    if (!box) return;
    present_ = true;
    cursor_ = Cursor(box->content);
    version_ = readFullBoxHeader(cursor_).version;
    count_ = std::min<std::uint64_t>(cursor_.u32(), cursor_.remaining() / entryBytes);
  }
  bool isPresent() const { return present_; }
  std::uint64_t count() const { return count_; }
  std::uint8_t version() const { return version_; }
  Cursor& cursor() { return cursor_; }
  bool take() {
    if (count_ == 0) return false;
    --count_;
    return true;
  }

 private:
  Cursor cursor_;
  bool present_ = false;
  std::uint8_t version_ = 0;
  std::uint64_t count_ = 0;
};

/// Values in runs (stts, ctts); behind the last run its value stays.
class Runs {
 public:
  Runs(Bytes tables, FourCc type) : table_(tables, type, 8) {}
  bool isPresent() const { return table_.isPresent(); }
  std::uint32_t value() {
    while (left_ == 0 && table_.take()) {
      left_ = table_.cursor().u32();
      value_ = table_.cursor().u32();
    }
    return left_ > 0 || keepsLast_ ? value_ : 0;
  }
  /// How many samples from here on have the same value.
  std::uint64_t run() {
    value();
    return left_ > 0 ? left_ : std::numeric_limits<std::uint64_t>::max();
  }
  void advance(std::uint64_t samples) { left_ -= std::min(left_, samples); }
  void keepLast() { keepsLast_ = true; }

 private:
  EntryTable table_;
  std::uint64_t left_ = 0;
  std::uint32_t value_ = 0;
  bool keepsLast_ = false;
};

/// 14496-12, 8.7.3.
class Sizes {
 public:
  explicit Sizes(Bytes tables) : cursor_(Bytes{}) {
    const std::optional<Box> plain = findBox(tables, fourCc("stsz"));
    const std::optional<Box> compact = plain ? std::nullopt : findBox(tables, fourCc("stz2"));
    if (!plain && !compact) return;
    cursor_ = Cursor(plain ? plain->content : compact->content);
    readFullBoxHeader(cursor_);
    const std::uint32_t size = cursor_.u32();
    count_ = cursor_.u32();
    if (plain) {
      same_ = size;
      bits_ = 32;
    } else {
      bits_ = size & 0xff;
    }
    const bool isReadable = same_ != 0 || bits_ == 4 || bits_ == 8 || bits_ == 16 || bits_ == 32;
    if (!isReadable) count_ = 0;
    if (same_ == 0 && bits_ > 0) count_ = std::min<std::uint64_t>(count_, cursor_.remaining() * 8 / bits_);
  }
  std::uint64_t count() const { return count_; }
  std::uint32_t same() const { return same_; }
  std::uint32_t next() {
    if (same_ != 0) return same_;
    switch (bits_) {
      case 32:
        return cursor_.u32();
      case 16:
        return cursor_.u16();
      case 8:
        return cursor_.u8();
      default:
        upper_ = !upper_;
        if (upper_) byte_ = cursor_.u8();
        return upper_ ? byte_ >> 4U : byte_ & 15U;
    }
  }

 private:
  Cursor cursor_;
  std::uint64_t count_ = 0;
  std::uint32_t same_ = 0;
  std::uint32_t bits_ = 0;
  bool upper_ = false;
  std::uint8_t byte_ = 0;
};

std::uint32_t usableDuration(std::uint32_t stated) {
  return stated > 0x7fffffff ? 1 : stated;
}

/// Walks the chunks of a track (14496-12, 8.7.4 and 8.7.5) and lists their samples.
class TableReader {
 public:
  TableReader(Bytes tables, SampleTables& track)
      : track_(track),
        sizes_(tables),
        durations_(tables, fourCc("stts")),
        offsets_(tables, fourCc("ctts")),
        syncs_(tables, fourCc("stss"), 4),
        spread_(tables, fourCc("stsc"), 12),
        places_(tables, fourCc("stco"), 4),
        widePlaces_(tables, fourCc("co64"), 8) {
    durations_.keepLast();
    nextSync_ = syncs_.take() ? syncs_.cursor().u32() : 0;
  }

  void read() {
    left_ = sizes_.count();
    const bool isSound = track_.header.handler == fourCc("soun");
    if (isSound && sizes_.same() != 0 && !offsets_.isPresent() && durations_.value() == 1 &&
        durations_.run() >= left_ && !track_.descriptions.empty()) {
      const SoundPackets packets = soundPackets(track_.descriptions.front(), sizes_.same());
      track_.packetBytes = packets.bytes;
      track_.packetSamples = packets.samples;
    }
    const bool isWide = !places_.isPresent();
    for (std::uint64_t chunk = 1; left_ > 0; ++chunk) {
      if (!(isWide ? widePlaces_.take() : places_.take())) break;
      const std::uint64_t offset = isWide ? widePlaces_.cursor().u64() : places_.cursor().u32();
      findSpread(chunk);
      if (perChunk_ == 0) continue;
      readChunk(offset, std::min<std::uint64_t>(perChunk_, left_));
    }
  }

 private:
  void findSpread(std::uint64_t chunk) {
    while (nextFirst_ == 0 || nextFirst_ <= chunk) {
      if (nextFirst_ != 0) {
        perChunk_ = nextPerChunk_;
        description_ = nextDescription_;
      }
      if (!spread_.take()) {
        nextFirst_ = std::numeric_limits<std::uint64_t>::max();
        return;
      }
      nextFirst_ = std::max<std::uint64_t>(spread_.cursor().u32(), 1);
      nextPerChunk_ = spread_.cursor().u32();
      const std::uint32_t index = spread_.cursor().u32();
      nextDescription_ = static_cast<std::uint16_t>(std::clamp<std::uint32_t>(index, 1, 0xffff) - 1);
    }
  }

  void readChunk(std::uint64_t offset, std::uint64_t count) {
    left_ -= count;
    std::uint64_t position = offset;
    const bool together = track_.packetBytes != 0;
    while (count > 0) {
      Sample sample;
      sample.size = sizes_.next();
      sample.count = together ? static_cast<std::uint32_t>(count) : 1;
      sample.offset = static_cast<std::int64_t>(position);
      sample.duration = usableDuration(durations_.value());
      sample.compositionOffset = offsets_.isPresent() ? static_cast<std::int32_t>(offsets_.value()) : 0;
      sample.decodeTime = time_;
      sample.description = description_;
      ++number_;
      sample.isSync = isSync();
      durations_.advance(sample.count);
      offsets_.advance(sample.count);
      position += static_cast<std::uint64_t>(track_.bytesOf(sample));
      count -= sample.count;
      time_ += sample.span();
      track_.samples.push_back(sample);
    }
  }

  bool isSync() {
    if (!syncs_.isPresent()) return true;
    while (nextSync_ != 0 && nextSync_ < number_) nextSync_ = syncs_.take() ? syncs_.cursor().u32() : 0;
    return nextSync_ == number_;
  }

  SampleTables& track_;
  Sizes sizes_;
  Runs durations_;
  Runs offsets_;
  EntryTable syncs_;
  EntryTable spread_;
  EntryTable places_;
  EntryTable widePlaces_;
  std::uint64_t left_ = 0;
  std::uint64_t number_ = 0;
  std::uint64_t nextSync_ = 0;
  std::int64_t time_ = 0;
  std::uint64_t nextFirst_ = 0;
  std::uint32_t perChunk_ = 0;
  std::uint32_t nextPerChunk_ = 0;
  std::uint16_t description_ = 0;
  std::uint16_t nextDescription_ = 0;
};

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
      if (withSamples) TableReader(box->content, track).read();
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
