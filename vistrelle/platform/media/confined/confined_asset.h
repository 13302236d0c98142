#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/asset_reader.h"
#include "vistrelle/platform/media/confined/worker_answers.h"
#include "vistrelle/platform/media/confined/worker_link.h"

namespace vistrelle::platform {

/// How a generator wants its pictures.
struct PictureWish {
  std::uint32_t generator = 0;  ///< its number, unique in the movie
  std::int32_t track = -1;      ///< index of the track; -1: the movie chooses
  bool appliesTransform = false;
  ApertureMode apertureMode = ApertureMode::cleanAperture;
};

/// How reading samples stands, and the sample that was read.
struct ReadingRecord {
  ReaderStatus status = ReaderStatus::failed;
  OptionalText error;  ///< present when it failed
  std::optional<SampleBuffer> sample;
};

/// A movie and the worker that reads it. All calls may come from any thread; requests follow one another.
class ConfinedMovie {
 public:
  ConfinedMovie(std::shared_ptr<Nursery> nursery, std::shared_ptr<InputFile> file, std::string name,
                std::chrono::milliseconds silence, std::chrono::milliseconds longestAnswer);

  const std::string& name() const { return name_; }
  std::uint32_t nextGenerator() { return ++generators_; }
  std::uint32_t nextReader() { return ++readers_; }

  /// Nothing with an error text when the worker failed or was stopped.
  std::optional<MovieRecord> load(std::string* error);
  /// `announced` are the times that are still to be asked for; they are told to a worker that does not know them.
  FrameResult copyFrame(const PictureWish& wish, const MediaTime& time, const std::vector<MediaTime>& announced);
  void announce(const PictureWish& wish, const std::vector<MediaTime>& times);
  void drop(std::uint32_t generator);
  /// The natural size of a track (-1: of the movie); zero when the worker fails.
  Size naturalSize(std::int32_t track);
  /// Both are empty, and a line says why, when the worker fails.
  MovieMetadata metadata();
  TrackDetails details(std::int32_t track);
  /// Samples of a track; a reader's place is lost with its worker, and reading has failed.
  ReadingRecord startReading(std::uint32_t reader, std::int32_t track);
  ReadingRecord nextSample(std::uint32_t reader);
  void endReading(std::uint32_t reader);
  /// Ends a request that is going on, and refuses further ones.
  void stop();

  /// The process of the worker in use; -1 when there is none.
  pid_t workerProcess();

 private:
  bool ensureWorker(std::string* error);
  std::optional<MovieRecord> readRecord(WorkerLink& link);
  bool tellTimes(const PictureWish& wish, const std::vector<MediaTime>& times);
  FrameResult readFrame(WorkerLink& link);
  FrameResult copyFrameNow(const PictureWish& wish, const MediaTime& time, const std::vector<MediaTime>& announced);
  std::optional<Size> measure(std::int32_t track);
  template <typename Facts>
  Facts askFacts(const Message& question, std::size_t most,
                 std::optional<Facts> (*factsFrom)(std::span<const std::byte>));
  /// `withoutSample` is how reading stands after an answer that has no sample and is no failure.
  ReadingRecord askReading(const Message& question, ReaderStatus withoutSample);
  ReadingRecord readReading(WorkerLink& link, ReaderStatus withoutSample);
  /// What follows `message` until all of it is there; nothing when the worker failed or lied.
  std::optional<Data> joined(WorkerLink& link, std::optional<Message> message, std::size_t most);
  void stopTalk();

  std::shared_ptr<Nursery> nursery_;
  std::shared_ptr<InputFile> file_;
  std::string name_;
  WorkerLink::Patience patience_;
  std::atomic<std::uint32_t> generators_ = 0;
  std::atomic<std::uint32_t> readers_ = 0;

  std::mutex mutex_;  // one request at a time
  std::optional<MovieRecord> record_;
  std::vector<std::uint32_t> informed_;  // generators whose announced times the worker in use knows

  std::mutex linkMutex_;  // which link there is, for stop()
  bool isStopped_ = false;
  std::shared_ptr<WorkerLink> link_;
};

class ConfinedTrack : public Track {
 public:
  ConfinedTrack(std::shared_ptr<ConfinedMovie> movie, std::int32_t index, TrackRecord record)
      : movie_(std::move(movie)), index_(index), record_(std::move(record)) {}

  std::string description() const override { return record_.description; }
  std::int32_t trackId() const override { return record_.id; }
  MediaType mediaType() const override { return record_.type; }
  OptionalText mediaTypeCode() const override { return record_.typeCode; }
  std::vector<FormatDescription> formatDescriptions() const override { return record_.formats; }
  Size naturalSize() const override { return record_.type == MediaType::video ? movie_->naturalSize(index_) : Size{}; }
  bool isEnabled() const override { return record_.isEnabled; }
  TimeRange timeRange() const override { return record_.range; }
  float nominalFrameRate() const override { return record_.frameRate; }
  bool isDecodable() const override { return record_.isDecodable; }
  bool isProtected() const override { return record_.isProtected; }
  TrackDetails details() const override { return movie_->details(index_); }
  std::unique_ptr<ImageGenerator> makeImageGenerator() const override;

  const std::shared_ptr<ConfinedMovie>& movie() const { return movie_; }
  std::int32_t index() const { return index_; }

 private:
  std::shared_ptr<ConfinedMovie> movie_;
  std::int32_t index_;
  TrackRecord record_;
};

/// A movie in a file, read by a worker. Loading waits for it on a thread of its own, which shares nothing but
/// LoadState with the asset.
class ConfinedAsset : public Asset {
 public:
  explicit ConfinedAsset(std::shared_ptr<ConfinedMovie> movie);
  /// Ends loading.
  ~ConfinedAsset() override;

  std::string description() const override;
  AssetKind kind() const override { return AssetKind::urlAsset; }
  void loadValuesAsynchronously(std::span<const std::string> keys, std::function<void()> completion) override;
  void cancelLoading() override;
  std::vector<std::shared_ptr<Track>> tracks() const override;
  MediaTime duration() const override;
  bool isPlayable() const override;
  bool hasProtectedContent() const override;
  std::unique_ptr<ImageGenerator> makeImageGenerator() override;
  Size naturalSize() const override;
  MediaTime headerDuration() const override;
  MovieMetadata metadata() const override;
  std::unique_ptr<AssetReader> makeReader(std::string* error) override;

  const std::shared_ptr<ConfinedMovie>& movie() const;

 private:
  struct LoadState;
  MovieRecord record() const;
  bool isLoaded() const;
  std::shared_ptr<LoadState> state_;
};

}  // namespace vistrelle::platform
