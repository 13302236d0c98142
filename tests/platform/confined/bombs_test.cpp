// Small files that ask for enormous work or memory: a clear line, little memory, and soon.

#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/platform/confined/confined_movies.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle::testing {
namespace {

using platform::MediaTime;

std::string big(std::uint64_t value, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) text += static_cast<char>(value >> shift & 0xff);
  return text;
}
std::string big32(std::uint64_t value) {
  return big(value, 4);
}

std::string box(const std::string& kind, const std::string& content) {
  return big32(content.size() + 8) + kind + content;
}

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

/// The parts of a movie of one video track, each of which a bomb may replace.
struct MovieParts {
  std::string codec = "mp4v";
  int width = 64;
  int height = 48;
  std::string stts = big32(0) + big32(1) + big32(1) + big32(1000);
  std::string stsc = big32(0) + big32(1) + big32(1) + big32(1) + big32(1);
  std::string stsz = big32(0) + big32(1) + big32(1);
  std::string stco = big32(0) + big32(1) + big32(48);
  std::string moreTables;
  std::string edits;
  std::string references;
  std::string moreOfTrack;
  std::string moreOfMovie;
  int tracks = 1;
};

std::string trackOf(const MovieParts& parts, int number) {
  const std::string matrix =
      big32(0x10000) + repeated(big32(0), 3) + big32(0x10000) + repeated(big32(0), 3) + big32(0x40000000);
  const std::string header = box("tkhd", big32(3) + repeated(big32(0), 2) + big32(static_cast<std::uint64_t>(number)) +
                                             big32(0) + big32(1000) + repeated(big32(0), 4) + matrix +
                                             big32(static_cast<std::uint64_t>(parts.width) << 16) +
                                             big32(static_cast<std::uint64_t>(parts.height) << 16));
  const std::string entry =
      box(parts.codec, repeated(big32(0), 1) + big32(1) + repeated(big32(0), 4) +
                           big(static_cast<std::uint64_t>(parts.width), 2) +
                           big(static_cast<std::uint64_t>(parts.height), 2) + big32(0x480000) + big32(0x480000) +
                           big32(0) + big(1, 2) + std::string(32, '\0') + big(24, 2) + big(0xffff, 2));
  const std::string tables = box("stsd", big32(0) + big32(1) + entry) + box("stts", parts.stts) +
                             box("stsc", parts.stsc) + box("stsz", parts.stsz) + box("stco", parts.stco) +
                             parts.moreTables;
  const std::string information = box("vmhd", big32(1) + repeated(big32(0), 2)) +
                                  box("dinf", box("dref", big32(0) + big32(1) + box("url ", big32(1)))) +
                                  box("stbl", tables);
  const std::string media = box("mdhd", big32(0) + repeated(big32(0), 2) + big32(1000) + big32(1000) + big32(0)) +
                            box("hdlr", repeated(big32(0), 2) + "vide" + repeated(big32(0), 3) + std::string(1, '\0')) +
                            box("minf", information);
  const std::string edits = parts.edits.empty() ? "" : box("edts", box("elst", parts.edits));
  const std::string references = parts.references.empty() ? "" : box("tref", parts.references);
  return box("trak", header + edits + references + box("mdia", media) + parts.moreOfTrack);
}

std::string movieOf(const MovieParts& parts, const std::string& samples = std::string(4096, '\0')) {
  const std::string header =
      box("mvhd", big32(0) + repeated(big32(0), 2) + big32(1000) + big32(1000) + repeated(big32(0), 20));
  std::string tracks;
  for (int i = 0; i < parts.tracks; ++i) tracks += trackOf(parts, i + 1);
  return box("ftyp", "qt  " + big32(0)) + box("mdat", samples) + box("moov", header + tracks + parts.moreOfMovie);
}

