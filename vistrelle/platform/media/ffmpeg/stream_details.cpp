#include "vistrelle/platform/media/ffmpeg/stream_details.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libavutil/timecode.h>
}

#include <array>
#include <cstring>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/duration_by_decoding.h"
#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"

namespace vistrelle::platform {
namespace {

/// What is known of a stream: by its container and parameters, and by its first frame where there is one.
struct Known {
  const StreamFacts& facts;
  const FirstFrame* first;

  const AVCodecParameters& parameters() const { return *facts.parameters; }
  const AVFrame* frame() const { return first == nullptr ? nullptr : first->frame.get(); }
};

OptionalText textOf(const char* name) {
  if (name == nullptr) return std::nullopt;
  const std::string text = name;
  if (text == "unknown" || text == "reserved") return std::nullopt;
  return text;
}

OptionalText profileOf(const Known& known) {
  const AVCodecID codec = known.parameters().codec_id;
  const int profile = known.first != nullptr && known.first->profile != kUnknownProfile ? known.first->profile
                                                                                        : known.parameters().profile;
  return profile == kUnknownProfile ? std::nullopt : textOf(avcodec_profile_name(codec, profile));
}

AVPixelFormat pixelFormatOf(const Known& known) {
  const int format = known.frame() != nullptr ? known.frame()->format : known.parameters().format;
  return static_cast<AVPixelFormat>(format);
}

/// The frame's word comes first, as it does for the pictures.
template <typename Code>
Code firstStated(Code frame, Code container, Code unspecified) {
  return frame != unspecified && static_cast<int>(frame) != 0 ? frame : container;
}

void addColours(TrackDetails& details, const Known& known) {
  const AVCodecParameters& parameters = known.parameters();
  const AVFrame* frame = known.frame();
  AVColorPrimaries primaries = parameters.color_primaries;
  AVColorTransferCharacteristic transfer = parameters.color_trc;
  AVColorSpace matrix = parameters.color_space;
  AVColorRange range = parameters.color_range;
  if (frame != nullptr) {
    primaries = firstStated(frame->color_primaries, primaries, AVCOL_PRI_UNSPECIFIED);
    transfer = firstStated(frame->color_trc, transfer, AVCOL_TRC_UNSPECIFIED);
    const AVPixFmtDescriptor* layout = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
    const bool isRgb = layout != nullptr && (layout->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    matrix = isRgb ? frame->colorspace : firstStated(frame->colorspace, matrix, AVCOL_SPC_UNSPECIFIED);
    range = firstStated(frame->color_range, range, AVCOL_RANGE_UNSPECIFIED);
  }
  details.colourPrimaries = textOf(av_color_primaries_name(primaries));
  details.colourTransfer = textOf(av_color_transfer_name(transfer));
  details.colourMatrix = textOf(av_color_space_name(matrix));
  details.colourRange = textOf(av_color_range_name(range));
}

bool hasFrameData(const AVFrame* frame, AVFrameSideDataType type) {
  return frame != nullptr && av_frame_get_side_data(frame, type) != nullptr;
}

std::string hdrClassOf(const Known& known, const OptionalText& transfer) {
  const StreamNotes& notes = known.facts.notes;
  if (notes.dolbyVision) {
    const int profile = notes.dolbyVision->profile;
    const int compatibility = notes.dolbyVision->compatibility;
    return compatibility > 0 ? format("Dolby Vision profile {}.{}", profile, compatibility)
                             : format("Dolby Vision profile {}", profile);
  }
  if (transfer == "arib-std-b67") return "HLG";
  if (transfer != "smpte2084") return "SDR";
  if (hasFrameData(known.frame(), AV_FRAME_DATA_DYNAMIC_HDR_PLUS)) return "HDR10+";
  const bool hasStatic = notes.hasStaticHdrMetadata ||
                         hasFrameData(known.frame(), AV_FRAME_DATA_MASTERING_DISPLAY_METADATA) ||
                         hasFrameData(known.frame(), AV_FRAME_DATA_CONTENT_LIGHT_LEVEL);
  return hasStatic ? "HDR10" : "PQ";
}

Orientation orientationOf(const Known& known) {
  if (known.facts.notes.orientation) return *known.facts.notes.orientation;
  const AVFrameSideData* data =
      known.frame() == nullptr ? nullptr : av_frame_get_side_data(known.frame(), AV_FRAME_DATA_DISPLAYMATRIX);
  std::array<std::int32_t, 9> matrix{};
  if (data == nullptr || data->size < sizeof matrix) return {};
  std::memcpy(matrix.data(), data->data, sizeof matrix);
  return orientationOfMatrix(matrix);
}

/// Time codes inside the pictures: of a group of pictures (ISO/IEC 13818-2, 6.3.8) and of SMPTE ST 12-1.
OptionalText timecodeInFrame(const AVFrame* frame, AVRational rate) {
  if (frame == nullptr) return std::nullopt;
  std::array<char, AV_TIMECODE_STR_SIZE> text{};
  if (const AVFrameSideData* gop = av_frame_get_side_data(frame, AV_FRAME_DATA_GOP_TIMECODE)) {
    std::int64_t code = 0;
    if (gop->size < sizeof code) return std::nullopt;
    std::memcpy(&code, gop->data, sizeof code);
    return av_timecode_make_mpeg_tc_string(text.data(), static_cast<std::uint32_t>(code));
  }
  if (const AVFrameSideData* smpte = av_frame_get_side_data(frame, AV_FRAME_DATA_S12M_TIMECODE)) {
    std::array<std::uint32_t, 2> words{};  // how many there are, and the first
    if (smpte->size < sizeof words) return std::nullopt;
    std::memcpy(words.data(), smpte->data, sizeof words);
    if (words[0] > 0) return av_timecode_make_smpte_tc_string2(text.data(), rate, words[1], 0, 0);
  }
  return std::nullopt;
}

void addPictures(TrackDetails& details, const Known& known) {
  const AVPixelFormat format = pixelFormatOf(known);
  details.pixelFormat = textOf(av_get_pix_fmt_name(format));
  const AVPixFmtDescriptor* layout = av_pix_fmt_desc_get(format);
  if (layout != nullptr && layout->nb_components > 0) details.bitDepth = layout->comp[0].depth;
  addColours(details, known);
  details.hdrClass = hdrClassOf(known, details.colourTransfer);
  const Orientation orientation = orientationOf(known);
  details.rotation = 90 * orientation.quarterTurnsClockwise;
  details.isMirrored = orientation.mirrored;
  details.frameRate = known.facts.notes.frameRate;
  if (!details.startTimecode) {
    const auto& rate = details.frameRate;
    AVRational fraction{25, 1};
    if (rate) av_reduce(&fraction.num, &fraction.den, rate->numerator, rate->denominator, 1 << 24);
    details.startTimecode = timecodeInFrame(known.frame(), fraction);
  }
}

void addSound(TrackDetails& details, const Known& known) {
  const AVCodecParameters& parameters = known.parameters();
  const AVFrame* frame = known.frame();
  // The decoder knows what a header may not: the rate and channels of streams with a hidden extension layer.
  if (parameters.sample_rate > 0) details.sampleRate = parameters.sample_rate;
  if (channelCount(parameters) > 0) details.channels = channelCount(parameters);
  if (frame != nullptr && frame->sample_rate > 0) details.sampleRate = frame->sample_rate;
  if (frame != nullptr && channelCount(*frame) > 0) details.channels = channelCount(*frame);
  const AVCodecDescriptor* codec = avcodec_descriptor_get(parameters.codec_id);
  if (codec == nullptr || (codec->props & AV_CODEC_PROP_LOSSLESS) == 0) return;
  const int bits = parameters.bits_per_raw_sample > 0 ? parameters.bits_per_raw_sample
                                                      : av_get_exact_bits_per_sample(parameters.codec_id);
  if (bits > 0) details.bitDepth = bits;
}

}  // namespace

TrackDetails detailsOf(MovieSource& source, int streamIndex) {
  const StreamFacts& facts = source.streams()[static_cast<std::size_t>(streamIndex)];
  const bool isCoded = facts.type == MediaType::video || facts.type == MediaType::audio;
  const std::shared_ptr<const FirstFrame> first = isCoded ? source.firstFrame(streamIndex) : nullptr;
  const Known known{facts, first.get()};
  TrackDetails details;
  if (facts.parameters->codec_id != AV_CODEC_ID_NONE) details.codec = avcodec_get_name(facts.parameters->codec_id);
  details.profile = profileOf(known);
  details.language = facts.notes.language;
  details.headerDuration = facts.notes.headerDuration;
  const bool hasTimecode = facts.type == MediaType::video || facts.type == MediaType::timecode;
  if (hasTimecode) details.startTimecode = facts.notes.timecode;
  if (facts.type == MediaType::video) addPictures(details, known);
  if (facts.type == MediaType::audio) addSound(details, known);
  if (isCoded && isHeaderDoubtful(source, streamIndex)) details.decodedDuration = decodedDuration(source, streamIndex);
  return details;
}

}  // namespace vistrelle::platform
