#include "vistrelle/platform/media/export/passthrough.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <map>
#include <new>
#include <set>

#include "vistrelle/platform/media/composition.h"
#include "vistrelle/platform/media/export/silence.h"
#include "vistrelle/platform/media/export/source_track.h"
#include "vistrelle/platform/media/export/splice.h"
#include "vistrelle/platform/media/export/track_plan.h"

namespace vistrelle::platform {
namespace {

constexpr const char* kNoSamples = "the movie has no samples";

bool fail(std::string* error, std::string text) {
  if (error != nullptr) *error = std::move(text);
  return false;
}

/// Writes to a descriptor one piece behind the other, in large pieces.
class FileWriter {
 public:
  explicit FileWriter(int fd) : fd_(fd) { buffer_.reserve(kBufferBytes); }
  std::int64_t position() const { return written_ + std::ssize(buffer_); }

  bool write(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
      if (buffer_.empty() && bytes.size() >= kBufferBytes) return put(bytes) && (written_ += std::ssize(bytes), true);
      const std::size_t part = std::min(bytes.size(), kBufferBytes - buffer_.size());
      buffer_.insert(buffer_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(part));
      bytes = bytes.subspan(part);
      if (buffer_.size() == kBufferBytes && !flush()) return false;
    }
    return true;
  }
  bool flush() {
    if (!put(buffer_)) return false;
    written_ += std::ssize(buffer_);
    buffer_.clear();
    return true;
  }
  /// Replaces what was written at the beginning.
  bool rewriteHead(std::span<const std::uint8_t> bytes) { return flush() && putAt(0, bytes); }
  bool readBack(std::int64_t offset, std::span<std::uint8_t> bytes) {
    if (!flush()) return false;
    while (!bytes.empty()) {
      const ssize_t count = ::pread(fd_, bytes.data(), bytes.size(), offset);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) {
        errno_ = count < 0 ? errno : EIO;
        return false;
      }
      offset += count;
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
  }
  std::string cause() const { return std::strerror(errno_); }

 private:
  static constexpr std::size_t kBufferBytes = std::size_t{1} << 20;
  static constexpr std::int64_t kStartBytes = std::int64_t{16} << 20;
  bool put(std::span<const std::uint8_t> bytes) {
    if (!putAt(written_, bytes)) return false;
    // The disk begins at once with what it has to write anyway; the flush at the end is then short.
    const std::int64_t end = written_ + std::ssize(bytes);
    if (end - started_ >= kStartBytes) {
      ::sync_file_range(fd_, started_, end - started_, SYNC_FILE_RANGE_WRITE);
      started_ = end;
    }
    return true;
  }
  bool putAt(std::int64_t offset, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
      const ssize_t count = ::pwrite(fd_, bytes.data(), bytes.size(), offset);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) {
        errno_ = count < 0 ? errno : ENOSPC;
        return false;
      }
      offset += count;
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
  }

  int fd_;
  int errno_ = 0;
  std::int64_t written_ = 0;
  std::int64_t started_ = 0;
  std::vector<std::uint8_t> buffer_;
};

/// Where the ranges of one store went.
struct CopiedRange {
  ByteRange source;
  std::int64_t target = 0;
};

/// Sorts and joins ranges that touch or overlap.
void join(std::vector<ByteRange>& ranges) {
  std::ranges::sort(ranges, {}, &ByteRange::start);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < ranges.size(); ++i) {
    if (kept > 0 && ranges[i].start <= ranges[kept - 1].end()) {
      ranges[kept - 1].length = std::max(ranges[kept - 1].end(), ranges[i].end()) - ranges[kept - 1].start;
    } else {
      ranges[kept++] = ranges[i];
    }
  }
  ranges.resize(kept);
}

class PassthroughWriter {
 public:
  PassthroughWriter(Asset& asset, int fd, const ExportControl& control) : asset_(asset), out_(fd), control_(control) {}
  bool run(std::string* error);

 private:
  bool isCancelled() const { return control_.isCancelled && control_.isCancelled(); }
  void report(double done) const {
    if (control_.progress) control_.progress(done);
  }
  bool openSources(std::string* error);
  bool plan(std::string* error);
  void number();
  void linkTracks();
  bool copySamples(std::string* error);
  void collect(const PlannedTrack& plan);
  bool copyStore(SampleStore& store, std::string* error);
  void place(PlannedTrack& track, std::int64_t ownBytesAt) const;
  bool splice(PlannedTrack& plan, std::string* error);
  bool finish(std::string* error);

  Asset& asset_;
  FileWriter out_;
  const ExportControl& control_;
  SourceTracks sources_;
  Silence silence_;
  struct Timeline {
    std::int32_t id = 0;
    std::vector<Segment> segments;
  };
  std::vector<Timeline> timelines_;
  std::int64_t timeScale_ = 0;
  std::vector<PlannedTrack> plans_;
  std::vector<std::int32_t> wishedIds_;
  /// What is taken of one store.
  struct Share {
    std::vector<ByteRange> wanted;
    std::vector<CopiedRange> copied;
  };
  std::map<SampleStore*, Share> shares_;
  std::vector<SampleStore*> order_;  // of their first samples
  std::int64_t toCopy_ = 0;
  std::int64_t done_ = 0;
};

