// The least that pictures of a movie can cost: opens the movie, seeks to the key before each time, decodes up to its
// frame and nothing behind it, scales it as smoothly as the tool does and writes a JPEG of the same quality, with
// nothing around it: no checks, no log, no proof that the frame is the right one, one process. The yardstick of
// bench/compare.
//   bare_loop MOVIE FOLDER WIDTH HEIGHT SECONDS...   (ascending)
// With one time the picture is FOLDER itself, with several FOLDER/NN.jpg.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <fcntl.h>
#include <jpeglib.h>
#include <stdio.h>  // what libjpeg's header needs
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace {

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "bare_loop: %s\n", what);
  std::exit(1);
}

// Through functions of our own, as the tool reads.
int readFile(void* file, std::uint8_t* buffer, int size) {
  const ssize_t count = ::read(*static_cast<int*>(file), buffer, static_cast<std::size_t>(size));
  return count > 0 ? static_cast<int>(count) : AVERROR_EOF;
}
std::int64_t seekFile(void* file, std::int64_t offset, int whence) {
  if (whence == AVSEEK_SIZE) return -1;
  return ::lseek(*static_cast<int*>(file), offset, whence & ~AVSEEK_FORCE);
}

class Movie {
 public:
  explicit Movie(const char* path) {
    file_ = ::open(path, O_RDONLY | O_CLOEXEC);
    constexpr int kBufferBytes = 32768;
    format_ = avformat_alloc_context();
    format_->pb = avio_alloc_context(static_cast<unsigned char*>(av_malloc(kBufferBytes)), kBufferBytes, 0, &file_,
                                     &readFile, nullptr, &seekFile);
    if (avformat_open_input(&format_, "", nullptr, nullptr) < 0) fail("cannot open the movie");
    bool complete = true;
    for (unsigned i = 0; i < format_->nb_streams; ++i) complete &= isComplete(*format_->streams[i]->codecpar);
    if (!complete && avformat_find_stream_info(format_, nullptr) < 0) fail("no stream information");
    for (unsigned i = 0; i < format_->nb_streams && stream_ == nullptr; ++i) {
      if (format_->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) stream_ = format_->streams[i];
    }
    if (stream_ == nullptr) fail("no pictures");
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
      if (format_->streams[i] != stream_) format_->streams[i]->discard = AVDISCARD_ALL;
    }
    const AVCodec* codec = avcodec_find_decoder(stream_->codecpar->codec_id);
    decoder_ = avcodec_alloc_context3(codec);
    if (avcodec_parameters_to_context(decoder_, stream_->codecpar) < 0) fail("no decoder");
    decoder_->thread_count = 0;
    // Frames beside each other where they lean on each other; of one that stands alone, the parts.
    const AVCodecDescriptor* kind = avcodec_descriptor_get(codec->id);
    const bool isIntraOnly = kind != nullptr && (kind->props & AV_CODEC_PROP_INTRA_ONLY) != 0;
    decoder_->thread_type = isIntraOnly ? FF_THREAD_SLICE : FF_THREAD_FRAME;
    if (avcodec_open2(decoder_, codec, nullptr) < 0) fail("the decoder does not open");
  }

  /// The last frame that is not after `seconds`.
  const AVFrame& frameAt(double seconds, bool isLast) {
    isLast_ = isLast;
    hasAll_ = false;
    const auto target = static_cast<std::int64_t>(seconds / av_q2d(stream_->time_base) + 0.5);
    target_ = target;
    if (!shown_ || !nextKeyIsAfter(target)) {
      av_seek_frame(format_, stream_->index, target, AVSEEK_FLAG_BACKWARD);
      avcodec_flush_buffers(decoder_);
      drained_ = ended_ = hasNext_ = shown_ = false;
    }
    for (;;) {
      if (hasNext_ && next_->pts > target) break;
      if (hasNext_) {
        av_frame_unref(current_);
        av_frame_move_ref(current_, next_);
        hasNext_ = false;
        shown_ = true;
        // One frame a packet, all of one length: the next one is later, so nobody need decode it.
        if (stream_->avg_frame_rate.num > 0 &&
            current_->pts + av_rescale_q(1, av_inv_q(stream_->avg_frame_rate), stream_->time_base) > target) {
          break;
        }
      }
      if (ended_ || !decodeNext()) break;
    }
    if (!shown_) fail("no frame");
    return *current_;
  }

 private:
  static bool isComplete(const AVCodecParameters& parameters) {
    return parameters.codec_type != AVMEDIA_TYPE_VIDEO ||
           (parameters.codec_id != AV_CODEC_ID_NONE && parameters.width > 0);
  }

  bool nextKeyIsAfter(std::int64_t target) const {
    const AVIndexEntry* key = avformat_index_get_entry_from_timestamp(stream_, target, AVSEEK_FLAG_BACKWARD);
    return key == nullptr || key->timestamp <= current_->pts;
  }

  bool decodeNext() {
    for (;;) {
      const int status = avcodec_receive_frame(decoder_, next_);
      if (status >= 0) {
        hasNext_ = true;
        return true;
      }
      if (status != AVERROR(EAGAIN)) {
        ended_ = true;
        return false;
      }
      if (isLast_ && hasAll_) {
        if (drained_) return false;
        drained_ = true;
        avcodec_send_packet(decoder_, nullptr);
        continue;
      }
      if (av_read_frame(format_, packet_) < 0) {
        hasAll_ = isLast_ = true;
        continue;
      }
      if (packet_->stream_index == stream_->index && packet_->dts > target_) {
        // Decoding times only grow and none is after its presentation time: the decoder has all it needs.
        hasAll_ = true;
        if (isLast_) {
          av_packet_unref(packet_);
          continue;
        }
      }
      // A frame that no other one leans on and that ends before the target is not needed.
      const bool isOver = packet_->pts != AV_NOPTS_VALUE && packet_->pts + packet_->duration <= target_;
      decoder_->skip_frame = isOver ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
      if (packet_->stream_index == stream_->index) avcodec_send_packet(decoder_, packet_);
      av_packet_unref(packet_);
    }
  }

  int file_ = -1;
  AVFormatContext* format_ = nullptr;
  AVStream* stream_ = nullptr;
  AVCodecContext* decoder_ = nullptr;
  AVPacket* packet_ = av_packet_alloc();
  AVFrame* current_ = av_frame_alloc();
  AVFrame* next_ = av_frame_alloc();
  std::int64_t target_ = 0;
  bool isLast_ = false;
  bool hasAll_ = false;
  bool hasNext_ = false;
  bool shown_ = false;
  bool drained_ = false;
  bool ended_ = false;
};

