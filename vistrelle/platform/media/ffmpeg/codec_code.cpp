#include "vistrelle/platform/media/ffmpeg/codec_code.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vistrelle::platform {
namespace {

struct CodecCode {
  AVCodecID codec;
  const char* code;
};

// Sample entries of QuickTime movies, where libavformat's own table names none or one of several that says less: the
// QuickTime File Format's lists of video and sound media, the MP4 registration authority, and for the codecs that
// neither knows the codes that QuickTime components registered for them.
constexpr std::array kQuickTimeCodes = {
    CodecCode{AV_CODEC_ID_MPEG1VIDEO, "m1v1"},   CodecCode{AV_CODEC_ID_MPEG2VIDEO, "mp2v"},
    CodecCode{AV_CODEC_ID_HEVC, "hvc1"},         CodecCode{AV_CODEC_ID_MPEG4, "mp4v"},
    CodecCode{AV_CODEC_ID_MP2, ".mp2"},          CodecCode{AV_CODEC_ID_MP1, ".mp1"},
    CodecCode{AV_CODEC_ID_PCM_DVD, "twos"},      CodecCode{AV_CODEC_ID_PCM_BLURAY, "twos"},
    CodecCode{AV_CODEC_ID_S302M, "twos"},        CodecCode{AV_CODEC_ID_THEORA, "XiTh"},
    CodecCode{AV_CODEC_ID_VORBIS, "XiVs"},       CodecCode{AV_CODEC_ID_WMAV1, "WMA1"},
    CodecCode{AV_CODEC_ID_WMAV2, "WMA2"},        CodecCode{AV_CODEC_ID_WMAPRO, "WMA3"},
    CodecCode{AV_CODEC_ID_SUBRIP, "tx3g"},       CodecCode{AV_CODEC_ID_ASS, "tx3g"},
    CodecCode{AV_CODEC_ID_MOV_TEXT, "tx3g"},     CodecCode{AV_CODEC_ID_WEBVTT, "wvtt"},
    CodecCode{AV_CODEC_ID_DVD_SUBTITLE, "mp4s"}, CodecCode{AV_CODEC_ID_EIA_608, "c608"},
};

std::string textOf(std::uint32_t tag) {
  std::string text;
  for (const int shift : {0, 8, 16, 24}) text += static_cast<char>(tag >> shift & 0xff);
  return text;
}

bool isText(std::uint32_t tag) {
  const std::string text = textOf(tag);
  return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

/// Sound in AVI and ASF is told apart by a number of 16 bits, which no four printable characters can be.
bool storesFourCharacters(const AVFormatContext& container) {
  const std::string_view name = container.iformat->name;
  return name == "avi" || name == "asf" || name == "nut" || name == "ivf" || name == "rm" || name == "wtv" ||
         name.starts_with("matroska");
}

std::string dvCode(const AVCodecParameters& parameters) {
  return parameters.height == 480 ? "dvc " : "dvcp";
}

std::string proResCode(const AVCodecParameters& parameters) {
  // From proxy to 4444 XQ, as libavcodec numbers the profiles.
  constexpr std::array kByProfile = {"apco", "apcs", "apcn", "apch", "ap4h", "ap4x"};
  const int profile = parameters.profile;
  return profile >= 0 && profile < std::ssize(kByProfile) ? kByProfile[static_cast<std::size_t>(profile)] : "apch";
}

std::string codeInTables(AVCodecID codec, const AVCodecTag* const* tables) {
  const std::uint32_t tag = av_codec_get_tag(tables, codec);
  return tag != 0 && isText(tag) ? textOf(tag) : std::string();
}

}  // namespace

std::string codecCode(const AVFormatContext& container, const AVCodecParameters& parameters) {
  if (storesFourCharacters(container) && parameters.codec_tag != 0 && isText(parameters.codec_tag)) {
    return textOf(parameters.codec_tag);
  }
  if (parameters.codec_id == AV_CODEC_ID_DVVIDEO) return dvCode(parameters);
  if (parameters.codec_id == AV_CODEC_ID_PRORES) return proResCode(parameters);
  const auto known = std::ranges::find(kQuickTimeCodes, parameters.codec_id, &CodecCode::codec);
  if (known != kQuickTimeCodes.end()) return known->code;
  const std::array<const AVCodecTag*, 3> quickTime = {avformat_get_mov_video_tags(), avformat_get_mov_audio_tags(),
                                                      nullptr};
  std::string code = codeInTables(parameters.codec_id, quickTime.data());
  if (!code.empty()) return code;
  // Codes of Video for Windows, which QuickTime movies carry too where a codec has no other.
  const std::array<const AVCodecTag*, 2> riff = {avformat_get_riff_video_tags(), nullptr};
  return codeInTables(parameters.codec_id, riff.data());
}

}  // namespace vistrelle::platform
