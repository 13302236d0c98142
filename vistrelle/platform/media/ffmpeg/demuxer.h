#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/clock_pieces.h"
#include "vistrelle/platform/media/ffmpeg/file_io.h"

namespace vistrelle::platform {

/// Silences FFmpeg's own output and hands down MediaLimits::maxAllocation, for the whole process. Any thread.
void prepareFfmpeg(const MediaLimits& limits = {});

/// "Invalid data found when processing input".
std::string avErrorText(int error);

/// One reading of a movie: a format context on a position of its own in the movie's bytes. FFmpeg never sees a
/// name: no protocol, no nested open but references beneath the movie's folder, containers of movies only.
/// Used from one thread at a time.
class Demuxer {
 public:
  /// Whether packets of the MOV family have times of the movie or of their track.
  enum class Edits { applied, ignored };
  /// Reads the header. Stream facts that the header leaves open are looked for only when `findStreamInfo` is true
  /// and something is missing, within MediaLimits. Empty with an error text on failure.
  static std::unique_ptr<Demuxer> open(const std::shared_ptr<InputBytes>& bytes,
                                       const std::shared_ptr<Interrupt>& interrupt, bool findStreamInfo,
                                       std::string* error, Edits edits = Edits::applied);
  ~Demuxer();
  Demuxer(const Demuxer&) = delete;
  Demuxer& operator=(const Demuxer&) = delete;

  AVFormatContext* context() const { return context_.get(); }
  const MediaLimits& limits() const { return interrupt_->limits; }
  int streamCount() const { return static_cast<int>(context_->nb_streams); }
  AVStream* stream(int index) const { return context_->streams[index]; }
  bool isMovFamily() const;
  bool isMatroska() const;
  /// Transport and program streams: reading can be taken up at any byte, and there is no index.
  bool seeksByByte() const;
  /// Whether packets were looked at to complete the streams' facts; start times are right only then.
  bool hasStreamInfo() const { return hasStreamInfo_; }

  /// From now on times run on where the movie's clock starts again (null: as they are stated).
  void useClock(std::shared_ptr<const ClockPieces> clock) { clock_ = std::move(clock); }
  bool runsOn() const { return clock_ != nullptr; }
  /// Delivers no packet of other streams any more (-1: of none but all again).
  void selectStream(int index);
  /// AVERROR of a read of the movie's bytes that has failed since this reading began; 0 without one.
  int failure() const;
  /// The next packet; 0, AVERROR_EOF at the end, another negative error otherwise. The former content is dropped.
  int read(AVPacket& packet);
  /// Seeks to a time in the stream's time base or, with AVSEEK_FLAG_BYTE, to a byte. Clears an end reached before.
  int seek(int streamIndex, std::int64_t timestamp, int flags);
  std::int64_t bytesRead() const { return reader_->bytesRead(); }

 private:
  Demuxer() = default;
  int openReference(AVFormatContext* context, AVIOContext** io, const char* url, int flags);
  static int ioOpen(AVFormatContext* context, AVIOContext** io, const char* url, int flags, AVDictionary** options);
  static int ioClose(AVFormatContext* context, AVIOContext* io);
  bool needsStreamInfo() const;
  void runOn(AVPacket& packet);

  std::shared_ptr<InputBytes> bytes_;
  std::int64_t formerFailures_ = 0;  // when this reading began
  std::shared_ptr<Interrupt> interrupt_;
  std::unique_ptr<ByteReader> reader_;
  std::map<AVIOContext*, std::unique_ptr<ByteReader>> references_;
  AvPtr<AVFormatContext> context_;
  bool hasStreamInfo_ = false;
  std::shared_ptr<const ClockPieces> clock_;
  std::map<int, std::int64_t> offsets_;  // of each stream's last packet; not every packet knows its position
  std::int64_t landedOffset_ = 0;        // where reading began
};

}  // namespace vistrelle::platform
