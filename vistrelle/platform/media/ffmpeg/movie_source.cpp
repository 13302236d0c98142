#include "vistrelle/platform/media/ffmpeg/movie_source.h"

#include <limits>
#include <new>

#include "vistrelle/platform/media/ffmpeg/movie_reader.h"

namespace vistrelle::platform {

namespace {

MediaTime ticksToTime(std::int64_t ticks, AVRational timeBase) {
  if (timeBase.num <= 0 || timeBase.den <= 0) return MediaTime::invalid();
  std::int64_t value = 0;
  if (__builtin_mul_overflow(ticks, std::int64_t{timeBase.num}, &value)) {
    return ticks > 0 ? MediaTime::positiveInfinity() : MediaTime::negativeInfinity();
  }
  return MediaTime::make(value, timeBase.den);
}

}  // namespace

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
  return ticksToTime(ticks, timeBase(streamIndex)) - zero_;
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
  std::unique_ptr<Demuxer> demuxer = Demuxer::open(bytes_, interrupt_, true, error);
  // The bytes may have changed under us; stream numbers must still mean the same.
  if (demuxer && demuxer->streamCount() < static_cast<int>(streams_.size())) {
    if (error != nullptr) *error = "the movie has changed";
    return nullptr;
  }
  return demuxer;
}

}  // namespace vistrelle::platform