std::vector<Segment> segmentsOf(const std::shared_ptr<Track>& track) {
  if (const auto* edited = dynamic_cast<const CompositionTrack*>(track.get())) return edited->segments();
  TimeRange range = track->timeRange();
  if (!range.start.isNumeric() || !range.duration.isNumeric()) return {};
  // What lies before the movie's beginning is not part of it.
  if (range.start < MediaTime::zero()) range = {MediaTime::zero(), range.end()};
  if (range.duration <= MediaTime::zero()) return {};
  return {{track, range, range}};
}

bool PassthroughWriter::openSources(std::string* error) {
  std::vector<std::shared_ptr<Track>> used;
  for (const std::shared_ptr<Track>& track : asset_.tracks()) {
    std::vector<Segment> segments = segmentsOf(track);
    for (const Segment& segment : segments) {
      if (segment.track) used.push_back(segment.track);
    }
    timelines_.push_back({track->trackId(), std::move(segments)});
  }
  if (used.empty()) return fail(error, kNoSamples);
  return sources_.open(used, control_.isCancelled, error);
}

bool PassthroughWriter::plan(std::string* error) {
  std::vector<std::vector<Piece>> tracks;
  for (const Timeline& timeline : timelines_) {
    for (std::vector<Piece>& track : tracksOf(piecesOf(timeline.segments, sources_))) {
      silence_.fill(track);
      tracks.push_back(std::move(track));
      wishedIds_.push_back(timeline.id);
    }
  }
  timeScale_ = movieTimeScaleOf(tracks);
  for (std::vector<Piece>& track : tracks) {
    if (isCancelled()) return fail(error, "cancelled");
    plans_.emplace_back();
    if (!planTrack(std::move(track), timeScale_, plans_.back(), error)) return false;
  }
  number();
  linkTracks();
  return true;
}

/// Tracks keep the numbers they have in the asset; further ones get the next.
void PassthroughWriter::number() {
  std::set<std::int32_t> taken(wishedIds_.begin(), wishedIds_.end());
  std::set<std::int32_t> given;
  std::int32_t next = taken.empty() ? 1 : std::max(*taken.rbegin(), 0) + 1;
  for (std::size_t i = 0; i < plans_.size(); ++i) {
    const bool isFree = wishedIds_[i] > 0 && given.insert(wishedIds_[i]).second;
    plans_[i].track.id = static_cast<std::uint32_t>(isFree ? wishedIds_[i] : next++);
  }
}

/// References of a source's track to others of its movie become references between the tracks that show them.
void PassthroughWriter::linkTracks() {
  const auto firstSource = [](const PlannedTrack& plan) -> const SourceTrack* {
    for (const Piece& piece : plan.pieces) {
      if (piece.source != nullptr) return piece.source;
    }
    return nullptr;
  };
  for (PlannedTrack& plan : plans_) {
    const SourceTrack* source = firstSource(plan);
    if (source == nullptr) continue;
    for (const mov::TrackReference& stored : source->tables.references) {
      mov::TrackReference reference{stored.type, {}};
      for (const PlannedTrack& other : plans_) {
        const SourceTrack* target = firstSource(other);
        if (target == nullptr || &other == &plan || target->movie != source->movie) continue;
        if (std::ranges::find(stored.tracks, target->tables.id) != stored.tracks.end()) {
          reference.tracks.push_back(other.track.id);
        }
      }
      if (!reference.tracks.empty()) plan.track.references.push_back(std::move(reference));
    }
  }
}

bool PassthroughWriter::copyStore(SampleStore& store, std::string* error) {
  Share& share = shares_[&store];
  std::int64_t target = out_.position();
  for (const ByteRange& range : share.wanted) {
    share.copied.push_back({range, target});
    target += range.length;
  }
  bool isWritten = true;
  const auto sink = [&](std::span<const std::uint8_t> bytes) {
    if (isCancelled()) return false;
    isWritten = out_.write(bytes);
    done_ += std::ssize(bytes);
    report(toCopy_ > 0 ? 0.99 * static_cast<double>(done_) / static_cast<double>(toCopy_) : 0);
    return isWritten;
  };
  const bool isCopied = store.copy(share.wanted, sink, error);
  share.wanted = {};
  if (isCopied) return true;
  if (!isWritten) return fail(error, "the movie cannot be written: " + out_.cause());
  if (isCancelled()) return fail(error, "cancelled");
  return false;
}

/// Notes what a track needs of the stores.
void PassthroughWriter::collect(const PlannedTrack& plan) {
  std::size_t i = 0;
  for (const PlannedTrack::Origin& origin : plan.origins) {
    SampleStore* store = origin.source == nullptr ? nullptr : origin.source->store;
    if (store != nullptr && !shares_.contains(store)) order_.push_back(store);
    for (; i < origin.end; ++i) {
      const mov::WrittenSample& sample = plan.track.samples[i];
      if (store == nullptr || sample.bytes == 0) continue;
      std::vector<ByteRange>& ranges = shares_[store].wanted;
      if (!ranges.empty() && ranges.back().end() == sample.offset) {
        ranges.back().length += sample.bytes;
      } else {
        ranges.push_back({sample.offset, sample.bytes});
      }
    }
  }
}

