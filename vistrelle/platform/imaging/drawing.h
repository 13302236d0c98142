#pragma once

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {

/// Origin at the lower left, y upward.
struct DrawingRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  /// The empty rectangle as a source means the whole picture.
  bool isEmpty() const { return width == 0 && height == 0; }
};

enum class CompositeOperation {
  sourceOver = 2,      ///< the picture on what is there
  destinationOver = 6  ///< the picture beneath what is there
};

/// Draws on a raster. Coordinates are points: one point is the raster's pixel size by its point size, dpi / 72 pixels.
/// What lies outside the raster is cut off.
class DrawingContext {
 public:
  /// The raster must outlive the context; its point size is taken now.
  explicit DrawingContext(Bitmap& raster);

  /// Replaces what is in the rectangle by the colour, alpha included. Components are cut to 0..1.
  void fill(const DrawingRect& rect, const Colour& colour);

  /// Draws the part `source` of the picture (in the picture's own pixels as shown) scaled into `destination`; of a
  /// source that reaches beyond the picture only what exists is drawn, where it belongs. `fraction` multiplies the
  /// picture's alpha. False when the picture cannot be read; the raster is unchanged then.
  bool draw(const Picture& picture, const DrawingRect& destination, const DrawingRect& source,
            CompositeOperation operation, float fraction);

 private:
  bool drawChecked(const Picture& picture, const DrawingRect& destination, const DrawingRect& source,
                   CompositeOperation operation, float fraction);

  Bitmap& raster_;
  double pixelsPerPointX_;
  double pixelsPerPointY_;
};

}  // namespace vistrelle::platform
