#include "vistrelle/platform/media/confined/fact_bytes.h"

#include <cstring>

#include "vistrelle/platform/media/confined/picture_transfer.h"

namespace vistrelle::platform {

void FactWriter::append(const void* data, std::size_t size) {
  const auto* first = static_cast<const std::byte*>(data);
  bytes_.insert(bytes_.end(), first, first + size);
}

void FactWriter::text(std::string_view text) {
  number(static_cast<std::uint64_t>(text.size()));
  append(text.data(), text.size());
}

void FactWriter::optionalText(const OptionalText& value) {
  number(static_cast<std::uint8_t>(value.has_value()));
  if (value) text(*value);
}

void FactWriter::bytes(std::span<const std::byte> bytes) {
  number(static_cast<std::uint64_t>(bytes.size()));
  append(bytes.data(), bytes.size());
}

void FactWriter::time(const MediaTime& time) {
  const wire::Time numbers = toWire(time);
  append(&numbers, sizeof numbers);
}

void FactReader::reject() {
  isGood_ = false;
  left_ = {};
}

void FactReader::copyTo(void* place, std::size_t size) {
  if (left_.size() < size) return reject();
  std::memcpy(place, left_.data(), size);
  left_ = left_.subspan(size);
}

bool FactReader::flag() {
  const auto value = number<std::uint8_t>();
  if (value > 1) reject();
  return value == 1;
}

std::uint32_t FactReader::count(std::uint32_t most) {
  const auto value = number<std::uint32_t>();
  if (value <= most) return value;
  reject();
  return 0;
}

std::span<const std::byte> FactReader::part() {
  const auto size = number<std::uint64_t>();
  if (size > left_.size()) reject();
  if (!isGood_) return {};
  const std::span<const std::byte> found = left_.first(static_cast<std::size_t>(size));
  left_ = left_.subspan(found.size());
  return found;
}

std::string FactReader::text() {
  const std::span<const std::byte> found = part();
  return {reinterpret_cast<const char*>(found.data()), found.size()};
}

OptionalText FactReader::optionalText() {
  if (!flag()) return std::nullopt;
  return text();
}

Data FactReader::bytes() {
  const std::span<const std::byte> found = part();
  return {found.begin(), found.end()};
}

MediaTime FactReader::time() {
  wire::Time numbers;
  copyTo(&numbers, sizeof numbers);
  if (const auto time = fromWire(numbers)) return *time;
  reject();
  return MediaTime::invalid();
}

}  // namespace vistrelle::platform
