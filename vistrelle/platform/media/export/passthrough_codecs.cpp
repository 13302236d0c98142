#include <algorithm>
#include <set>
#include <span>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/composition.h"
#include "vistrelle/platform/media/export/passthrough.h"
#include "vistrelle/platform/media/ffmpeg/movie_track.h"

namespace vistrelle::platform {
namespace {

/// Codings with a sample entry in the QuickTime File Format or at the registration authority of ISO base media files.
constexpr AVCodecID kPictures[] = {
    AV_CODEC_ID_H264,     AV_CODEC_ID_HEVC,   AV_CODEC_ID_MPEG4,   AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_MPEG1VIDEO,
    AV_CODEC_ID_PRORES,   AV_CODEC_ID_MJPEG,  AV_CODEC_ID_MJPEGB,  AV_CODEC_ID_AV1,        AV_CODEC_ID_VP9,
    AV_CODEC_ID_VP8,      AV_CODEC_ID_H263,   AV_CODEC_ID_H261,    AV_CODEC_ID_SVQ1,       AV_CODEC_ID_SVQ3,
    AV_CODEC_ID_CINEPAK,  AV_CODEC_ID_QTRLE,  AV_CODEC_ID_RPZA,    AV_CODEC_ID_SMC,        AV_CODEC_ID_8BPS,
    AV_CODEC_ID_PNG,      AV_CODEC_ID_TIFF,   AV_CODEC_ID_GIF,     AV_CODEC_ID_TARGA,      AV_CODEC_ID_JPEG2000,
    AV_CODEC_ID_DVVIDEO,  AV_CODEC_ID_DNXHD,  AV_CODEC_ID_CFHD,    AV_CODEC_ID_HAP,        AV_CODEC_ID_VC1,
    AV_CODEC_ID_RAWVIDEO, AV_CODEC_ID_V210,   AV_CODEC_ID_V308,    AV_CODEC_ID_V408,       AV_CODEC_ID_V410,
    AV_CODEC_ID_R10K,     AV_CODEC_ID_R210,   AV_CODEC_ID_AVUI,    AV_CODEC_ID_AYUV,       AV_CODEC_ID_FLIC,
    AV_CODEC_ID_AIC,      AV_CODEC_ID_PIXLET, AV_CODEC_ID_MSVIDEO1};

constexpr AVCodecID kSounds[] = {
    AV_CODEC_ID_AAC,          AV_CODEC_ID_AC3,           AV_CODEC_ID_EAC3,      AV_CODEC_ID_MP3,
    AV_CODEC_ID_MP2,          AV_CODEC_ID_MP1,           AV_CODEC_ID_ALAC,      AV_CODEC_ID_FLAC,
    AV_CODEC_ID_OPUS,         AV_CODEC_ID_DTS,           AV_CODEC_ID_AMR_NB,    AV_CODEC_ID_AMR_WB,
    AV_CODEC_ID_QDM2,         AV_CODEC_ID_QDMC,          AV_CODEC_ID_MACE3,     AV_CODEC_ID_MACE6,
    AV_CODEC_ID_GSM,          AV_CODEC_ID_GSM_MS,        AV_CODEC_ID_QCELP,     AV_CODEC_ID_EVRC,
    AV_CODEC_ID_ADPCM_IMA_QT, AV_CODEC_ID_ADPCM_IMA_WAV, AV_CODEC_ID_ADPCM_MS,  AV_CODEC_ID_PCM_U8,
    AV_CODEC_ID_PCM_S8,       AV_CODEC_ID_PCM_S16LE,     AV_CODEC_ID_PCM_S16BE, AV_CODEC_ID_PCM_S24LE,
    AV_CODEC_ID_PCM_S24BE,    AV_CODEC_ID_PCM_S32LE,     AV_CODEC_ID_PCM_S32BE, AV_CODEC_ID_PCM_F32LE,
    AV_CODEC_ID_PCM_F32BE,    AV_CODEC_ID_PCM_F64LE,     AV_CODEC_ID_PCM_F64BE, AV_CODEC_ID_PCM_MULAW,
    AV_CODEC_ID_PCM_ALAW,     AV_CODEC_ID_TRUEHD};

bool isListed(std::span<const AVCodecID> list, AVCodecID codec) {
  return std::ranges::find(list, codec) != list.end();
}

bool refuse(std::string* reason, std::string text) {
  if (reason != nullptr) *reason = std::move(text);
  return false;
}

bool hasSampleEntry(const std::shared_ptr<Track>& track, std::string* reason) {
  const MediaType type = track->mediaType();
  if (type != MediaType::video && type != MediaType::audio) return true;
  const auto* inFile = dynamic_cast<const MovieTrack*>(track.get());
  if (inFile == nullptr) return refuse(reason, format("track {} is not of a movie file", track->trackId()));
  const AVCodecID codec = inFile->facts().parameters->codec_id;
  const bool isKnown = type == MediaType::video ? isListed(kPictures, codec) : isListed(kSounds, codec);
  if (isKnown) return true;
  return refuse(reason, format("'{}' of track {} has no sample entry in a QuickTime movie", avcodec_get_name(codec),
                               track->trackId()));
}

}  // namespace

bool canPassThrough(const Asset& asset, std::string* reason) {
  for (const std::shared_ptr<Track>& track : asset.tracks()) {
    const auto* edited = dynamic_cast<const CompositionTrack*>(track.get());
    if (edited == nullptr) {
      if (!hasSampleEntry(track, reason)) return false;
      continue;
    }
    std::set<const Track*> seen;
    for (const Segment& segment : edited->segments()) {
      if (!segment.track || !seen.insert(segment.track.get()).second) continue;
      if (!hasSampleEntry(segment.track, reason)) return false;
    }
  }
  return true;
}

}  // namespace vistrelle::platform
