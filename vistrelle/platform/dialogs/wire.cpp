#include "vistrelle/platform/dialogs/wire.h"

#include <charconv>
#include <cstring>

namespace vistrelle::platform::wire {
namespace {

constexpr std::size_t kLengthSize = sizeof(std::uint32_t);

void appendLength(std::string& bytes, std::size_t length) {
  const auto value = static_cast<std::uint32_t>(length);
  char raw[kLengthSize];
  std::memcpy(raw, &value, kLengthSize);
  bytes.append(raw, kLengthSize);
}

std::optional<std::size_t> lengthAt(std::string_view bytes, std::size_t offset) {
  if (bytes.size() < offset + kLengthSize) return std::nullopt;
  std::uint32_t value = 0;
  std::memcpy(&value, bytes.data() + offset, kLengthSize);
  return value;
}

std::optional<Texts> textsOf(std::string_view body) {
  Texts texts;
  std::size_t offset = 0;
  while (offset < body.size()) {
    const auto length = lengthAt(body, offset);
    if (!length || *length > body.size() - offset - kLengthSize) return std::nullopt;
    texts.emplace_back(body.substr(offset + kLengthSize, *length));
    offset += kLengthSize + *length;
  }
  return texts;
}

/// An optional text as one text: its absence is the empty one, its presence has a mark before it.
std::string marked(const OptionalText& text) {
  return text ? "+" + *text : std::string();
}
OptionalText unmarked(const std::string& text) {
  return text.empty() ? OptionalText() : OptionalText(text.substr(1));
}

std::string number(double value) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, value);
  return {digits, end.ptr};
}

double numberOf(const std::string& text) {
  double value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace

std::string encode(const Texts& texts) {
  std::string body;
  for (const std::string& text : texts) {
    appendLength(body, text.size());
    body += text;
  }
  std::string message;
  appendLength(message, body.size());
  return message + body;
}

std::optional<Texts> Decoder::next() {
  const auto length = lengthAt(pending_, 0);
  if (failed_ || !length) return std::nullopt;
  if (*length > kMaximumSize) {
    failed_ = true;
    return std::nullopt;
  }
  if (pending_.size() < kLengthSize + *length) return std::nullopt;
  auto texts = textsOf(std::string_view(pending_).substr(kLengthSize, *length));
  pending_.erase(0, kLengthSize + *length);
  failed_ = !texts;
  return texts;
}

Texts contentToTexts(const AlertContent& content) {
  Texts texts{content.message,
              content.informative,
              marked(content.defaultButton),
              marked(content.alternateButton),
              marked(content.otherButton),
              content.critical ? "1" : "0",
              marked(content.checkbox)};
  if (content.field) {
    texts.push_back(content.field->text);
    texts.push_back(number(content.field->width));
    texts.push_back(number(content.field->height));
  }
  return texts;
}

std::optional<AlertContent> contentFromTexts(const Texts& texts) {
  if (texts.size() != 7 && texts.size() != 10) return std::nullopt;
  AlertContent content;
  content.message = texts[0];
  content.informative = texts[1];
  content.defaultButton = unmarked(texts[2]);
  content.alternateButton = unmarked(texts[3]);
  content.otherButton = unmarked(texts[4]);
  content.critical = texts[5] == "1";
  content.checkbox = unmarked(texts[6]);
  if (texts.size() == 10) content.field = AlertField{texts[7], numberOf(texts[8]), numberOf(texts[9])};
  return content;
}

}  // namespace vistrelle::platform::wire
