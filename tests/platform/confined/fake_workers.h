#pragma once

#include <unistd.h>

#include <chrono>
#include <utility>

#include "tests/platform/confined/confined_movies.h"
#include "vistrelle/platform/media/confined/picture_transfer.h"

/// Workers that tests put in the place of real ones.
namespace vistrelle::testing {

namespace wire = platform::wire;

constexpr std::uint32_t n(wire::Kind kind) {
  return static_cast<std::uint32_t>(kind);
}

/// A library whose workers run `body`. Threads of tests before this one may still be going.
inline std::shared_ptr<platform::ConfinedMediaLibrary> libraryOf(platform::WorkerBody body,
                                                                 int silenceMilliseconds = 60000) {
  awaitOneThread();
  platform::ConfinedOptions options;
  options.silence = std::chrono::milliseconds(silenceMilliseconds);
  options.longestAnswer = std::chrono::milliseconds(2 * silenceMilliseconds);
  options.body = std::move(body);
  const auto library = std::make_shared<platform::ConfinedMediaLibrary>(options);
  EXPECT_TRUE(library->prepare());
  return library;
}

inline bool waitFor(const platform::Channel& channel, wire::Kind kind, platform::Message* message) {
  return channel.receive(message, -1, true) == platform::Channel::Status::message && message->kind() == n(kind);
}

/// The movie of the fake workers: one video track that gives pictures.
inline wire::Movie aMovie() {
  wire::Movie movie;
  movie.duration = platform::toWire(platform::MediaTime::make(10, 1));
  movie.isPlayable = 1;
  movie.hasPictures = 1;
  movie.tracks = 1;
  return movie;
}

inline wire::Track aTrack() {
  wire::Track track;
  track.range = {platform::toWire(platform::MediaTime::zero()), platform::toWire(platform::MediaTime::make(10, 1))};
  track.id = 1;
  track.hasPictures = 1;
  track.isDecodable = 1;
  return track;
}

inline void serveOpen(const platform::Channel& channel) {
  platform::Message message;
  if (!waitFor(channel, wire::Kind::open, &message)) ::_exit(0);
  channel.send(platform::Message(n(wire::Kind::movie), aMovie()));
  channel.send(platform::Message(n(wire::Kind::track), aTrack()));
}

/// Opens the movie in a library of such workers.
inline std::shared_ptr<platform::ConfinedAsset> openWith(
    const std::shared_ptr<platform::ConfinedMediaLibrary>& library) {
  return loadedConfined(dataFile("prog_8s.mp4"), library);
}

}  // namespace vistrelle::testing