/// A PNG picture of one colour that claims this size; what its rows are is not told.
std::string pngOf(std::uint32_t width, std::uint32_t height) {
  const auto chunk = [](const std::string& kind, const std::string& content) {
    const std::string both = kind + content;
    const uLong sum = crc32(0, reinterpret_cast<const Bytef*>(both.data()), static_cast<uInt>(both.size()));
    return big32(content.size()) + both + big32(sum);
  };
  const std::string zeros(1 << 20, '\0');
  std::string packed(compressBound(zeros.size()), '\0');
  uLongf size = packed.size();
  compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(zeros.data()), zeros.size());
  packed.resize(size);
  return "\x89PNG\r\n\x1a\n" + chunk("IHDR", big32(width) + big32(height) + std::string("\x08\x06\0\0\0", 5)) +
         chunk("IDAT", packed) + chunk("IEND", "");
}

std::string movieOfPng(std::uint32_t width, std::uint32_t height, int stated) {
  const std::string picture = pngOf(width, height);
  MovieParts parts;
  parts.codec = "png ";
  parts.width = parts.height = stated;
  parts.stsz = big32(0) + big32(picture.size()) + big32(1);
  parts.stco = big32(0) + big32(1) + big32(24);
  return movieOf(parts, picture);
}

std::string packedMovieHeader(std::uint32_t claimed) {
  const std::string zeros(32 << 20, '\0');
  std::string packed(compressBound(zeros.size()), '\0');
  uLongf size = packed.size();
  compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(zeros.data()), zeros.size());
  packed.resize(size);
  return box("ftyp", "qt  " + big32(0)) +
         box("moov", box("cmov", box("dcom", "zlib") + box("cmvd", big32(claimed) + packed)));
}

std::string nested(const std::string& kind, int depth, const std::string& head = "") {
  std::string inner;
  for (int i = 0; i < depth; ++i) inner = box(kind, head + inner);
  return inner;
}

std::string fragments(std::uint32_t samples, int runs) {
  MovieParts parts;
  parts.stts = parts.stsc = parts.stco = repeated(big32(0), 2);
  parts.stsz = repeated(big32(0), 3);
  parts.moreOfMovie = box("mvex", box("trex", big32(0) + big32(1) + big32(1) + big32(1) + big32(1) + big32(0)));
  const std::string run = box("trun", big32(0) + big32(samples));
  return movieOf(parts) + box("moof", box("mfhd", big32(0) + big32(1)) +
                                          box("traf", box("tfhd", big32(0) + big32(1)) + repeated(run, runs)));
}

/// An element of Matroska with an eight-byte size.
std::string element(const std::string& id, const std::string& content, std::uint64_t claimed = 0) {
  return id + big(0x0100000000000000ULL | (claimed > 0 ? claimed : content.size()), 8) + content;
}

std::string matroska(const std::string& segment) {
  const std::string header = element("\x1a\x45\xdf\xa3", element("\x42\x82", "matroska"));
  return header + element("\x18\x53\x80\x67", segment);
}

std::string oggStreams(int count) {
  std::string pages;
  for (int i = 0; i < count; ++i) {
    std::string page = std::string("OggS\0\2", 6) + std::string(8, '\0') + big32(static_cast<std::uint64_t>(i)) +
                       std::string(4, '\0') + std::string(4, '\0') + std::string("\1\x1e", 2) + "\1vorbis" +
                       std::string(23, '\1');
    pages += page;
  }
  return pages;
}

/// User data with a list of so many items, each of a key of its own.
std::string itemList(int count) {
  const std::string handler = box("hdlr", repeated(big32(0), 2) + "mdir" + std::string(13, '\0'));
  const std::string value = box("data", big32(1) + big32(0) + "v");
  std::string items;
  for (int i = 0; i < count; ++i) {
    items += box("----", box("mean", big32(0) + "m") + box("name", big32(0) + std::to_string(i)) + value);
  }
  return box("udta", box("meta", big32(0) + handler + box("ilst", items)));
}

