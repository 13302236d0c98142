#include "vistrelle/platform/media/export/source_track.h"

#include <algorithm>
#include <limits>
#include <set>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/export/packet_samples.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"
#include "vistrelle/platform/media/ffmpeg/movie_track.h"

namespace vistrelle::platform {
namespace {

constexpr std::size_t kReadBytes = std::size_t{1} << 20;
constexpr std::int64_t kAheadBytes = std::int64_t{8} << 20;

bool fail(std::string* error, std::string text) {
  if (error != nullptr) *error = std::move(text);
  return false;
}

/// Samples that lie in a file as they are.
class FileStore : public SampleStore {
 public:
  explicit FileStore(std::shared_ptr<InputBytes> bytes) : bytes_(std::move(bytes)), buffer_(kReadBytes) {}
  bool copy(std::span<const ByteRange> ranges, const ByteSink& sink, std::string* error) override {
    for (const ByteRange& range : ranges) {
      std::int64_t at = range.start;
      std::int64_t announced = at;
      while (at < range.end()) {
        const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(range.end() - at, std::ssize(buffer_)));
        if (at + kAheadBytes / 2 > announced && announced < range.end()) {
          // The disk reads on while what it gave is written.
          bytes_->willRead(announced, std::min(kAheadBytes, range.end() - announced));
          announced += kAheadBytes;
        }
        const std::int64_t count = bytes_->readAt(at, std::span(buffer_.data(), wanted));
        if (count < 0) return fail(error, avErrorText(static_cast<int>(count)));
        if (count == 0) return fail(error, "the movie ends within a sample");
        if (!sink(std::span<const std::uint8_t>(buffer_.data(), static_cast<std::size_t>(count)))) return false;
        at += count;
      }
    }
    return true;
  }

 private:
  std::shared_ptr<InputBytes> bytes_;
  std::vector<std::uint8_t> buffer_;
};

/// Packets of sound that a decoder must have seen before it is exact: overlapping transforms need one, spectral
/// replication two, the bit reservoir of MPEG layer III up to nine.
int leadInOf(AVCodecID codec) {
  switch (codec) {
    case AV_CODEC_ID_MP3:
    case AV_CODEC_ID_MP2:
      return 10;
    case AV_CODEC_ID_OPUS:
      return 4;
    default:
      return 2;
  }
}

/// The edits as stretches of the movie's timeline. Rates are taken as 1, as everywhere here.
std::vector<MediaStretch> timelineOf(const mov::SampleTables& track, const mov::MovieTables& movie) {
  std::vector<MediaStretch> timeline;
  Ratio position;
  for (const mov::Edit& edit : track.edits) {
    const Ratio length(static_cast<std::int64_t>(std::min<std::uint64_t>(edit.duration, 1ULL << 62)), movie.timeScale);
    // In fragmented movies the edit list was written before its samples: it says where they start, not how many.
    const bool isOpen = edit.mediaTime >= 0 && (edit.duration == 0 || movie.hasFragments);
    MediaStretch stretch{position, length, std::nullopt};
    if (edit.mediaTime >= 0) stretch.media = Ratio(edit.mediaTime, track.timeScale);
    if (isOpen) stretch.length = Ratio(std::numeric_limits<std::int32_t>::max());
    timeline.push_back(stretch);
    if (isOpen) return timeline;
    position = position + length;
  }
  if (timeline.empty()) timeline.push_back({Ratio(), Ratio(std::numeric_limits<std::int32_t>::max()), Ratio()});
  return timeline;
}

void measure(SourceTrack& source) {
  const std::vector<mov::Sample>& samples = source.tables.samples;
  if (samples.empty()) return;
  source.firstPresentation = std::numeric_limits<std::int64_t>::max();
  source.endOfPresentation = std::numeric_limits<std::int64_t>::min();
  for (const mov::Sample& sample : samples) {
    source.firstPresentation = std::min(source.firstPresentation, sample.presentation());
    source.endOfPresentation = std::max(source.endOfPresentation, sample.presentation() + sample.span());
  }
}

bool hasSamplesElsewhere(const mov::SampleTables& tables) {
  return std::ranges::any_of(tables.samples,
                             [&](const mov::Sample& sample) { return tables.isElsewhere(sample.description); });
}

}  // namespace

struct SourceTracks::Movie {
  std::shared_ptr<MovieSource> source;
  std::unique_ptr<SampleStore> store;
  std::vector<SourceTrack*> tracks;
  std::vector<int> streams;
  std::vector<std::uint8_t> notes;
};

SourceTracks::SourceTracks() = default;
SourceTracks::~SourceTracks() = default;

bool SourceTracks::open(const std::vector<std::shared_ptr<Track>>& tracks, const std::function<bool()>& isCancelled,
                        std::string* error) {
  for (const std::shared_ptr<Track>& track : tracks) {
    const auto* inFile = dynamic_cast<const MovieTrack*>(track.get());
    if (inFile == nullptr) return fail(error, "a track that is not of a movie file cannot be copied");
    const std::shared_ptr<MovieSource>& opened = inFile->source();
    const int stream = inFile->facts().index;
    Movie& movie = movieOf(opened);
    if (std::ranges::find(movie.streams, stream) != movie.streams.end()) continue;
    sources_.push_back(std::make_unique<SourceTrack>());
    SourceTrack& source = *sources_.back();
    source.track = track.get();
    source.movie = opened.get();
    source.type = inFile->facts().type;
    source.soundLeadIn = leadInOf(inFile->facts().parameters->codec_id);
    movie.tracks.push_back(&source);
    movie.streams.push_back(stream);
  }
  return std::ranges::all_of(movies_, [&](const auto& movie) { return openMovie(*movie, isCancelled, error); });
}

