#include "vistrelle/platform/media/confined/sample_server.h"

#include <string_view>

#include "vistrelle/platform/media/confined/picture_transfer.h"
#include "vistrelle/platform/media/confined/pieces.h"
#include "vistrelle/platform/media/confined/worker_answers.h"

namespace vistrelle::platform {

bool SampleServer::startReading(const Message& request, Asset* movie) {
  wire::StartReading wanted;
  if (!request.read(&wanted)) return false;
  std::string error = "the movie has not been loaded";
  std::unique_ptr<AssetReader> reader = movie == nullptr ? nullptr : movie->makeReader(&error);
  if (!reader) {
    tell(ReaderStatus::failed, error, std::nullopt);
    return true;
  }
  const auto tracks = movie->tracks();
  const auto index = static_cast<std::size_t>(wanted.track);
  if (wanted.track >= 0 && index < tracks.size()) reader->addOutput(tracks[index]);
  const bool isReading = reader->startReading();
  tell(reader->status(), reader->error(), std::nullopt);
  if (isReading) readers_[wanted.reader] = std::move(reader);
  return true;
}

bool SampleServer::nextSample(const Message& request) {
  wire::Reader wanted;
  if (!request.read(&wanted)) return false;
  const auto found = readers_.find(wanted.reader);
  if (found == readers_.end()) {
    // It belonged to the worker before this one.
    tell(ReaderStatus::failed, "the decoder that was reading has ended", std::nullopt);
    return true;
  }
  const std::optional<SampleBuffer> sample = found->second->copyNextSampleBuffer();
  tell(found->second->status(), found->second->error(), sample);
  if (!sample) readers_.erase(found);
  return true;
}

bool SampleServer::endReading(const Message& request) {
  wire::Reader wanted;
  return request.read(&wanted) && (readers_.erase(wanted.reader), true);
}

void SampleServer::tell(ReaderStatus status, const OptionalText& error, const std::optional<SampleBuffer>& sample) {
  wire::Reading reading;
  reading.status = static_cast<std::uint32_t>(status);
  reading.hasSample = sample ? 1 : 0;
  if (sample) {
    reading.presentation = toWire(sample->presentation);
    reading.duration = toWire(sample->duration);
  }
  send_(Message(number(wire::Kind::reading), reading, std::string_view(error.value_or("")).substr(0, kMaxTextBytes)));
  if (sample) sendInPieces(sample->bytes, send_);
}

}  // namespace vistrelle::platform
