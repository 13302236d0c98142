#include "vistrelle/platform/media/ffmpeg/demuxer.h"

extern "C" {
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/ffmpeg/container_signature.h"
#include "vistrelle/platform/media/ffmpeg/decoders.h"

namespace vistrelle::platform {
namespace {

// Containers of movies and sound. Playlists, session descriptions, picture sequences, scripts and everything else
// that makes libavformat open something further is not among them.
constexpr const char* kContainers =
    "mov,mp4,m4a,3gp,3g2,mj2,matroska,webm,avi,flv,asf,mpegts,mpeg,mxf,mxf_opatom,gxf,dv,ogg,nut,rm,wtv,ivf,obu,"
    "h264,hevc,mpegvideo,m4v,h263,vc1,dirac,cavsvideo,mjpeg,yuv4mpegpipe,"
    "mp3,aac,ac3,eac3,dts,dtshd,truehd,mlp,wav,w64,aiff,au,caf,flac,amr,ape,wv,tta,voc";

int isInterrupted(void* opaque) {
  return static_cast<const Interrupt*>(opaque)->isDue() ? 1 : 0;
}

void discardLine(void*, int, const char*, va_list) {}

bool setOption(AVDictionary** options, const char* name, const char* value) {
  return av_dict_set(options, name, value, 0) >= 0;
}

bool nameListed(const AVFormatContext& context, const char* name) {
  const std::string listed = std::string(",") + context.iformat->name + ",";
  return listed.find(std::string(",") + name + ",") != std::string::npos;
}

/// The last packet of an Ogg stream lasts to the stream's end as stated; an end before the packet (a sound that is cut
/// within its last block) becomes 2^32 less a few in libavformat (5.1). One tick it is then: none would mean unknown.
bool isWrappedDuration(const AVFormatContext& context, const AVPacket& packet) {
  return packet.duration > std::numeric_limits<std::int32_t>::max() && nameListed(context, "ogg");
}

bool isComplete(const AVCodecParameters& parameters) {
  switch (parameters.codec_type) {
    case AVMEDIA_TYPE_VIDEO:
      return parameters.codec_id != AV_CODEC_ID_NONE && parameters.width > 0 && parameters.height > 0;
    case AVMEDIA_TYPE_AUDIO:
      return parameters.codec_id != AV_CODEC_ID_NONE && parameters.sample_rate > 0;
    default:
      return true;
  }
}

/// The container: as libavformat sees it, else by the signature that the bytes begin with. Some containers are known by
/// words anywhere in the first bytes; where the samples of another hold such a word, libavformat cannot decide.
int findContainer(AVIOContext* io, InputBytes& bytes, const AVInputFormat** container) {
  const int status = av_probe_input_buffer2(io, container, "", nullptr, 0, 0);
  if (status != AVERROR_INVALIDDATA) return status;
  const char* name = containerOf(bytes);
  *container = name == nullptr ? nullptr : av_find_input_format(name);
  if (*container == nullptr) return status;
  return static_cast<int>(std::min<std::int64_t>(avio_seek(io, 0, SEEK_SET), 0));
}

/// Decoders that are opened to look for facts have the limit of pixels as well.
int findStreamFacts(AVFormatContext* context, const MediaLimits& limits) {
  std::vector<AVDictionary*> options(context->nb_streams, nullptr);
  int status = 0;
  for (AVDictionary*& each : options)
    status = std::min(status, av_dict_set_int(&each, "max_pixels", limits.maxPixels, 0));
  if (status >= 0) status = avformat_find_stream_info(context, options.empty() ? nullptr : options.data());
  for (AVDictionary*& each : options) av_dict_free(&each);
  return status;
}

}  // namespace

void prepareFfmpeg(const MediaLimits& limits) {
  av_log_set_callback(&discardLine);
  av_max_alloc(limits.maxAllocation);
}

std::string avErrorText(int error) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(error, text.data(), text.size());
  return text.data();
}

std::unique_ptr<Demuxer> Demuxer::open(const std::shared_ptr<InputBytes>& bytes,
                                       const std::shared_ptr<Interrupt>& interrupt, bool findStreamInfo,
                                       std::string* error, Edits edits) {
  prepareFfmpeg(interrupt->limits);
  const auto fail = [error](int code) {
    if (error != nullptr) *error = avErrorText(code);
    return nullptr;
  };
  std::unique_ptr<Demuxer> demuxer(new Demuxer());
  demuxer->bytes_ = bytes;
  demuxer->formerFailures_ = bytes->readFailures().count;
  demuxer->interrupt_ = interrupt;
  demuxer->reader_ = std::make_unique<ByteReader>(bytes, interrupt);
  AVFormatContext* context = avformat_alloc_context();
  if (context == nullptr || demuxer->reader_->context() == nullptr) {
    avformat_free_context(context);
    return fail(AVERROR(ENOMEM));
  }
  context->pb = demuxer->reader_->context();
  context->flags |= AVFMT_FLAG_CUSTOM_IO;
  context->opaque = demuxer.get();
  context->io_open = &Demuxer::ioOpen;
  context->io_close2 = &Demuxer::ioClose;
  context->interrupt_callback = {&isInterrupted, interrupt.get()};
  context->max_streams = interrupt->limits.maxStreams;
  context->probesize = interrupt->limits.probeBytes;
  context->max_analyze_duration = interrupt->limits.analyzeMicroseconds;

  AVDictionary* options = nullptr;
  // An empty list of protocols means "no restriction" to libavformat, so it names one that does not exist.
  // References in alias records reach ioOpen; whether they are followed is decided there. Chapters are read by
  // ourselves: libavformat would keep one more copy of the first picture for each time that a track is named as one of
  // chapters.
  const bool prepared =
      setOption(&options, "protocol_whitelist", "none") && setOption(&options, "format_whitelist", kContainers) &&
      setOption(&options, "codec_whitelist", decoderList().c_str()) && setOption(&options, "enable_drefs", "1") &&
      setOption(&options, "ignore_chapters", "1") && setOption(&options, "skip_estimate_duration_from_pts", "1") &&
      (edits == Edits::applied || setOption(&options, "ignore_editlist", "1"));
  const AVInputFormat* container = nullptr;
  int status = prepared ? findContainer(context->pb, *bytes, &container) : AVERROR(ENOMEM);
  // It frees the context when it fails.
  if (status >= 0) {
    status = avformat_open_input(&context, "", container, &options);
  } else {
    avformat_free_context(context);
  }
  av_dict_free(&options);
  if (status < 0) return fail(interrupt->isDue() ? AVERROR_EXIT : status);
  demuxer->context_.reset(context);
  if (findStreamInfo && demuxer->needsStreamInfo()) {
    status = findStreamFacts(context, interrupt->limits);
    demuxer->hasStreamInfo_ = true;
  }
  if (status < 0 || interrupt->isDue()) return fail(status < 0 ? status : AVERROR_EXIT);
  if (const int failure = demuxer->failure()) return fail(failure);
  return demuxer;
}

Demuxer::~Demuxer() = default;

bool Demuxer::isMovFamily() const {
  return nameListed(*context_, "mov");
}
bool Demuxer::isMatroska() const {
  return nameListed(*context_, "matroska");
}

bool Demuxer::seeksByByte() const {
  return nameListed(*context_, "mpegts") || nameListed(*context_, "mpeg");
}

bool Demuxer::needsStreamInfo() const {
  if (!isMovFamily() && !isMatroska()) return true;
  for (int i = 0; i < streamCount(); ++i) {
    if (!isComplete(*stream(i)->codecpar)) return true;
  }
  return false;
}

int Demuxer::ioOpen(AVFormatContext* context, AVIOContext** io, const char* url, int flags, AVDictionary**) {
  try {
    return static_cast<Demuxer*>(context->opaque)->openReference(context, io, url, flags);
  } catch (const std::bad_alloc&) {
    return AVERROR(ENOMEM);  // no exception may cross the library
  }
}

int Demuxer::openReference(AVFormatContext* context, AVIOContext** io, const char* url, int flags) {
  std::string cause = "references of this kind of movie are not followed";
  std::shared_ptr<InputBytes> bytes;
  if (context->iformat != nullptr && nameListed(*context, "mov") && (flags & AVIO_FLAG_WRITE) == 0) {
    bytes = bytes_->openReference(url, &cause);
  }
  if (!bytes) {
    log("movie reference     :-( refused '{}' ({})", url, cause);
    return AVERROR(EACCES);
  }
  auto reader = std::make_unique<ByteReader>(std::move(bytes), interrupt_);
  if (reader->context() == nullptr) return AVERROR(ENOMEM);
  *io = reader->context();
  references_.emplace(*io, std::move(reader));
  return 0;
}

int Demuxer::ioClose(AVFormatContext* context, AVIOContext* io) {
  static_cast<Demuxer*>(context->opaque)->references_.erase(io);
  return 0;
}

void Demuxer::selectStream(int index) {
  for (int i = 0; i < streamCount(); ++i) {
    stream(i)->discard = index < 0 || i == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
}

int Demuxer::failure() const {
  const ReadFailures failures = bytes_->readFailures();
  return failures.count == formerFailures_ ? 0 : AVERROR(failures.cause);
}

int Demuxer::read(AVPacket& packet) {
  constexpr int kMaxRetries = 10000;  // damaged data must not hold the reader for ever
  for (int retries = 0;;) {
    av_packet_unref(&packet);
    if (interrupt_->isDue()) return AVERROR_EXIT;
    const int status = av_read_frame(context_.get(), &packet);
    // Some demuxers call it the end, or deliver what they have.
    if (const int failed = failure()) return failed;
    if (status == AVERROR(EAGAIN) && ++retries < kMaxRetries) continue;
    if (status < 0) return status;
    if (isWrappedDuration(*context_, packet)) packet.duration = 1;
    // Streams that appear late, or that a demuxer does not filter.
    if (packet.stream_index < streamCount() && stream(packet.stream_index)->discard < AVDISCARD_ALL) {
      if (clock_) runOn(packet);
      return 0;
    }
  }
}

void Demuxer::runOn(AVPacket& packet) {
  std::int64_t& offset = offsets_.try_emplace(packet.stream_index, landedOffset_).first->second;
  if (packet.pos >= 0) offset = clock_->offsetAt(packet.pos);
  if (packet.pts != AV_NOPTS_VALUE) packet.pts += offset;
  if (packet.dts != AV_NOPTS_VALUE) packet.dts += offset;
  // libavformat misses the number that would follow and calls the packet, or the one that it has just parsed, damaged.
  // If one is, its decoder will say so.
  if (packet.pos >= 0 && clock_->endsPieceAt(packet.pos)) packet.flags &= ~AV_PKT_FLAG_CORRUPT;
}

int Demuxer::seek(int streamIndex, std::int64_t timestamp, int flags) {
  AVIOContext* io = context_->pb;
  io->eof_reached = 0;
  io->error = 0;
  if (clock_) {
    if ((flags & AVSEEK_FLAG_BYTE) == 0) timestamp = clock_->positionOf(timestamp);
    flags = AVSEEK_FLAG_BYTE;
    landedOffset_ = clock_->offsetAt(timestamp);
    offsets_.clear();
  }
  return av_seek_frame(context_.get(), streamIndex, timestamp, flags);
}

}  // namespace vistrelle::platform