SourceTracks::Movie& SourceTracks::movieOf(const std::shared_ptr<MovieSource>& source) {
  for (const auto& movie : movies_) {
    if (movie->source == source) return *movie;
  }
  movies_.push_back(std::make_unique<Movie>());
  movies_.back()->source = source;
  return *movies_.back();
}

bool SourceTracks::openMovie(Movie& movie, const std::function<bool()>& isCancelled, std::string* error) {
  if (!movie.source->isMovFamily()) {
    auto packets = PacketSamples::open(movie.source, movie.streams, isCancelled, error);
    if (!packets) return false;
    for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
      movie.tracks[i]->tables = packets->takeTables(i);
      movie.tracks[i]->timeline = {
          {Ratio(), Ratio(std::numeric_limits<std::int32_t>::max()), Ratio::of(movie.source->zero())}};
    }
    movie.store = std::move(packets);
  } else {
    std::set<std::uint32_t> wanted;
    for (const int stream : movie.streams) {
      const StreamFacts& facts = movie.source->streams()[static_cast<std::size_t>(stream)];
      wanted.insert(static_cast<std::uint32_t>(facts.trackId));
    }
    InputBytes& bytes = *movie.source->bytes();
    const std::int64_t formerFailures = bytes.readFailures().count;
    auto tables = mov::readMovieTables(
        bytes.size(),
        [&bytes](std::int64_t offset, std::span<std::uint8_t> buffer) { return bytes.readAt(offset, buffer); }, wanted);
    if (!tables || bytes.readFailures().count > formerFailures) {
      return fail(error, "the movie's tables cannot be read");
    }
    for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
      const auto id =
          static_cast<std::uint32_t>(movie.source->streams()[static_cast<std::size_t>(movie.streams[i])].trackId);
      const auto found = std::ranges::find_if(tables->tracks, [id](const auto& track) { return track.id == id; });
      const bool hasTables = found != tables->tracks.end() && found->timeScale != 0 && !found->descriptions.empty();
      // Without any of its samples a track would be missing from what was called written.
      if (!hasTables || (found->samples.empty() && found->lostSamples > 0)) {
        return fail(error, format("the tables of track {} cannot be read", id));
      }
      if (hasSamplesElsewhere(*found)) return fail(error, format("the samples of track {} cannot be reached", id));
      movie.tracks[i]->timeline = timelineOf(*found, *tables);
      movie.tracks[i]->tables = std::move(*found);
    }
    movie.notes = std::move(tables->notes);
    movie.store = std::make_unique<FileStore>(movie.source->bytes());
  }
  for (SourceTrack* track : movie.tracks) {
    track->store = movie.store.get();
    measure(*track);
  }
  return true;
}

std::vector<std::uint8_t> SourceTracks::notes() const {
  return movies_.size() == 1 ? movies_.front()->notes : std::vector<std::uint8_t>();
}

const SourceTrack& SourceTracks::of(const Track& track) const {
  const auto& wanted = dynamic_cast<const MovieTrack&>(track);
  for (const auto& source : sources_) {
    const auto& have = dynamic_cast<const MovieTrack&>(*source->track);
    if (have.source() == wanted.source() && have.facts().index == wanted.facts().index) return *source;
  }
  return *sources_.front();
}

std::vector<MediaStretch> mediaOf(const SourceTrack& source, const Ratio& start, const Ratio& length) {
  const Ratio end = start + length;
  const Ratio first(source.firstPresentation, source.tables.timeScale);
  const Ratio last(source.endOfPresentation, source.tables.timeScale);
  std::vector<MediaStretch> pieces;
  Ratio done;  // from `start`
  const auto add = [&](const Ratio& piece, const std::optional<Ratio>& media) {
    if (piece <= Ratio()) return;
    const bool isEmptyAgain = !media && !pieces.empty() && !pieces.back().media;
    if (isEmptyAgain) {
      pieces.back().length = pieces.back().length + piece;
    } else {
      pieces.push_back({done, piece, media});
    }
    done = done + piece;
  };
  for (const MediaStretch& stretch : source.timeline) {
    const Ratio from = std::max(start, stretch.start);
    const Ratio to = std::min(end, stretch.start + stretch.length);
    if (to <= from) continue;
    add(from - start - done, std::nullopt);
    if (!stretch.media || source.tables.samples.empty()) {
      add(to - from, std::nullopt);
      continue;
    }
    const Ratio mediaFrom = *stretch.media + (from - stretch.start);
    const Ratio mediaTo = mediaFrom + (to - from);
    const Ratio heldFrom = std::min(std::max(mediaFrom, first), mediaTo);
    const Ratio heldTo = std::max(std::min(mediaTo, last), heldFrom);
    add(heldFrom - mediaFrom, std::nullopt);
    add(heldTo - heldFrom, heldFrom);
    add(mediaTo - heldTo, std::nullopt);
  }
  add(length - done, std::nullopt);
  return pieces;
}

}  // namespace vistrelle::platform
