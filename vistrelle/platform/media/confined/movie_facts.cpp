#include "vistrelle/platform/media/confined/movie_facts.h"

#include <cstdint>
#include <string>
#include <utility>
#include <variant>

#include "vistrelle/platform/media/confined/fact_bytes.h"

namespace vistrelle::platform {
namespace {

// What addMetadata and addChapterLocale let through.
constexpr std::uint32_t kMostEntries = 1000;
constexpr std::uint32_t kMostNames = 100;
constexpr std::int64_t kLargestNumber = std::int64_t{1} << 32;

enum class Kind : std::uint8_t { text, whole, positive, single, real, data };

/// False for a value that no metadata has.
bool write(FactWriter& writer, const Value& value) {
  const auto put = [&writer](Kind kind, auto number) {
    writer.number(static_cast<std::uint8_t>(kind));
    writer.number(number);
    return true;
  };
  if (const auto* number = value.get<std::int64_t>()) return put(Kind::whole, *number);
  if (const auto* number = value.get<std::uint64_t>()) return put(Kind::positive, *number);
  if (const auto* number = value.get<float>()) return put(Kind::single, *number);
  if (const auto* number = value.get<double>()) return put(Kind::real, *number);
  if (const auto* text = value.get<std::string>()) {
    writer.number(static_cast<std::uint8_t>(Kind::text));
    writer.text(*text);
    return true;
  }
  if (const auto* data = value.get<Data>()) {
    writer.number(static_cast<std::uint8_t>(Kind::data));
    writer.bytes(*data);
    return true;
  }
  return false;
}

Value readValue(FactReader& reader) {
  switch (static_cast<Kind>(reader.number<std::uint8_t>())) {
    case Kind::text:
      return reader.text();
    case Kind::whole:
      return reader.number<std::int64_t>();
    case Kind::positive:
      return reader.number<std::uint64_t>();
    case Kind::single:
      return reader.number<float>();
    case Kind::real:
      return reader.number<double>();
    case Kind::data:
      return reader.bytes();
  }
  reader.reject();
  return "";
}

std::string textAt(const Dictionary& entry, std::string_view key) {
  const auto found = entry.find(key);
  const auto* text = found == entry.end() ? nullptr : found->second.get<std::string>();
  return text == nullptr ? std::string() : *text;
}

/// False when the entry has something that cannot be written.
bool write(FactWriter& writer, const Dictionary& entry) {
  const std::string space = textAt(entry, "keySpace");
  const std::string identifier = textAt(entry, "identifier");  // "space/key"
  const auto value = entry.find("value");
  if (value == entry.end() || identifier.size() <= space.size()) return false;
  writer.text(space);
  writer.text(std::string_view(identifier).substr(space.size() + 1));
  writer.text(textAt(entry, "locale"));
  return write(writer, value->second);
}

void writeNames(FactWriter& writer, const List& names) {
  writer.number(static_cast<std::uint32_t>(names.size()));
  for (const Value& name : names) {
    const auto* text = name.get<std::string>();
    writer.text(text == nullptr ? std::string_view() : std::string_view(*text));
  }
}

List readNames(FactReader& reader) {
  List names;
  const std::uint32_t count = reader.count(kMostNames);
  for (std::uint32_t i = 0; i < count && reader.isGood(); ++i) names.emplace_back(reader.text());
  return names;
}

void write(FactWriter& writer, const std::optional<std::int64_t>& number) {
  writer.number(static_cast<std::uint8_t>(number.has_value()));
  if (number) writer.number(*number);
}

/// A number of bits, samples, channels or degrees.
std::optional<std::int64_t> readNumber(FactReader& reader) {
  if (!reader.flag()) return std::nullopt;
  const auto number = reader.number<std::int64_t>();
  if (number < 0 || number > kLargestNumber) reader.reject();
  return number;
}

void write(FactWriter& writer, const std::optional<FrameRate>& rate) {
  writer.number(static_cast<std::uint8_t>(rate.has_value()));
  if (!rate) return;
  writer.number(rate->numerator);
  writer.number(rate->denominator);
  writer.number(static_cast<std::uint8_t>(rate->varies.has_value()));
  if (rate->varies) writer.number(static_cast<std::uint8_t>(*rate->varies));
}

std::optional<FrameRate> readRate(FactReader& reader) {
  if (!reader.flag()) return std::nullopt;
  FrameRate rate;
  rate.numerator = reader.number<std::int64_t>();
  rate.denominator = reader.number<std::int64_t>();
  if (rate.numerator < 0 || rate.denominator < 1) reader.reject();
  if (reader.flag()) rate.varies = reader.flag();
  return rate;
}

}  // namespace

Data bytesOf(const MovieMetadata& metadata, std::size_t most) {
  FactWriter writer;
  writeNames(writer, metadata.formats);
  writeNames(writer, metadata.chapterLocales);
  const std::size_t beforeLyrics = writer.size();
  writer.optionalText(metadata.lyrics);
  if (writer.size() > most) {
    writer.cutTo(beforeLyrics);
    writer.optionalText({});
  }
  // An entry stands behind a 1, and the last one is followed by a 0.
  constexpr std::size_t kEnd = 1;
  for (const Value& value : metadata.common) {
    const auto* entry = value.get<Dictionary>();
    const std::size_t before = writer.size();
    writer.number(std::uint8_t{1});
    if (entry == nullptr || !write(writer, *entry) || writer.size() + kEnd > most) writer.cutTo(before);
  }
  writer.number(std::uint8_t{0});
  return writer.take();
}

std::optional<MovieMetadata> metadataFrom(std::span<const std::byte> bytes) {
  FactReader reader(bytes);
  MovieMetadata metadata;
  metadata.formats = readNames(reader);
  for (Value& locale : readNames(reader)) addChapterLocale(metadata, std::move(*locale.get<std::string>()));
  metadata.lyrics = reader.optionalText();
  for (std::uint32_t entries = 0; reader.flag(); ++entries) {
    MetadataItem item;
    item.keySpace = reader.text();
    item.key = reader.text();
    item.locale = reader.text();
    item.value = readValue(reader);
    if (!reader.isGood()) break;
    addMetadata(metadata, std::move(item));  // what the key stands for is not the worker's to say
    if (entries >= kMostEntries || metadata.common.size() != entries + std::size_t{1}) reader.reject();
  }
  if (!reader.isComplete()) return std::nullopt;
  return metadata;
}

Data bytesOf(const TrackDetails& details) {
  FactWriter writer;
  for (const OptionalText* text : {&details.codec, &details.profile, &details.language, &details.pixelFormat,
                                   &details.colourPrimaries, &details.colourTransfer, &details.colourMatrix,
                                   &details.colourRange, &details.hdrClass, &details.startTimecode}) {
    writer.optionalText(*text);
  }
  for (const auto* number : {&details.bitDepth, &details.rotation, &details.sampleRate, &details.channels}) {
    write(writer, *number);
  }
  writer.number(static_cast<std::uint8_t>(details.isMirrored));
  write(writer, details.frameRate);
  writer.time(details.headerDuration);
  writer.time(details.decodedDuration);
  return writer.take();
}

std::optional<TrackDetails> detailsFrom(std::span<const std::byte> bytes) {
  FactReader reader(bytes);
  TrackDetails details;
  for (OptionalText* text : {&details.codec, &details.profile, &details.language, &details.pixelFormat,
                             &details.colourPrimaries, &details.colourTransfer, &details.colourMatrix,
                             &details.colourRange, &details.hdrClass, &details.startTimecode}) {
    *text = reader.optionalText();
  }
  for (auto* number : {&details.bitDepth, &details.rotation, &details.sampleRate, &details.channels}) {
    *number = readNumber(reader);
  }
  details.isMirrored = reader.flag();
  details.frameRate = readRate(reader);
  details.headerDuration = reader.time();
  details.decodedDuration = reader.time();
  const std::int64_t turn = details.rotation.value_or(0);
  if (turn % 90 != 0 || turn >= 360 || !reader.isComplete()) return std::nullopt;
  return details;
}

}  // namespace vistrelle::platform
