#include "vistrelle/platform/media/mov/sample_table_reader.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "vistrelle/platform/media/mov/box_reader.h"
#include "vistrelle/platform/media/mov/sound_packets.h"

namespace vistrelle::platform::mov {
namespace {

using Bytes = std::span<const std::uint8_t>;

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
    track_.lostSamples = left_;
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
      sample.offset = static_cast<std::int64_t>(std::min(position, std::uint64_t{kFarthest}));
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

}  // namespace

void readSampleTable(std::span<const std::uint8_t> tables, SampleTables& track) {
  TableReader(tables, track).read();
}

}  // namespace vistrelle::platform::mov
