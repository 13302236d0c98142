#pragma once

#include <memory>
#include <optional>
#include <string>

#include "vistrelle/platform/media/ffmpeg/movie_source.h"
#include "vistrelle/platform/media/ffmpeg/packet_scan.h"

namespace vistrelle::platform {

/// Fills a MovieSource: opens the movie once and gathers its facts, from its header where that holds them and from
/// its packets where it does not.
class MovieReader {
 public:
  MovieReader(std::shared_ptr<InputBytes> bytes, std::shared_ptr<Interrupt> interrupt);
  /// Empty with an error text on failure or interrupt.
  std::shared_ptr<MovieSource> read(std::string* error);

 private:
  bool listStreams();
  mov::ReadAt readsOfSource() const;
  void readMovHeader();
  void useMovFacts(const mov::MovieHeader& header);
  bool usePacketFacts();
  void chooseZero(const PacketScan& scan);
  float packetFrameRate(const AVStream& stream, std::int64_t count, const TimeRange& range) const;
  void checkDecoders();
  void checkProtection();
  void measureDuration();
  void noteStreams();

  std::shared_ptr<MovieSource> source_;
  std::optional<mov::MovieHeader> header_;
  bool hasSampleFacts_ = false;
};

}  // namespace vistrelle::platform