/// So many tags, each of a name of its own.
std::string matroskaTags(int count) {
  std::string tags;
  for (int i = 0; i < count; ++i) {
    tags += element("\x67\xc8", element("\x45\xa3", std::to_string(i)) + element("\x44\x87", "v"));
  }
  return element("\x12\x54\xc3\x67", element("\x73\x73", tags));
}

struct Bomb {
  const char* name;
  const char* extension;
  std::function<std::string()> make;
};

MovieParts with(std::function<void(MovieParts&)> change) {
  MovieParts parts;
  change(parts);
  return parts;
}

std::vector<Bomb> bombs() {
  return {
      {"a_billion_samples_of_one_size", "mov",
       [] {
         return movieOf(with([](MovieParts& p) {
           p.stsz = big32(0) + big32(1) + big32(1000000000);
           p.stsc = big32(0) + big32(1) + big32(1) + big32(1000000000) + big32(1);
           p.stts = big32(0) + big32(1) + big32(1000000000) + big32(1);
         }));
       }},
      {"a_hundred_million_samples", "mov",
       [] {
         return movieOf(with([](MovieParts& p) {
           p.stsz = big32(0) + big32(1) + big32(100000000);
           p.stsc = big32(0) + big32(1) + big32(1) + big32(100000000) + big32(1);
           p.stts = big32(0) + big32(1) + big32(100000000) + big32(1);
         }));
       }},
      {"tables_of_four_billion_entries", "mov",
       [] {
         return movieOf(with([](MovieParts& p) {
           p.stts = p.stsc = p.stco = big32(0) + big32(0xffffffff);
           p.stsz = big32(0) + big32(0) + big32(0xffffffff);
         }));
       }},
      {"composition_offsets", "mov",
       [] {
         return movieOf(with([](MovieParts& p) {
           p.moreTables =
               box("ctts", big32(0) + big32(2) + big32(0x7fffffff) + big32(1) + big32(0x7fffffff) + big32(1));
         }));
       }},
      {"edits_without_end", "mov",
       [] {
         return movieOf(with([](MovieParts& p) {
           p.edits = big32(0) + big32(200000) + repeated(big32(1) + big32(0) + big32(0x10000), 200000);
         }));
       }},
      {"boxes_in_boxes", "mov",
       [] { return movieOf(with([](MovieParts& p) { p.moreOfMovie = nested("udta", 20000); })); }},
      {"tracks_in_tracks", "mov", [] { return box("ftyp", "qt  " + big32(0)) + box("moov", nested("trak", 20000)); }},
      {"ten_thousand_tracks", "mov", [] { return movieOf(with([](MovieParts& p) { p.tracks = 10000; })); }},
      {"a_track_of_chapters_named_ten_thousand_times", "mov",
       [] {
         return movieOf(with([](MovieParts& p) {
                          p.stsz = big32(0) + big32(100000) + big32(1);
                          p.stco = big32(0) + big32(1) + big32(24);
                          p.references = box("chap", repeated(big32(1), 10000));
                        }),
                        std::string(100000, '\0'));
       }},
      {"packed_header", "mov", [] { return packedMovieHeader(0x7fffffff); }},
      {"packed_header_of_its_size", "mov", [] { return packedMovieHeader(32 << 20); }},
      {"fragment_of_four_billion_samples", "mp4", [] { return fragments(0xffffffff, 1); }},
      {"many_long_fragments", "mp4", [] { return fragments(3000000, 50); }},
      {"eleven_million_samples", "mov",
       [] {
         return movieOf(with([](MovieParts& p) {
           p.stsz = big32(0) + big32(1) + big32(11000000);
           p.stsc = big32(0) + big32(1) + big32(1) + big32(11000000) + big32(1);
           p.stts = big32(0) + big32(1) + big32(11000000) + big32(1);
         }));
       }},
      {"four_million_samples", "mov",
       [] {
         return movieOf(with([](MovieParts& p) {
           p.stsz = big32(0) + big32(1) + big32(4000000);
           p.stsc = big32(0) + big32(1) + big32(1) + big32(4000000) + big32(1);
           p.stts = big32(0) + big32(1) + big32(4000000) + big32(1);
         }));
       }},
      {"picture_of_a_billion_pixels", "mov", [] { return movieOfPng(32000, 32000, 64); }},
      {"picture_of_a_quarter_billion_pixels", "mov", [] { return movieOfPng(16000, 16000, 64); }},
      {"largest_sides", "mov", [] { return movieOfPng(0x7fffffff, 0x7fffffff, 65535); }},
      {"items_of_metadata", "mov",
       [] { return movieOf(with([](MovieParts& p) { p.moreOfMovie = itemList(40000); })); }},
      {"items_of_metadata_in_a_track", "mov",
       [] { return movieOf(with([](MovieParts& p) { p.moreOfTrack = itemList(40000); })); }},
      {"items_of_metadata_outside_the_movie", "mov", [] { return movieOf({}) + itemList(40000); }},
      {"tags_of_matroska", "mkv", [] { return matroska(matroskaTags(40000)); }},
      {"tags_of_matroska_behind_an_index", "mkv",
       [] {
         const std::string index =
             element("\x11\x4d\x9b\x74",
                     element("\x4d\xbb", element("\x53\xab", "\x12\x54\xc3\x67") + element("\x53\xac", big32(1000))));
         const std::string gap = element("\xec", std::string(1000 - index.size() - 21, '\0'));
         return matroska(index + gap + element("\x1f\x43\xb6\x75", "") + matroskaTags(40000));
       }},
      {"matroska_in_itself", "mkv",
       [] {
         std::string inner;
         for (int i = 0; i < 3000; ++i) inner = element("\x10\x43\xa7\x70", inner);
         return matroska(inner);
       }},
      {"matroska_of_one_exabyte", "mkv",
       [] { return matroska(element("\x16\x54\xae\x6b", element("\xae", "", 0x00ffffffffffff), 0x00ffffffffffff)); }},
      {"ogg_of_streams", "ogg", [] { return oggStreams(20000); }},
  };
}