bool PassthroughWriter::copySamples(std::string* error) {
  for (const PlannedTrack& plan : plans_) collect(plan);
  for (auto& [store, share] : shares_) {
    join(share.wanted);
    for (const ByteRange& range : share.wanted) toCopy_ += range.length;
  }
  return std::ranges::all_of(order_, [&](SampleStore* store) { return copyStore(*store, error); });
}

/// Moves the offsets of a track's samples from its sources to the file that is written.
void PassthroughWriter::place(PlannedTrack& plan, std::int64_t ownBytesAt) const {
  std::size_t i = 0;
  for (const PlannedTrack::Origin& origin : plan.origins) {
    const std::vector<CopiedRange>* ranges = nullptr;
    if (origin.source != nullptr && shares_.contains(origin.source->store)) {
      ranges = &shares_.at(origin.source->store).copied;
    }
    for (; i < origin.end; ++i) {
      std::int64_t& offset = plan.track.samples[i].offset;
      if (origin.source == nullptr) {
        offset += ownBytesAt;
        continue;
      }
      if (ranges == nullptr) continue;
      auto after =
          std::ranges::upper_bound(*ranges, offset, {}, [](const CopiedRange& range) { return range.source.start; });
      if (after == ranges->begin()) continue;
      --after;
      offset = after->target + (offset - after->source.start);
    }
  }
}

/// Pictures at splices get bytes of their own: elsewhere in the movie they may stand unchanged.
bool PassthroughWriter::splice(PlannedTrack& plan, std::string* error) {
  std::map<std::int64_t, std::int64_t> done;
  for (const PlannedTrack::Splice& splice : plan.splices) {
    mov::WrittenSample& sample = plan.track.samples[splice.sample];
    const auto known = done.find(sample.offset);
    if (known == done.end()) {
      std::vector<std::uint8_t> bytes(sample.bytes);
      if (!out_.readBack(sample.offset, bytes)) return fail(error, "the movie cannot be read back: " + out_.cause());
      const bool isChanged = markSplice(bytes, splice.lengthBytes);
      const std::int64_t at = isChanged ? out_.position() : sample.offset;
      if (isChanged && !out_.write(bytes)) return fail(error, "the movie cannot be written: " + out_.cause());
      done[sample.offset] = at;
      sample.offset = at;
    } else {
      sample.offset = known->second;
    }
  }
  return true;
}

bool PassthroughWriter::finish(std::string* error) {
  for (PlannedTrack& plan : plans_) {
    const std::int64_t at = out_.position();
    if (!out_.write(plan.ownBytes)) return fail(error, "the movie cannot be written: " + out_.cause());
    place(plan, at);
    if (!splice(plan, error)) return false;
  }
  const auto mediaEnd = static_cast<std::uint64_t>(out_.position());
  mov::WrittenMovie movie;
  movie.timeScale = static_cast<std::uint32_t>(timeScale_);
  movie.notes = sources_.notes();
  for (PlannedTrack& plan : plans_) {
    if (plan.track.samples.empty()) continue;
    std::uint64_t duration = 0;
    for (const mov::Edit& edit : plan.track.edits) duration += edit.duration;
    movie.duration = std::max(movie.duration, duration);
    movie.tracks.push_back(std::move(plan.track));
  }
  if (movie.tracks.empty()) return fail(error, kNoSamples);  // those that are wanted cannot be shown
  const std::uint64_t headBytes = mov::mediaDataHead(0).size();
  const bool isWritten = out_.write(mov::movieBox(movie)) && out_.rewriteHead(mov::mediaDataHead(mediaEnd - headBytes));
  if (!isWritten) return fail(error, "the movie cannot be written: " + out_.cause());
  report(1);
  return true;
}

bool PassthroughWriter::run(std::string* error) {
  report(0);
  if (!openSources(error) || !plan(error)) return false;
  if (!out_.write(mov::mediaDataHead(0))) return fail(error, "the movie cannot be written: " + out_.cause());
  return copySamples(error) && finish(error);
}

}  // namespace

bool writePassthrough(Asset& asset, int fd, const ExportControl& control, std::string* error) {
  // Longer ones are damaged; stretches that have no end of their own are taken to end there.
  const MediaTime duration = asset.duration();
  const bool isBeyondNumbers = duration == MediaTime::positiveInfinity();  // after edits of a damaged one
  if (isBeyondNumbers ||
      (duration.isNumeric() && duration > MediaTime::make(std::numeric_limits<std::int32_t>::max(), 1))) {
    return fail(error, "the movie is too long");
  }
  try {
    return PassthroughWriter(asset, fd, control).run(error);
  } catch (const std::bad_alloc&) {
    return fail(error, "out of memory");
  }
}

}  // namespace vistrelle::platform
