#include "vistrelle/platform/media/ffmpeg/decoders.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace vistrelle::platform {
namespace {

constexpr std::string_view kPictures[] = {
    "012v",       "4xm",       "8bps",      "aasc",        "aic",          "amv",           "apng",      "asv1",
    "asv2",       "av1",       "libdav1d",  "avrn",        "avrp",         "avs",           "avui",      "ayuv",
    "bitpacked",  "bmp",       "camstudio", "camtasia",    "cavs",         "cfhd",          "cinepak",   "clearvideo",
    "cljr",       "cllc",      "dirac",     "dnxhd",       "dpx",          "dvvideo",       "dxtory",    "dxv",
    "escape124",  "escape130", "exr",       "ffv1",        "ffvhuff",      "fic",           "flashsv",   "flashsv2",
    "flv",        "fraps",     "frwu",      "g2m",         "gif",          "h261",          "h263",      "h263i",
    "h263p",      "h264",      "hap",       "hevc",        "hq_hqa",       "hqx",           "huffyuv",   "hymt",
    "indeo2",     "indeo3",    "indeo4",    "indeo5",      "ipu",          "jpeg2000",      "jpegls",    "kgv1",
    "lagarith",   "loco",      "m101",      "magicyuv",    "mimic",        "mjpeg",         "mjpegb",    "mpeg1video",
    "mpeg2video", "mpegvideo", "mpeg4",     "msa1",        "mscc",         "msmpeg4",       "msmpeg4v1", "msmpeg4v2",
    "msrle",      "mss1",      "mss2",      "msvideo1",    "mszh",         "mts2",          "mvc1",      "mvc2",
    "mxpeg",      "notchlc",   "nuv",       "pgmyuv",      "photocd",      "pixlet",        "png",       "prores",
    "prosumer",   "qdraw",     "qtrle",     "r10k",        "r210",         "rawvideo",      "rpza",      "rscc",
    "rv10",       "rv20",      "rv30",      "rv40",        "screenpresso", "sgi",           "sgirle",    "sheervideo",
    "smc",        "snow",      "sp5x",      "speedhq",     "svq1",         "svq3",          "targa",     "targa_y216",
    "theora",     "thp",       "tiff",      "truemotion1", "truemotion2",  "truemotion2rt", "tscc2",     "ultimotion",
    "utvideo",    "v210",      "v210x",     "v308",        "v408",         "v410",          "vb",        "vble",
    "vc1",        "vc1image",  "vcr1",      "vmnc",        "vp3",          "vp4",           "vp5",       "vp6",
    "vp6a",       "vp6f",      "vp7",       "vp8",         "vp9",          "wcmv",          "webp",      "wmv1",
    "wmv2",       "wmv3",      "wmv3image", "wnv1",        "xl",           "y41p",          "ylc",       "yuv4",
    "zerocodec",  "zlib",      "zmbv",
};

constexpr std::string_view kSounds[] = {
    "aac",
    "aac_latm",
    "ac3",
    "eac3",
    "alac",
    "als",
    "amrnb",
    "amrwb",
    "ape",
    "aptx",
    "aptx_hd",
    "atrac1",
    "atrac3",
    "atrac3al",
    "atrac3plus",
    "atrac3plusal",
    "atrac9",
    "bmv_audio",
    "cook",
    "dca",
    "dolby_e",
    "dsd_lsbf",
    "dsd_lsbf_planar",
    "dsd_msbf",
    "dsd_msbf_planar",
    "dst",
    "dvaudio",
    "evrc",
    "flac",
    "g722",
    "g723_1",
    "g726",
    "g726le",
    "g729",
    "gsm",
    "gsm_ms",
    "iac",
    "ilbc",
    "imc",
    "mace3",
    "mace6",
    "metasound",
    "mlp",
    "mp1",
    "mp1float",
    "mp2",
    "mp2float",
    "mp3",
    "mp3float",
    "mp3adu",
    "mp3adufloat",
    "mp3on4",
    "mp3on4float",
    "mpc7",
    "mpc8",
    "nellymoser",
    "on2avc",
    "opus",
    "qcelp",
    "qdm2",
    "qdmc",
    "ralf",
    "real_144",
    "real_288",
    "s302m",
    "sbc",
    "shorten",
    "sipr",
    "sonic",
    "speex",
    "tak",
    "truehd",
    "truespeech",
    "tta",
    "twinvq",
    "vorbis",
    "wavpack",
    "wmalossless",
    "wmapro",
    "wmav1",
    "wmav2",
    "wmavoice",
    "xma1",
    "xma2",
};

bool isListed(const AVCodec& decoder) {
  const std::string_view name = decoder.name;
  return name.starts_with("pcm_") || name.starts_with("adpcm_") ||
         std::ranges::find(kPictures, name) != std::end(kPictures) ||
         std::ranges::find(kSounds, name) != std::end(kSounds);
}

template <typename Visit>
void forEachDecoder(Visit visit) {
  void* position = nullptr;
  while (const AVCodec* codec = av_codec_iterate(&position)) {
    if (av_codec_is_decoder(codec) != 0) visit(*codec);
  }
}

}  // namespace

const AVCodec* findDecoder(AVCodecID codec) {
  const AVCodec* preferred = avcodec_find_decoder(codec);
  if (preferred == nullptr || isListed(*preferred)) return preferred;
  const AVCodec* listed = nullptr;
  forEachDecoder([&listed, codec](const AVCodec& decoder) {
    if (listed == nullptr && decoder.id == codec && isListed(decoder)) listed = &decoder;
  });
  return listed;
}

const AVCodec* findDecoderOfAlpha(AVCodecID codec) {
  if (codec == AV_CODEC_ID_VP9) return avcodec_find_decoder_by_name("libvpx-vp9");
  return codec == AV_CODEC_ID_VP8 ? avcodec_find_decoder_by_name("libvpx") : nullptr;
}

const std::string& decoderList() {
  static const std::string list = [] {
    std::string names;
    forEachDecoder([&names](const AVCodec& decoder) {
      if (!isListed(decoder)) return;
      if (!names.empty()) names += ',';
      names += decoder.name;
    });
    return names;
  }();
  return list;
}

}  // namespace vistrelle::platform
