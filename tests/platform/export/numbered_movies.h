#pragma once

// Movies whose frames carry their number and whose sound carries the number of each sample, and what a linear decode of
// a movie by libav, edit lists honoured, finds in them.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"
#include "vistrelle/platform/imaging/picture.h"
#include "vistrelle/platform/media/media_time.h"

namespace vistrelle::testing {

constexpr int kNumberBits = 8;
constexpr int kBitWidth = 32;
constexpr int kNumberedHeight = 64;

/// The number that the luma plane of a frame carries: eight blocks from left to right, the lowest bit first.
inline int numberIn(const std::string& layout, const std::uint8_t* luma, int rowBytes) {
  const bool isWide = layout.find("10le") != std::string::npos || layout.find("12le") != std::string::npos;
  int number = 0;
  for (int bit = 0; bit < kNumberBits; ++bit) {
    const int x = bit * kBitWidth + kBitWidth / 2;
    const std::uint8_t* at =
        luma + std::ptrdiff_t{kNumberedHeight / 2} * rowBytes + std::ptrdiff_t{x} * (isWide ? 2 : 1);
    const int shift = layout.find("12le") != std::string::npos ? 4 : 2;
    const int value = isWide ? (at[0] | at[1] << 8) >> shift : at[0];
    if (value > 125) number |= 1 << bit;
  }
  return number;
}

inline int numberOf(const platform::Picture& picture) {
  const platform::PlanarImage* image = picture.planar();
  if (image == nullptr) return -1;
  return numberIn(image->layout, image->planes[0].data, image->planes[0].rowBytes);
}

/// The folder of this run's movies; all are made once.
inline const ScratchFolder& clipFolder() {
  static const ScratchFolder folder;
  return folder;
}

/// The source of a number of numbered frames.
inline std::vector<std::string> numberedPictures(int frames, const std::string& rate = "25", int offset = 0) {
  const std::string number = "N+" + std::to_string(offset);
  const std::string source = "nullsrc=size=256x64:rate=" + rate + ",geq=lum='if(gt(mod(floor((" + number +
                             ")/pow(2\\,floor(X/32)))\\,2)\\,0.5)\\,235\\,16)':"
                             "cb=128:cr=128,trim=end_frame=" +
                             std::to_string(frames) + ",format=yuv420p";
  return {"-f", "lavfi", "-i", source};
}

/// A movie made by ffmpeg, once a name: inputs and options come before the name.
inline std::string clip(const std::string& name, const std::vector<std::vector<std::string>>& parts) {
  static std::set<std::string> made;
  const std::string path = clipFolder().file(name);
  if (!made.insert(name).second) return path;
  std::vector<std::string> command{"ffmpeg", "-v", "error", "-nostdin", "-y"};
  for (const auto& part : parts) command.insert(command.end(), part.begin(), part.end());
  command.push_back(path);
  const RunResult run = runProgram(command);
  if (run.status != 0) throw std::runtime_error("ffmpeg could not make " + path + ": " + run.error);
  return path;
}

struct DecodedFrame {
  int number = 0;
  platform::MediaTime time;
};

/// Samples that came together, numbered from the first one heard.
struct SoundBlock {
  platform::MediaTime time;
  std::size_t first = 0;
  std::size_t end = 0;
};

struct DecodedMovie {
  std::vector<DecodedFrame> frames;                ///< of the video stream asked for
  std::map<int, std::vector<std::int16_t>> sound;  ///< by stream, first channel
  std::map<int, std::vector<SoundBlock>> soundBlocks;
  int streams = 0;
  std::string error;

