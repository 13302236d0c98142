// Metadata of real movies, and of headers put together box by box.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tests/platform/media/information_clips.h"
#include "tests/platform/media/movie_loading.h"
#include "vistrelle/platform/media/id3.h"
#include "vistrelle/platform/media/mov/language.h"
#include "vistrelle/platform/media/mov/metadata_reader.h"

namespace vistrelle::testing {
namespace {

using platform::Data;
using platform::Dictionary;
using platform::List;
using platform::MovieMetadata;
using platform::Value;

using Words = std::vector<std::string>;

/// The entry of an identifier; empty when there is none.
Dictionary entryOf(const MovieMetadata& metadata, const std::string& identifier) {
  for (const Value& value : metadata.common) {
    const Dictionary& entry = *value.get<Dictionary>();
    if (entry.at("identifier") == Value(identifier)) return entry;
  }
  return {};
}

Dictionary expected(const std::string& space, const std::string& key, const std::string& common, const Value& value,
                    const std::string& locale = {}) {
  Dictionary entry{{"identifier", space + "/" + key}, {"keySpace", space}, {"commonKey", common}, {"value", value}};
  if (!locale.empty()) entry.emplace("locale", locale);
  return entry;
}

List texts(const Words& words) {
  return List(words.begin(), words.end());
}

MovieMetadata metadataOf(const std::string& path) {
  const auto movie = loaded(path);
  if (!movie) throw std::runtime_error("cannot be loaded: " + path);
  return movie->metadata();
}

const Words kTags{"-metadata", "title=Ein Titel äöü", "-metadata", "artist=Somebody", "-metadata", "album=Collected",
                  "-metadata", "comment=A remark",    "-metadata", "copyright=2026",  "-metadata", "lyrics=La\nla la"};
const Words kVideo{"-c:v", "mpeg4"};

TEST(Metadata, ItemList) {
  const ScratchFolder folder;
  const MovieMetadata metadata = metadataOf(makeClip(folder, "a.mp4", patternInput("160x120") + kVideo + kTags));
  EXPECT_EQ(metadata.formats, texts({"ilst"}));
  EXPECT_EQ(entryOf(metadata, "ilst/©nam"), expected("ilst", "©nam", "title", "Ein Titel äöü"));
  EXPECT_EQ(entryOf(metadata, "ilst/©ART"), expected("ilst", "©ART", "artist", "Somebody"));
  EXPECT_EQ(entryOf(metadata, "ilst/©alb"), expected("ilst", "©alb", "albumName", "Collected"));
  EXPECT_EQ(entryOf(metadata, "ilst/©cmt"), expected("ilst", "©cmt", "description", "A remark"));
  EXPECT_EQ(entryOf(metadata, "ilst/cprt"), expected("ilst", "cprt", "copyrights", "2026"));
  EXPECT_EQ(metadata.lyrics, "La\nla la");
}

TEST(Metadata, UserData) {
  const ScratchFolder folder;
  MovieBytes bytes(makeClip(folder, "a.mov", patternInput("160x120") + kVideo + kTags));
  const std::string words = "La\nla la";  // ffmpeg writes no lyrics here
  bytes.append({"moov", "udta"}, boxOf("\xa9lyr", bigEndian(words.size(), 2) + bigEndian(0x55c4, 2) + words));
  const MovieMetadata metadata = metadataOf(bytes.write(folder, "b.mov"));
  EXPECT_EQ(metadata.formats, texts({"udta"}));
  const Dictionary title = entryOf(metadata, "udta/©nam");
  ASSERT_FALSE(title.empty());
  EXPECT_EQ(title.at("commonKey"), Value("title"));
  EXPECT_EQ(title.at("value"), Value("Ein Titel äöü"));
  EXPECT_EQ(entryOf(metadata, "udta/©ART").at("value"), Value("Somebody"));
  EXPECT_EQ(metadata.lyrics, "La\nla la");
}

TEST(Metadata, KeyedMetadata) {
  const ScratchFolder folder;
  const MovieMetadata metadata = metadataOf(
      makeClip(folder, "a.mov",
               patternInput("160x120") + kVideo + kTags +
                   Words{"-metadata", "org.example.location.ISO6709=+48.1+011.6/", "-movflags", "use_metadata_tags"}));
  EXPECT_NE(std::ranges::find(metadata.formats, Value("mdta")), metadata.formats.end());
  EXPECT_EQ(entryOf(metadata, "mdta/title"), expected("mdta", "title", "title", "Ein Titel äöü"));
  EXPECT_EQ(entryOf(metadata, "mdta/org.example.location.ISO6709").at("commonKey"), Value("location"));
  EXPECT_EQ(metadata.lyrics, "La\nla la");
}

TEST(Metadata, AssetBoxes) {
  const ScratchFolder folder;
  const MovieMetadata metadata = metadataOf(
      makeClip(folder, "a.3gp",
               patternInput("176x144") + Words{"-c:v", "h263", "-metadata", "title=Small", "-metadata", "artist=Who"}));
  EXPECT_NE(std::ranges::find(metadata.formats, Value("3gpp")), metadata.formats.end());
  EXPECT_EQ(entryOf(metadata, "3gpp/titl").at("value"), Value("Small"));
  EXPECT_EQ(entryOf(metadata, "3gpp/titl").at("commonKey"), Value("title"));
  EXPECT_EQ(entryOf(metadata, "3gpp/perf").at("commonKey"), Value("artist"));
}

TEST(Metadata, Matroska) {
  const ScratchFolder folder;
  const MovieMetadata metadata = metadataOf(
      makeClip(folder, "a.mkv",
               patternInput("160x120") + kVideo + kTags + Words{"-metadata", "description-deu=Eine Beschreibung"}));
  EXPECT_EQ(metadata.formats, texts({"matroska"}));
  const auto byKey = [&metadata](const char* common) {
    for (const Value& value : metadata.common) {
      if (value.get<Dictionary>()->at("commonKey") == Value(common)) return *value.get<Dictionary>();
    }
    return Dictionary();
  };
  EXPECT_EQ(byKey("title").at("value"), Value("Ein Titel äöü"));
  EXPECT_EQ(byKey("artist").at("keySpace"), Value("matroska"));
  EXPECT_EQ(byKey("artist").at("value"), Value("Somebody"));
  EXPECT_EQ(metadata.lyrics, "La\nla la");
}

TEST(Metadata, Id3) {
  const ScratchFolder folder;
  const Words sound{"-f", "lavfi", "-i", "sine=duration=0.5", "-c:a", "libmp3lame"};
  for (const char* version : {"3", "4"}) {
    SCOPED_TRACE(version);
    const MovieMetadata metadata = metadataOf(
        makeClip(folder, std::string("a") + version + ".mp3", sound + kTags + Words{"-id3v2_version", version}));
    EXPECT_EQ(metadata.formats, texts({"id3"}));
    EXPECT_EQ(entryOf(metadata, "id3/TIT2"), expected("id3", "TIT2", "title", "Ein Titel äöü"));
    EXPECT_EQ(entryOf(metadata, "id3/TPE1"), expected("id3", "TPE1", "artist", "Somebody"));
    EXPECT_EQ(entryOf(metadata, "id3/TALB"), expected("id3", "TALB", "albumName", "Collected"));
    EXPECT_EQ(entryOf(metadata, "id3/TCOP"), expected("id3", "TCOP", "copyrights", "2026"));
  }
}

TEST(Metadata, OtherContainersByTheirName) {
  const MovieMetadata asf = metadataOf(dataFile("testWMV.wmv"));
  EXPECT_EQ(asf.formats, texts({"asf"}));
  EXPECT_EQ(entryOf(asf, "asf/title").at("value"), Value("support.microsoft.com"));
  EXPECT_EQ(metadataOf(dataFile("sample.avi")).formats, texts({"avi"}));
}

TEST(Metadata, SampleMovieWithArtworkAndLyrics) {
  const MovieMetadata metadata = metadataOf(dataFile("metadata.mp4"));
  const Dictionary artwork = entryOf(metadata, "ilst/covr");
  ASSERT_FALSE(artwork.empty());
  const Data* picture = artwork.at("value").get<Data>();
  ASSERT_TRUE(picture != nullptr && picture->size() > 4);
  EXPECT_EQ(picture->at(0), std::byte{0xff});
  EXPECT_EQ(picture->at(1), std::byte{0xd8});
  EXPECT_EQ(metadata.lyrics, "Lyrics");
}

TEST(Metadata, AMovieThatSaysNothing) {
  const MovieMetadata metadata = metadataOf(dataFile("sample_h264.ts"));
  EXPECT_TRUE(metadata.common.empty());
  EXPECT_TRUE(metadata.formats.empty());
  EXPECT_TRUE(metadata.chapterLocales.empty());
  EXPECT_FALSE(metadata.lyrics);
}

TEST(Metadata, ChapterLanguages) {
  const ScratchFolder folder;
  EXPECT_EQ(metadataOf(dataFile("sample_with_chapters.mkv")).chapterLocales, texts({"eng", "deu"}));
  EXPECT_EQ(metadataOf(dataFile("sample_with_chapters.mp4")).chapterLocales, texts({"eng"}));
  EXPECT_TRUE(metadataOf(dataFile("metadata.mp4")).chapterLocales.empty());
  const std::string chapters = folder.write("chapters.txt",
                                            ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=200\ntitle=One\n"
                                            "[CHAPTER]\nTIMEBASE=1/1000\nSTART=200\nEND=400\ntitle=Two\n");
  const Words arguments = patternInput("160x120") + Words{"-i", chapters, "-map_chapters", "1"} + kVideo;
  EXPECT_EQ(metadataOf(makeClip(folder, "a.mov", arguments)).chapterLocales.size(), 1U);
  // A list in the user data names no language.
  MovieBytes bytes(makeClip(folder, "a.mp4", arguments));
  ASSERT_TRUE(bytes.has("chpl"));
  bytes.replace("chap", "skip");
  EXPECT_EQ(metadataOf(bytes.write(folder, "list.mp4")).chapterLocales, texts({"und"}));
  // Behind the media, found through the index of elements.
  const Words reserved = arguments + Words{"-reserve_index_space", "0"};
  EXPECT_FALSE(metadataOf(makeClip(folder, "a.mkv", reserved)).chapterLocales.empty());
}

MovieMetadata read(const std::string& movie) {
  return platform::mov::readMovieMetadata({reinterpret_cast<const std::uint8_t*>(movie.data()), movie.size()});
}

std::string userText(const std::string& text, std::uint16_t language) {
  return bigEndian(text.size(), 2) + bigEndian(language, 2) + text;
}

constexpr std::uint16_t kGerman = (4 << 10) + (5 << 5) + 21;  // "deu"

TEST(UserDataBoxes, OneTextForEachLanguage) {
  const MovieMetadata metadata =
      read(boxOf("udta", boxOf("\xa9nam", userText("Caf\x8e", 1) + userText("Kaffee ä", kGerman) +
                                              userText(std::string("\xfe\xff\0K\0\xe4", 6), kGerman))));
  ASSERT_EQ(metadata.common.size(), 3U);
  EXPECT_EQ(metadata.common[0], Value(expected("udta", "©nam", "title", "Café", "fra")));  // Mac Roman
  EXPECT_EQ(metadata.common[1], Value(expected("udta", "©nam", "title", "Kaffee ä", "deu")));
  EXPECT_EQ(metadata.common[2], Value(expected("udta", "©nam", "title", "Kä", "deu")));
}

TEST(UserDataBoxes, ControlCharactersStayAsTheyAre) {
  const std::string raw = "a\x1b[31m\tb\r\n\x01";
  EXPECT_EQ(entryOf(read(boxOf("udta", boxOf("\xa9nam", userText(raw, kGerman)))), "udta/©nam").at("value"),
            Value(raw));
}

TEST(UserDataBoxes, DamagedLengthsAreCut) {
  const MovieMetadata metadata =
      read(boxOf("udta", boxOf("\xa9nam", bigEndian(500, 2) + bigEndian(kGerman, 2) + "short")));
  EXPECT_EQ(entryOf(metadata, "udta/©nam").at("value"), Value("short"));
  EXPECT_TRUE(read(boxOf("udta", boxOf("\xa9nam", "ab"))).common.empty());
  EXPECT_TRUE(read(bigEndian(3) + "udta").common.empty());
}

TEST(UserDataBoxes, NoMoreThanAThousandEntries) {
  std::string many;
  for (int i = 0; i < 3000; ++i) many += userText("t", kGerman);
  EXPECT_EQ(read(boxOf("udta", boxOf("\xa9nam", many))).common.size(), 1000U);
}

std::string item(const std::string& type, std::uint32_t kind, const std::string& value) {
  return boxOf(type, boxOf("data", bigEndian(kind) + bigEndian(0) + value));
}

std::string itemList(const std::string& items) {
  return boxOf(
      "udta", boxOf("meta", bigEndian(0) + boxOf("hdlr", bigEndian(0) + bigEndian(0) + "mdir" + std::string(13, '\0')) +
                                boxOf("ilst", items)));
}

TEST(ItemListBoxes, EveryKindOfValue) {
  const auto valueOf = [](std::uint32_t kind, const std::string& stored) -> Value {
    const Dictionary entry = entryOf(read(itemList(item("\xa9nam", kind, stored))), "ilst/©nam");
    return entry.empty() ? Value("nothing") : entry.at("value");
  };
  EXPECT_EQ(valueOf(1, "text"), Value("text"));
  EXPECT_EQ(valueOf(2, std::string("\0t\0\xe4", 4)), Value("tä"));
  EXPECT_EQ(valueOf(21, "\xff\xfe"), Value(std::int64_t{-2}));
  EXPECT_EQ(valueOf(22, "\xff\xfe"), Value(std::uint64_t{0xfffe}));
  EXPECT_EQ(valueOf(23, bigEndian(0x40490fdb)), Value(3.14159274F));
  EXPECT_EQ(valueOf(24, bigEndian(0x4000000000000000, 8)), Value(2.0));
  EXPECT_EQ(valueOf(13, "\x01\x02"), Value(Data{std::byte{1}, std::byte{2}}));
  EXPECT_EQ(valueOf(21, ""), Value("nothing"));
  EXPECT_EQ(valueOf(23, "abc"), Value("nothing"));
  EXPECT_EQ(valueOf(1, std::string((1 << 20) + 1, 'x')), Value("nothing"));
}

TEST(ItemListBoxes, FreeKeysCountForTheFormatOnly) {
  const std::string free =
      boxOf("----", boxOf("mean", bigEndian(0) + "org.example") + boxOf("name", bigEndian(0) + "MOOD") +
                        boxOf("data", bigEndian(1) + bigEndian(0) + "calm"));
  const MovieMetadata metadata = read(itemList(free));
  EXPECT_TRUE(metadata.common.empty());
  EXPECT_EQ(metadata.formats, texts({"ilst"}));
}

TEST(KeyedBoxes, IndexesOutsideTheKeysAreLeftOut) {
  const std::string keys = boxOf("keys", bigEndian(0) + bigEndian(1) + boxOf("mdta", "org.example.title"));
  const auto meta = [&keys](std::uint32_t index) {
    return boxOf("meta", boxOf("hdlr", bigEndian(0) + bigEndian(0) + "mdta" + std::string(13, '\0')) + keys +
                             boxOf("ilst", item(bigEndian(index), 1, "A title")));
  };
  EXPECT_EQ(entryOf(read(meta(1)), "mdta/org.example.title").at("commonKey"), Value("title"));
  EXPECT_TRUE(read(meta(0)).common.empty());
  EXPECT_TRUE(read(meta(2)).common.empty());
}

TEST(Languages, NumbersAndPackedLetters) {
  EXPECT_EQ(platform::mov::languageText(0), "eng");
  EXPECT_EQ(platform::mov::languageText(11), "jpn");
  EXPECT_EQ(platform::mov::languageText(94), "epo");
  EXPECT_EQ(platform::mov::languageText(128), "cym");
  EXPECT_EQ(platform::mov::languageText(300), "und");
  EXPECT_EQ(platform::mov::languageText(kGerman), "deu");
  EXPECT_EQ(platform::mov::languageText(0x7fff), "und");
}

std::string synchsafe(std::size_t size) {
  return bigEndian((size & 0x7f) | (size >> 7 & 0x7f) << 8 | (size >> 14 & 0x7f) << 16 | (size >> 21 & 0x7f) << 24);
}

MovieMetadata id3Of(int version, const std::string& frames, char flags = 0) {
  const std::string file =
      std::string("ID3") + static_cast<char>(version) + '\0' + flags + synchsafe(frames.size()) + frames;
  MovieMetadata metadata;
  platform::readId3(
      std::ssize(file),
      [&file](std::int64_t offset, std::span<std::uint8_t> buffer) {
        const auto at = static_cast<std::size_t>(offset);
        const std::size_t count = at >= file.size() ? 0 : std::min(buffer.size(), file.size() - at);
        std::memcpy(buffer.data(), file.data() + at, count);
        return static_cast<std::int64_t>(count);
      },
      metadata);
  return metadata;
}

std::string frame3(const std::string& name, const std::string& content) {
  return name + bigEndian(content.size()) + std::string(2, '\0') + content;
}

TEST(Id3Tags, Version22) {
  const MovieMetadata metadata = id3Of(2, std::string("TT2") + std::string("\0\0\5", 3) + std::string("\0Caf\xe9", 5));
  EXPECT_EQ(entryOf(metadata, "id3/TT2").at("value"), Value("Café"));
}

TEST(Id3Tags, EncodingsAndCommentsWithALanguage) {
  const std::string wide(
      "\1\xff\xfe"
      "T\0\xe4\0",
      7);
  const std::string comment = std::string("\0eng", 4) + std::string("about\0", 6) + "A remark";
  const std::string words = std::string("\3deu", 4) + std::string("\0", 1) + "Lä";
  const MovieMetadata metadata = id3Of(3, frame3("TIT2", wide) + frame3("COMM", comment) + frame3("USLT", words));
  EXPECT_EQ(entryOf(metadata, "id3/TIT2").at("value"), Value("Tä"));
  EXPECT_EQ(entryOf(metadata, "id3/COMM"), expected("id3", "COMM", "description", "A remark", "eng"));
  EXPECT_EQ(metadata.lyrics, "Lä");
}

TEST(Id3Tags, UnsynchronisedTag) {
  const std::string content = std::string("\0\xff", 2) + "ab";
  std::string stored = frame3("TIT2", content);
  stored.insert(stored.find('\xff') + 1, 1, '\0');
  EXPECT_EQ(entryOf(id3Of(3, stored, '\x80'), "id3/TIT2").at("value"), Value("ÿab"));
}

TEST(Id3Tags, PicturesAreTheirBytes) {
  const std::string content = std::string("\0image/png\0", 11) + "\3" + std::string("front\0", 6) + "PNGDATA";
  const Value value = entryOf(id3Of(3, frame3("APIC", content)), "id3/APIC").at("value");
  ASSERT_TRUE(value.get<Data>());
  EXPECT_EQ(value.get<Data>()->size(), 7U);
}

TEST(Id3Tags, DamagedSizesEndTheTag) {
  EXPECT_TRUE(id3Of(3, "TIT2" + bigEndian(1000) + std::string(2, '\0') + "abc").common.empty());
  EXPECT_TRUE(id3Of(3, "TI").common.empty());
  EXPECT_TRUE(id3Of(9, frame3("TIT2", std::string("\0abc", 4))).formats.empty());
}

}  // namespace
}  // namespace vistrelle::testing
