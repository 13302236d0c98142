#include "vistrelle/platform/media/ffmpeg/frame_packets.h"

#include <string_view>

namespace vistrelle::platform {

namespace {

// A damaged stretch may cost this many packets in a row before the rest of the movie is given up.
constexpr int kUnreadableInARow = 64;

bool isEncrypted(const AVPacket& packet) {
  std::size_t size = 0;
  return av_packet_get_side_data(&packet, AV_PKT_DATA_ENCRYPTION_INFO, &size) != nullptr;
}

}  // namespace

void FramePackets::forgetQueue() {
  queue_.clear();
  queuedBytes_ = 0;
  atEnd_ = false;
  failure_.clear();
  unreadable_ = 0;
  lastIndexed_ = -1;
}

// Where chunks of an AVI file cannot be read, libavformat counts on as if they were not there; the index knows better.
void FramePackets::placeByIndex(AVPacket& packet) {
  constexpr int kChunkHeader = 8;
  AVStream* stream = this->stream();
  const int count = avformat_index_get_entries_count(stream);
  int first = lastIndexed_ + 1;
  for (int end = count; first < end;) {
    const int middle = first + (end - first) / 2;
    if (avformat_index_get_entry(stream, middle)->pos + kChunkHeader < packet.pos) {
      first = middle + 1;
    } else {
      end = middle;
    }
  }
  if (first >= count) return;
  const AVIndexEntry& entry = *avformat_index_get_entry(stream, first);
  if (entry.pos + kChunkHeader != packet.pos) return;
  for (int skipped = lastIndexed_ + 1; lastIndexed_ >= 0 && skipped < first; ++skipped) {
    if (avformat_index_get_entry(stream, skipped)->size > 0) ++unreadable_;
  }
  lastIndexed_ = first;
  if (entry.timestamp <= packet.dts) return;
  if (packet.pts != AV_NOPTS_VALUE) packet.pts += entry.timestamp - packet.dts;
  packet.dts = entry.timestamp;
}

bool FramePackets::restart() {
  if (isAtStart()) return true;
  forgetQueue();
  std::string error;
  const bool isEdited = source_->streams()[static_cast<std::size_t>(streamIndex_)].edits.has_value();
  demuxer_ = isEdited ? source_->makeUneditedDemuxer(&error) : source_->makeDemuxer(&error);
  if (!demuxer_ || streamIndex_ >= demuxer_->streamCount()) {
    demuxer_.reset();
    failure_ = error.empty() ? "the movie cannot be read any more" : error;
    return false;
  }
  // The index counts sound in bytes.
  isAvi_ = std::string_view(demuxer_->context()->iformat->name) == "avi" &&
           stream()->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
  ++statistics_.reopenings;
  demuxer_->selectStream(streamIndex_);
  untouched_ = true;
  return true;
}

bool FramePackets::seekBackward(std::int64_t ticks) {
  if (!demuxer_ && !restart()) return false;
  forgetQueue();
  untouched_ = false;
  ++statistics_.seeks;
  return demuxer_->seek(streamIndex_, ticks, AVSEEK_FLAG_BACKWARD) >= 0;
}

bool FramePackets::seekToByte(std::int64_t position) {
  if (!demuxer_ && !restart()) return false;
  forgetQueue();
  untouched_ = false;
  ++statistics_.seeks;
  return demuxer_->seek(streamIndex_, position, AVSEEK_FLAG_BYTE) >= 0;
}

bool FramePackets::readMore() {
  if (!demuxer_ || atEnd_ || !failure_.empty()) return false;
  for (int unreadableInARow = 0;;) {
    AvPtr<AVPacket> packet(av_packet_alloc());
    if (!packet) {
      failure_ = avErrorText(AVERROR(ENOMEM));
      return false;
    }
    const int status = demuxer_->read(*packet);
    if (status == AVERROR_EOF) {
      atEnd_ = true;
      return false;
    }
    if (status == AVERROR_INVALIDDATA && ++unreadableInARow < kUnreadableInARow) {
      ++unreadable_;
      continue;
    }
    if (status < 0) {
      failure_ = avErrorText(status);
      return false;
    }
    // Packets of other streams, and empty ones (a frame that an AVI file left out), are not frames.
    if (packet->stream_index != streamIndex_ || packet->size <= 0) continue;
    if (isEncrypted(*packet)) {
      failure_ = "the movie's pictures are encrypted";
      return false;
    }
    if (isAvi_) placeByIndex(*packet);
    ++statistics_.packetsRead;
    queuedBytes_ += packet->size;
    queue_.push_back(std::move(packet));
    return true;
  }
}

AvPtr<AVPacket> FramePackets::takeFirst() {
  if (queue_.empty()) return nullptr;
  untouched_ = false;
  AvPtr<AVPacket> packet = std::move(queue_.front());
  queue_.pop_front();
  queuedBytes_ -= packet->size;
  return packet;
}

}  // namespace vistrelle::platform
