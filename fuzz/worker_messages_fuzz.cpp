// What a worker may send, as the tool takes it: messages through a real channel, records put together from them,
// metadata and details, and a picture whose room, planes and description are the worker's. A picture that is believed
// can be drawn, facts that are believed are the same when they are sent again.

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdint>

#include "fuzz/support.h"
#include "vistrelle/platform/imaging/drawing.h"
#include "vistrelle/platform/media/confined/channel.h"
#include "vistrelle/platform/media/confined/movie_facts.h"
#include "vistrelle/platform/media/confined/picture_transfer.h"
#include "vistrelle/platform/media/confined/pieces.h"
#include "vistrelle/platform/media/confined/worker_answers.h"

namespace {

using namespace vistrelle::platform;

// Layouts of every kind; others come as texts of the input's.
constexpr std::array<const char*, 22> kLayouts{
    "yuv420p", "yuv422p10le", "yuva444p12le", "nv12",      "p010le",      "yuyv422", "gray",  "gray16be",
    "rgb24",   "bgra",        "rgb565le",     "gbrpf32le", "gbrap16le",   "pal8",    "monow", "xyz12le",
    "ya8",     "yuvj411p",    "uyyvyy411",    "x2rgb10le", "bayer_rggb8", "yuv410p"};
constexpr int kMostSide = 96;

struct Pair {
  UniqueFd one;
  UniqueFd other;
};

/// One record of bytes as it arrives on the tool's end.
bool received(const Pair& pair, std::string_view bytes, Message* message) {
  if (::send(pair.one.get(), bytes.data(), bytes.size(), MSG_DONTWAIT) < 0) return false;
  const Channel channel(UniqueFd(::dup(pair.other.get())));
  const Channel::Status status = channel.receive(message, 0, false);
  require(status != Channel::Status::timeout || bytes.empty());
  return status == Channel::Status::message;
}

void takeRecords(Input& input) {
  Pair pair;
  require(Channel::makePair(&pair.one, &pair.other));
  MovieRecordReader reader;
  for (int i = 0; i < 16 && input.remaining() > 0; ++i) {
    // A kind, so that the fuzzer need not guess four bytes, then the body.
    const std::uint32_t kind = input.take<std::uint8_t>();
    const std::size_t length = input.take<std::uint8_t>();
    std::string bytes(reinterpret_cast<const char*>(&kind), sizeof kind);
    bytes += input.text(length);
    Message message;
    if (!received(pair, bytes, &message)) return;
    require(message.kind() == kind);
    if (const auto size = sizeOf(message)) require(size->width >= 0 && std::isfinite(size->height));
    if (!reader.take(message)) return;
  }
  const MovieRecord& record = reader.record();
  require(record.tracks.size() <= record.expectedTracks);
  (void)record.duration.description();
  for (const TrackRecord& track : record.tracks) {
    require(track.type <= MediaType::other && track.formats.size() <= 64);
    (void)(track.range.end() + record.duration).description();
  }
}

std::span<const std::byte> bytesOf(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

void takeMetadata(std::string_view sent) {
  const auto metadata = metadataFrom(bytesOf(sent));
  if (!metadata) return;
  require(metadata->common.size() <= 1000 && metadata->formats.size() <= 101 && metadata->chapterLocales.size() <= 100);
  const Data again = bytesOf(*metadata, kMostMetadataBytes);
  const auto same = metadataFrom(again);
  require(same && bytesOf(*same, kMostMetadataBytes) == again);
}

void takeDetails(std::string_view sent) {
  const auto details = detailsFrom(bytesOf(sent));
  if (!details) return;
  require(!details->frameRate || details->frameRate->denominator > 0);
  const Data again = bytesOf(*details);
  const auto same = detailsFrom(again);
  require(same && bytesOf(*same) == again);
}

void takePicture(Input& input) {
  wire::PlaneShape shape;
  const std::size_t layout = input.take<std::uint8_t>();
  shape.layout = layout < 200 ? codeOf(kLayouts[layout % kLayouts.size()]) : input.take<wire::Code>();
  shape.width = input.take<std::int32_t>();
  shape.height = input.take<std::int32_t>();
  if (layout % 2 == 0) {
    shape.width &= 63;
    shape.height &= 63;
  }
  // Larger ones are only measured: drawing them takes long.
  const auto name = textOf(shape.layout);
  const auto places = planePlaces(name.value_or(""), shape.width, shape.height);
  if (shape.width > kMostSide || shape.height > kMostSide) return;
  const auto room = PictureRoom::make(shape);
  require(name.has_value() || room == nullptr);
  require((room != nullptr) == (name.has_value() && places.has_value()));
  if (!room) return;
  const auto frame = input.take<wire::Frame>();
  const std::string_view pixels = input.rest();
  require(::pwrite(room->descriptor(), pixels.data(), std::min(pixels.size(), room->bytes()), 0) >= 0);
  auto image = room->seal();
  require(image.has_value());
  const auto time = fromWire(frame.time);
  if (time) require(!time->isNumeric() || time->scale > 0);
  if (!applyDescription(frame, &*image)) return;
  const Picture picture(std::move(*image));
  const auto raster = Bitmap::make(24, 16);
  DrawingContext(*raster).draw(picture, {0, 0, 24, 16}, {}, CompositeOperation::sourceOver, 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  require(silenced);
  Input input(data, size);
  const auto what = input.take<std::uint8_t>();
  if (what == 'm') {
    takeMetadata(input.rest());
  } else if (what == 'd') {
    takeDetails(input.rest());
  } else if (what % 2 == 0) {
    takeRecords(input);
  } else {
    takePicture(input);
  }
  return 0;
}
