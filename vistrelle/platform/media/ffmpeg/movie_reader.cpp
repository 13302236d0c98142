#include "vistrelle/platform/media/ffmpeg/movie_reader.h"

#include <algorithm>
#include <set>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/ffmpeg/decoder_check.h"
#include "vistrelle/platform/media/ffmpeg/known_colours.h"
#include "vistrelle/platform/media/ffmpeg/matroska_tags.h"
#include "vistrelle/platform/media/ffmpeg/mov_facts.h"
#include "vistrelle/platform/media/ffmpeg/movie_metadata_facts.h"
#include "vistrelle/platform/media/ffmpeg/packet_scan.h"
#include "vistrelle/platform/media/ffmpeg/protection.h"
#include "vistrelle/platform/media/ffmpeg/track_shape.h"
#include "vistrelle/platform/media/ffmpeg/watched_bytes.h"

namespace vistrelle::platform {
namespace {

MediaType mediaTypeOf(const AVCodecParameters& parameters) {
  switch (parameters.codec_type) {
    case AVMEDIA_TYPE_VIDEO:
      return MediaType::video;
    case AVMEDIA_TYPE_AUDIO:
      return MediaType::audio;
    case AVMEDIA_TYPE_SUBTITLE:
      return MediaType::subtitle;
    default:
      return MediaType::other;
  }
}

bool isSoundOrPicture(const StreamFacts& stream) {
  return stream.isTrack && (stream.type == MediaType::video || stream.type == MediaType::audio);
}

/// The n-th track with a stream's number is the n-th stream with it: numbers are unique in sound files only.
const mov::Track* trackOf(const mov::MovieHeader& header, const Demuxer& demuxer, int index) {
  const int id = demuxer.stream(index)->id;
  int earlier = 0;
  for (int i = 0; i < index; ++i) earlier += demuxer.stream(i)->id == id ? 1 : 0;
  for (const mov::Track& track : header.tracks) {
    if (track.id == static_cast<std::uint32_t>(id) && earlier-- == 0) return &track;
  }
  return nullptr;
}

/// Whether the header states far more samples than the file has bytes for. The demuxer makes a table entry of 24 bytes
/// of each, so that a file of a kilobyte could fill hundreds of megabytes. The first four million (18 hours of 60 a
/// second) are always allowed, for files that are cut off behind their header and samples that lie in other files; so
/// is sound of one tick a sample, which lies in chunks that the demuxer keeps as they are.
bool claimsSamplesWithoutBytes(const mov::MovieHeader& header, std::int64_t size) {
  constexpr std::uint64_t kAlwaysAllowed = 4 << 20;
  std::uint64_t samples = 0;
  for (const mov::Track& track : header.tracks) {
    const bool liesInChunks = track.handler == mov::fourCc("soun") && track.samples.sampleDuration == 1;
    if (!liesInChunks) samples += track.samples.count;
  }
  return samples > kAlwaysAllowed + static_cast<std::uint64_t>(size);
}

/// libavformat compares each entry of metadata with all before it: forty thousand in two megabytes took nine seconds as
/// a list of items, and more than twenty as tags of Matroska.
constexpr std::size_t kMostMetadata = 10000;

/// How long so many frames last where the container states no times; 0 without a frame rate.
std::int64_t ticksOfFrames(const AVStream& stream, std::int64_t count) {
  const AVRational rate = stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
  return rate.num > 0 && rate.den > 0 ? av_rescale_q(count, av_inv_q(rate), stream.time_base) : 0;
}

}  // namespace

MovieReader::MovieReader(std::shared_ptr<InputBytes> bytes, std::shared_ptr<Interrupt> interrupt)
    : source_(new MovieSource()) {
  source_->bytes_ = watchedBytes(std::move(bytes));
  source_->interrupt_ = std::move(interrupt);
}

std::shared_ptr<MovieSource> MovieReader::read(std::string* error) {
  readMovHeader();
  const std::size_t entries =
      header_ ? header_->metadataItems : matroskaTagCount(source_->bytes_->size(), readsOfSource());
  if (entries > kMostMetadata) {
    if (error != nullptr) *error = "more entries of metadata than a movie has a use for";
    return nullptr;
  }
  if (header_ && claimsSamplesWithoutBytes(*header_, source_->bytes_->size())) {
    if (error != nullptr) *error = "more samples are stated than the file has room for";
    return nullptr;
  }
  source_->first_ = Demuxer::open(source_->bytes_, source_->interrupt_, true, error);
  if (!source_->first_) return nullptr;
  source_->isMovFamily_ = source_->first_->isMovFamily();
  source_->zero_ = MediaTime::zero();
  const auto fail = [error](int code) {
    if (error != nullptr) *error = avErrorText(code);
    return nullptr;
  };
  if (!listStreams()) return fail(AVERROR(ENOMEM));
  if (!source_->isMovFamily_) header_.reset();
  if (header_) useMovFacts(*header_);
  noteStreams();
  if (!hasSampleFacts_ && !usePacketFacts()) return fail(AVERROR_EXIT);
  checkProtection();
  checkDecoders();
  measureDuration();
  if (source_->interrupt_->isDue()) return fail(AVERROR_EXIT);
  // What could not be read might have said something else.
  if (const ReadFailures failures = source_->bytes_->readFailures(); failures.count > 0) {
    return fail(AVERROR(failures.cause));
  }
  return source_;
}

bool MovieReader::listStreams() {
  const Demuxer& demuxer = *source_->first_;
  std::set<std::int32_t> numbers;
  for (int i = 0; i < demuxer.streamCount(); ++i) {
    const AVStream& stream = *demuxer.stream(i);
    StreamFacts facts;
    facts.index = i;
    facts.type = mediaTypeOf(*stream.codecpar);
    facts.isTrack = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
    facts.trackId = stream.id > 0 && !numbers.contains(stream.id) ? stream.id : i + 1;
    while (numbers.contains(facts.trackId)) ++facts.trackId;
    numbers.insert(facts.trackId);
    facts.parameters.reset(avcodec_parameters_alloc());
    if (!facts.parameters || avcodec_parameters_copy(facts.parameters.get(), stream.codecpar) < 0) return false;
    keepKnownColours(*facts.parameters);
    // Matroska's AlphaMode: the packets carry a second picture, the alpha plane of the first.
    const AVDictionaryEntry* alpha = av_dict_get(stream.metadata, "alpha_mode", nullptr, 0);
    if (alpha != nullptr && std::string_view(alpha->value) == "1") facts.parameters->format = AV_PIX_FMT_YUVA420P;
    source_->streams_.push_back(std::move(facts));
    source_->timeBases_.push_back(stream.time_base);
  }
  return true;
}

mov::ReadAt MovieReader::readsOfSource() const {
  return [&source = *source_](std::int64_t offset, std::span<std::uint8_t> buffer) {
    return source.interrupt_->isDue() ? -1 : source.bytes_->readAt(offset, buffer);
  };
}

void MovieReader::readMovHeader() {
  header_ = mov::readMovieHeader(source_->bytes_->size(), readsOfSource());
}

void MovieReader::useMovFacts(const mov::MovieHeader& header) {
  bool everyTrackFound = true;
  for (StreamFacts& stream : source_->streams_) {
    const mov::Track* track = trackOf(header, *source_->first_, stream.index);
    if (track == nullptr) {
      everyTrackFound = everyTrackFound && !stream.isTrack;
      continue;
    }
    // Chapter pictures are a track of the movie, although libavformat calls them attached.
    stream.isTrack = true;
    stream.type = mediaTypeOf(track->handler);
    stream.isEnabled = track->isEnabled;
    stream.isProtected = track->isProtected;
    stream.range = rangeOf(*track, header);
    stream.frameRate = stream.type == MediaType::video ? frameRateOf(*track) : 0;
    if (stream.type == MediaType::video) stream.edits = FrameEdits::of(*track, header);
    const TrackShape shape = shapeOf(*track);
    stream.cleanAperture = shape.cleanAperture;
    stream.pixelAspect = shape.pixelAspect;
    if (hasUnreachableData(*track)) {
      stream.isDecodable = false;
      log("movie reference     :-( refused '{}' (track {})",
          track->dataReferences[track->dataReferenceIndex - 1U].location, track->id);
    }
  }
  hasSampleFacts_ = everyTrackFound;
}

bool MovieReader::usePacketFacts() {
  // Reading on in the first demuxer would spoil it for pictures, except where any byte can be returned to.
  Demuxer& first = *source_->first_;
  const bool returns = first.seeksByByte();
  std::unique_ptr<Demuxer> second;
  if (!returns) second = Demuxer::open(source_->bytes_, source_->interrupt_, true, nullptr);
  if (!returns && !second) return false;
  Demuxer& demuxer = returns ? first : *second;
  const PacketScan scan = scanPackets(demuxer, source_->bytes_->size());
  if (scan.status < 0) return false;
  if (!source_->isMovFamily_) chooseZero(scan);
  source_->clock_ = scan.clock;
  if (scan.clock) {
    log("movie clock         :-/ starts again {} times: times run on", scan.clock->restarts());
    first.useClock(scan.clock);
  }
  for (StreamFacts& facts : source_->streams_) {
    const AVStream& stream = *demuxer.stream(facts.index);
    const auto index = static_cast<std::size_t>(facts.index);
    const PacketSpan span = index < scan.streams.size() ? scan.streams[index] : PacketSpan{};
    if (scan.isComplete && span.count == 0) continue;
    const std::int64_t start = span.start.value_or(0);
    const std::int64_t stated = stream.duration > 0 ? stream.duration : 0;
    std::int64_t end = std::max(start, span.end.value_or(av_sat_add64(start, stated)));
    if (end == start && scan.isComplete) end = av_sat_add64(start, ticksOfFrames(stream, span.count));
    const MediaTime from = source_->timeOf(facts.index, start);
    facts.range = {from, source_->timeOf(facts.index, end) - from};
    if (facts.type == MediaType::video) {
      facts.frameRate = packetFrameRate(stream, scan.isComplete ? span.count : 0, facts.range);
      completeFrameRate(facts.notes, scan.isComplete ? span : PacketSpan{}, facts.range, facts.frameRate);
    }
  }
  if (returns && first.seek(-1, 0, AVSEEK_FLAG_BYTE) < 0) source_->first_.reset();
  return true;
}

/// The container's start time, as libavformat defines it, but exact: the earliest start of sound and pictures.
void MovieReader::chooseZero(const PacketScan& scan) {
  std::optional<MediaTime> earliest;
  for (const StreamFacts& facts : source_->streams_) {
    const auto index = static_cast<std::size_t>(facts.index);
    if (index >= scan.streams.size() || !scan.streams[index].start || !isSoundOrPicture(facts)) continue;
    const MediaTime time = source_->timeOf(facts.index, *scan.streams[index].start);
    if (!earliest || time < *earliest) earliest = time;
  }
  if (earliest) source_->zero_ = *earliest;
}

float MovieReader::packetFrameRate(const AVStream& stream, std::int64_t count, const TimeRange& range) const {
  // Some containers give their clock (1000 in FLV) as an average; the packets know better.
  const double average = stream.avg_frame_rate.num > 0 ? av_q2d(stream.avg_frame_rate) : 0;
  const double seconds = range.duration.seconds();
  if ((average <= 0 || average > kFastestFrameRate) && count > 0 && seconds > 0) {
    return static_cast<float>(static_cast<double>(count) / seconds);
  }
  if (average > 0) return static_cast<float>(average);
  return stream.r_frame_rate.num > 0 ? static_cast<float>(av_q2d(stream.r_frame_rate)) : 0.0F;
}

void MovieReader::checkProtection() {
  const Demuxer* demuxer = source_->first_.get();
  if (demuxer == nullptr) return;
  const bool whole = isWholeMovieProtected(*demuxer->context(), *source_->bytes_);
  for (StreamFacts& facts : source_->streams_) {
    if (!isSoundOrPicture(facts)) continue;
    facts.isProtected = facts.isProtected || whole || isStreamProtected(*demuxer->stream(facts.index));
  }
}

void MovieReader::checkDecoders() {
  for (StreamFacts& facts : source_->streams_) {
    if (!isSoundOrPicture(facts)) continue;
    // Without its key an encrypted track has no decoder.
    facts.isDecodable =
        facts.isDecodable && !facts.isProtected && decoderOpens(*facts.parameters, source_->interrupt_->limits);
  }
}

void MovieReader::noteStreams() {
  const Demuxer& demuxer = *source_->first_;
  for (StreamFacts& facts : source_->streams_) {
    const mov::Track* track = header_ ? trackOf(*header_, demuxer, facts.index) : nullptr;
    facts.notes =
        noteStream(*demuxer.context(), *demuxer.stream(facts.index), facts.type, track, demuxer.hasStreamInfo());
  }
  source_->metadata_ = header_ ? std::move(header_->metadata) : metadataOf(*demuxer.context(), *source_->bytes_);
  source_->headerDuration_ = header_ ? durationOf(*header_) : durationOf(*demuxer.context());
}

void MovieReader::measureDuration() {
  MediaTime end = MediaTime::zero();
  for (const StreamFacts& facts : source_->streams_) {
    if (facts.isTrack && facts.range.isValid()) end = std::max(end, facts.range.end());
  }
  source_->duration_ = end;
}

}  // namespace vistrelle::platform
