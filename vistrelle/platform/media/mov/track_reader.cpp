#include "vistrelle/platform/media/mov/track_reader.h"

#include <algorithm>

#include "vistrelle/platform/media/mov/language.h"
#include "vistrelle/platform/media/mov/sample_description.h"

namespace vistrelle::platform::mov {
namespace {

constexpr std::uint32_t kMaxEntries = std::uint32_t{1} << 24;

/// How many entries of `entryBytes` a table really holds: its stated count, cut to what is there.
std::uint32_t entriesIn(const Cursor& cursor, std::uint32_t stated, std::size_t entryBytes) {
  const std::uint64_t present = cursor.remaining() / entryBytes;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>({stated, present, kMaxEntries}));
}

/// A run-length table of sample values: decoding durations (14496-12, 8.6.1.2) or composition offsets (8.6.1.3).
class RunTable {
 public:
  explicit RunTable(std::span<const std::uint8_t> content) : cursor_(content) {
    readFullBoxHeader(cursor_);
    const std::uint32_t stated = cursor_.u32();
    left_ = entriesIn(cursor_, stated, 8);
    load();
  }
  RunTable() : RunTable(std::span<const std::uint8_t>{}) {}

  /// Samples that share the present value; 0 behind the last entry.
  std::uint64_t run() const { return run_; }
  std::uint32_t value() const { return value_; }
  void advance(std::uint64_t samples) {
    run_ -= samples;
    if (run_ == 0) load();
  }

 private:
  void load() {
    while (run_ == 0 && left_ > 0) {
      --left_;
      run_ = cursor_.u32();
      value_ = cursor_.u32();
    }
  }

