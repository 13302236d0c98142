#pragma once

// What a generator is compared with: a plain linear decode of the whole movie, written with libav's own calls and
// nothing of ours.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "edit_list_reference.h"
#include "vistrelle/platform/imaging/picture.h"
#include "vistrelle/platform/media/media_time.h"

namespace vistrelle::testing {

struct ReferenceFrame {
  platform::MediaTime time;
  std::uint64_t hash = 0;
};

struct Reference {
  std::string error;                   // empty when it could be decoded
  std::vector<ReferenceFrame> frames;  // in presentation order
  bool counted = false;
  std::int64_t pixels = 0;                                 // of all frames together
  platform::MediaTime tick = platform::MediaTime::zero();  // edits: how finely the track tells times

  bool isTimeOf(const ReferenceFrame& frame, const platform::MediaTime& time) const {
    return time.isNumeric() && frame.time - tick <= time && time <= frame.time + tick;
  }
  /// The last frame not after `time`, the first one when all are later.
  std::size_t indexAt(const platform::MediaTime& time) const {
    std::size_t index = 0;
    for (std::size_t i = 0; i < frames.size() && frames[i].time <= time; ++i) index = i;
    return index;
  }
};

inline std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
  hash = (hash ^ word) * 0x9E3779B97F4A7C15ULL;
  return hash ^ hash >> 32;
}

inline std::uint64_t hashOfBytes(std::uint64_t hash, const void* bytes, std::size_t count) {
  const auto* at = static_cast<const std::uint8_t*>(bytes);
  for (; count > 0; count -= std::min<std::size_t>(count, 8)) {
    std::uint64_t word = 0;
    std::memcpy(&word, at, std::min<std::size_t>(count, 8));
    hash = mixed(hash, word);
    at += 8;
  }
  return hash;
}

inline std::uint64_t hashOfPlanes(const std::string& layout, int width, int height, const std::uint8_t* const data[4],
                                  const int rowBytes[4]) {
  std::uint64_t hash = hashOfBytes(1, layout.data(), layout.size());
  const AVPixelFormat format = av_get_pix_fmt(layout.c_str());
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
  for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
    const bool isChroma = plane == 1 || plane == 2;
    const int rows = isChroma ? -(-height >> descriptor->log2_chroma_h) : height;
    const int bytes = av_image_get_linesize(format, width, plane);
    // Of large frames some rows are enough to tell one from another.
    for (int y = 0; y < rows; y += std::max(1, rows / 120)) {
      const std::uint8_t* row = data[plane] + static_cast<std::ptrdiff_t>(y) * rowBytes[plane];
      hash = hashOfBytes(hash, row, static_cast<std::size_t>(bytes));
    }
  }
  return hash;
}

inline std::uint64_t hashOf(const platform::PlanarImage& image) {
  const std::uint8_t* data[4];
  int rowBytes[4];
  for (std::size_t i = 0; i < 4; ++i) {
    data[i] = image.planes[i].data;
    rowBytes[i] = image.planes[i].rowBytes;
  }
  return hashOfPlanes(image.layout, image.width, image.height, data, rowBytes);
}

class LinearDecode {
 public:
  explicit LinearDecode(const std::string& path) : path_(path) {
    AVDictionary* options = nullptr;
    av_dict_set(&options, "ignore_editlist", "1", 0);  // applied below, frame by frame
    const int status = avformat_open_input(&format_, path.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (status < 0) {
      reference_.error = "not a movie";
      return;
    }
    avformat_find_stream_info(format_, nullptr);
    for (unsigned i = 0; i < format_->nb_streams && stream_ == nullptr; ++i) {
      AVStream* stream = format_->streams[i];
      const bool isCover = (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
      if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !isCover) stream_ = stream;
    }
    const AVCodec* codec = stream_ == nullptr ? nullptr : avcodec_find_decoder(stream_->codecpar->codec_id);
    if (codec == nullptr) {
      reference_.error = "no picture";
      return;
    }
    decoder_ = avcodec_alloc_context3(codec);
    avcodec_parameters_to_context(decoder_, stream_->codecpar);
    decoder_->pkt_timebase = stream_->time_base;
    decoder_->thread_count = 1;
    if (avcodec_open2(decoder_, codec, nullptr) < 0) reference_.error = "no decoder";
  }
  ~LinearDecode() {
    avcodec_free_context(&decoder_);
    avformat_close_input(&format_);
  }
  LinearDecode(const LinearDecode&) = delete;
  LinearDecode& operator=(const LinearDecode&) = delete;

  Reference run() {
    if (reference_.error.empty()) {
      decodeAll();
      giveTimes();
      if (std::string_view(format_->iformat->name).starts_with("mov,")) applyEdits(EditListReader::read(path_));
      if (reference_.frames.empty()) reference_.error = "no frame";
    }
    return reference_;
  }

 private:
  void decodeAll() {
    AVPacket* packet = av_packet_alloc();
    int failures = 0;
    while (failures < 100) {
      const int status = av_read_frame(format_, packet);
      if (status == AVERROR_INVALIDDATA) {
        ++failures;
        continue;
      }
      if (status < 0) break;
      if (packet->stream_index == stream_->index) {
        if (packet->size > 0) dts_.push_back(packet->dts);
        if (avcodec_send_packet(decoder_, packet) >= 0) takeFrames();
      }
      av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avcodec_send_packet(decoder_, nullptr);
    takeFrames();
  }

  void takeFrames() {
    AVFrame* frame = av_frame_alloc();
    while (avcodec_receive_frame(decoder_, frame) >= 0) {
      if ((frame->flags & AV_FRAME_FLAG_DISCARD) == 0) {
        pts_.push_back(frame->pts);
        reference_.pixels += std::int64_t{frame->width} * frame->height;
        const std::string layout = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame->format));
        reference_.frames.push_back(
            {{}, hashOfPlanes(layout, frame->width, frame->height, frame->data, frame->linesize)});
      }
      av_frame_unref(frame);
    }
    av_frame_free(&frame);
  }

