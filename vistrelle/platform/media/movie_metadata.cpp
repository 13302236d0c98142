#include "vistrelle/platform/media/movie_metadata.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace vistrelle::platform {
namespace {

constexpr std::size_t kMaxEntries = 1000;
constexpr std::size_t kMaxFormats = 100;
constexpr std::string_view kLyrics = "lyrics";

struct KeyName {
  std::string_view key;
  std::string_view common;
};

// QuickTime File Format, "User data list entry type".
constexpr std::array kUserData = {KeyName{"\u00a9nam", "title"},
                                  KeyName{"\u00a9aut", "author"},
                                  KeyName{"\u00a9ART", "artist"},
                                  KeyName{"\u00a9art", "artist"},
                                  KeyName{"\u00a9alb", "albumName"},
                                  KeyName{"\u00a9cpy", "copyrights"},
                                  KeyName{"\u00a9des", "description"},
                                  KeyName{"\u00a9cmt", "description"},
                                  KeyName{"\u00a9inf", "description"},
                                  KeyName{"\u00a9day", "creationDate"},
                                  KeyName{"\u00a9com", "creator"},
                                  KeyName{"\u00a9prd", "creator"},
                                  KeyName{"\u00a9dir", "creator"},
                                  KeyName{"\u00a9pub", "publisher"},
                                  KeyName{"\u00a9gen", "type"},
                                  KeyName{"\u00a9key", "subject"},
                                  KeyName{"\u00a9src", "source"},
                                  KeyName{"\u00a9mak", "make"},
                                  KeyName{"\u00a9mod", "model"},
                                  KeyName{"\u00a9swr", "software"},
                                  KeyName{"\u00a9too", "software"},
                                  KeyName{"\u00a9enc", "software"},
                                  KeyName{"\u00a9xyz", "location"},
                                  KeyName{"\u00a9lyr", kLyrics},
                                  KeyName{"name", "title"}};

// Keys of an item list, as the players that write them use them.
constexpr std::array kItemList = {
    KeyName{"\u00a9nam", "title"},        KeyName{"\u00a9ART", "artist"},  KeyName{"\u00a9aut", "author"},
    KeyName{"\u00a9alb", "albumName"},    KeyName{"\u00a9wrt", "creator"}, KeyName{"\u00a9cmt", "description"},
    KeyName{"desc", "description"},       KeyName{"ldes", "description"},  KeyName{"\u00a9des", "description"},
    KeyName{"\u00a9day", "creationDate"}, KeyName{"cprt", "copyrights"},   KeyName{"\u00a9cpy", "copyrights"},
    KeyName{"\u00a9pub", "publisher"},    KeyName{"\u00a9gen", "type"},    KeyName{"\u00a9too", "software"},
    KeyName{"\u00a9enc", "software"},     KeyName{"\u00a9mak", "make"},    KeyName{"\u00a9mod", "model"},
    KeyName{"\u00a9xyz", "location"},     KeyName{"covr", "artwork"},      KeyName{"\u00a9lyr", kLyrics}};

// 3GPP TS 26.244, 8: user data with a language of its own.
constexpr std::array kAssetBoxes = {KeyName{"titl", "title"},       KeyName{"auth", "author"},
                                    KeyName{"perf", "artist"},      KeyName{"albm", "albumName"},
                                    KeyName{"dscp", "description"}, KeyName{"gnre", "type"},
                                    KeyName{"cprt", "copyrights"}};

// ID3v2.4 native frames, 4.2; the three-letter names are those of ID3v2.2.
constexpr std::array kId3 = {
    KeyName{"TIT2", "title"},        KeyName{"TT2", "title"},        KeyName{"TPE1", "artist"},
    KeyName{"TP1", "artist"},        KeyName{"TALB", "albumName"},   KeyName{"TAL", "albumName"},
    KeyName{"TCOM", "creator"},      KeyName{"TCM", "creator"},      KeyName{"TEXT", "author"},
    KeyName{"TXT", "author"},        KeyName{"COMM", "description"}, KeyName{"COM", "description"},
    KeyName{"TCOP", "copyrights"},   KeyName{"TCR", "copyrights"},   KeyName{"TDRC", "creationDate"},
    KeyName{"TYER", "creationDate"}, KeyName{"TYE", "creationDate"}, KeyName{"TPUB", "publisher"},
    KeyName{"TPB", "publisher"},     KeyName{"TCON", "type"},        KeyName{"TCO", "type"},
    KeyName{"TLAN", "language"},     KeyName{"TLA", "language"},     KeyName{"TSSE", "software"},
    KeyName{"TSS", "software"},      KeyName{"TENC", "software"},    KeyName{"TEN", "software"},
    KeyName{"APIC", "artwork"},      KeyName{"PIC", "artwork"},      KeyName{"USLT", kLyrics},
    KeyName{"ULT", kLyrics}};

// Words, whatever their case: Matroska tags (RFC 9559, and the registry of its tags), the last part of a dotted key of
// QuickTime metadata, and the names that libavformat gives to the entries of other containers.
constexpr std::array kWords = {KeyName{"title", "title"},
                               KeyName{"displayname", "title"},
                               KeyName{"artist", "artist"},
                               KeyName{"performer", "artist"},
                               KeyName{"lead_performer", "artist"},
                               KeyName{"author", "author"},
                               KeyName{"writer", "author"},
                               KeyName{"written_by", "author"},
                               KeyName{"album", "albumName"},
                               KeyName{"creator", "creator"},
                               KeyName{"composer", "creator"},
                               KeyName{"director", "creator"},
                               KeyName{"producer", "creator"},
                               KeyName{"contributor", "contributor"},
                               KeyName{"subject", "subject"},
                               KeyName{"keywords", "subject"},
                               KeyName{"description", "description"},
                               KeyName{"comment", "description"},
                               KeyName{"summary", "description"},
                               KeyName{"synopsis", "description"},
                               KeyName{"information", "description"},
                               KeyName{"copyright", "copyrights"},
                               KeyName{"publisher", "publisher"},
                               KeyName{"date", "creationDate"},
                               KeyName{"year", "creationDate"},
                               KeyName{"creationdate", "creationDate"},
                               KeyName{"creation_time", "creationDate"},
                               KeyName{"date_recorded", "creationDate"},
                               KeyName{"date_released", "creationDate"},
                               KeyName{"date_encoded", "creationDate"},
                               KeyName{"genre", "type"},
                               KeyName{"language", "language"},
                               KeyName{"source", "source"},
                               KeyName{"identifier", "identifier"},
                               KeyName{"location", "location"},
                               KeyName{"iso6709", "location"},
                               KeyName{"recording_location", "location"},
                               KeyName{"make", "make"},
                               KeyName{"model", "model"},
                               KeyName{"software", "software"},
                               KeyName{"encoder", "software"},
                               KeyName{"encoded_by", "software"},
                               KeyName{"artwork", "artwork"},
                               KeyName{"lyrics", kLyrics}};

template <std::size_t N>
std::string_view lookUp(const std::array<KeyName, N>& table, std::string_view key) {
  const auto found = std::ranges::find(table, key, &KeyName::key);
  return found == table.end() ? std::string_view{} : found->common;
}

std::string lowerAscii(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return lower;
}

std::string_view commonKeyOf(const MetadataItem& item) {
  if (item.keySpace == "udta") return lookUp(kUserData, item.key);
  if (item.keySpace == "ilst") return lookUp(kItemList, item.key);
  if (item.keySpace == "3gpp") return lookUp(kAssetBoxes, item.key);
  if (item.keySpace == "id3") return lookUp(kId3, item.key);
  std::string_view key = item.key;
  if (item.keySpace == "mdta") key = key.substr(key.rfind('.') + 1);  // npos + 1: from the start
  return lookUp(kWords, lowerAscii(key));
}

void addOnce(List& list, std::string text, std::size_t limit) {
  const Value value(std::move(text));
  if (list.size() < limit && std::ranges::find(list, value) == list.end()) list.push_back(value);
}

}  // namespace

void addMetadata(MovieMetadata& metadata, MetadataItem item) {
  addOnce(metadata.formats, item.keySpace, kMaxFormats);
  const std::string_view common = commonKeyOf(item);
  if (common == kLyrics) {
    const auto* text = item.value.get<std::string>();
    if (text != nullptr && !metadata.lyrics) metadata.lyrics = *text;
    return;
  }
  if (common.empty() || metadata.common.size() >= kMaxEntries) return;
  Dictionary entry{{"identifier", item.keySpace + "/" + item.key},
                   {"keySpace", item.keySpace},
                   {"commonKey", common},
                   {"value", std::move(item.value)}};
  if (!item.locale.empty()) entry.emplace("locale", std::move(item.locale));
  metadata.common.emplace_back(std::move(entry));
}

void addChapterLocale(MovieMetadata& metadata, std::string locale) {
  addOnce(metadata.chapterLocales, locale.empty() ? "und" : std::move(locale), kMaxFormats);
}

}  // namespace vistrelle::platform
