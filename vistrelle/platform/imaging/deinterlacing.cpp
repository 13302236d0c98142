#include "vistrelle/platform/imaging/deinterlacing.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace vistrelle::platform {
namespace {

constexpr int kBlockShift = 3;     // combs are looked for in blocks of 8 x 8 luma samples
constexpr int kCombsOfABlock = 4;  // of its 32 samples of the second field; fewer are noise
constexpr int kThreshold = 10;     // by which a comb stands out, in 8-bit steps
constexpr int kReach = 3;          // samples that an edge may move between two lines of a field
constexpr int kFewestLines = 8;

struct PlaneShape {
  int samples = 0;  ///< in a row
  int rows = 0;
  int step = 1;  ///< from one sample to the next of its kind
  int shiftX = 0;
  int shiftY = 0;
};

/// Which blocks show two moments.
class MotionMap {
 public:
  MotionMap(int width, int height)
      : columns_((width >> kBlockShift) + 1),
        rows_((height >> kBlockShift) + 1),
        combs_(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_)) {}

  std::uint16_t* countsOfRow(int y) { return &combs_[at(0, y >> kBlockShift)]; }

  /// Spreads what was counted to the neighbours; false when nothing moves.
  bool finish() {
    moves_.assign(combs_.size(), false);
    bool any = false;
    for (int row = 0; row < rows_; ++row) {
      for (int column = 0; column < columns_; ++column) {
        if (combs_[at(column, row)] < kCombsOfABlock) continue;
        any = true;
        for (int y = std::max(0, row - 1); y <= std::min(rows_ - 1, row + 1); ++y) {
          for (int x = std::max(0, column - 1); x <= std::min(columns_ - 1, column + 1); ++x) moves_[at(x, y)] = true;
        }
      }
    }
    return any;
  }
  bool moves(int x, int y) const { return moves_[at(x >> kBlockShift, y >> kBlockShift)]; }

 private:
  std::size_t at(int column, int row) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) + static_cast<std::size_t>(column);
  }
  int columns_;
  int rows_;
  std::vector<std::uint16_t> combs_;
  std::vector<bool> moves_;
};

template <typename Sample>
class FieldPlane {
 public:
  FieldPlane(const std::uint8_t* data, std::ptrdiff_t rowBytes, const PlaneShape& shape, int keptField)
      : data_(data), rowBytes_(rowBytes), shape_(shape), firstMade_(1 - keptField) {}

  /// Counts samples that stand out from the lines above and below while the lines of their own field agree with them.
  void countCombs(MotionMap& map, int threshold) const {
    std::vector<std::uint8_t> isComb(static_cast<std::size_t>(shape_.samples));
    for (int y = firstMade_; y < shape_.rows; y += 2) {
      if (y < 2 || y + 2 >= shape_.rows) continue;
      const Sample* own = row(y);
      const Sample* above = row(y - 1);
      const Sample* below = row(y + 1);
      const Sample* before = row(y - 2);
      const Sample* after = row(y + 2);
      for (int x = 0; x < shape_.samples; ++x) {
        const int up = own[x] - above[x];
        const int down = own[x] - below[x];
        const int least = std::min(std::abs(up), std::abs(down));
        // A single line stands out from its own field as well.
        const int change = std::min(std::abs(own[x] - before[x]), std::abs(own[x] - after[x]));
        const bool stands = ((up < 0) == (down < 0)) & (least > threshold) & (2 * change < least);
        isComb[static_cast<std::size_t>(x)] = static_cast<std::uint8_t>(stands);
      }
      std::uint16_t* counts = map.countsOfRow(y << shape_.shiftY);
      for (int x = 0; x < shape_.samples; ++x) {
        counts[lumaColumn(x) >> kBlockShift] =
            static_cast<std::uint16_t>(counts[lumaColumn(x) >> kBlockShift] + isComb[static_cast<std::size_t>(x)]);
      }
    }
  }

  /// Writes the lines of the second field anew where something moves; `target` holds a copy of the plane.
  void rebuild(const MotionMap& map, std::uint8_t* target, std::ptrdiff_t targetRowBytes) const {
    for (int y = firstMade_; y < shape_.rows; y += 2) {
      auto* out = reinterpret_cast<Sample*>(target + targetRowBytes * y);
      for (int x = 0; x < shape_.samples; ++x) {
        if (map.moves(lumaColumn(x), y << shape_.shiftY)) out[x] = between(x, y);
      }
    }
  }

 private:
  const Sample* row(int y) const { return reinterpret_cast<const Sample*>(data_ + rowBytes_ * y); }
  int lumaColumn(int x) const { return (x / shape_.step) << shape_.shiftX; }

  /// Along the direction in which the lines above and below agree best; straight down by a cubic through four lines.
  Sample between(int x, int y) const {
    const bool hasAbove = y > 0;
    const bool hasBelow = y + 1 < shape_.rows;
    if (!hasAbove || !hasBelow) return row(hasAbove ? y - 1 : y + 1)[x];
    const Sample* above = row(y - 1);
    const Sample* below = row(y + 1);
    const int direction = bestDirection(above, below, x);
    if (direction != 0) return static_cast<Sample>((above[x + direction] + below[x - direction] + 1) / 2);
    const int near = above[x] + below[x];
    if (y < 3 || y + 3 >= shape_.rows) return static_cast<Sample>((near + 1) / 2);
    const int cubic = (9 * near - row(y - 3)[x] - row(y + 3)[x] + 8) >> 4;
    // Without overshoot: no new extremes between two lines.
    const auto [least, most] = std::minmax(above[x], below[x]);
    return static_cast<Sample>(std::clamp<int>(cubic, least, most));
  }