std::vector<std::uint8_t> scaled(const AVFrame& frame, int width, int height) {
  constexpr int kSmoothly = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP | SWS_FULL_CHR_H_INT;
  SwsContext* scaler = sws_getContext(frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), width,
                                      height, AV_PIX_FMT_RGB0, kSmoothly, nullptr, nullptr, nullptr);
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4 + 64);
  std::uint8_t* planes[4] = {pixels.data(), nullptr, nullptr, nullptr};
  const int rowBytes[4] = {width * 4, 0, 0, 0};
  if (scaler == nullptr || sws_scale(scaler, frame.data, frame.linesize, 0, frame.height, planes, rowBytes) != height) {
    fail("cannot scale");
  }
  sws_freeContext(scaler);
  return pixels;
}

void writeJpeg(const std::vector<std::uint8_t>& pixels, int width, int height, const std::string& path) {
  jpeg_compress_struct codec{};
  jpeg_error_mgr errors{};
  codec.err = jpeg_std_error(&errors);
  jpeg_create_compress(&codec);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&codec, &bytes, &size);
  codec.image_width = static_cast<JDIMENSION>(width);
  codec.image_height = static_cast<JDIMENSION>(height);
  codec.input_components = 4;
  codec.in_color_space = JCS_EXT_RGBX;
  jpeg_set_defaults(&codec);
  jpeg_set_quality(&codec, 60, TRUE);
  jpeg_start_compress(&codec, TRUE);
  while (codec.next_scanline < codec.image_height) {
    auto* row =
        const_cast<JSAMPROW>(pixels.data() + std::size_t{codec.next_scanline} * static_cast<std::size_t>(width) * 4);
    jpeg_write_scanlines(&codec, &row, 1);
  }
  jpeg_finish_compress(&codec);
  jpeg_destroy_compress(&codec);
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr || std::fwrite(bytes, 1, size, file) != size || std::fclose(file) != 0) fail("cannot write");
  std::free(bytes);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 6) fail("usage: bare_loop MOVIE FOLDER WIDTH HEIGHT SECONDS...");
  const std::span<char*> arguments(argv, static_cast<std::size_t>(argc));
  const int width = std::atoi(arguments[3]);
  const int height = std::atoi(arguments[4]);
  Movie movie(arguments[1]);
  const std::span<char*> times = arguments.subspan(5);
  for (std::size_t i = 0; i < times.size(); ++i) {
    const std::vector<std::uint8_t> pixels =
        scaled(movie.frameAt(std::atof(times[i]), i + 1 == times.size()), width, height);
    const std::string number = (i < 10 ? "0" : "") + std::to_string(i);
    writeJpeg(pixels, width, height,
              times.size() == 1 ? std::string(arguments[2]) : std::string(arguments[2]) + "/" + number + ".jpg");
  }
  return 0;
}
