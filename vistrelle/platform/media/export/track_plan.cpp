#include "vistrelle/platform/media/export/track_plan.h"

#include <algorithm>
#include <array>
#include <limits>

#include "vistrelle/platform/media/export/blank_picture.h"
#include "vistrelle/platform/media/export/sample_runs.h"
#include "vistrelle/platform/media/export/timecode_samples.h"

namespace vistrelle::platform {
namespace {

constexpr std::int64_t kMaxTimeScale = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kFinestPictureScale = 10000000;  // beyond it long frames no longer fit a table

bool fail(std::string* error, const char* text) {
  if (error != nullptr) *error = text;
  return false;
}

/// The coarsest scale in which all samples keep their times; for pictures also the cuts, where it stays reasonable.
std::int64_t trackTimeScale(const std::vector<Piece>& pieces) {
  std::int64_t scale = 1;
  for (const Piece& piece : pieces) {
    if (piece.source == nullptr) continue;
    const Ratio ticks = Ratio(piece.source->tables.timeScale) / piece.stretch();
    if (const std::int64_t finer = commonMultiple(scale, ticks.numerator(), kMaxTimeScale)) scale = finer;
  }
  for (const Piece& piece : pieces) {
    if (piece.source == nullptr || piece.source->type != MediaType::video) continue;
    for (const Ratio& time : {piece.media * piece.stretch(), piece.length}) {
      if (const std::int64_t finer = commonMultiple(scale, time.denominator(), kFinestPictureScale)) scale = finer;
    }
  }
  return scale;
}

/// Puts samples into the track: descriptions shared by all sources, origins kept.
class SampleList {
 public:
  explicit SampleList(PlannedTrack& plan) : plan_(plan) {}

  bool add(const SampleRun& run) {
    bool isFirst = true;
    for (std::size_t i = 0; i < run.samples.size(); ++i) {
      const RunSample& sample = run.samples[i];
      const mov::Sample& stored = run.source->tables.samples[sample.index];
      const std::int64_t next = i + 1 < run.samples.size() ? run.samples[i + 1].decodeTime : run.end;
      const std::int64_t duration = (next - sample.decodeTime) / sample.count;
      const std::int64_t offset = sample.presentation - sample.decodeTime;
      if (duration < 0 || duration > std::numeric_limits<std::uint32_t>::max()) return false;
      if (offset != static_cast<std::int32_t>(offset)) return false;
      mov::WrittenSample written;
      mov::Sample taken = stored;
      taken.count = sample.skipped;
      written.offset = stored.offset + run.source->tables.bytesOf(taken);
      taken.count = sample.count;
      written.bytes = static_cast<std::uint32_t>(run.source->tables.bytesOf(taken));
      written.size = stored.size;
      written.count = sample.count;
      written.duration = static_cast<std::uint32_t>(duration);
      written.compositionOffset = static_cast<std::int32_t>(offset);
      written.isSync = stored.isSync;
      written.startsChunk = isFirst;
      written.description = plan_.descriptionOf(*run.source, stored.description);
      if (sample.isEntry) addSplice(written.description);
      plan_.track.samples.push_back(written);
      isFirst = false;
    }
    plan_.origins.push_back({plan_.track.samples.size(), run.source});
    return true;
  }

 private:
  void addSplice(std::uint16_t description) {
    const std::vector<std::uint8_t>& entry = plan_.track.descriptions[description];
    static constexpr std::array<std::uint8_t, 4> kName{'h', 'v', 'c', 'C'};
    const auto record = std::search(entry.begin(), entry.end(), kName.begin(), kName.end());
    constexpr std::ptrdiff_t kLengthFieldAt = 4 + 21;  // ISO/IEC 14496-15, 8.3.3.1.2
    if (entry.end() - record <= kLengthFieldAt) return;
    plan_.splices.push_back({plan_.track.samples.size(), (record[kLengthFieldAt] & 3) + 1});
  }

  PlannedTrack& plan_;
};

/// Lays the boundaries of the pieces on the movie's clock, each rounded for itself, so that nothing adds up.
std::vector<mov::Edit> editsOf(const std::vector<Piece>& pieces, const std::vector<std::int64_t>& mediaTimes,
                               std::int64_t movieTimeScale) {
  std::vector<mov::Edit> edits;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    const std::int64_t start = (pieces[i].start * Ratio(movieTimeScale)).rounded();
    const std::int64_t end = (pieces[i].end() * Ratio(movieTimeScale)).rounded();
    if (end <= start) continue;
    mov::Edit edit;
    edit.duration = static_cast<std::uint64_t>(end - start);
    edit.mediaTime = mediaTimes[i];
    edits.push_back(edit);
  }
  while (!edits.empty() && edits.back().mediaTime < 0) edits.pop_back();
  return edits;
}

}  // namespace

std::uint16_t PlannedTrack::descriptionOf(const SourceTrack& source, std::uint16_t index) {
  const auto& stored = source.tables.descriptions;
  std::vector<std::uint8_t> entry = stored[std::min<std::size_t>(index, stored.size() - 1)];
  constexpr std::size_t kDataReferenceAt = 14;  // 14496-12, 8.5.2.2, behind the box's header
  if (entry.size() >= kDataReferenceAt + 2) {
    entry[kDataReferenceAt] = 0;
    entry[kDataReferenceAt + 1] = 1;
  }
  auto& known = track.descriptions;
  const auto found = std::ranges::find(known, entry);
  if (found != known.end()) return static_cast<std::uint16_t>(found - known.begin());
  known.push_back(std::move(entry));
  return static_cast<std::uint16_t>(known.size() - 1);
}

bool planTrack(std::vector<Piece> pieces, std::int64_t movieTimeScale, PlannedTrack& plan, std::string* error) {
  plan.pieces = std::move(pieces);
  const auto first = std::ranges::find_if(plan.pieces, [](const Piece& piece) { return piece.source != nullptr; });
  if (first == plan.pieces.end()) return true;
  const std::int64_t scale = trackTimeScale(plan.pieces);
  plan.track.timeScale = static_cast<std::uint32_t>(scale);
  plan.track.header = first->source->tables.header;
  if (first->source->type == MediaType::timecode) {
    std::vector<std::int64_t> mediaTimes;
    if (!makeTimecodes(plan, mediaTimes, error)) return false;
    plan.track.edits = editsOf(plan.pieces, mediaTimes, movieTimeScale);
    return true;
  }
  RunBuilder builder(scale, plan.pieces);
  const std::vector<SampleRun> runs = builder.build();
  SampleList list(plan);
  for (const SampleRun& run : runs) {
    if (!list.add(run)) return fail(error, "the times of the samples are beyond what a movie can say");
  }
  plan.track.edits = editsOf(plan.pieces, builder.mediaTimes(), movieTimeScale);
  addBlankPicture(plan);
  return true;
}

}  // namespace vistrelle::platform
