#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"

namespace vistrelle::platform {

/// Turns packets of a stream into samples as QuickTime stores them: no start codes, no transport headers, one picture a
/// sample. The same packets give the same samples each time.
class PacketCoding {
 public:
  /// A sample: its bytes, and the packet that carries its times.
  using Take = std::function<void(const AVPacket& packet, std::span<const std::uint8_t> bytes)>;

  /// Empty with an error text when libavcodec lacks a filter.
  static std::unique_ptr<PacketCoding> make(const AVStream& stream, const AVCodecParameters& parameters,
                                            bool isPackedAvi, std::string* error);
  /// Packets go in in order, nothing at the end. A negative status is an error.
  int push(AVPacket* packet, const Take& take);
  /// Of the samples; complete once the first one has come.
  const AVCodecParameters& parameters() const { return *parameters_; }

 private:
  enum class Units { none, h264, hevc };
  PacketCoding() = default;
  void hand(const AVPacket& packet, const Take& take);
  bool isParameterSetOfEntry(std::span<const std::uint8_t> unit) const;

  AvPtr<AVCodecParameters> parameters_;
  AvPtr<AVBSFContext> filter_;
  Units units_ = Units::none;
  std::vector<std::uint8_t> buffer_;
};

/// The units of an H.264 or HEVC byte stream (ISO/IEC 14496-10, Annex B), without start codes.
std::vector<std::span<const std::uint8_t>> unitsOf(std::span<const std::uint8_t> stream);

}  // namespace vistrelle::platform
