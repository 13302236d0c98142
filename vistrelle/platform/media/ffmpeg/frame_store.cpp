#include "vistrelle/platform/media/ffmpeg/frame_store.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>
#include <vector>

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/imgutils.h>
}

#include "vistrelle/platform/files/size_signal_hold.h"
#include "vistrelle/platform/media/ffmpeg/waiting_room.h"

namespace vistrelle::platform {

namespace {

constexpr int kRowAlignment = 32;

std::size_t sizeOf(const AVFrame& frame) {
  const int size =
      av_image_get_buffer_size(static_cast<AVPixelFormat>(frame.format), frame.width, frame.height, kRowAlignment);
  return size < 0 ? 0 : static_cast<std::size_t>(size);
}

class TemporaryRooms : public WaitingRooms {
 public:
  UniqueFd open() override {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    if (error) return UniqueFd();
    return UniqueFd(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  }
};

bool writeWhole(int descriptor, const std::vector<std::uint8_t>& bytes, std::int64_t offset) {
  const SizeSignalHold hold;
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t written = ::pwrite(descriptor, bytes.data() + done, bytes.size() - done,
                                     static_cast<off_t>(offset + static_cast<std::int64_t>(done)));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    done += static_cast<std::size_t>(written);
  }
  return true;
}

std::int64_t roundedToPages(std::int64_t bytes) {
  const std::int64_t page = ::sysconf(_SC_PAGESIZE);
  return (bytes + page - 1) / page * page;
}

std::shared_ptr<AVFrame> propertiesOf(const AVFrame& frame) {
  std::shared_ptr<AVFrame> copy(av_frame_alloc(), AvDeleter());
  if (!copy || av_frame_copy_props(copy.get(), &frame) < 0) return nullptr;
  copy->format = frame.format;
  copy->width = frame.width;
  copy->height = frame.height;
  return copy;
}

struct Mapping {
  std::size_t length;
};

void unmap(void* opaque, std::uint8_t* data) {
  const std::unique_ptr<Mapping> mapping(static_cast<Mapping*>(opaque));
  ::munmap(data, mapping->length);
}

// The mapping becomes the frame's own buffer and lives as long as any reference to it.
bool mapInto(AVFrame& frame, int descriptor, std::int64_t offset, std::size_t bytes) {
  void* address = ::mmap(nullptr, bytes, PROT_READ, MAP_PRIVATE, descriptor, static_cast<off_t>(offset));
  if (address == MAP_FAILED) return false;
  auto* data = static_cast<std::uint8_t*>(address);
  auto mapping = std::make_unique<Mapping>(Mapping{bytes});
  frame.buf[0] = av_buffer_create(data, bytes, &unmap, mapping.get(), AV_BUFFER_FLAG_READONLY);
  if (frame.buf[0] == nullptr) {
    ::munmap(address, bytes);
    return false;
  }
  mapping.release();
  return av_image_fill_arrays(frame.data, frame.linesize, data, static_cast<AVPixelFormat>(frame.format), frame.width,
                              frame.height, kRowAlignment) >= 0;
}

}  // namespace

Seam<WaitingRooms>& waitingRooms() {
  static Seam<WaitingRooms> seam([]() -> std::shared_ptr<WaitingRooms> { return std::make_shared<TemporaryRooms>(); });
  return seam;
}

void FrameStore::keep(const std::shared_ptr<const Frame>& frame) {
  if (entries_.contains(frame->place)) return;
  Entry entry;
  entry.frame = frame;
  entry.bytes = sizeOf(*frame->picture);
  if (entry.bytes == 0) return;
  if (bytesInMemory_ + entry.bytes <= keptBytes_) {
    bytesInMemory_ += entry.bytes;
  } else if (!spill(entry)) {
    return;
  }
  entries_.emplace(frame->place, std::move(entry));
}

bool FrameStore::spill(Entry& entry) {
  if (fileFailed_) return false;
  if (!file_) file_ = std::make_unique<UniqueFd>(waitingRooms().get()->open());
  const AVFrame& picture = *entry.frame->picture;
  std::vector<std::uint8_t> bytes(entry.bytes);
  auto light = std::make_shared<Frame>(*entry.frame);
  light->picture = propertiesOf(picture);
  if (!*file_ || !light->picture ||
      av_image_copy_to_buffer(bytes.data(), static_cast<int>(bytes.size()), picture.data, picture.linesize,
                              static_cast<AVPixelFormat>(picture.format), picture.width, picture.height,
                              kRowAlignment) < 0 ||
      !writeWhole(file_->get(), bytes, fileEnd_)) {
    fileFailed_ = true;  // no folder for it or no room: those that follow are decoded again when their turn comes
    return false;
  }
  entry.frame = std::move(light);
  entry.offset = fileEnd_;
  fileEnd_ += roundedToPages(static_cast<std::int64_t>(entry.bytes));
  ++statistics_.spilled;
  return true;
}

std::shared_ptr<const Frame> FrameStore::find(std::int64_t place) {
  const auto found = entries_.find(place);
  if (found == entries_.end()) return nullptr;
  return found->second.offset < 0 ? found->second.frame : readBack(found->second);
}

std::shared_ptr<const Frame> FrameStore::readBack(const Entry& entry) const {
  auto frame = std::make_shared<Frame>(*entry.frame);
  const std::shared_ptr<AVFrame> picture = propertiesOf(*entry.frame->picture);
  if (!picture || !mapInto(*picture, file_->get(), entry.offset, entry.bytes)) return nullptr;
  frame->picture = picture;
  return frame;
}

void FrameStore::drop(std::int64_t place) {
  const auto found = entries_.find(place);
  if (found == entries_.end()) return;
  const Entry& entry = found->second;
  // A frame handed out may still be mapped: its room is given back only when all are gone.
  if (entry.offset < 0) bytesInMemory_ -= entry.bytes;
  entries_.erase(found);
}

void FrameStore::clear() {
  entries_.clear();
  bytesInMemory_ = 0;
  file_.reset();
  fileEnd_ = 0;
  fileFailed_ = false;
}

}  // namespace vistrelle::platform
