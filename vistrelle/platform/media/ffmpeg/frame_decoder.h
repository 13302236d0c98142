#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/frame_pool.h"
#include "vistrelle/platform/media/ffmpeg/input_file.h"

namespace vistrelle::platform {

/// One decoder. Every status of the library is looked at: what it refuses is counted, not passed over.
class FrameDecoder {
 public:
  enum class Threading {
    one,     ///< one thread and nothing else
    slices,  ///< threads within a frame: nothing is decoded ahead
    frames   ///< several frames at a time: for long runs
  };

  /// Empty with an error text when no decoder opens. `patient` lets the decoder hold frames back as long as the
  /// format allows before it gives them out, for streams that reorder more than they state. `threads` 0: as many as
  /// there are processors (within reason).
  static std::unique_ptr<FrameDecoder> open(const AVCodecParameters& parameters, AVRational timeBase,
                                            Threading threading, int threads, bool patient, std::string* error,
                                            const MediaLimits& limits = {});

  Threading threading() const { return threading_; }
  bool isPatient() const { return patient_; }
  /// Offers one packet, an empty pointer for "no more". With `skipNonReference` a frame that no other frame needs is
  /// left out. False when the decoder refused the packet.
  bool send(const AVPacket* packet, bool skipNonReference);

  /// Whether the frame of a packet comes out before the next packet is wanted.
  bool givesAtOnce() const;
  /// How many frames it holds back for reordering, as far as it knows.
  int heldBack() const;

  enum class Status { frame, needsPacket, end, error };
  /// The next frame in presentation order.
  Status receive(AVFrame& frame);
  /// Forgets all it holds, ready for a packet from another place.
  void flush();

 private:
  FrameDecoder() = default;
  FramePool pool_;  // outlives the context
  AvPtr<AVCodecContext> context_;
  Threading threading_ = Threading::one;
  bool patient_ = false;
};

/// Whether every frame of the codec stands for itself.
bool isIntraOnly(AVCodecID codec);

}  // namespace vistrelle::platform