  Cursor cursor_;
  std::uint32_t left_ = 0;
  std::uint64_t run_ = 0;
  std::uint32_t value_ = 0;
};

/// The duration that a table states, where differences in "negative" durations have been written by broken muxers.
std::uint32_t usableDuration(std::uint32_t stated) {
  return stated > 0x7fffffff ? 1 : stated;
}

std::uint64_t countSamples(std::span<const std::uint8_t> tables) {
  // 14496-12, 8.7.3: size, then count; in the compact form the size is the width of a field.
  const std::optional<Box> sizes = findBox(tables, fourCc("stsz"));
  const std::optional<Box> compact = sizes ? std::nullopt : findBox(tables, fourCc("stz2"));
  if (!sizes && !compact) return 0;
  Cursor cursor(sizes ? sizes->content : compact->content);
  readFullBoxHeader(cursor);
  cursor.skip(4);
  return cursor.u32();
}

/// Sample durations and composition offsets are walked side by side, run by run. The sample count is that of the
/// sizes: a table of durations that ends early goes on with its last value.
void readSampleTables(std::span<const std::uint8_t> tables, OpenTrack& track) {
  std::uint64_t left = countSamples(tables);
  const std::optional<Box> durations = findBox(tables, fourCc("stts"));
  if (!durations) return;
  const std::optional<Box> offsets = findBox(tables, fourCc("ctts"));
  RunTable duration(durations->content);
  RunTable offset = offsets ? RunTable(offsets->content) : RunTable();
  while (left > 0) {
    std::uint64_t run = left;
    if (duration.run() > 0) run = std::min(run, duration.run());
    if (offset.run() > 0) run = std::min(run, offset.run());
    // Offsets are signed in practice, whatever version the table claims.
    const std::int32_t shift = offset.run() > 0 ? static_cast<std::int32_t>(offset.value()) : 0;
    track.span.add(run, usableDuration(duration.value()), shift);
    if (duration.run() > 0) duration.advance(run);
    if (offset.run() > 0) offset.advance(run);
    left -= run;
  }
}

FixedSize readFixedSize(Cursor& cursor) {
  constexpr double kOne = 65536;
  const std::uint32_t width = cursor.u32();
  const std::uint32_t height = cursor.u32();
  return {width / kOne, height / kOne};
}

void readTrackHeader(std::span<const std::uint8_t> content, Track& track) {
  Cursor cursor(content);  // 14496-12, 8.3.2
  const FullBoxHeader header = readFullBoxHeader(cursor);
  track.isEnabled = (header.flags & 1) != 0;
  cursor.skip(header.version == 1 ? 16 : 8);
  track.id = cursor.u32();
  cursor.skip((header.version == 1 ? 12 : 8) + 16 + 36);  // duration, layer to volume, matrix
  const FixedSize size = readFixedSize(cursor);
  if (cursor.isGood()) track.size = size;
}

/// QuickTime File Format, "Track aperture mode dimensions": the three come together or mean nothing.
std::optional<TrackApertures> readApertures(std::span<const std::uint8_t> content) {
  const auto sizeIn = [content](FourCc type) {
    const std::optional<Box> box = findBox(content, type);
    Cursor cursor(box ? box->content : std::span<const std::uint8_t>{});
    readFullBoxHeader(cursor);
    const FixedSize size = readFixedSize(cursor);
    return cursor.isGood() ? size : FixedSize{};
  };
  const TrackApertures apertures{sizeIn(fourCc("clef")), sizeIn(fourCc("prof")), sizeIn(fourCc("enof"))};
  for (const FixedSize& size : {apertures.clean, apertures.production, apertures.encoded}) {
    if (size.width < 1 || size.height < 1) return std::nullopt;
  }
  return apertures;
}

void readReferences(std::span<const std::uint8_t> content, Track& track) {
  constexpr std::size_t kMaxChapterTracks = 100;
  const std::optional<Box> chapters = findBox(content, fourCc("chap"));  // 14496-12, 8.3.3
  if (!chapters) return;
  Cursor cursor(chapters->content);
  while (cursor.remaining() >= 4 && track.chapterTracks.size() < kMaxChapterTracks) {
    track.chapterTracks.push_back(cursor.u32());
  }
}

void readMediaHeader(std::span<const std::uint8_t> content, Track& track) {
  Cursor cursor(content);  // 14496-12, 8.4.2
  const FullBoxHeader header = readFullBoxHeader(cursor);
  cursor.skip(header.version == 1 ? 16 : 8);
  track.timeScale = cursor.u32();
  track.headerDuration = cursor.sized(header.version == 1);
  const std::uint16_t language = cursor.u16();
  if (cursor.isGood()) track.language = languageText(language);
}

/// 14496-12, 8.4.6: a BCP 47 tag.
void readExtendedLanguage(std::span<const std::uint8_t> content, Track& track) {
  constexpr std::size_t kLongestTag = 64;
  Cursor cursor(content);
  readFullBoxHeader(cursor);
  const std::span<const std::uint8_t> text = cursor.bytes(std::min(cursor.remaining(), kLongestTag));
  const std::string tag(text.begin(), std::find(text.begin(), text.end(), 0));
  if (!tag.empty()) track.language = tag;
}

void readHandler(std::span<const std::uint8_t> content, Track& track) {
  Cursor cursor(content);  // 14496-12, 8.4.3
  readFullBoxHeader(cursor);
  cursor.skip(4);
  track.handler = cursor.u32();
}

void readEdits(std::span<const std::uint8_t> content, Track& track) {
  Cursor cursor(content);  // 14496-12, 8.6.6
  const FullBoxHeader header = readFullBoxHeader(cursor);
  const bool wide = header.version == 1;
  const std::uint32_t stated = cursor.u32();
  for (std::uint32_t left = entriesIn(cursor, stated, wide ? 20 : 12); left > 0; --left) {
    Edit edit;
    edit.duration = cursor.sized(wide);
    edit.mediaTime = wide ? cursor.i64() : cursor.i32();
    edit.rate = cursor.i32();
    track.edits.push_back(edit);
  }
}

void readDataReferences(std::span<const std::uint8_t> content, Track& track) {
  Cursor cursor(content);  // 14496-12, 8.7.2
  readFullBoxHeader(cursor);
  cursor.skip(4);
  BoxList entries(cursor.bytes(cursor.remaining()));
  while (const std::optional<Box> entry = entries.next()) {
    Cursor fields(entry->content);
    DataReference reference;
    reference.type = entry->type;
    reference.isSelfContained = (readFullBoxHeader(fields).flags & 1) != 0;
    if (entry->type == fourCc("url ") && !reference.isSelfContained) {
      const std::span<const std::uint8_t> text = fields.bytes(fields.remaining());
      reference.location.assign(text.begin(), std::find(text.begin(), text.end(), 0));
    }
    track.dataReferences.push_back(std::move(reference));
  }
}

void readMediaInformation(std::span<const std::uint8_t> content, OpenTrack& track) {
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type == fourCc("dinf")) {
      if (const std::optional<Box> references = findBox(box->content, fourCc("dref"))) {
        readDataReferences(references->content, track.facts);
      }
    } else if (box->type == fourCc("stbl")) {
      if (const std::optional<Box> descriptions = findBox(box->content, fourCc("stsd"))) {
        readSampleDescriptions(descriptions->content, track.facts);
      }
      readSampleTables(box->content, track);
    }
  }
}

