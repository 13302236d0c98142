#include "vistrelle/platform/media/mov/sample_table_writer.h"

#include <algorithm>
#include <limits>

namespace vistrelle::platform::mov {
namespace {

constexpr std::uint64_t kMaxChunkBytes = std::uint64_t{1} << 20;

/// Writes a table of runs: a count and a value for all samples in a row that share it.
class RunWriter {
 public:
  explicit RunWriter(BoxWriter& out) : out_(out), countAt_(out.position()) { out_.u32(0); }
  void add(std::uint32_t samples, std::uint32_t value) {
    if (run_ > 0 && (value != value_ || run_ > std::numeric_limits<std::uint32_t>::max() - samples)) flush();
    value_ = value;
    run_ += samples;
  }
  void finish() {
    if (run_ > 0) flush();
    out_.patch(countAt_, entries_);
  }

 private:
  void flush() {
    out_.u32(run_);
    out_.u32(value_);
    ++entries_;
    run_ = 0;
  }
  BoxWriter& out_;
  std::size_t countAt_;
  std::uint32_t entries_ = 0;
  std::uint32_t run_ = 0;
  std::uint32_t value_ = 0;
};

void writeDescriptions(const WrittenTrack& track, BoxWriter& out) {
  out.beginFull(fourCc("stsd"));
  out.u32(static_cast<std::uint32_t>(track.descriptions.size()));
  for (const std::vector<std::uint8_t>& entry : track.descriptions) out.bytes(entry);
  out.end();
}

void writeDurations(const WrittenTrack& track, BoxWriter& out) {
  out.beginFull(fourCc("stts"));
  RunWriter runs(out);
  for (const WrittenSample& sample : track.samples) runs.add(sample.count, sample.duration);
  runs.finish();
  out.end();
}

/// Offsets below zero need version 1 (14496-12, 8.6.1.3) and say how far they reach in 'cslg' (8.6.1.4), as QuickTime
/// does too.
void writeCompositionOffsets(const WrittenTrack& track, BoxWriter& out) {
  std::int64_t least = 0;
  std::int64_t greatest = 0;
  std::int64_t start = std::numeric_limits<std::int64_t>::max();
  std::int64_t end = 0;
  std::int64_t time = 0;
  for (const WrittenSample& sample : track.samples) {
    least = std::min<std::int64_t>(least, sample.compositionOffset);
    greatest = std::max<std::int64_t>(greatest, sample.compositionOffset);
    start = std::min(start, time + sample.compositionOffset);
    time += std::int64_t{sample.duration} * sample.count;
    end = std::max(end, time + sample.compositionOffset);
  }
  if (least == 0 && greatest == 0) return;
  out.beginFull(fourCc("ctts"), least < 0 ? 1 : 0);
  RunWriter runs(out);
  for (const WrittenSample& sample : track.samples) {
    runs.add(sample.count, static_cast<std::uint32_t>(sample.compositionOffset));
  }
  runs.finish();
  out.end();
  if (least >= 0) return;
  const bool wide = end > std::numeric_limits<std::int32_t>::max();
  out.beginFull(fourCc("cslg"), wide ? 1 : 0);
  for (const std::int64_t value : {-least, least, greatest, start, end}) {
    out.sized(wide, static_cast<std::uint64_t>(value));
  }
  out.end();
}

void writeSyncSamples(const WrittenTrack& track, BoxWriter& out) {
  if (std::ranges::all_of(track.samples, &WrittenSample::isSync)) return;
  out.beginFull(fourCc("stss"));
  const std::size_t countAt = out.position();
  out.u32(0);
  std::uint32_t number = 0;
  std::uint32_t count = 0;
  for (const WrittenSample& sample : track.samples) {
    if (sample.isSync) {
      out.u32(number + 1);
      ++count;
    }
    number += sample.count;
  }
  out.patch(countAt, count);
  out.end();
}

void writeSizes(const WrittenTrack& track, BoxWriter& out) {
  std::uint64_t total = 0;
  bool same = !track.samples.empty() && track.samples.front().size != 0;
  for (const WrittenSample& sample : track.samples) {
    total += sample.count;
    same = same && sample.size == track.samples.front().size;
  }
  out.beginFull(fourCc("stsz"));
  out.u32(same ? track.samples.front().size : 0);
  out.u32(static_cast<std::uint32_t>(total));
  if (!same) {
    for (const WrittenSample& sample : track.samples) {
      for (std::uint32_t i = 0; i < sample.count; ++i) out.u32(sample.size);
    }
  }
  out.end();
}

struct Chunk {
  std::int64_t offset = 0;
  std::uint32_t samples = 0;
  std::uint16_t description = 0;
};

std::vector<Chunk> chunksOf(const WrittenTrack& track) {
  std::vector<Chunk> chunks;
  std::int64_t end = -1;
  std::uint64_t bytes = 0;
  for (const WrittenSample& sample : track.samples) {
    const bool continues = !chunks.empty() && !sample.startsChunk && sample.offset == end &&
                           sample.description == chunks.back().description && bytes + sample.bytes <= kMaxChunkBytes;
    if (!continues) {
      chunks.push_back({sample.offset, 0, sample.description});
      bytes = 0;
    }
    chunks.back().samples += sample.count;
    bytes += sample.bytes;
    end = sample.offset + sample.bytes;
  }
  return chunks;
}

void writeChunks(const WrittenTrack& track, BoxWriter& out) {
  const std::vector<Chunk> chunks = chunksOf(track);
  out.beginFull(fourCc("stsc"));
  const std::size_t countAt = out.position();
  out.u32(0);
  std::uint32_t entries = 0;
  for (std::size_t i = 0; i < chunks.size(); ++i) {
    const bool isNew =
        i == 0 || chunks[i].samples != chunks[i - 1].samples || chunks[i].description != chunks[i - 1].description;
    if (!isNew) continue;
    out.u32(static_cast<std::uint32_t>(i + 1));
    out.u32(chunks[i].samples);
    out.u32(chunks[i].description + 1U);
    ++entries;
  }
  out.patch(countAt, entries);
  out.end();
  const bool wide = std::ranges::any_of(
      chunks, [](const Chunk& chunk) { return chunk.offset > std::numeric_limits<std::uint32_t>::max(); });
  out.beginFull(wide ? fourCc("co64") : fourCc("stco"));
  out.u32(static_cast<std::uint32_t>(chunks.size()));
  for (const Chunk& chunk : chunks) out.sized(wide, static_cast<std::uint64_t>(chunk.offset));
  out.end();
}

}  // namespace

void writeSampleTable(const WrittenTrack& track, BoxWriter& out) {
  out.begin(fourCc("stbl"));
  writeDescriptions(track, out);
  writeDurations(track, out);
  writeCompositionOffsets(track, out);
  writeSyncSamples(track, out);
  writeChunks(track, out);
  writeSizes(track, out);
  out.end();
}

}  // namespace vistrelle::platform::mov
