#include "vistrelle/platform/media/mov/sample_description.h"

#include "vistrelle/platform/media/mov/box_reader.h"

namespace vistrelle::platform::mov {
namespace {

constexpr std::size_t kCommonBytes = 8;          // reserved and data reference index, 14496-12, 8.5.2.2
constexpr std::size_t kVisualBytes = 70;         // 14496-12, 12.1.3
constexpr std::size_t kSoundBytes = 20;          // 14496-12, 12.2.3
constexpr std::size_t kSoundVersion1Bytes = 16;  // added by version 1 of QuickTime's sound description
constexpr std::size_t kSoundVersion2Bytes = 36;  // and by version 2
constexpr std::size_t kMaxEntries = 256;

bool isProtectedType(FourCc type) {
  return type == fourCc("encv") || type == fourCc("enca") || type == fourCc("drmi") || type == fourCc("drms");
}

/// The boxes inside a sample entry, behind the fields of its kind.
std::span<const std::uint8_t> childrenOf(std::span<const std::uint8_t> entry, FourCc handler) {
  Cursor cursor(entry);
  cursor.skip(kCommonBytes);
  if (handler == fourCc("vide")) {
    cursor.skip(kVisualBytes);
  } else if (handler == fourCc("soun")) {
    const std::uint16_t version = cursor.u16();
    cursor.skip(kSoundBytes - 2);
    if (version == 1) cursor.skip(kSoundVersion1Bytes);
    if (version == 2) cursor.skip(kSoundVersion2Bytes);
  } else {
    return {};
  }
  return cursor.bytes(cursor.remaining());
}

Fraction readFraction(Cursor& cursor) {
  Fraction fraction;
  fraction.numerator = cursor.i32();
  fraction.denominator = cursor.i32();
  return fraction;
}

bool isMeaningful(const CleanAperture& aperture) {
  for (const Fraction& part : {aperture.width, aperture.height, aperture.horizontalOffset, aperture.verticalOffset}) {
    if (part.denominator <= 0) return false;
  }
  return aperture.width.numerator > 0 && aperture.height.numerator > 0;
}

std::optional<CleanAperture> readCleanAperture(std::span<const std::uint8_t> content) {
  Cursor cursor(content);
  CleanAperture aperture;
  aperture.width = readFraction(cursor);
  aperture.height = readFraction(cursor);
  aperture.horizontalOffset = readFraction(cursor);
  aperture.verticalOffset = readFraction(cursor);
  if (!cursor.isGood() || !isMeaningful(aperture)) return std::nullopt;
  return aperture;
}

std::optional<PixelAspect> readPixelAspect(std::span<const std::uint8_t> content) {
  Cursor cursor(content);
  PixelAspect aspect;
  aspect.horizontal = cursor.u32();
  aspect.vertical = cursor.u32();
  if (!cursor.isGood() || aspect.horizontal == 0 || aspect.vertical == 0) return std::nullopt;
  return aspect;
}

SampleEntry readEntry(const Box& box, FourCc handler) {
  SampleEntry entry;
  entry.type = box.type;
  if (handler == fourCc("vide")) {
    Cursor cursor(box.content);  // 14496-12, 12.1.3
    cursor.skip(kCommonBytes + 16);
    entry.width = cursor.u16();
    entry.height = cursor.u16();
  }
  BoxList children(childrenOf(box.content, handler));
  while (const std::optional<Box> child = children.next()) {
    if (child->type == fourCc("clap")) entry.cleanAperture = readCleanAperture(child->content);
    if (child->type == fourCc("pasp")) entry.pixelAspect = readPixelAspect(child->content);
  }
  return entry;
}

void useFirstEntry(const Box& box, Track& track) {
  const SampleEntry& first = track.sampleEntries.front();
  track.sampleEntry = first.type;
  track.cleanAperture = first.cleanAperture;
  track.pixelAspect = first.pixelAspect;
  Cursor cursor(box.content);
  cursor.skip(6);
  const std::uint16_t reference = cursor.u16();
  if (cursor.isGood()) track.dataReferenceIndex = reference;
}

}  // namespace

void readSampleDescriptions(std::span<const std::uint8_t> content, Track& track) {
  Cursor cursor(content);
  readFullBoxHeader(cursor);
  cursor.skip(4);  // the entry count; the box's length decides
  BoxList entries(cursor.bytes(cursor.remaining()));
  while (const std::optional<Box> entry = entries.next()) {
    if (track.sampleEntries.size() < kMaxEntries) {
      track.sampleEntries.push_back(readEntry(*entry, track.handler));
      if (track.sampleEntries.size() == 1) useFirstEntry(*entry, track);
    }
    // A protection scheme (14496-12, 8.12.1) makes any entry a protected one, whatever its own type says.
    if (isProtectedType(entry->type) || findBox(childrenOf(entry->content, track.handler), fourCc("sinf"))) {
      track.isProtected = true;
    }
  }
}

}  // namespace vistrelle::platform::mov
