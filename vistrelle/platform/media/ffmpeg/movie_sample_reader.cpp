#include "vistrelle/platform/media/ffmpeg/movie_sample_reader.h"

#include <algorithm>
#include <new>
#include <utility>

#include "vistrelle/platform/media/ffmpeg/movie_track.h"

namespace vistrelle::platform {
namespace {

class SampleReader : public AssetReader {
 public:
  explicit SampleReader(std::shared_ptr<MovieSource> source) : source_(std::move(source)) {}

  bool canAddOutput(const std::shared_ptr<Track>& track) const override {
    const auto* movieTrack = dynamic_cast<const MovieTrack*>(track.get());
    return movieTrack != nullptr && movieTrack->source() == source_ && stream_ < 0 && status_ == ReaderStatus::unknown;
  }

  void addOutput(const std::shared_ptr<Track>& track) override {
    if (canAddOutput(track)) stream_ = static_cast<const MovieTrack&>(*track).facts().index;
  }

  bool startReading() override {
    if (status_ != ReaderStatus::unknown) return false;
    if (stream_ < 0) return fail("no track is to be read");
    std::string error;
    demuxer_ = source_->openDemuxer(&error);
    packet_.reset(av_packet_alloc());
    if (!demuxer_ || !packet_) return fail(demuxer_ ? "out of memory" : std::move(error));
    // Samples come as the movie cuts them, not as a parser would.
    if (source_->isMovFamily()) demuxer_->context()->flags |= AVFMT_FLAG_NOPARSE;
    demuxer_->selectStream(stream_);
    status_ = ReaderStatus::reading;
    return true;
  }

  std::optional<SampleBuffer> copyNextSampleBuffer() override {
    while (status_ == ReaderStatus::reading) {
      const int status = demuxer_->read(*packet_);
      if (status < 0) {
        end(status);
      } else if (packet_->stream_index == stream_) {
        if ((packet_->flags & AV_PKT_FLAG_CORRUPT) != 0 && isCutOff()) return failedSample();
        return delivered();
      }
    }
    return std::nullopt;
  }

  ReaderStatus status() const override { return status_; }
  OptionalText error() const override { return error_; }

  void cancelReading() override {
    if (status_ == ReaderStatus::reading) status_ = ReaderStatus::cancelled;
    demuxer_.reset();
  }

 private:
  bool fail(std::string error) {
    status_ = ReaderStatus::failed;
    error_ = std::move(error);
    demuxer_.reset();
    return false;
  }

  std::optional<SampleBuffer> failedSample() {
    fail("the movie ends before its last sample");
    return std::nullopt;
  }

  bool isCutOff() const { return source_->streams()[static_cast<std::size_t>(stream_)].notes.reachesBeyondFile; }

  void end(int status) {
    if (status != AVERROR_EOF) {
      fail(avErrorText(status));
    } else if (isCutOff()) {
      fail("the movie ends before its last sample");
    } else {
      status_ = ReaderStatus::completed;
      demuxer_.reset();
    }
  }

  std::optional<SampleBuffer> delivered() {
    SampleBuffer sample;
    try {
      const auto* bytes = reinterpret_cast<const std::byte*>(packet_->data);
      sample.bytes.assign(bytes, bytes + std::max(packet_->size, 0));
    } catch (const std::bad_alloc&) {
      fail("out of memory");
      return std::nullopt;
    }
    const std::int64_t time = packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts;
    if (time != AV_NOPTS_VALUE) sample.presentation = source_->timeOf(stream_, time);
    sample.duration =
        source_->timeOf(stream_, std::max<std::int64_t>(packet_->duration, 0)) - source_->timeOf(stream_, 0);
    return sample;
  }

  std::shared_ptr<MovieSource> source_;
  int stream_ = -1;
  std::unique_ptr<Demuxer> demuxer_;
  AvPtr<AVPacket> packet_;
  ReaderStatus status_ = ReaderStatus::unknown;
  OptionalText error_;
};

}  // namespace

std::unique_ptr<AssetReader> makeSampleReader(std::shared_ptr<MovieSource> source) {
  return std::make_unique<SampleReader>(std::move(source));
}

}  // namespace vistrelle::platform
