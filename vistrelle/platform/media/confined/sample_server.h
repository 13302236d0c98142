#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "vistrelle/platform/media/asset_reader.h"
#include "vistrelle/platform/media/confined/channel.h"

namespace vistrelle::platform {

/// The worker's side of reading samples.
class SampleServer {
 public:
  using Send = std::function<void(const Message&)>;
  explicit SampleServer(Send send) : send_(std::move(send)) {}

  /// All three are false for a request that is none. `movie` may be empty.
  bool startReading(const Message& request, Asset* movie);
  bool nextSample(const Message& request);
  bool endReading(const Message& request);

 private:
  void tell(ReaderStatus status, const OptionalText& error, const std::optional<SampleBuffer>& sample);
  Send send_;
  std::map<std::uint32_t, std::unique_ptr<AssetReader>> readers_;
};

}  // namespace vistrelle::platform
