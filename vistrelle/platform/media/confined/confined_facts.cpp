#include <new>
#include <utility>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/confined/confined_asset.h"
#include "vistrelle/platform/media/confined/movie_facts.h"
#include "vistrelle/platform/media/confined/pieces.h"

namespace vistrelle::platform {
namespace {

using wire::Kind;

ReadingRecord failedReading(std::string error) {
  return {ReaderStatus::failed, std::move(error), std::nullopt};
}

}  // namespace

std::optional<Data> ConfinedMovie::joined(WorkerLink& link, std::optional<Message> message, std::size_t most) {
  PieceReader pieces(most);
  while (message && pieces.take(*message)) {
    if (pieces.isComplete()) return pieces.takeBytes();
    message = link.furtherAnswer();
  }
  if (message) link.reject("pieces that do not go together");
  return std::nullopt;
}

template <typename Facts>
Facts ConfinedMovie::askFacts(const Message& question, std::size_t most,
                              std::optional<Facts> (*factsFrom)(std::span<const std::byte>)) {
  const std::lock_guard lock(mutex_);
  std::string error;
  try {
    if (ensureWorker(&error)) {
      const bool isAsked = link_->send(question);
      const std::optional<Data> bytes = isAsked ? joined(*link_, link_->answer(), most) : std::nullopt;
      std::optional<Facts> facts = bytes ? factsFrom(*bytes) : std::nullopt;
      if (facts) return std::move(*facts);
      if (bytes) link_->reject("facts that cannot be");
      error = link_->failure();
    }
  } catch (const std::bad_alloc&) {
    stopTalk();
    error = "out of memory";
  }
  log("movie facts         :-( '{}': {}", name_, error);
  return {};
}

MovieMetadata ConfinedMovie::metadata() {
  return askFacts<MovieMetadata>(Message(number(Kind::describeMovie), wire::Nothing{}), kMostMetadataBytes,
                                 &metadataFrom);
}

TrackDetails ConfinedMovie::details(std::int32_t track) {
  return askFacts<TrackDetails>(Message(number(Kind::describeTrack), wire::Describe{track}), kMostDetailsBytes,
                                &detailsFrom);
}

ReadingRecord ConfinedMovie::startReading(std::uint32_t reader, std::int32_t track) {
  return askReading(Message(number(Kind::startReading), wire::StartReading{reader, track}), ReaderStatus::reading);
}

ReadingRecord ConfinedMovie::nextSample(std::uint32_t reader) {
  return askReading(Message(number(Kind::nextSample), wire::Reader{reader}), ReaderStatus::completed);
}

void ConfinedMovie::endReading(std::uint32_t reader) {
  const std::lock_guard lock(mutex_);
  if (link_ && link_->isUsable()) link_->send(Message(number(Kind::endReading), wire::Reader{reader}));
}

ReadingRecord ConfinedMovie::askReading(const Message& question, ReaderStatus withoutSample) {
  const std::lock_guard lock(mutex_);
  std::string error;
  try {
    if (!ensureWorker(&error)) return failedReading(std::move(error));
    return link_->send(question) ? readReading(*link_, withoutSample) : failedReading(link_->failure());
  } catch (const std::bad_alloc&) {
    stopTalk();
    return failedReading("out of memory");
  }
}

ReadingRecord ConfinedMovie::readReading(WorkerLink& link, ReaderStatus withoutSample) {
  const auto lied = [&link] {
    link.reject("not a sample");
    return failedReading(link.failure());
  };
  const std::optional<Message> message = link.answer();
  if (!message) return failedReading(link.failure());
  wire::Reading reading;
  std::string_view error;
  if (message->kind() != number(Kind::reading) || !message->read(&reading, &error)) return lied();
  const auto status = static_cast<ReaderStatus>(reading.status);
  if (status == ReaderStatus::failed) return failedReading(std::string(error));
  if (reading.hasSample == 0) return status == withoutSample ? ReadingRecord{status, {}, {}} : lied();
  const std::optional<MediaTime> presentation = fromWire(reading.presentation);
  const std::optional<MediaTime> duration = fromWire(reading.duration);
  const bool isWanted = status == ReaderStatus::reading && withoutSample == ReaderStatus::completed;
  if (!isWanted || !presentation || !duration) return lied();
  std::optional<Data> bytes = joined(link, link.furtherAnswer(), kMostSampleBytes);
  if (!bytes) return failedReading(link.failure());
  return {status, std::nullopt, SampleBuffer{std::move(*bytes), *presentation, *duration}};
}

}  // namespace vistrelle::platform
