#include "vistrelle/platform/media/confined/picture_transfer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>

#include "vistrelle/platform/files/size_signal_hold.h"

extern "C" {
#include <libavutil/common.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace vistrelle::platform {
namespace {

constexpr int kAlignment = 64;
// Scaling reads whole vectors; behind the last row there is room for one.
constexpr std::size_t kTail = 4096;
constexpr std::size_t kMaxRoomBytes = std::size_t{1} << 30;
constexpr int kPaletteBytes = 1024;
constexpr int kMostChromaLocation = 16;

std::size_t roundedUp(std::size_t bytes) {
  return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

int rowsOf(const AVPixFmtDescriptor& descriptor, int plane, int height) {
  const bool isChroma = plane == 1 || plane == 2;
  return isChroma ? AV_CEIL_RSHIFT(height, static_cast<int>(descriptor.log2_chroma_h)) : height;
}

/// Keeps the mapped planes of one picture.
struct MappedPlanes {
  void* address = nullptr;
  std::size_t bytes = 0;
  MappedPlanes(void* where, std::size_t size) : address(where), bytes(size) {}
  MappedPlanes(const MappedPlanes&) = delete;
  MappedPlanes& operator=(const MappedPlanes&) = delete;
  ~MappedPlanes() { ::munmap(address, bytes); }
};

/// Writes pieces of memory one after the other, many at a time: the kernel copies them straight into the pages of the
/// file, which need not be mapped and cleared first.
class GatheredWriter {
 public:
  explicit GatheredWriter(int file) : file_(file) {}

  void add(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return;
    if (count_ == pieces_.size()) flush();
    pieces_[count_++] = {const_cast<std::uint8_t*>(data), size};
  }

  void addZeros(std::size_t size) {
    static const std::array<std::uint8_t, 4096> zeros{};
    for (; size > zeros.size(); size -= zeros.size()) add(zeros.data(), zeros.size());
    add(zeros.data(), size);
  }

  /// False when something could not be written, now or before.
  bool flush() {
    iovec* piece = pieces_.data();
    while (count_ > 0 && works_) {
      const ssize_t written = ::pwritev(file_, piece, static_cast<int>(count_), offset_);
      if (written < 0 && errno == EINTR) continue;
      works_ = written > 0;
      if (!works_) break;
      offset_ += written;
      advance(&piece, static_cast<std::size_t>(written));
    }
    count_ = 0;
    return works_;
  }

 private:
  void advance(iovec** piece, std::size_t written) {
    for (; count_ > 0 && written >= (*piece)->iov_len; ++*piece, --count_) written -= (*piece)->iov_len;
    if (written == 0) return;
    (*piece)->iov_base = static_cast<std::uint8_t*>((*piece)->iov_base) + written;
    (*piece)->iov_len -= written;
  }

  int file_;
  off_t offset_ = 0;
  std::array<iovec, 512> pieces_{};
  std::size_t count_ = 0;
  bool works_ = true;
};

bool isSize(double value) {
  return std::isfinite(value) && value >= 1;
}

/// From now on nobody can write to the file. The kernel refuses that while one of its pages has a further holder:
/// passing work of the kernel's own (reclaim, migration), or for good whoever keeps it mapped to be written.
bool forbidWriting(int file) {
  using std::chrono::steady_clock;
  constexpr std::chrono::seconds kPatience{2};
  constexpr int kPauseMilliseconds = 10;
  const auto end = steady_clock::now() + kPatience;
  while (::fcntl(file, F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_SEAL) != 0) {
    if (errno != EBUSY || steady_clock::now() >= end) return false;
    ::poll(nullptr, 0, kPauseMilliseconds);
  }
  return true;
}

}  // namespace

std::optional<PlanePlaces> planePlaces(const std::string& layout, std::int32_t width, std::int32_t height) {
  const AVPixelFormat format = av_get_pix_fmt(layout.c_str());
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
  if (descriptor == nullptr || (descriptor->flags & AV_PIX_FMT_FLAG_HWACCEL) != 0) return std::nullopt;
  if (width < 1 || height < 1 || std::int64_t{width} * height > Bitmap::kMaxPixels) return std::nullopt;
  PlanePlaces places;
  places.format = format;
  places.planes = av_pix_fmt_count_planes(format);
  const bool hasPalette = (descriptor->flags & AV_PIX_FMT_FLAG_PAL) != 0;
  if (places.planes < 1 || places.planes > 4) return std::nullopt;
  for (int plane = 0; plane < places.planes; ++plane) {
    const auto i = static_cast<std::size_t>(plane);
    const int used = av_image_get_linesize(format, width, plane);
    if (used < 1) return std::nullopt;
    places.offsets[i] = places.bytes;
    places.usedBytes[i] = used;
    places.rowBytes[i] = static_cast<int>(roundedUp(static_cast<std::size_t>(used)));
    places.rows[i] = rowsOf(*descriptor, plane, height);
    places.bytes += static_cast<std::size_t>(places.rowBytes[i]) * static_cast<std::size_t>(places.rows[i]);
    if (places.bytes > kMaxRoomBytes) return std::nullopt;
  }
  if (hasPalette) {
    places.planes = 2;
    places.offsets[1] = places.bytes;
    places.usedBytes[1] = places.rowBytes[1] = kPaletteBytes;
    places.rows[1] = 1;
    places.bytes += kPaletteBytes;
  }
  places.bytes += kTail;
  return places;
}

bool writePlanes(const PlanarImage& image, const PlanePlaces& places, int file) {
  GatheredWriter writer(file);
  for (std::size_t i = 0; i < static_cast<std::size_t>(places.planes); ++i) {
    const PlanarImage::Plane& plane = image.planes[i];
    const auto used = static_cast<std::size_t>(places.usedBytes[i]);
    for (int row = 0; row < places.rows[i]; ++row) {
      const bool isThere = plane.data != nullptr;
      if (isThere) writer.add(plane.data + std::ptrdiff_t{row} * plane.rowBytes, used);
      writer.addZeros(static_cast<std::size_t>(places.rowBytes[i]) - (isThere ? used : 0));
    }
  }
  return writer.flush();
}

std::unique_ptr<PictureRoom> PictureRoom::make(const wire::PlaneShape& shape) {
  const std::optional<std::string> layout = textOf(shape.layout);
  const auto places = layout ? planePlaces(*layout, shape.width, shape.height) : std::nullopt;
  if (!places) return nullptr;
  const SizeSignalHold hold;  // the limit holds for memory files too
  std::unique_ptr<PictureRoom> room(new PictureRoom());
  room->file_ = UniqueFd(::memfd_create("picture", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!room->file_ || ::ftruncate(room->file_.get(), static_cast<off_t>(places->bytes)) != 0) return nullptr;
  // From the start nobody changes its length: what is mapped stays there.
  if (::fcntl(room->file_.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0) return nullptr;
  room->places_ = *places;
  room->layout_ = *layout;
  room->width_ = shape.width;
  room->height_ = shape.height;
  return room;
}

std::optional<PlanarImage> PictureRoom::seal() {
  if (!forbidWriting(file_.get())) return std::nullopt;
  void* address = ::mmap(nullptr, places_.bytes, PROT_READ, MAP_SHARED | MAP_POPULATE, file_.get(), 0);
  if (address == MAP_FAILED) return std::nullopt;
  auto owner = std::make_shared<const MappedPlanes>(address, places_.bytes);
  file_.close();
  PlanarImage image;
  image.layout = layout_;
  image.width = width_;
  image.height = height_;
  for (std::size_t i = 0; i < static_cast<std::size_t>(places_.planes); ++i) {
    image.planes[i] = {static_cast<const std::uint8_t*>(address) + places_.offsets[i], places_.rowBytes[i]};
  }
  image.owner = std::move(owner);
  return image;
}

wire::Code codeOf(const std::string& text) {
  wire::Code code{};
  std::memcpy(code.data(), text.data(), std::min(text.size(), code.size() - 1));
  return code;
}

std::optional<std::string> textOf(const wire::Code& code) {
  const auto end = std::find(code.begin(), code.end(), '\0');
  if (end == code.end()) return std::nullopt;
  return std::string(code.begin(), end);
}

wire::PlaneShape shapeOf(const PlanarImage& image) {
  return {codeOf(image.layout), image.width, image.height};
}

void describe(const PlanarImage& image, wire::Frame* frame) {
  frame->hasPicture = 1;
  frame->chromaLocation = image.chromaLocation;
  frame->visible = {image.visible.x, image.visible.y, image.visible.width, image.visible.height};
  frame->presentationWidth = image.presentationWidth;
  frame->presentationHeight = image.presentationHeight;
  frame->colour = {image.colour.primaries, image.colour.transfer, image.colour.matrix, image.colour.range};
  frame->isMirrored = image.orientation.mirrored ? 1 : 0;
  frame->quarterTurns = image.orientation.quarterTurnsClockwise;
  frame->isInterlaced = image.interlaced ? 1 : 0;
  frame->isTopFieldFirst = image.topFieldFirst ? 1 : 0;
}

bool applyDescription(const wire::Frame& frame, PlanarImage* image) {
  const auto [x, y, width, height] = frame.visible;
  const bool isInside = std::isfinite(x) && std::isfinite(y) && isSize(width) && isSize(height) && x >= 0 && y >= 0 &&
                        x + width <= image->width + 1e-6 && y + height <= image->height + 1e-6;
  if (!isInside || !isSize(frame.presentationWidth) || !isSize(frame.presentationHeight)) return false;
  if (frame.chromaLocation < 0 || frame.chromaLocation > kMostChromaLocation) return false;
  if (frame.quarterTurns < 0 || frame.quarterTurns > 3) return false;
  image->chromaLocation = frame.chromaLocation;
  image->visible = {x, y, width, height};
  image->presentationWidth = frame.presentationWidth;
  image->presentationHeight = frame.presentationHeight;
  image->colour = {frame.colour[0], frame.colour[1], frame.colour[2], frame.colour[3]};
  image->orientation = {frame.isMirrored != 0, frame.quarterTurns};
  image->interlaced = frame.isInterlaced != 0;
  image->topFieldFirst = frame.isTopFieldFirst != 0;
  return true;
}

wire::Time toWire(const MediaTime& time) {
  return {time.value, time.epoch, time.scale, time.flags};
}

std::optional<MediaTime> fromWire(const wire::Time& time) {
  if ((time.flags & MediaTime::kValid) == 0) return MediaTime::invalid();
  if ((time.flags & MediaTime::kIndefinite) != 0) return MediaTime::indefinite();
  if ((time.flags & MediaTime::kPositiveInfinity) != 0) return MediaTime::positiveInfinity();
  if ((time.flags & MediaTime::kNegativeInfinity) != 0) return MediaTime::negativeInfinity();
  if (time.scale < 1 || time.epoch != 0) return std::nullopt;
  MediaTime result = MediaTime::make(time.value, time.scale);
  if ((time.flags & MediaTime::kHasBeenRounded) != 0) result.flags |= MediaTime::kHasBeenRounded;
  return result;
}

}  // namespace vistrelle::platform
