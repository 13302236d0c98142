#include "vistrelle/platform/media/export/muxer.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::platform {

std::unique_ptr<Muxer> Muxer::open(int fd, const char* muxer, std::string* error) {
  constexpr int kBuffer = 1 << 20;
  prepareFfmpeg();
  std::unique_ptr<Muxer> writer(new Muxer);
  writer->fd_ = fd;
  int status = avformat_alloc_output_context2(&writer->context_, nullptr, muxer, nullptr);
  auto* buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
  if (buffer != nullptr) {
    writer->io_.reset(avio_alloc_context(buffer, kBuffer, 1, writer.get(), nullptr, &Muxer::writeBytes, &Muxer::seek));
    if (!writer->io_) av_free(buffer);
  }
  if (status >= 0 && !writer->io_) status = AVERROR(ENOMEM);
  if (!writer->check(status, error)) return nullptr;
  writer->context_->pb = writer->io_.get();
  // Nothing of the library's version, and no date, goes into the file.
  writer->context_->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT;
  return writer;
}

Muxer::~Muxer() {
  avformat_free_context(context_);
}

bool Muxer::check(int status, std::string* error) {
  if (status >= 0 && failure_ == 0 && (!io_ || io_->error >= 0)) return true;
  *error = avErrorText(failure_ != 0 ? failure_ : status < 0 ? status : io_->error);
  return false;
}

int Muxer::writeBytes(void* opaque, std::uint8_t* bytes, int count) {
  auto& writer = *static_cast<Muxer*>(opaque);
  if (writer.failure_ != 0) return writer.failure_;
  for (int done = 0; done < count;) {
    const ssize_t step = ::pwrite(writer.fd_, bytes + done, static_cast<std::size_t>(count - done), writer.position_);
    if (step < 0 && errno == EINTR) continue;
    if (step <= 0) return writer.failure_ = AVERROR(step < 0 ? errno : EIO);
    done += static_cast<int>(step);
    writer.position_ += step;
    writer.size_ = std::max(writer.size_, writer.position_);
  }
  return count;
}

std::int64_t Muxer::seek(void* opaque, std::int64_t offset, int whence) {
  auto& writer = *static_cast<Muxer*>(opaque);
  switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
      return writer.size_;
    case SEEK_CUR:
      offset += writer.position_;
      break;
    case SEEK_END:
      offset += writer.size_;
      break;
    default:
      break;
  }
  if (offset < 0) return AVERROR(EINVAL);
  return writer.position_ = offset;
}

AVStream* Muxer::addStream(const AVCodecContext& encoder) {
  AVStream* stream = avformat_new_stream(context_, nullptr);
  if (stream == nullptr || avcodec_parameters_from_context(stream->codecpar, &encoder) < 0) return nullptr;
  stream->time_base = encoder.time_base;
  stream->sample_aspect_ratio = encoder.sample_aspect_ratio;
  return stream;
}

AVStream* Muxer::addStream(AVCodecID codec, int rate, const AVChannelLayout& layout) {
  AVStream* stream = avformat_new_stream(context_, nullptr);
  if (stream == nullptr || av_channel_layout_copy(&stream->codecpar->ch_layout, &layout) < 0) return nullptr;
  AVCodecParameters& parameters = *stream->codecpar;
  parameters.codec_type = AVMEDIA_TYPE_AUDIO;
  parameters.codec_id = codec;
  parameters.sample_rate = rate;
  parameters.bits_per_coded_sample = av_get_bits_per_sample(codec);
  parameters.block_align = layout.nb_channels * parameters.bits_per_coded_sample / 8;
  parameters.bit_rate = std::int64_t{parameters.block_align} * 8 * rate;
  stream->time_base = {1, rate};
  return stream;
}

bool Muxer::begin(const Options& options, std::string* error) {
  AVDictionary* given = nullptr;
  int status = 0;
  for (const auto& [name, value] : options) {
    status = std::min(status, av_dict_set(&given, name.c_str(), value.c_str(), 0));
  }
  if (status >= 0) status = avformat_write_header(context_, &given);
  av_dict_free(&given);
  return check(status, error);
}

bool Muxer::write(AVPacket& packet, const AVStream& stream, AVRational timeBase, std::string* error) {
  packet.stream_index = stream.index;
  av_packet_rescale_ts(&packet, timeBase, stream.time_base);
  return check(av_interleaved_write_frame(context_, &packet), error);
}

bool Muxer::finish(std::string* error) {
  const int status = av_write_trailer(context_);
  avio_flush(io_.get());
  return check(status, error);
}

bool encodeInto(Muxer& writer, const AVStream& stream, AVCodecContext& encoder, const AVFrame* frame,
                std::string* error) {
  int status = avcodec_send_frame(&encoder, frame);
  const AvPtr<AVPacket> packet(av_packet_alloc());
  while (status >= 0 && packet) {
    status = avcodec_receive_packet(&encoder, packet.get());
    if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return true;
    if (status >= 0 && !writer.write(*packet, stream, encoder.time_base, error)) return false;
  }
  *error = avErrorText(packet ? status : AVERROR(ENOMEM));
  return false;
}

}  // namespace vistrelle::platform
