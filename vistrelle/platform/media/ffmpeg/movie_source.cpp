#include "vistrelle/platform/media/ffmpeg/movie_source.h"

#include <new>

#include "vistrelle/platform/media/ffmpeg/frame_timeline.h"
#include "vistrelle/platform/media/ffmpeg/movie_reader.h"

namespace vistrelle::platform {

std::shared_ptr<MovieSource> MovieSource::open(std::shared_ptr<InputBytes> bytes, std::shared_ptr<Interrupt> interrupt,
                                               std::string* error) {
  try {
    return MovieReader(std::move(bytes), std::move(interrupt)).read(error);
  } catch (const std::bad_alloc&) {
    if (error != nullptr) *error = "out of memory";
    return nullptr;
  }
}

MediaTime MovieSource::timeOf(int streamIndex, std::int64_t ticks) const {
  return timeOfTicks(ticks, timeBase(streamIndex)) - zero_;
}

int MovieSource::pictureStream() const {
  int first = -1;
  for (const StreamFacts& stream : streams_) {
    if (!stream.isTrack || stream.type != MediaType::video) continue;
    if (stream.isEnabled) return stream.index;
    if (first < 0) first = stream.index;
  }
  return first;
}

std::unique_ptr<Demuxer> MovieSource::makeDemuxer(std::string* error) {
  {
    const std::lock_guard lock(mutex_);
    if (first_) return std::move(first_);
  }
  return openDemuxer(error);
}

std::unique_ptr<Demuxer> MovieSource::openDemuxer(std::string* error) {
  std::unique_ptr<Demuxer> demuxer = Demuxer::open(bytes_, interrupt_, true, error);
  // The bytes may have changed under us; stream numbers must still mean the same.
  if (demuxer && demuxer->streamCount() < static_cast<int>(streams_.size())) {
    if (error != nullptr) *error = "the movie has changed";
    return nullptr;
  }
  if (demuxer) demuxer->useClock(clock_);
  return demuxer;
}

std::unique_ptr<Demuxer> MovieSource::makeUneditedDemuxer(std::string* error) {
  return Demuxer::open(bytes_, interrupt_, true, error, Demuxer::Edits::ignored);
}

std::shared_ptr<const FirstFrame> MovieSource::firstFrame(int streamIndex) {
  const std::lock_guard lock(frameMutex_);
  const auto known = firstFrames_.find(streamIndex);
  if (known != firstFrames_.end()) return known->second;
  const StreamFacts& facts = streams_[static_cast<std::size_t>(streamIndex)];
  std::shared_ptr<const FirstFrame> frame;
  const std::int64_t formerFailures = bytes_->readFailures().count;
  if (facts.isDecodable && !facts.isProtected) {
    // A demuxer of its own: the one that the facts were read with is kept for the pictures.
    const std::unique_ptr<Demuxer> demuxer = openDemuxer(nullptr);
    if (demuxer) frame = readFirstFrame(*demuxer, streamIndex, *facts.parameters);
  }
  if (bytes_->readFailures().count != formerFailures) return nullptr;
  firstFrames_.emplace(streamIndex, frame);
  return frame;
}

}  // namespace vistrelle::platform