  int bestDirection(const Sample* above, const Sample* below, int x) const {
    if (shape_.step != 1 || x < kReach + 1 || x + kReach + 1 >= shape_.samples) return 0;
    const auto cost = [&](int direction) {
      int sum = 0;
      for (int i = -1; i <= 1; ++i) sum += std::abs(above[x + direction + i] - below[x - direction + i]);
      return sum;
    };
    const int straight = cost(0);
    int best = 0;
    int least = straight - straight / 4;  // a slanted direction must be clearly better
    for (int distance = 1; distance <= kReach; ++distance) {
      const int rising = cost(distance);
      const int falling = cost(-distance);
      if (std::min(rising, falling) >= least) {
        if (distance == 1) break;  // what is steeper leads to chance matches
        continue;
      }
      least = std::min(rising, falling);
      best = rising < falling ? distance : -distance;
    }
    return best;
  }

  const std::uint8_t* data_;
  std::ptrdiff_t rowBytes_;
  PlaneShape shape_;
  int firstMade_;
};

std::vector<PlaneShape> planesOf(const PlanarImage& image, const AVPixFmtDescriptor& descriptor, int sampleBytes) {
  std::vector<PlaneShape> planes;
  for (int component = 0; component < descriptor.nb_components; ++component) {
    const AVComponentDescriptor& place = descriptor.comp[component];
    const auto plane = static_cast<std::size_t>(place.plane);
    if (planes.size() <= plane) planes.resize(plane + 1);
    PlaneShape& shape = planes[plane];
    const bool isChroma = (component == 1 || component == 2) && (descriptor.flags & AV_PIX_FMT_FLAG_RGB) == 0;
    const bool isOwnPlane = isChroma && place.plane != descriptor.comp[0].plane;
    shape.shiftX = isOwnPlane ? descriptor.log2_chroma_w : 0;
    shape.shiftY = isOwnPlane ? descriptor.log2_chroma_h : 0;
    shape.rows = -(-image.height >> shape.shiftY);
    shape.step = std::max(shape.step, place.step / sampleBytes);
    shape.samples = av_image_get_linesize(av_pix_fmt_desc_get_id(&descriptor), image.width, place.plane) / sampleBytes;
  }
  // Two luma samples of a packed row share what lies between them.
  const bool isPacked = descriptor.nb_components >= 3 && descriptor.comp[0].plane == descriptor.comp[1].plane;
  if (isPacked && descriptor.log2_chroma_w > 0) planes[0].step = std::max(1, descriptor.comp[0].step / sampleBytes);
  return planes;
}

struct NewPlanes {
  std::array<std::vector<std::uint8_t>, 4> bytes;
  std::shared_ptr<const void> owner;  // of the planes that stay
};

template <typename Sample>
PlanarImage rebuilt(const PlanarImage& image, const std::vector<PlaneShape>& shapes, int threshold) {
  const int keptField = image.topFieldFirst ? 0 : 1;
  std::vector<FieldPlane<Sample>> fields;
  MotionMap map(image.width, image.height);
  for (std::size_t plane = 0; plane < shapes.size(); ++plane) {
    fields.emplace_back(image.planes[plane].data, image.planes[plane].rowBytes, shapes[plane], keptField);
    fields.back().countCombs(map, threshold);
  }
  if (!map.finish()) return image;
  PlanarImage result = image;
  const auto planes = std::make_shared<NewPlanes>();
  for (std::size_t plane = 0; plane < shapes.size(); ++plane) {
    constexpr std::size_t kPadding = 64;  // the scaler reads whole vectors
    const std::size_t rowBytes =
        (static_cast<std::size_t>(shapes[plane].samples) * sizeof(Sample) + kPadding) & ~(kPadding - 1);
    std::vector<std::uint8_t>& bytes = planes->bytes[plane];
    bytes.resize(rowBytes * static_cast<std::size_t>(shapes[plane].rows) + kPadding);
    for (int y = 0; y < shapes[plane].rows; ++y) {
      std::memcpy(bytes.data() + rowBytes * static_cast<std::size_t>(y),
                  image.planes[plane].data + std::ptrdiff_t{image.planes[plane].rowBytes} * y,
                  static_cast<std::size_t>(shapes[plane].samples) * sizeof(Sample));
    }
    fields[plane].rebuild(map, bytes.data(), static_cast<std::ptrdiff_t>(rowBytes));
    result.planes[plane] = {bytes.data(), static_cast<int>(rowBytes)};
  }
  planes->owner = image.owner;
  result.owner = planes;
  return result;
}

}  // namespace

PlanarImage deinterlaced(const PlanarImage& image, const FrameLayout& layout) {
  if (!image.interlaced || image.height < kFewestLines) return image;
  const AVPixFmtDescriptor& descriptor = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(layout.format));
  constexpr std::uint64_t kOther = AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_BAYER |
                                   AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_HWACCEL;
  const int depth = descriptor.comp[0].depth;
  const bool isForeign = ((descriptor.flags & AV_PIX_FMT_FLAG_BE) != 0) != (std::endian::native == std::endian::big);
  if ((descriptor.flags & kOther) != 0 || depth < 8 || (depth > 8 && isForeign)) return image;
  const int sampleBytes = depth > 8 ? 2 : 1;
  // Samples that stand in the upper bits of theirs (P010) count accordingly.
  const int threshold = kThreshold << std::max(0, depth + descriptor.comp[0].shift - 8);
  const std::vector<PlaneShape> shapes = planesOf(image, descriptor, sampleBytes);
  return sampleBytes == 1 ? rebuilt<std::uint8_t>(image, shapes, threshold)
                          : rebuilt<std::uint16_t>(image, shapes, threshold);
}

}  // namespace vistrelle::platform
