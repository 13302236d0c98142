#include "vistrelle/platform/media/export/sample_runs.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <utility>

namespace vistrelle::platform {
namespace {

constexpr std::size_t kMaxReordered = 64;
constexpr std::size_t kNoRun = std::numeric_limits<std::size_t>::max();

/// The last sample whose decoding time is not after `time`; the first one when all are.
std::size_t sampleAt(const std::vector<mov::Sample>& samples, const Ratio& time) {
  const auto after = std::ranges::upper_bound(samples, time.floor(), {}, &mov::Sample::decodeTime);
  return after == samples.begin() ? 0 : static_cast<std::size_t>(after - samples.begin()) - 1;
}

/// How far composition offsets reach, in the source's ticks.
struct Reach {
  std::int64_t least = 0;
  std::int64_t greatest = 0;
};
Reach reachOf(const std::vector<mov::Sample>& samples) {
  Reach reach;
  for (const mov::Sample& sample : samples) {
    reach.least = std::min<std::int64_t>(reach.least, sample.compositionOffset);
    reach.greatest = std::max<std::int64_t>(reach.greatest, sample.compositionOffset);
  }
  return reach;
}

/// Whether pictures of H.264 are shown before a sync sample that they are decoded after (open groups of pictures).
bool showsBeforeSync(const SourceTrack& source) {
  if (source.tables.descriptions.empty() || source.tables.descriptions.front().size() < 8) return false;
  const std::vector<std::uint8_t>& entry = source.tables.descriptions.front();
  if (entry[4] != 'a' || entry[5] != 'v' || entry[6] != 'c') return false;
  std::int64_t sync = std::numeric_limits<std::int64_t>::min();
  for (const mov::Sample& sample : source.tables.samples) {
    if (sample.isSync) {
      sync = sample.presentation();
    } else if (sample.presentation() < sync) {
      return true;
    }
  }
  return false;
}

/// Whether sync samples may be such that pictures behind them are left out when decoding begins there (HEVC).
bool hasSplices(const SourceTrack& source) {
  static constexpr std::array<std::uint8_t, 4> kRecord{'h', 'v', 'c', 'C'};
  return std::ranges::any_of(source.tables.descriptions, [](const std::vector<std::uint8_t>& entry) {
    return std::search(entry.begin(), entry.end(), kRecord.begin(), kRecord.end()) != entry.end();
  });
}

/// Decoders of such pictures order them by a count that runs on over sync samples; at a jump they lose what they have
/// not shown yet. So what is lost is to be hidden: the samples up to the second sync sample behind the last one shown,
/// which is how far libavformat reads beyond an edit.
std::size_t tailOf(const std::vector<mov::Sample>& samples, std::size_t last) {
  int syncs = 0;
  while (last + 1 < samples.size() && syncs < 2) syncs += samples[++last].isSync ? 1 : 0;
  return last;
}

}  // namespace

Ratio RunBuilder::factorOf(const Piece& piece) const {
  return piece.stretch() * Ratio(scale_, piece.source->tables.timeScale);
}

std::int64_t RunBuilder::ticksOf(const Piece& piece, std::int64_t sourceTicks, std::int64_t origin) const {
  return (Ratio(sourceTicks - origin) * factorOf(piece)).rounded();
}

std::int64_t RunBuilder::cutOf(const Piece& piece, std::int64_t origin) const {
  return ((piece.media * Ratio(piece.source->tables.timeScale) - Ratio(origin)) * factorOf(piece)).rounded();
}

RunBuilder::Need RunBuilder::pictureNeed(const Piece& piece, bool isBehindAnother) const {
  const std::vector<mov::Sample>& samples = piece.source->tables.samples;
  const Ratio start = piece.media * Ratio(piece.source->tables.timeScale);
  const Ratio end = (piece.media + piece.mediaLength) * Ratio(piece.source->tables.timeScale);
  const Reach reach = reachOf(samples);
  // Only samples decoded within these bounds can be shown within the piece.
  const std::size_t near = sampleAt(samples, start - Ratio(reach.greatest));
  const std::size_t from = near - std::min(near, kMaxReordered);
  const std::size_t to = sampleAt(samples, end - Ratio(reach.least));
  Need need;
  std::optional<std::size_t> onScreen;
  std::size_t earliest = from;
  for (std::size_t i = from; i <= to; ++i) {
    const std::int64_t shown = samples[i].presentation();
    if (Ratio(shown) <= start && (!onScreen || shown >= samples[*onScreen].presentation())) onScreen = i;
    if (shown < samples[earliest].presentation()) earliest = i;
  }
  if (!onScreen && from > 0) {
    // A frame that stays on screen for longer than samples are reordered.
    for (std::size_t i = from; i-- > 0 && !onScreen;) {
      if (Ratio(samples[i].presentation()) <= start) onScreen = i;
    }
    for (std::size_t i = 0; onScreen && i < from; ++i) {
      const std::int64_t shown = samples[i].presentation();
      if (Ratio(shown) <= start && shown > samples[*onScreen].presentation()) onScreen = i;
    }
  }
  need.onScreen = onScreen.value_or(earliest);
  const std::int64_t firstShown = samples[need.onScreen].presentation();
  need.last = need.onScreen;
  need.firstDecoded = need.onScreen;
  for (std::size_t i = std::min(from, need.onScreen); i <= to; ++i) {
    const std::int64_t shown = samples[i].presentation();
    if (shown < firstShown || Ratio(shown) >= end) continue;
    need.last = std::max(need.last, i);
    need.firstDecoded = std::min(need.firstDecoded, i);
  }
  // Frames that are shown before a sync sample, and decoded after it, need the one before it.
  need.first = need.firstDecoded;
  while (need.first > 0 && !(samples[need.first].isSync && samples[need.first].presentation() <= firstShown)) {
    --need.first;
  }
  if (showsBeforeSync(*piece.source)) {
    need.last = tailOf(samples, need.last);
    // Of the first group behind a splice what is shown before its sync sample leans on what is not there. Whoever
    // decodes the next group only, finds the one before it to lean on.
    while (isBehindAnother && need.first > 0 && !samples[--need.first].isSync) {
    }
  }
  need.start = cutOf(piece, samples[need.first].decodeTime);
  return need;
}

std::int64_t RunBuilder::naturalDelay(const Piece& piece, const Need& need) const {
  const std::vector<mov::Sample>& samples = piece.source->tables.samples;
  return need.start - ticksOf(piece, samples[need.firstDecoded].decodeTime, samples[need.first].decodeTime);
}

RunBuilder::Run RunBuilder::makeRun(const Piece& piece, std::size_t first) const {
  Run run;
  run.run.source = piece.source;
  run.factor = factorOf(piece);
  run.origin = piece.source->tables.samples[first].decodeTime;
  return run;
}

/// Adds samples up to `last` with their own times, the decoding times moved back where the one before came late.
void RunBuilder::extend(Run& run, std::size_t last) const {
  const std::vector<mov::Sample>& samples = run.run.source->tables.samples;
  for (std::size_t i = run.run.samples.back().index + 1; i <= last; ++i) {
    RunSample sample;
    sample.index = i;
    sample.decodeTime = (Ratio(samples[i].decodeTime - run.origin) * run.factor).rounded() - run.shift;
    sample.presentation = (Ratio(samples[i].presentation() - run.origin) * run.factor).rounded() - run.shift;
    sample.decodeTime = std::max(sample.decodeTime, run.run.samples.back().decodeTime + 1);
    // Sound is not reordered: what tables may say of composition offsets is left out.
    if (run.run.source->type == MediaType::audio) sample.presentation = sample.decodeTime;
    run.run.samples.push_back(sample);
  }
}

/// A run that has this piece's samples with the very times that it needs, or can be extended to have them.
bool RunBuilder::reuse(const Piece& piece, const Need& need, std::int64_t delay) {
  for (std::size_t i = 0; i < runs_.size(); ++i) {
    Run& run = runs_[i];
    if (run.run.source != piece.source || !(run.factor == factorOf(piece))) continue;
    const std::size_t first = run.run.samples.front().index;
    const std::size_t last = run.run.samples.back().index;
    if (need.first < first || need.firstDecoded > last || need.onScreen > last) continue;
    // Where others decode on, it would be taken for the splice that it is for this piece.
    if (need.first != first && hasSplices(*piece.source)) continue;
    const std::int64_t start = cutOf(piece, run.origin) - run.shift;
    if (run.run.samples[need.onScreen - first].presentation != start) continue;
    if (run.run.samples[need.firstDecoded - first].decodeTime != start - delay) continue;
    extend(run, std::max(last, need.last));
    uses_.push_back({i, start, need.first});
    return true;
  }
  return false;
}

void RunBuilder::addPicture(const Piece& piece, const Need& need, std::int64_t delay) {
  if (reuse(piece, need, delay)) return;
  Run run = makeRun(piece, need.first);
  const std::vector<mov::Sample>& samples = piece.source->tables.samples;
  for (std::size_t i = need.first; i <= need.last; ++i) {
    RunSample sample;
    sample.index = i;
    sample.decodeTime = ticksOf(piece, samples[i].decodeTime, run.origin);
    sample.presentation = ticksOf(piece, samples[i].presentation(), run.origin);
    if (i == need.onScreen) sample.presentation = need.start;
    if (i == need.firstDecoded) sample.decodeTime = std::max(sample.decodeTime, need.start - delay);
    if (!run.run.samples.empty()) {
      sample.decodeTime = std::max(sample.decodeTime, run.run.samples.back().decodeTime + 1);
    }
    run.run.samples.push_back(sample);
  }
  run.shift = run.run.samples.front().decodeTime;
  for (RunSample& sample : run.run.samples) {
    sample.decodeTime -= run.shift;
    sample.presentation -= run.shift;
  }
  uses_.push_back({runs_.size(), need.start - run.shift, need.first});
  runs_.push_back(std::move(run));
}

void RunBuilder::addSound(const Piece& piece) {
  const std::vector<mov::Sample>& samples = piece.source->tables.samples;
  const Ratio start = piece.media * Ratio(piece.source->tables.timeScale);
  const Ratio end = (piece.media + piece.mediaLength) * Ratio(piece.source->tables.timeScale);
  const std::size_t heard = sampleAt(samples, start);
  const auto leadIn = static_cast<std::size_t>(piece.source->soundLeadIn);
  const std::size_t first = heard > leadIn ? heard - leadIn : 0;
  const std::size_t last = sampleAt(samples, Ratio(std::max(end.ceil() - 1, start.floor())));
  for (std::size_t i = 0; i < runs_.size(); ++i) {
    Run& run = runs_[i];
    if (run.run.source != piece.source || !(run.factor == factorOf(piece))) continue;
    if (first < run.run.samples.front().index || first > run.run.samples.back().index + 1) continue;
    extend(run, std::max(last, run.run.samples.back().index));
    uses_.push_back({i, cutOf(piece, run.origin), first});
    return;
  }
  Run run = makeRun(piece, first);
  run.run.samples.push_back({first, 0, 1, 0, 0});
  extend(run, last);
  uses_.push_back({runs_.size(), cutOf(piece, run.origin), first});
  runs_.push_back(std::move(run));
}

/// Samples that stand for themselves are cut to the piece; nothing of them needs to be hidden.
void RunBuilder::addTrimmed(const Piece& piece) {
  const SourceTrack& source = *piece.source;
  const std::vector<mov::Sample>& samples = source.tables.samples;
  const Ratio ticks(source.tables.timeScale);
  const bool isSound = source.isUncompressedSound();
  Ratio start = piece.media * ticks;
  Ratio end = (piece.media + piece.mediaLength) * ticks;
  if (isSound) {
    // Sound is cut between two samples.
    start = Ratio(start.rounded());
    end = std::max(Ratio(end.rounded()), start + Ratio(1));
  }
  Run run = makeRun(piece, 0);
  run.cut = start;
  run.trimmed = std::max<std::int64_t>(((end - start) * run.factor).rounded(), 1);
  for (std::size_t i = 0; i < runs_.size(); ++i) {
    const Run& known = runs_[i];
    if (known.run.source == piece.source && known.factor == run.factor && known.cut == start &&
        known.trimmed == run.trimmed) {
      uses_.push_back({i, known.early, 0});
      return;
    }
  }
  for (std::size_t i = sampleAt(samples, start); i < samples.size() && Ratio(samples[i].decodeTime) < end; ++i) {
    const mov::Sample& stored = samples[i];
    RunSample sample;
    sample.index = i;
    Ratio from = std::max(Ratio(stored.decodeTime), start);
    if (isSound) {
      const std::int64_t unit = std::int64_t{stored.duration} * source.tables.packetSamples;
      const std::int64_t skipped = (from.floor() - stored.decodeTime) / unit * source.tables.packetSamples;
      const std::int64_t stop = std::min(stored.decodeTime + stored.span(), end.floor());
      const std::int64_t upTo = (stop - stored.decodeTime + unit - 1) / unit * source.tables.packetSamples;
      if (upTo <= skipped) continue;
      sample.skipped = static_cast<std::uint32_t>(skipped);
      sample.count = static_cast<std::uint32_t>(std::min<std::int64_t>(upTo, stored.count) - skipped);
      from = Ratio(stored.decodeTime + skipped * stored.duration);
    }
    sample.decodeTime = ((from - start) * run.factor).rounded();
    if (!run.run.samples.empty()) {
      sample.decodeTime = std::max(sample.decodeTime, run.run.samples.back().decodeTime + 1);
    }
    sample.presentation = sample.decodeTime;
    run.run.samples.push_back(sample);
  }
  if (run.run.samples.empty()) {
    uses_.push_back({kNoRun, -1, 0});
    return;
  }
  // Packets of several samples may begin before the cut.
  run.early = -run.run.samples.front().decodeTime;
  for (RunSample& sample : run.run.samples) {
    sample.decodeTime += run.early;
    sample.presentation += run.early;
  }
  uses_.push_back({runs_.size(), run.early, 0});
  runs_.push_back(std::move(run));
}

/// Puts the runs one behind the other. What one shows last lies before what the next one holds first.
void RunBuilder::layOut() {
  std::int64_t decoded = 0;
  std::int64_t shown = 0;
  const std::int64_t gap = longestGap();
  later_ = 0;
  for (Run& run : runs_) {
    std::int64_t earliest = 0;
    for (const RunSample& sample : run.run.samples) earliest = std::min(earliest, sample.presentation);
    run.base = &run == &runs_.front() ? 0 : std::max(decoded, shown - earliest);
    const RunSample& last = run.run.samples.back();
    const mov::Sample& stored = run.run.source->tables.samples[last.index];
    const std::int64_t duration = std::max<std::int64_t>((Ratio(stored.duration) * run.factor).rounded(), 1);
    std::int64_t end = last.decodeTime + duration * last.count;
    const bool isTrimmed = run.trimmed > 0 && !run.run.source->isUncompressedSound();
    if (isTrimmed) end = std::max(run.trimmed, last.decodeTime + 1);
    shown = std::max(shown, run.base + run.shownTo);
    for (const RunSample& sample : run.run.samples) {
      const std::int64_t lasts =
          (Ratio(run.run.source->tables.samples[sample.index].duration) * run.factor).rounded() * sample.count;
      shown = std::max(shown, run.base + sample.presentation + lasts);
    }
    for (RunSample& sample : run.run.samples) {
      sample.decodeTime += run.base;
      sample.presentation += run.base;
      later_ = std::max(later_, std::max(sample.decodeTime, gap) - sample.presentation);
    }
    run.run.end = run.base + end;
    decoded = run.run.end;
  }
  for (Run& run : runs_) {
    for (RunSample& sample : run.run.samples) sample.presentation += later_;
  }
}

void RunBuilder::markEntries() {
  if (std::ranges::count_if(uses_, [](const Use& use) { return use.run != kNoRun; }) < 2) return;
  for (const Use& use : uses_) {
    if (use.run == kNoRun || runs_[use.run].trimmed > 0) continue;
    std::vector<RunSample>& samples = runs_[use.run].run.samples;
    samples[use.entry - samples.front().index].isEntry = runs_[use.run].run.source->type == MediaType::video;
  }
}

bool RunBuilder::isPlain(const SourceTrack& source) {
  return std::ranges::all_of(source.tables.samples,
                             [](const mov::Sample& sample) { return sample.isSync && sample.compositionOffset == 0; });
}

/// Of the empty stretches of pictures with something before and behind them.
std::int64_t RunBuilder::longestGap() const {
  std::int64_t longest = 0;
  for (std::size_t i = 1; i + 1 < pieces_.size(); ++i) {
    if (pieces_[i].source != nullptr || pieces_[i - 1].source == nullptr) continue;
    if (pieces_[i - 1].source->type != MediaType::video) continue;
    longest = std::max(longest, (pieces_[i].length * Ratio(scale_)).ceil());
  }
  return longest;
}

std::vector<SampleRun> RunBuilder::build() {
  std::vector<Need> needs(pieces_.size());
  std::int64_t delay = std::numeric_limits<std::int64_t>::max();
  bool isBehindAnother = false;
  for (std::size_t i = 0; i < pieces_.size(); ++i) {
    const Piece& piece = pieces_[i];
    if (piece.source == nullptr || piece.source->type != MediaType::video || isPlain(*piece.source)) continue;
    needs[i] = pictureNeed(piece, std::exchange(isBehindAnother, true));
    delay = std::min(delay, naturalDelay(piece, needs[i]));
  }
  for (std::size_t i = 0; i < pieces_.size(); ++i) {
    const Piece& piece = pieces_[i];
    if (piece.source == nullptr) {
      uses_.push_back({kNoRun, -1, 0});
    } else if (piece.source->type == MediaType::video && !isPlain(*piece.source)) {
      addPicture(piece, needs[i], delay);
    } else if (piece.source->type == MediaType::audio && !piece.source->isUncompressedSound()) {
      addSound(piece);
    } else {
      addTrimmed(piece);
    }
  }
  for (std::size_t i = 0; i < pieces_.size(); ++i) {
    if (uses_[i].run == kNoRun) continue;
    std::int64_t& shownTo = runs_[uses_[i].run].shownTo;
    shownTo = std::max(shownTo, uses_[i].start + (pieces_[i].length * Ratio(scale_)).rounded());
  }
  markEntries();
  layOut();
  std::vector<SampleRun> runs;
  for (const Use& use : uses_) mediaTimes_.push_back(use.run == kNoRun ? -1 : runs_[use.run].base + use.start + later_);
  for (std::size_t i = 0; i < runs_.size(); ++i) {
    // Durations are differences: the last of a run lasts until the next one begins.
    if (i + 1 < runs_.size() && !runs_[i].run.source->isUncompressedSound()) runs_[i].run.end = runs_[i + 1].base;
    runs.push_back(std::move(runs_[i].run));
  }
  return runs;
}

}  // namespace vistrelle::platform
