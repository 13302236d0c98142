#include "vistrelle/platform/media/mov/metadata_reader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vistrelle/platform/media/mov/box_reader.h"
#include "vistrelle/platform/media/mov/language.h"
#include "vistrelle/platform/text/encoding.h"

namespace vistrelle::platform::mov {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kMaxItems = 1000;
constexpr std::size_t kMaxValueBytes = std::size_t{1} << 20;
constexpr std::uint16_t kFirstPackedLanguage = 0x400;

std::string_view viewOf(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string utf16Text(Bytes bytes) {
  const std::string_view view = viewOf(bytes);
  const bool isMarked = view.starts_with("\xff\xfe") || view.starts_with("\xfe\xff");
  return decodeText(view, isMarked ? kUtf16Encoding : kUtf16BeEncoding).value_or(std::string());
}

Data dataOf(Bytes bytes) {
  const std::span<const std::byte> view = std::as_bytes(bytes);
  return {view.begin(), view.end()};
}

class MetadataReader {
 public:
  MovieMetadata read(Bytes movie) {
    BoxList boxes(movie);
    while (const std::optional<Box> box = boxes.next()) {
      if (box->type == fourCc("udta")) readUserData(box->content);
      if (box->type == fourCc("meta")) readMeta(box->content);
    }
    return std::move(metadata_);
  }

 private:
  void add(std::string space, std::string key, std::string locale, Value value) {
    if (++items_ > kMaxItems) return;
    if (locale == "und") locale.clear();
    addMetadata(metadata_, {std::move(space), std::move(key), std::move(locale), std::move(value)});
  }

  void readUserData(Bytes content) {
    BoxList boxes(content);
    while (const std::optional<Box> box = boxes.next()) {
      if (items_ > kMaxItems) return;
      if (box->type == fourCc("meta")) {
        readMeta(box->content);
      } else if (box->type >> 24 == 0xa9) {
        readLocalisedTexts(*box);
      } else if (box->type == fourCc("name")) {
        add("udta", "name", {}, std::string(viewOf(box->content.first(std::min(box->content.size(), kMaxValueBytes)))));
      } else {
        readAssetBox(*box);
      }
    }
  }

  /// QuickTime File Format, "User data text strings and language codes": texts, each with its length and language.
  void readLocalisedTexts(const Box& box) {
    Cursor cursor(box.content);
    while (cursor.remaining() >= 4 && items_ <= kMaxItems) {
      const std::size_t length = cursor.u16();
      const std::uint16_t language = cursor.u16();
      const Bytes bytes = cursor.bytes(std::min(length, cursor.remaining()));
      if (length == 0) return;
      add("udta", textOf(box.type), languageText(language), userText(bytes, language));
    }
  }

  /// Numbered languages are written in a Macintosh encoding, packed ones in UTF-8 or marked UTF-16. UTF-8 is met under
  /// both.
  static std::string userText(Bytes bytes, std::uint16_t language) {
    const std::string_view view = viewOf(bytes);
    if (view.starts_with("\xff\xfe") || view.starts_with("\xfe\xff")) return utf16Text(bytes);
    if (language < kFirstPackedLanguage && !decodeText(view, kUtf8Encoding)) {
      return decodeText(view, kMacRomanEncoding).value_or(std::string(view));
    }
    return std::string(view);
  }

  /// 3GPP TS 26.244, 8.2: a language and a text that ends with a zero.
  void readAssetBox(const Box& box) {
    switch (box.type) {
      case fourCc("titl"):
      case fourCc("auth"):
      case fourCc("perf"):
      case fourCc("albm"):
      case fourCc("dscp"):
      case fourCc("gnre"):
      case fourCc("cprt"):
        break;
      default:
        return;
    }
    Cursor cursor(box.content);
    readFullBoxHeader(cursor);
    const std::uint16_t language = cursor.u16();
    const Bytes bytes = cursor.bytes(std::min(cursor.remaining(), kMaxValueBytes));
    if (!cursor.isGood()) return;
    const std::string_view view = viewOf(bytes);
    std::string text = view.starts_with("\xfe\xff") ? utf16Text(bytes) : std::string(view);
    text.resize(std::min(text.size(), text.find('\0')));
    add("3gpp", textOf(box.type), languageText(language), std::move(text));
  }

  /// 14496-12, 8.11.1 is a full box, QuickTime's is none: where no box begins behind four bytes it is QuickTime's.
  void readMeta(Bytes content) {
    if (!findBox(content, fourCc("hdlr")) && content.size() > 4) content = content.subspan(4);
    const std::optional<Box> handler = findBox(content, fourCc("hdlr"));
    const std::optional<Box> list = findBox(content, fourCc("ilst"));
    if (!handler || !list) return;
    Cursor cursor(handler->content);
    cursor.skip(8);
    if (cursor.u32() == fourCc("mdta")) {
      const std::optional<Box> keys = findBox(content, fourCc("keys"));
      if (keys) readItems(list->content, readKeys(keys->content), true);
    } else {
      readItems(list->content, {}, false);
    }
  }

  /// QuickTime File Format, "Metadata item keys atom".
  static std::vector<std::string> readKeys(Bytes content) {
    std::vector<std::string> keys;
    Cursor cursor(content);
    cursor.skip(8);
    BoxList entries(cursor.bytes(cursor.remaining()));  // size, namespace, key: laid out as a box
    while (const std::optional<Box> entry = entries.next()) {
      if (keys.size() >= kMaxItems) break;
      keys.emplace_back(viewOf(entry->content));
    }
    return keys;
  }

  void readItems(Bytes content, const std::vector<std::string>& keys, bool isKeyed) {
    BoxList items(content);
    while (const std::optional<Box> item = items.next()) {
      if (items_ > kMaxItems) return;
      std::string key;
      if (isKeyed) {
        if (item->type == 0 || item->type > keys.size()) continue;
        key = keys[item->type - 1];
      } else {
        key = item->type == fourCc("----") ? freeKey(item->content) : textOf(item->type);
      }
      BoxList parts(item->content);
      while (const std::optional<Box> part = parts.next()) {
        if (part->type == fourCc("data")) readValue(isKeyed ? "mdta" : "ilst", key, part->content);
      }
    }
  }

  static std::string freeKey(Bytes content) {
    std::string key = "----";
    for (const FourCc type : {fourCc("mean"), fourCc("name")}) {
      const std::optional<Box> part = findBox(content, type);
      if (part && part->content.size() > 4) key += ":" + std::string(viewOf(part->content.subspan(4)));
    }
    return key;
  }

  /// QuickTime File Format, "Value atom" and "Well-known types".
  void readValue(const char* space, const std::string& key, Bytes content) {
    Cursor cursor(content);
    const std::uint32_t type = cursor.u32();
    cursor.skip(2);  // the country
    const std::uint16_t language = cursor.u16();
    const Bytes bytes = cursor.bytes(cursor.remaining());
    if (!cursor.isGood() || bytes.size() > kMaxValueBytes) return;
    const std::string locale = language == 0 ? std::string() : languageText(language);
    if (const std::optional<Value> value = valueOf(type, bytes)) add(space, key, locale, *value);
  }

  static std::optional<Value> valueOf(std::uint32_t type, Bytes bytes) {
    Cursor cursor(bytes);
    switch (type) {
      case 1:
      case 4:
        return std::string(viewOf(bytes));
      case 2:
      case 5:
        return utf16Text(bytes);
      case 21:
      case 22: {
        if (bytes.empty() || bytes.size() > 8) return std::nullopt;
        std::uint64_t number = 0;
        for (const std::uint8_t byte : bytes) number = number << 8 | byte;
        if (type == 22) return number;
        const unsigned unused = 64 - 8 * static_cast<unsigned>(bytes.size());
        return std::bit_cast<std::int64_t>(number << unused) >> unused;
      }
      case 23:
        if (bytes.size() != 4) return std::nullopt;
        return std::bit_cast<float>(cursor.u32());
      case 24:
        if (bytes.size() != 8) return std::nullopt;
        return std::bit_cast<double>(cursor.u64());
      default:
        return dataOf(bytes);
    }
  }

  MovieMetadata metadata_;
  std::size_t items_ = 0;
};

/// Boxes that a demuxer may look into for lists of items.
bool holdsBoxes(FourCc type) {
  constexpr std::array kTypes{fourCc("moov"), fourCc("trak"), fourCc("mdia"), fourCc("minf"), fourCc("stbl"),
                              fourCc("udta"), fourCc("meta"), fourCc("edts"), fourCc("dinf"), fourCc("tref"),
                              fourCc("mvex"), fourCc("moof"), fourCc("traf"), fourCc("sinf"), fourCc("ipro"),
                              fourCc("wave"), fourCc("schi")};
  return std::ranges::find(kTypes, type) != kTypes.end();
}

std::size_t itemsIn(Bytes content, int depth) {
  constexpr int kMostDepth = 16;
  std::size_t count = 0;
  BoxList boxes(content);
  while (const std::optional<Box> box = boxes.next()) {
    if (box->type == fourCc("ilst")) {
      for (BoxList items(box->content); items.next();) ++count;
    } else if (holdsBoxes(box->type) && depth < kMostDepth) {
      const bool isFullBox = box->type == fourCc("meta") && !findBox(box->content, fourCc("hdlr"));
      count += itemsIn(box->content.subspan(isFullBox ? std::min<std::size_t>(4, box->content.size()) : 0), depth + 1);
    }
  }
  return count;
}

}  // namespace

std::size_t metadataItemCount(Bytes content) {
  return itemsIn(content, 0);
}

MovieMetadata readMovieMetadata(Bytes movie) {
  return MetadataReader().read(movie);
}

}  // namespace vistrelle::platform::mov
