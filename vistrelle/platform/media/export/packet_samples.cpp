#include "vistrelle/platform/media/export/packet_samples.h"

#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::platform {

struct PacketSamples::State {};

PacketSamples::PacketSamples(std::unique_ptr<State> state) : state_(std::move(state)) {}
PacketSamples::~PacketSamples() = default;

std::unique_ptr<PacketSamples> PacketSamples::open(std::shared_ptr<MovieSource>, const std::vector<int>&,
                                                   const std::function<bool()>&, std::string* error) {
  if (error != nullptr) *error = "movies of this container cannot be copied yet";
  return nullptr;
}
mov::SampleTables PacketSamples::takeTables(std::size_t) {
  return {};
}
bool PacketSamples::copy(std::span<const ByteRange>, const ByteSink&, std::string*) {
  return false;
}

}  // namespace vistrelle::platform