  void giveTimes() {
    const std::string_view name = format_->iformat->name;
    const bool isMov = name.starts_with("mov,");
    const std::set<std::int64_t> distinct(pts_.begin(), pts_.end());
    const bool hasNoTimes = name == "avi" || (format_->iformat->flags & AVFMT_NOTIMESTAMPS) != 0;
    reference_.counted = hasNoTimes || distinct.contains(AV_NOPTS_VALUE) || (!isMov && distinct.size() < pts_.size());
    const AVRational tb = stream_->time_base;
    const std::int64_t zero =
        isMov || format_->start_time == AV_NOPTS_VALUE ? 0 : av_rescale_q(format_->start_time, {1, 1000000}, tb);
    const auto timeOf = [&](std::int64_t pts) { return platform::MediaTime::make((pts - zero) * tb.num, tb.den); };
    const AVRational rate = av_guess_frame_rate(format_, stream_, nullptr);
    const bool startsLate = !hasNoTimes && !pts_.empty() && pts_[0] != AV_NOPTS_VALUE;
    const platform::MediaTime first = startsLate ? timeOf(pts_[0]) : platform::MediaTime::zero();
    for (std::size_t i = 0; i < pts_.size(); ++i) {
      if (name == "avi") {
        // Where no frame is reordered libavformat states the times; otherwise the frames take the places of the chunks
        // that hold something, in presentation order.
        const std::int64_t place = distinct.contains(AV_NOPTS_VALUE) && i < dts_.size() ? dts_[i] : pts_[i];
        reference_.frames[i].time = platform::MediaTime::make(place * tb.num, tb.den);
        continue;
      }
      reference_.frames[i].time =
          reference_.counted ? first + platform::MediaTime::make(static_cast<std::int64_t>(i) * rate.den, rate.num)
                             : timeOf(pts_[i]);
    }
  }

  // Of each edit: what is on screen at its start, then what appears until its end.
  void applyEdits(const ReferenceEdits& edits) {
    if (edits.entries.empty() || edits.movieScale == 0) return;
    using platform::MediaTime;
    std::stable_sort(reference_.frames.begin(), reference_.frames.end(),
                     [](const ReferenceFrame& a, const ReferenceFrame& b) { return a.time < b.time; });
    std::vector<ReferenceFrame> shown;
    MediaTime start = MediaTime::zero();
    const auto scale = static_cast<std::int32_t>(edits.movieScale);
    const std::int64_t perTick = stream_->time_base.num;
    for (const ReferenceEdits::Entry& edit : edits.entries) {
      const bool isOpen = edit.duration == 0 || edits.isFragmented;
      const MediaTime length = MediaTime::make(static_cast<std::int64_t>(edit.duration), scale);
      if (edit.mediaTime >= 0) {
        const MediaTime media = MediaTime::make(edit.mediaTime * perTick, stream_->time_base.den);
        Reference whole = reference_;
        const std::size_t first = whole.indexAt(media);
        for (std::size_t i = first; i < whole.frames.size(); ++i) {
          ReferenceFrame frame = whole.frames[i];
          if (i > first && ((!isOpen && frame.time >= media + length) || edit.rate == 0)) break;
          // A frame that began before the edit is on screen from the edit's start.
          const MediaTime own = start + (frame.time - media);
          frame.time = (own < start ? start : own).convertedTo(stream_->time_base.den);
          shown.push_back(frame);
        }
        if (isOpen) break;
      }
      start = start + length;
    }
    if (shown.empty()) return;
    reference_.frames = std::move(shown);
    reference_.tick = MediaTime::make(perTick, stream_->time_base.den);
  }

  std::string path_;
  AVFormatContext* format_ = nullptr;
  AVStream* stream_ = nullptr;
  AVCodecContext* decoder_ = nullptr;
  std::vector<std::int64_t> pts_;
  std::vector<std::int64_t> dts_;  // of the packets that hold something
  Reference reference_;
};

inline Reference referenceOf(const std::string& path) {
  return LinearDecode(path).run();
}

}  // namespace vistrelle::testing