std::size_t highestMemory(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string word; status >> word;) {
    std::size_t kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes;
  }
  return 0;
}

/// What the process has computed so far.
double processorSeconds(pid_t process) {
  const std::string stat = readFile("/proc/" + std::to_string(process) + "/stat");
  std::istringstream fields(stat.substr(std::min(stat.size(), stat.rfind(')') + 1)));
  std::string word;
  for (int field = 3; field < 14; ++field) fields >> word;  // proc(5): 14 and 15 are its own time and the system's
  double own = 0;
  double system = 0;
  fields >> own >> system;
  return (own + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

class Bombs : public ::testing::TestWithParam<Bomb> {};

TEST_P(Bombs, GivesAClearLineInLittleMemoryAndSoon) {
  const ScratchFolder folder;
  const std::string path = folder.write(std::string("bomb.") + GetParam().extension, GetParam().make());
  RecordingLog log;
  const auto asset = loadedConfined(path);
  ASSERT_TRUE(asset);
  std::string words = log.lines().empty() ? "" : log.lines().back();
  const auto generator = asset->makeImageGenerator();
  if (generator) {
    const auto result = generator->copyFrame(MediaTime::zero());
    EXPECT_FALSE(result.picture);
    words = result.error;
  }
  const double taken = processorSeconds(asset->movie()->workerProcess());
  const std::size_t memory = highestMemory(asset->movie()->workerProcess());
  RecordProperty("words", words);
  std::printf("%-40s %.3f s %zu MiB  %s\n", GetParam().name, taken, memory >> 10, words.c_str());
  // A movie that opens without usable tracks is refused by whoever wants to use it.
  EXPECT_TRUE(!words.empty() || (!generator && !asset->isPlayable()));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_LT(memory, 256U << 10);
  EXPECT_LT(taken, 2);
#endif
}

INSTANTIATE_TEST_SUITE_P(All, Bombs, ::testing::ValuesIn(bombs()),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace vistrelle::testing
