#include "vistrelle/platform/media/export/picture_conversion.h"

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <array>
#include <cmath>

#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::platform {
namespace {

constexpr AVPixelFormat kFormat = AV_PIX_FMT_YUV422P10;
constexpr int kLinesOfHighDefinition = 720;
constexpr std::size_t kMostPooled = 32;

const AVPixFmtDescriptor& descriptorOf(const AVFrame& frame) {
  return *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
}

bool isRgb(const AVFrame& frame) {
  return (descriptorOf(frame).flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0;
}

/// Full range by tag or by the old formats that imply it.
bool isFullRange(const AVFrame& frame, const FrameShape& shape) {
  if (isRgb(frame)) return true;
  switch (static_cast<AVPixelFormat>(frame.format)) {
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ444P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ411P:
      return true;
    default:
      break;
  }
  if (frame.color_range != AVCOL_RANGE_UNSPECIFIED) return frame.color_range == AVCOL_RANGE_JPEG;
  return shape.colour.range == AVCOL_RANGE_JPEG;
}

/// The visible part of a frame: on whole chroma samples, and whole pairs of lines where there are fields.
struct Crop {
  int left = 0;
  int top = 0;
  int width = 0;
  int height = 0;
};

Crop cropOf(const AVFrame& frame, const FrameShape& shape) {
  Crop crop{0, 0, frame.width, frame.height};
  if (!shape.cleanAperture) return crop;
  const PixelRect rect = visibleRect(*shape.cleanAperture, frame.width, frame.height);
  crop.left = static_cast<int>(std::lround(rect.x)) & ~1;
  crop.top = static_cast<int>(std::lround(rect.y)) & (isInterlaced(frame) ? ~3 : ~1);
  crop.width = std::clamp(static_cast<int>(std::lround(rect.x + rect.width)) - crop.left, 1, frame.width - crop.left);
  crop.height = std::clamp(static_cast<int>(std::lround(rect.y + rect.height)) - crop.top, 1, frame.height - crop.top);
  return crop;
}

int stated(int frame, int container) {
  const auto says = [](int value) { return value > 0 && value != 2; };
  return says(frame) ? frame : says(container) ? container : 0;
}

/// Coefficients of swscale for a matrix; it knows no others than these.
const int* coefficientsOf(AVColorSpace matrix) {
  return sws_getCoefficients(static_cast<int>(matrix));
}

/// A part of a picture's lines: every line, or every second one.
std::array<std::uint8_t*, 4> linesFrom(const AVFrame& frame, int field) {
  std::array<std::uint8_t*, 4> data{};
  for (std::size_t i = 0; i < data.size(); ++i) {
    data[i] = frame.data[i] == nullptr ? nullptr : frame.data[i] + std::ptrdiff_t{field} * frame.linesize[i];
  }
  return data;
}

}  // namespace

PictureForm formOf(const AVFrame& frame, const FrameShape& shape) {
  PictureForm form;
  const Crop crop = cropOf(frame, shape);
  form.width = crop.width;
  form.height = crop.height;
  for (const AVRational aspect : {frame.sample_aspect_ratio, shape.pixelAspect}) {
    if (aspect.num > 0 && aspect.den > 0) form.pixelAspect = aspect;
  }
  const bool isHighDefinition = frame.height >= kLinesOfHighDefinition;
  const bool hasLinesOfPal = frame.height == 576 || frame.height == 288;
  const int primaries = stated(frame.color_primaries, shape.colour.primaries);
  const int transfer = stated(frame.color_trc, shape.colour.transfer);
  const int matrix = isRgb(frame) ? 0 : stated(frame.colorspace, shape.colour.matrix);
  form.primaries = primaries != 0     ? static_cast<AVColorPrimaries>(primaries)
                   : isHighDefinition ? AVCOL_PRI_BT709
                   : hasLinesOfPal    ? AVCOL_PRI_BT470BG
                                      : AVCOL_PRI_SMPTE170M;
  form.transfer = transfer != 0 ? static_cast<AVColorTransferCharacteristic>(transfer) : AVCOL_TRC_BT709;
  form.matrix = matrix != 0        ? static_cast<AVColorSpace>(matrix)
                : isHighDefinition ? AVCOL_SPC_BT709
                                   : AVCOL_SPC_SMPTE170M;
  if (isInterlaced(frame)) form.fields = isTopFieldFirst(frame) ? AV_FIELD_TT : AV_FIELD_BB;
  return form;
}

bool PictureConversion::prepareScaler(const AVFrame& frame, int height, std::string* error) {
  const bool isOneToOne = form_.fields == AV_FIELD_PROGRESSIVE;
  const int targetHeight = isOneToOne ? form_.height : form_.height / 2;
  const int matrix = isRgb(frame) || frame.colorspace == AVCOL_SPC_UNSPECIFIED ? form_.matrix : frame.colorspace;
  const int range = isFullRange(frame, {}) ? 1 : 0;
  const std::vector<int> wanted{frame.width, height, frame.format, matrix, range};
  if (scaler_ && wanted == prepared_) return true;
  SwsContext* context = sws_alloc_context();
  scaler_.reset(context);
  prepared_ = wanted;
  bool isGood = context != nullptr;
  for (const auto& [name, value] :
       std::initializer_list<std::pair<const char*, std::int64_t>>{{"srcw", frame.width},
                                                                   {"srch", height},
                                                                   {"src_format", frame.format},
                                                                   {"src_range", range},
                                                                   {"dstw", form_.width},
                                                                   {"dsth", targetHeight},
                                                                   {"dst_format", kFormat},
                                                                   {"dst_range", 0},
                                                                   {"sws_flags", SWS_BICUBIC | SWS_FULL_CHR_H_INP},
                                                                   {"threads", 0}}) {
    isGood = isGood && av_opt_set_int(context, name, value, 0) >= 0;
  }
  if (isGood) {
    sws_setColorspaceDetails(context, coefficientsOf(static_cast<AVColorSpace>(matrix)), range,
                             coefficientsOf(form_.matrix), 0, 0, 1 << 16, 1 << 16);
    isGood = sws_init_context(context, nullptr, nullptr) >= 0;
  }
  if (isGood) return true;
  scaler_.reset();
  *error = "the movie's pictures cannot be converted";
  return false;
}

std::shared_ptr<AVFrame> PictureConversion::takeFrame(std::string* error) {
  const auto free = std::ranges::find_if(pool_, [](const std::shared_ptr<AVFrame>& frame) {
    return frame.use_count() == 1 && av_frame_is_writable(frame.get()) > 0;
  });
  if (free != pool_.end()) {
    (*free)->width = form_.width;
    return *free;
  }
  auto frame = std::shared_ptr<AVFrame>(av_frame_alloc(), AvDeleter());
  if (frame) {
    frame->format = kFormat;
    frame->width = form_.codedWidth();
    frame->height = form_.height;
  }
  if (!frame || av_frame_get_buffer(frame.get(), 0) < 0) {
    *error = avErrorText(AVERROR(ENOMEM));
    return nullptr;
  }
  frame->width = form_.width;
  if (pool_.size() < kMostPooled) pool_.push_back(frame);
  return frame;
}

std::shared_ptr<AVFrame> PictureConversion::convert(const AVFrame& frame, const FrameShape& shape, std::string* error) {
  const Crop crop = cropOf(frame, shape);
  auto source = std::shared_ptr<AVFrame>(av_frame_clone(&frame), AvDeleter());
  if (!source) {
    *error = avErrorText(AVERROR(ENOMEM));
    return nullptr;
  }
  source->crop_left = static_cast<std::size_t>(crop.left);
  source->crop_top = static_cast<std::size_t>(crop.top);
  source->crop_right = static_cast<std::size_t>(frame.width - crop.left - crop.width);
  source->crop_bottom = static_cast<std::size_t>(frame.height - crop.top - crop.height);
  if (const int status = av_frame_apply_cropping(source.get(), AV_FRAME_CROP_UNALIGNED); status < 0) {
    *error = avErrorText(status);
    return nullptr;
  }
  source->color_range = isFullRange(frame, shape) ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  const bool isAlike = source->width == form_.width && source->height == form_.height;
  const bool isEven = form_.codedWidth() == form_.width;
  if (isAlike && isEven && source->format == kFormat && source->color_range == AVCOL_RANGE_MPEG) return source;

  const bool byFields = form_.fields != AV_FIELD_PROGRESSIVE && source->height % 2 == 0 && form_.height % 2 == 0;
  if (!prepareScaler(*source, byFields ? source->height / 2 : source->height, error)) return nullptr;
  std::shared_ptr<AVFrame> target = takeFrame(error);
  if (!target) return nullptr;
  int status = 0;
  if (byFields) {
    std::array<int, 4> from{};
    std::array<int, 4> to{};
    for (std::size_t i = 0; i < from.size(); ++i) {
      from[i] = source->linesize[i] * 2;
      to[i] = target->linesize[i] * 2;
    }
    for (int field = 0; field < 2 && status >= 0; ++field) {
      // A palette is not made of lines.
      auto lines = linesFrom(*source, field);
      if ((descriptorOf(*source).flags & AV_PIX_FMT_FLAG_PAL) != 0) lines[1] = source->data[1];
      status = sws_scale(scaler_.get(), lines.data(), from.data(), 0, source->height / 2,
                         linesFrom(*target, field).data(), to.data());
    }
  } else {
    status = sws_scale_frame(scaler_.get(), target.get(), source.get());
  }
  if (status >= 0) return widened(std::move(target));
  *error = avErrorText(status);
  return nullptr;
}

std::shared_ptr<AVFrame> PictureConversion::widened(std::shared_ptr<AVFrame> frame) const {
  if (form_.codedWidth() == form_.width) return frame;
  frame->width = form_.codedWidth();
  for (int y = 0; y < form_.height; ++y) {
    auto* row = reinterpret_cast<std::uint16_t*>(frame->data[0] + std::ptrdiff_t{y} * frame->linesize[0]);
    row[form_.width] = row[form_.width - 1];
  }
  return frame;
}

std::shared_ptr<AVFrame> PictureConversion::black(std::string* error) {
  constexpr std::uint16_t kBlack = 64;
  constexpr std::uint16_t kGrey = 512;
  std::shared_ptr<AVFrame> frame = takeFrame(error);
  for (std::size_t plane = 0; frame && plane < 3; ++plane) {
    const int width = plane == 0 ? form_.width : (form_.width + 1) / 2;
    for (int y = 0; y < form_.height; ++y) {
      auto* row = reinterpret_cast<std::uint16_t*>(frame->data[plane] + std::ptrdiff_t{y} * frame->linesize[plane]);
      std::fill_n(row, width, plane == 0 ? kBlack : kGrey);
    }
  }
  return frame ? widened(std::move(frame)) : nullptr;
}

}  // namespace vistrelle::platform
