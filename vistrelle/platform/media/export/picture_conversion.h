#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"

namespace vistrelle::platform {

/// What all frames of a ProRes track have in common.
struct PictureForm {
  int width = 0;
  int height = 0;
  AVRational pixelAspect{1, 1};
  AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
  AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
  AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
  AVFieldOrder fields = AV_FIELD_PROGRESSIVE;

  /// What frames are wide that go to the encoder: it loses the last colours of an odd width, all of them where only
  /// they are in a macroblock.
  int codedWidth() const { return width + width % 2; }
};

/// The form that a frame asks for. Its visible rectangle, so far as it begins on whole chroma samples, is the picture.
/// What it does not say of its colours counts as BT.709 from 720 lines up and as BT.601 below; RGB gets those too.
PictureForm formOf(const AVFrame& frame, const FrameShape& shape);

/// Brings frames into 4:2:2 of ten bits in video range and into one form: cropped to the visible rectangle, scaled
/// where the size differs, the fields of interlaced frames apart. Alpha is dropped. The last column of an odd width
/// comes twice (PictureForm::codedWidth).
class PictureConversion {
 public:
  explicit PictureConversion(const PictureForm& form) : form_(form) {}

  /// Empty with an error text on failure. Nothing is copied where the frame has the form already.
  std::shared_ptr<AVFrame> convert(const AVFrame& frame, const FrameShape& shape, std::string* error);
  std::shared_ptr<AVFrame> black(std::string* error);

 private:
  bool prepareScaler(const AVFrame& frame, int height, std::string* error);
  std::shared_ptr<AVFrame> takeFrame(std::string* error);
  std::shared_ptr<AVFrame> widened(std::shared_ptr<AVFrame> frame) const;

  PictureForm form_;
  AvPtr<SwsContext> scaler_;
  std::vector<int> prepared_;                   // what scaler_ was made for
  std::vector<std::shared_ptr<AVFrame>> pool_;  // used again when nobody else holds their pictures
};

}  // namespace vistrelle::platform