  std::vector<int> numbers() const {
    std::vector<int> all;
    for (const DecodedFrame& frame : frames) all.push_back(frame.number);
    return all;
  }
};

/// Decodes everything as any program on libav does.
class MovieDecode {
 public:
  /// `wantedVideo`: which of the video streams. `formatFlags` of libavformat.
  explicit MovieDecode(const std::string& path, int wantedVideo = 0, int formatFlags = 0) {
    format_ = avformat_alloc_context();
    format_->flags |= formatFlags;
    if (avformat_open_input(&format_, path.c_str(), nullptr, nullptr) < 0) {
      movie_.error = "not a movie";
      return;
    }
    if (avformat_find_stream_info(format_, nullptr) < 0) movie_.error = "no stream facts";
    movie_.streams = static_cast<int>(format_->nb_streams);
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
      const AVStream* stream = format_->streams[i];
      const bool isVideo = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
      decoders_.push_back(nullptr);
      if (isVideo && wantedVideo-- == 0) video_ = static_cast<int>(i);
      if ((isVideo && video_ != static_cast<int>(i)) ||
          (!isVideo && stream->codecpar->codec_type != AVMEDIA_TYPE_AUDIO)) {
        continue;
      }
      const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
      decoders_.back() = avcodec_alloc_context3(codec);
      avcodec_parameters_to_context(decoders_.back(), stream->codecpar);
      decoders_.back()->pkt_timebase = stream->time_base;
      decoders_.back()->thread_count = 1;
      if (codec == nullptr || avcodec_open2(decoders_.back(), codec, nullptr) < 0) movie_.error = "no decoder";
    }
  }
  ~MovieDecode() {
    for (AVCodecContext*& decoder : decoders_) avcodec_free_context(&decoder);
    avformat_close_input(&format_);
  }
  MovieDecode(const MovieDecode&) = delete;
  MovieDecode& operator=(const MovieDecode&) = delete;

  DecodedMovie run() {
    if (!movie_.error.empty()) return movie_;
    AVPacket* packet = av_packet_alloc();
    int status = 0;
    while ((status = av_read_frame(format_, packet)) >= 0) {
      AVCodecContext* decoder = decoders_[static_cast<std::size_t>(packet->stream_index)];
      if (decoder != nullptr) {
        if (avcodec_send_packet(decoder, packet) < 0) movie_.error = "a packet cannot be decoded";
        take(packet->stream_index);
      }
      av_packet_unref(packet);
    }
    if (status != AVERROR_EOF) movie_.error = "reading failed";
    av_packet_free(&packet);
    for (std::size_t i = 0; i < decoders_.size(); ++i) {
      if (decoders_[i] == nullptr) continue;
      avcodec_send_packet(decoders_[i], nullptr);
      take(static_cast<int>(i));
    }
    return movie_;
  }

 private:
  void take(int index) {
    AVFrame* frame = av_frame_alloc();
    const AVStream* stream = format_->streams[index];
    while (avcodec_receive_frame(decoders_[static_cast<std::size_t>(index)], frame) >= 0) {
      if (index == video_) {
        const std::string layout = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame->format));
        movie_.frames.push_back({numberIn(layout, frame->data[0], frame->linesize[0]),
                                 platform::MediaTime::make(frame->pts * stream->time_base.num, stream->time_base.den)});
      } else {
        std::vector<std::int16_t>& samples = movie_.sound[index];
        const std::size_t first = samples.size();
        takeSound(*frame, samples);
        const auto time = platform::MediaTime::make(frame->pts * stream->time_base.num, stream->time_base.den);
        movie_.soundBlocks[index].push_back({time, first, samples.size()});
      }
      av_frame_unref(frame);
    }
    av_frame_free(&frame);
  }

  static void takeSound(const AVFrame& frame, std::vector<std::int16_t>& samples) {
    const int channels =
        av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame.format)) ? 1 : frame.ch_layout.nb_channels;
    for (int i = 0; i < frame.nb_samples; ++i) {
      const std::size_t at = static_cast<std::size_t>(i) * static_cast<std::size_t>(channels);
      switch (av_get_packed_sample_fmt(static_cast<AVSampleFormat>(frame.format))) {
        case AV_SAMPLE_FMT_S16:
          samples.push_back(reinterpret_cast<const std::int16_t*>(frame.data[0])[at]);
          break;
        case AV_SAMPLE_FMT_U8:
          samples.push_back(static_cast<std::int16_t>((frame.data[0][at] - 128) * 256));
          break;
        case AV_SAMPLE_FMT_S32:
          samples.push_back(static_cast<std::int16_t>(reinterpret_cast<const std::int32_t*>(frame.data[0])[at] >> 16));
          break;
        case AV_SAMPLE_FMT_FLT:
          samples.push_back(static_cast<std::int16_t>(
              std::clamp(reinterpret_cast<const float*>(frame.data[0])[at] * 32767.0F, -32768.0F, 32767.0F)));
          break;
        default:
          break;
      }
    }
  }

  AVFormatContext* format_ = nullptr;
  std::vector<AVCodecContext*> decoders_;
  int video_ = -1;
  DecodedMovie movie_;
};

inline DecodedMovie decoded(const std::string& path, int wantedVideo = 0) {
  return MovieDecode(path, wantedVideo).run();
}

}  // namespace vistrelle::testing
