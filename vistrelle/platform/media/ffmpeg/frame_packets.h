#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::platform {

/// What a generator has done so far.
struct FrameStatistics {
  std::int64_t packetsRead = 0;    ///< of the picture stream
  std::int64_t framesDecoded = 0;  ///< visible frames that came out of the decoder
  std::int64_t seeks = 0;
  std::int64_t reopenings = 0;  ///< readings from the start with a fresh demuxer, the first one included
  std::int64_t spilled = 0;     ///< pictures moved out of memory to wait for their turn
};

/// The packets of one stream, read ahead as far as a question about them needs.
class FramePackets {
 public:
  /// `statistics` must live as long as this.
  FramePackets(std::shared_ptr<MovieSource> source, int streamIndex, FrameStatistics& statistics)
      : source_(std::move(source)), streamIndex_(streamIndex), statistics_(statistics) {}

  /// Begins again at the first packet, with a demuxer that knows nothing of what was read before. Free when nothing
  /// has been taken since the last time. False when the movie cannot be opened any more.
  bool restart();
  /// Goes to a place at or before `ticks`, as far as the container can tell, and drops what was read ahead.
  bool seekBackward(std::int64_t ticks);
  /// The same for a byte position of the file.
  bool seekToByte(std::int64_t position);
  bool isAtStart() const { return demuxer_ && untouched_; }

  /// Reads one more packet into the queue. False at the end, or when reading has failed (see failure()).
  bool readMore();
  std::deque<AvPtr<AVPacket>>& queue() { return queue_; }
  std::int64_t queuedBytes() const { return queuedBytes_; }
  AvPtr<AVPacket> takeFirst();
  void dropFirst() { takeFirst(); }
  /// Everything up to the end of the stream has been read.
  bool isAtEnd() const { return atEnd_; }
  /// Why reading stopped before the end; empty when it did not.
  const std::string& failure() const { return failure_; }
  /// Packets that could not be read since the last restart or seek.
  int unreadable() const { return unreadable_; }

  Demuxer* demuxer() const { return demuxer_.get(); }
  AVCodecID codec() const { return demuxer_->stream(streamIndex_)->codecpar->codec_id; }
  AVStream* stream() const { return demuxer_->stream(streamIndex_); }

 private:
  void forgetQueue();
  void placeByIndex(AVPacket& packet);

  std::shared_ptr<MovieSource> source_;
  int streamIndex_;
  FrameStatistics& statistics_;
  std::unique_ptr<Demuxer> demuxer_;
  std::deque<AvPtr<AVPacket>> queue_;
  std::int64_t queuedBytes_ = 0;
  bool untouched_ = false;
  bool atEnd_ = false;
  std::string failure_;
  int unreadable_ = 0;
  bool isAvi_ = false;
  int lastIndexed_ = -1;  ///< AVI: the index entry of the last packet
};

}  // namespace vistrelle::platform