void readMedia(std::span<const std::uint8_t> content, OpenTrack& track) {
  // The handler decides how sample descriptions are read and may stand behind them.
  if (const auto box = findBox(content, fourCc("mdhd"))) readMediaHeader(box->content, track.facts);
  if (const auto box = findBox(content, fourCc("hdlr"))) readHandler(box->content, track.facts);
  if (const auto box = findBox(content, fourCc("elng"))) readExtendedLanguage(box->content, track.facts);
  if (const auto box = findBox(content, fourCc("minf"))) readMediaInformation(box->content, track);
}

void readTrackRun(std::span<const std::uint8_t> content, std::uint32_t defaultDuration, SampleSpan& span) {
  Cursor cursor(content);  // 14496-12, 8.8.8
  const std::uint32_t flags = readFullBoxHeader(cursor).flags;
  const bool hasDuration = (flags & 0x100) != 0;
  const bool hasSize = (flags & 0x200) != 0;
  const bool hasFlags = (flags & 0x400) != 0;
  const bool hasOffset = (flags & 0x800) != 0;
  const std::uint32_t stated = cursor.u32();
  if ((flags & 1) != 0) cursor.skip(4);
  if ((flags & 4) != 0) cursor.skip(4);
  const std::size_t entryBytes = 4 * (std::size_t{hasDuration} + hasSize + hasFlags + hasOffset);
  if (!hasDuration && !hasOffset) {
    const std::uint32_t count = entryBytes > 0 ? entriesIn(cursor, stated, entryBytes) : std::min(stated, kMaxEntries);
    return span.add(count, defaultDuration, 0);
  }
  for (std::uint32_t left = entriesIn(cursor, stated, entryBytes); left > 0; --left) {
    const std::uint32_t duration = hasDuration ? cursor.u32() : defaultDuration;
    cursor.skip(4 * (std::size_t{hasSize} + hasFlags));
    span.add(1, usableDuration(duration), hasOffset ? cursor.i32() : 0);
  }
}

}  // namespace

OpenTrack readTrack(std::span<const std::uint8_t> content) {
  OpenTrack track;
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type == fourCc("tkhd")) readTrackHeader(box->content, track.facts);
    if (box->type == fourCc("mdia")) readMedia(box->content, track);
    if (box->type == fourCc("tapt")) track.facts.apertures = readApertures(box->content);
    if (box->type == fourCc("tref")) readReferences(box->content, track.facts);
    if (box->type == fourCc("edts")) {
      if (const auto edits = findBox(box->content, fourCc("elst"))) readEdits(edits->content, track.facts);
    }
  }
  return track;
}

void readTrackFragment(std::span<const std::uint8_t> content, std::span<OpenTrack> tracks) {
  const std::optional<Box> header = findBox(content, fourCc("tfhd"));
  if (!header) return;
  Cursor cursor(header->content);  // 14496-12, 8.8.7
  const std::uint32_t flags = readFullBoxHeader(cursor).flags;
  const std::uint32_t id = cursor.u32();
  const auto track = std::ranges::find_if(tracks, [id](const OpenTrack& each) { return each.facts.id == id; });
  if (!cursor.isGood() || track == tracks.end()) return;
  if ((flags & 0x1) != 0) cursor.skip(8);
  if ((flags & 0x2) != 0) cursor.skip(4);
  const std::uint32_t duration = (flags & 0x8) != 0 ? cursor.u32() : track->defaultDuration;
  track->hasFragments = true;
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type == fourCc("tfdt")) {
      Cursor time(box->content);  // 14496-12, 8.8.12
      const bool wide = readFullBoxHeader(time).version == 1;
      const std::uint64_t decodeTime = time.sized(wide);
      if (time.isGood()) track->span.moveTo(decodeTime);
    } else if (box->type == fourCc("trun")) {
      readTrackRun(box->content, duration, track->span);
    } else if (box->type == fourCc("senc")) {
      track->facts.isProtected = true;  // ISO/IEC 23001-7, 7.2: keys of encrypted samples
    }
  }
}

}  // namespace vistrelle::platform::mov
