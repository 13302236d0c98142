#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "vistrelle/platform/files/unique_fd.h"
#include "vistrelle/platform/imaging/picture.h"
#include "vistrelle/platform/media/confined/messages.h"
#include "vistrelle/platform/media/media_time.h"

namespace vistrelle::platform {

/// Where the planes of a picture lie in a room of memory. Follows from the pixel layout and the size alone, so both
/// sides work it out for themselves.
struct PlanePlaces {
  int format = -1;  ///< libavutil's number of the pixel layout
  int planes = 0;
  std::array<std::size_t, 4> offsets{};
  std::array<int, 4> rowBytes{};
  std::array<int, 4> usedBytes{};  ///< of a row
  std::array<int, 4> rows{};
  std::size_t bytes = 0;  ///< of the whole room
};

/// Nothing for unknown layouts, those without planes in memory, senseless sizes and more than the limits allow.
std::optional<PlanePlaces> planePlaces(const std::string& layout, std::int32_t width, std::int32_t height);

/// Writes the planes of `image` to a file of places.bytes, the gaps between rows as zeros. False when that fails.
bool writePlanes(const PlanarImage& image, const PlanePlaces& places, int file);

/// A piece of memory for one picture that another process fills. Counted as nobody's file; read once, when sealed.
class PictureRoom {
 public:
  /// Nothing when the shape is refused or memory is short.
  static std::unique_ptr<PictureRoom> make(const wire::PlaneShape& shape);
  int descriptor() const { return file_.get(); }
  std::size_t bytes() const { return places_.bytes; }
  /// Ends all writing and maps the planes. Nothing when somebody could still write.
  std::optional<PlanarImage> seal();

 private:
  PictureRoom() = default;
  UniqueFd file_;
  PlanePlaces places_;
  std::string layout_;
  std::int32_t width_ = 0;
  std::int32_t height_ = 0;
};

wire::Code codeOf(const std::string& text);
/// Nothing when no zero byte ends it.
std::optional<std::string> textOf(const wire::Code& code);

wire::PlaneShape shapeOf(const PlanarImage& image);
/// All but the planes.
void describe(const PlanarImage& image, wire::Frame* frame);
/// The rest of `image`, whose planes are there. False when something of it cannot be true of any picture.
bool applyDescription(const wire::Frame& frame, PlanarImage* image);

wire::Time toWire(const MediaTime& time);
/// Nothing for a time that no arithmetic gives.
std::optional<MediaTime> fromWire(const wire::Time& time);

}  // namespace vistrelle::platform
