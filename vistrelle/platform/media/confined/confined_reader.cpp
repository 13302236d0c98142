#include "vistrelle/platform/media/confined/confined_reader.h"

#include <utility>

#include "vistrelle/platform/media/confined/confined_asset.h"

namespace vistrelle::platform {
namespace {

class ConfinedReader : public AssetReader {
 public:
  explicit ConfinedReader(std::shared_ptr<ConfinedMovie> movie)
      : movie_(std::move(movie)), number_(movie_->nextReader()) {}
  ~ConfinedReader() override {
    if (status_ == ReaderStatus::reading) movie_->endReading(number_);
  }
  ConfinedReader(const ConfinedReader&) = delete;
  ConfinedReader& operator=(const ConfinedReader&) = delete;

  bool canAddOutput(const std::shared_ptr<Track>& track) const override {
    const auto* confined = dynamic_cast<const ConfinedTrack*>(track.get());
    return confined != nullptr && confined->movie() == movie_ && track_ < 0 && status_ == ReaderStatus::unknown;
  }

  void addOutput(const std::shared_ptr<Track>& track) override {
    if (canAddOutput(track)) track_ = static_cast<const ConfinedTrack&>(*track).index();
  }

  bool startReading() override {
    if (status_ != ReaderStatus::unknown) return false;
    if (track_ < 0) {
      take({ReaderStatus::failed, "no track is to be read", std::nullopt});
    } else {
      take(movie_->startReading(number_, track_));
    }
    return status_ == ReaderStatus::reading;
  }

  std::optional<SampleBuffer> copyNextSampleBuffer() override {
    if (status_ != ReaderStatus::reading) return std::nullopt;
    return take(movie_->nextSample(number_));
  }

  ReaderStatus status() const override { return status_; }
  OptionalText error() const override { return error_; }

  void cancelReading() override {
    if (status_ != ReaderStatus::reading) return;
    status_ = ReaderStatus::cancelled;
    movie_->endReading(number_);
  }

 private:
  std::optional<SampleBuffer> take(ReadingRecord record) {
    status_ = record.status;
    error_ = std::move(record.error);
    return std::move(record.sample);
  }

  std::shared_ptr<ConfinedMovie> movie_;
  std::uint32_t number_;
  std::int32_t track_ = -1;
  ReaderStatus status_ = ReaderStatus::unknown;
  OptionalText error_;
};

}  // namespace

std::unique_ptr<AssetReader> makeConfinedReader(std::shared_ptr<ConfinedMovie> movie) {
  return std::make_unique<ConfinedReader>(std::move(movie));
}

}  // namespace vistrelle::platform
