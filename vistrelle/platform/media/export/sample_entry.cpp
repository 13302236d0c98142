#include "vistrelle/platform/media/export/sample_entry.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/export/parameter_sets.h"
#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/decoders.h"
#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::platform {
namespace {

struct OutputDeleter {
  void operator()(AVFormatContext* context) const {
    if (context->pb != nullptr) {
      std::uint8_t* bytes = nullptr;
      avio_close_dyn_buf(context->pb, &bytes);
      av_free(bytes);
    }
    avformat_free_context(context);
  }
};
using Output = std::unique_ptr<AVFormatContext, OutputDeleter>;

/// Readers of QuickTime movies know HEVC by this tag only.
constexpr std::uint32_t kHevcTag = MKTAG('h', 'v', 'c', '1');

bool copyDisplayMatrix(const AVStream& from, AVStream* to) {
  const std::span<const std::uint8_t> matrix = streamSideData(from, AV_PKT_DATA_DISPLAYMATRIX);
  if (matrix.empty()) return true;
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 31, 102)
  AVPacketSideData* data = av_packet_side_data_new(&to->codecpar->coded_side_data, &to->codecpar->nb_coded_side_data,
                                                   AV_PKT_DATA_DISPLAYMATRIX, matrix.size(), 0);
  std::uint8_t* copy = data == nullptr ? nullptr : data->data;
#else
  std::uint8_t* copy = av_stream_new_side_data(to, AV_PKT_DATA_DISPLAYMATRIX, matrix.size());
#endif
  if (copy == nullptr) return false;
  std::memcpy(copy, matrix.data(), matrix.size());
  return true;
}

/// Containers that say nothing of the pixels leave it to the pictures; configuration records of VP9 state them.
void learnPixels(AVCodecParameters& parameters, const AVPacket& first, const MediaLimits& limits) {
  if (parameters.codec_type != AVMEDIA_TYPE_VIDEO || parameters.format >= 0) return;
  const AVCodec* codec = findDecoder(parameters.codec_id);
  const AvPtr<AVCodecContext> decoder(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
  const AvPtr<AVFrame> frame(av_frame_alloc());
  if (!decoder || !frame || avcodec_parameters_to_context(decoder.get(), &parameters) < 0) return;
  decoder->thread_count = 1;
  decoder->max_pixels = limits.maxPixels;
  if (avcodec_open2(decoder.get(), codec, nullptr) < 0 || avcodec_send_packet(decoder.get(), &first) < 0) return;
  if (avcodec_send_packet(decoder.get(), nullptr) < 0) return;
  if (avcodec_receive_frame(decoder.get(), frame.get()) < 0) return;
  parameters.format = frame->format;
  if (parameters.profile < 0) parameters.profile = decoder->profile;
}

/// A whole movie of one packet, in memory; empty with a negative status on failure.
std::vector<std::uint8_t> tinyMovie(const char* muxer, const AVStream& stream, const AVCodecParameters& parameters,
                                    const AVPacket& first, const MediaLimits& limits, int* status) {
  AVFormatContext* made = nullptr;
  *status = avformat_alloc_output_context2(&made, nullptr, muxer, nullptr);
  if (*status < 0) return {};
  Output output(made);
  output->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
  AVStream* track = avformat_new_stream(made, nullptr);
  *status = track == nullptr ? AVERROR(ENOMEM) : avcodec_parameters_copy(track->codecpar, &parameters);
  if (*status < 0) return {};
  learnPixels(*track->codecpar, first, limits);
  track->codecpar->codec_tag = parameters.codec_id == AV_CODEC_ID_HEVC ? kHevcTag : 0;
  track->time_base = stream.time_base;
  track->avg_frame_rate = stream.avg_frame_rate;
  track->sample_aspect_ratio =
      stream.sample_aspect_ratio.num != 0 ? stream.sample_aspect_ratio : parameters.sample_aspect_ratio;
  if (!copyDisplayMatrix(stream, track)) *status = AVERROR(ENOMEM);
  if (*status >= 0) *status = avio_open_dyn_buf(&made->pb);
  if (*status < 0) return {};
  *status = avformat_write_header(made, nullptr);
  if (*status < 0) return {};
  const AvPtr<AVPacket> packet(av_packet_clone(&first));
  if (!packet) *status = AVERROR(ENOMEM);
  if (packet) {
    packet->stream_index = 0;
    packet->pts = 0;
    packet->dts = 0;
    packet->flags |= AV_PKT_FLAG_KEY;
    av_packet_rescale_ts(packet.get(), stream.time_base, track->time_base);
    *status = av_write_frame(made, packet.get());
  }
  const int ended = av_write_trailer(made);
  if (*status >= 0) *status = ended;
  std::uint8_t* bytes = nullptr;
  const int size = avio_close_dyn_buf(made->pb, &bytes);
  made->pb = nullptr;
  std::vector<std::uint8_t> movie(bytes, bytes + std::max(size, 0));
  av_free(bytes);
  if (*status < 0) movie.clear();
  return movie;
}

/// The bytes of a movie in memory.
class MovieInMemory : public InputBytes {
 public:
  explicit MovieInMemory(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}
  std::int64_t size() const override { return std::ssize(bytes_); }
  std::int64_t readAt(std::int64_t offset, std::span<std::uint8_t> buffer) override {
    const std::int64_t count = std::min<std::int64_t>(std::ssize(buffer), size() - offset);
    if (count <= 0) return 0;
    std::memcpy(buffer.data(), bytes_.data() + offset, static_cast<std::size_t>(count));
    return count;
  }

 private:
  std::vector<std::uint8_t> bytes_;
};

/// The muxer writes what it does not know as an empty configuration and calls that a success; no reader opens it.
bool opensAgain(const std::shared_ptr<InputBytes>& movie, const MediaLimits& limits, std::string* error) {
  return Demuxer::open(movie, std::make_shared<Interrupt>(limits), false, error) != nullptr;
}

}  // namespace

std::optional<mov::SampleTables> makeTrackTables(const AVStream& stream, const AVCodecParameters& parameters,
                                                 const AVPacket& first, const MediaLimits& limits, std::string* error) {
  const auto refused = [&](const std::string& cause) {
    if (error != nullptr) {
      *error = format("'{}' cannot be put into a QuickTime movie: {}", avcodec_get_name(parameters.codec_id), cause);
    }
    return std::nullopt;
  };
  if (!hasSoundParameterSets(parameters, first, limits)) return refused("its parameter sets are damaged");
  int status = 0;
  std::vector<std::uint8_t> movie = tinyMovie("mov", stream, parameters, first, limits, &status);
  // Some codings are registered for ISO base media files only.
  if (movie.empty()) movie = tinyMovie("mp4", stream, parameters, first, limits, &status);
  const auto bytes = std::make_shared<MovieInMemory>(std::move(movie));
  auto tables = mov::readMovieTables(
      bytes->size(), [&bytes](std::int64_t offset, std::span<std::uint8_t> to) { return bytes->readAt(offset, to); },
      {});
  if (!tables || tables->tracks.empty() || tables->tracks.front().descriptions.empty()) {
    return refused(avErrorText(status));
  }
  std::string cause;
  if (!opensAgain(bytes, limits, &cause)) return refused(cause);
  mov::SampleTables track = std::move(tables->tracks.front());
  track.edits.clear();
  track.samples.clear();
  return track;
}

}  // namespace vistrelle::platform
