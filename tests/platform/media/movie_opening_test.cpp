// What is not a movie, or pretends to be one, fails clearly and quickly and opens nothing else.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "tests/platform/media/movie_loading.h"
#include "tests/support/clips.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::testing {
namespace {

using platform::InputFile;
using platform::Interrupt;

/// Notices every opening of a file in a folder.
class OpenWatch {
 public:
  explicit OpenWatch(const std::string& folder) : descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    watched_ = descriptor_ >= 0 && inotify_add_watch(descriptor_, folder.c_str(), IN_OPEN) >= 0;
  }
  ~OpenWatch() { close(descriptor_); }
  OpenWatch(const OpenWatch&) = delete;
  OpenWatch& operator=(const OpenWatch&) = delete;
  bool works() const { return watched_; }
  bool sawOpening() {
    char events[4096];
    return read(descriptor_, events, sizeof events) > 0;
  }

 private:
  int descriptor_;
  bool watched_ = false;
};

std::string big32(std::uint32_t value) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(value >> shift & 0xff);
  return text;
}

TEST(MovieOpening, WhatIsNoRegularFileIsRefusedWithoutWaiting) {
  const ScratchFolder folder;
  const std::string fifo = folder.file("fifo.mov");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string socketPath = folder.file("s.mov");
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const std::string loop = folder.file("loop.mov");
  ASSERT_EQ(symlink(loop.c_str(), loop.c_str()), 0);
  const auto start = std::chrono::steady_clock::now();
  for (const std::string& path : {fifo, socketPath, loop, folder.path(), std::string("/dev/zero"),
                                  std::string("/dev/null"), std::string("/dev/tty"), folder.file("absent.mov"),
                                  std::string(), dataFile("prog_8s.mp4") + "/x", std::string("a\0b", 3)}) {
    RecordingLog log;
    EXPECT_FALSE(platform::mediaLibrary().get()->openAsset(path, {})) << path;
    EXPECT_TRUE(log.hasContaining("movie open          :-( '")) << path;
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  close(listener);
}

TEST(MovieOpening, ALinkToAMovieIsOpened) {
  const ScratchFolder folder;
  const std::string link = folder.file("link.mov");
  ASSERT_EQ(symlink(dataFile("prog_8s.mp4").c_str(), link.c_str()), 0);
  const auto asset = loaded(link);
  ASSERT_TRUE(asset);
  EXPECT_TRUE(asset->isPlayable());
}

/// Nothing of it can be read as a movie, and it ends within a second.
void expectUnreadable(const std::string& path) {
  RecordingLog log;
  const auto start = std::chrono::steady_clock::now();
  const auto asset = loaded(path);
  ASSERT_TRUE(asset) << path;
  EXPECT_TRUE(asset->tracks().empty()) << path;
  EXPECT_FALSE(asset->isPlayable()) << path;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << path;
  EXPECT_TRUE(log.hasContaining("movie open          :-( '" + path + "': ")) << path;
}

TEST(MovieOpening, NamesAreNamesAndNothingElse) {
  const ScratchFolder folder;
  ASSERT_EQ(mkdir(folder.file("in").c_str(), 0700), 0);
  const std::string content = readFile(dataFile("prog_8s.mp4"));
  for (const char* name : {"http:x.mov", "concat:a|b.mov", "pic%02d.mov", "C:clip.mov", "pipe:0", "file:x.mov", "-.mov",
                           "a b'\"\n.mov", "\xff\xfe.mov", "subfile,,start,0,end,9,,:x.mov", "%s%n.mov", "async:x"}) {
    const auto asset = loaded(folder.write(name, content));
    ASSERT_TRUE(asset) << name;
    EXPECT_EQ(asset->tracks().size(), 2U) << name;
  }
}

TEST(MovieOpening, PlaylistsAndScriptsOpenNothing) {
  const ScratchFolder folder;
  const ScratchFolder canary;
  const std::string secret = canary.write("secret.ts", readFile(dataFile("sample_h264.ts")));
  const std::string playlists[] = {
      "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\n" + secret + "\n#EXT-X-ENDLIST\n",
      "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nfile://" + secret + "\n",
      "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\nhttp://127.0.0.1:9/x.m3u8\n",
      "#EXTM3U\n#EXT-X-MEDIA-SEQUENCE:0\n#EXTINF:1,\nconcat:" + secret + "|/etc/passwd\n",
      "ffconcat version 1.0\nfile '" + secret + "'\n",
      "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=x\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=video 5004 RTP/AVP 33\r\n",
      "<?xml version=\"1.0\"?><MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\" type=\"static\"><Period><AdaptationSet>"
      "<Representation id=\"1\"><BaseURL>" +
          secret + "</BaseURL></Representation></AdaptationSet></Period></MPD>",
      "[Reference]\nRef1=file://" + secret + "\n",
      "rtsptext"
      "rtsp://127.0.0.1/x",
      ";FFMETADATA1\ntitle=x\n",
      "[playlist]\nFile1=" + secret + "\n",
      "<SMIL><body><video src=\"" + secret + "\"/></body></SMIL>",
      "DASH" + secret,
      secret + "\n",
  };
  OpenWatch watch(canary.path());
  ASSERT_TRUE(watch.works());
  int number = 0;
  for (const std::string& playlist : playlists) {
    for (const char* extension : {".mov", ".m3u8"}) {
      expectUnreadable(folder.write("list" + std::to_string(number++) + extension, playlist));
    }
  }
  EXPECT_FALSE(watch.sawOpening());
  // The watch itself sees what it should see.
  readFile(secret);
  EXPECT_TRUE(watch.sawOpening());
}

TEST(MovieOpening, GarbageAndFragmentsOfMoviesAreUnreadable) {
  const ScratchFolder folder;
  std::string noise;
  std::uint32_t state = 12345;
  for (int i = 0; i < 200000; ++i) {
    state = state * 1664525U + 1013904223U;
    noise += static_cast<char>(state >> 24);
  }
  expectUnreadable(folder.write("empty.mov", ""));
  expectUnreadable(folder.write("one.mov", "x"));
  expectUnreadable(folder.write("noise.mov", noise));
  expectUnreadable(folder.write("zeros.mov", std::string(100000, '\0')));
  expectUnreadable(folder.write("text.mov", std::string(5000, 'a')));
  expectUnreadable(folder.write("ftyp.mp4", big32(16) + "ftypisom" + big32(0)));
  expectUnreadable(dataFile("broken.mp4"));
}

// The word by which another container is known, anywhere in the first bytes, stands in the samples or in padding.
TEST(MovieOpening, SamplesThatHoldTheWordOfAnotherContainerDoNotHideTheirOwn) {
  const ScratchFolder folder;
  const std::string word("Interplay MVE File\x1a\0\x1a\0\0\x01\x33\x11", 26);
  struct Case {
    const char* name;
    std::string content;
    std::string after;  ///< it is written 40 bytes behind this
  };
  const Case cases[] = {
      {"samples.mp4", readFile(lateIndexClip(folder)), "mdat"},
      {"padding.avi", readFile(dataFile("sample.avi")), "JUNK"},
      {"padding.mkv", readFile(dataFile("sample_with_chapters.mkv")), std::string("\xec\x01\0\0", 4)},
  };
  for (const Case& each : cases) {
    std::string content = each.content;
    const std::size_t place = content.find(each.after);
    ASSERT_LT(place, 1000U) << each.name;
    content.replace(place + 40, word.size(), word);
    const auto movie = loaded(folder.write(each.name, content));
    ASSERT_TRUE(movie) << each.name;
    EXPECT_FALSE(movie->tracks().empty()) << each.name;
  }
}

TEST(MovieOpening, MoviesCutAnywhereNeitherCrashNorHang) {
  const ScratchFolder folder;
  for (const char* name :
       {"v1.mp4", "sample.avi", "sample_h264.ts", "sample.flv", "testWMV.wmv", "sample_fragmented.mp4",
        "sample_with_chapters.mkv", "weird_aspect.small.mpg", "fixture.mxf", "metadata.mp4"}) {
    const std::string content = readFile(dataFile(name));
    for (std::size_t part = 1; part < 16; ++part) {
      const auto start = std::chrono::steady_clock::now();
      const auto asset = loaded(folder.write(name, content.substr(0, content.size() * part / 16)));
      ASSERT_TRUE(asset) << name << " " << part;
      EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << name << " " << part;
      for (const auto& track : asset->tracks()) EXPECT_GE(track->nominalFrameRate(), 0) << name << " " << part;
    }
  }
}

TEST(MovieOpening, DamagedHeadersNeitherCrashNorHang) {
  const ScratchFolder folder;
  std::uint32_t state = 99;
  const auto random = [&state] { return state = state * 1664525U + 1013904223U; };
  for (const char* name : {"sample_with_chapters.mp4", "rotated_hdr_video.mov", "sample_fragmented.mp4",
                           "iibbibb_editlist_videoonly.mp4", "sample_with_chapters.mkv", "sample_h262_mpeg_audio.ts"}) {
    const std::string whole = readFile(dataFile(name));
    for (int round = 0; round < 20; ++round) {
      std::string damaged = whole;
      const std::size_t header = damaged.find("moov") == std::string::npos ? 0 : damaged.find("moov") + 4;
      for (int i = 0; i < 8; ++i) {
        damaged[header + random() % std::min<std::size_t>(damaged.size() - header, 3000)] =
            static_cast<char>(random() >> 24);
      }
      ASSERT_TRUE(loaded(folder.write(name, damaged))) << name << " " << round;
    }
  }
}

// ---- references -------------------------------------------------------------------------------------

TEST(MovieReferences, AreFollowedBeneathTheFolderOnlyAndWithoutLinks) {
  const ScratchFolder folder;
  const std::string movie = folder.write("movie.mov", "x");
  folder.makeFolder("media");
  folder.write("media/data.bin", "inside");
  const ScratchFolder outside;
  const std::string foreign = outside.write("foreign.bin", "outside");
  ASSERT_EQ(symlink(foreign.c_str(), folder.file("link.bin").c_str()), 0);
  ASSERT_EQ(symlink("media", folder.file("door").c_str()), 0);
  ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0600), 0);
  const auto file = InputFile::open(movie, nullptr);
  std::string error;
  const auto inside = file->openReference("media/data.bin", &error);
  ASSERT_TRUE(inside) << error;
  std::uint8_t buffer[16];
  EXPECT_EQ(inside->readAt(0, buffer), 6);
  EXPECT_EQ(inside->readAt(6, buffer), 0);
  for (const std::string& path : {foreign, std::string("../") + foreign, std::string("link.bin"),
                                  std::string("door/data.bin"), std::string("media/../../x"), std::string("fifo"),
                                  std::string("media"), std::string("absent"), std::string("/proc/self/exe")}) {
    error.clear();
    EXPECT_FALSE(file->openReference(path, &error)) << path;
    EXPECT_FALSE(error.empty()) << path;
  }
  // A referenced file refers to nothing further.
  EXPECT_FALSE(inside->openReference("data.bin", &error));
}

/// v1.mp4 whose first data reference is turned into one that names another file. The entry for "in this file" has 12
/// bytes ("url " with its flag set); its place in the movie is kept by shortening the boxes around nothing: only the
/// flag is cleared, which leaves a reference with an empty name.
TEST(MovieReferences, ATrackWhoseDataLiesElsewhereIsRefusedWithALine) {
  const ScratchFolder folder;
  std::string movie = readFile(dataFile("v1.mp4"));
  const std::size_t at = movie.find("url ");
  ASSERT_NE(at, std::string::npos);
  movie[at + 7] = 0;
  RecordingLog log;
  const auto asset = loaded(folder.write("elsewhere.mp4", movie));
  ASSERT_TRUE(asset);
  ASSERT_EQ(asset->tracks().size(), 2U);
  EXPECT_FALSE(asset->tracks()[0]->isDecodable());
  EXPECT_TRUE(asset->tracks()[1]->isDecodable());
  EXPECT_FALSE(asset->isPlayable());
  EXPECT_TRUE(log.has("movie reference     :-( refused '' (track 1)"));
  const auto generator = asset->makeImageGenerator();
  ASSERT_TRUE(generator);
  const platform::FrameResult result = generator->copyFrame(platform::MediaTime::zero());
  EXPECT_FALSE(result.picture);
  EXPECT_EQ(result.error, "the movie's pictures cannot be decoded");
}

std::string box(const std::string& kind, const std::string& content) {
  return big32(static_cast<std::uint32_t>(content.size() + 8)) + kind + content;
}

/// An alias record (QuickTime's reference by path, as libavformat reads it): names the volume and file in fixed
/// fields, then the path as a tagged entry.
std::string aliasEntry(const std::string& path) {
  std::string record = std::string(10, '\0') + std::string(1, '\1') + "v" + std::string(26, '\0');  // volume name
  record += std::string(12, '\0');
  record += std::string(1, '\1') + "f" + std::string(62, '\0');  // file name
  record += std::string(16, '\0');
  record += std::string("\0\1\0\1", 4);  // levels from and to
  record += std::string(16, '\0');
  const auto tag = [](int type, const std::string& value) {
    std::string entry{static_cast<char>(type >> 8), static_cast<char>(type), static_cast<char>(value.size() >> 8),
                      static_cast<char>(value.size())};
    return entry + value + std::string(value.size() % 2, '\0');
  };
  record += tag(2, path) + tag(0xffff, "");
  return box("alis", big32(0) + record);
}

/// The movie with its data reference replaced: the enclosing boxes grow, so its header must stand behind the samples.
std::string withReference(const std::string& name, const std::string& entry) {
  std::string movie = readFile(dataFile(name));
  const std::size_t dref = movie.find("dref") - 4;
  const auto sizeAt = [&movie](std::size_t at) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<std::uint8_t>(movie[at + i]);
    return value;
  };
  const std::uint32_t former = sizeAt(dref);
  const std::string replacement = box("dref", big32(0) + big32(1) + entry);
  const auto growth = static_cast<std::uint32_t>(replacement.size()) - former;
  for (const char* kind : {"moov", "trak", "mdia", "minf", "dinf"}) {
    const std::size_t at = movie.rfind(kind, dref) - 4;
    movie.replace(at, 4, big32(sizeAt(at) + growth));
  }
  return movie.replace(dref, former, replacement);
}

TEST(MovieReferences, AliasesAreResolvedBeneathTheFolder) {
  const ScratchFolder folder;
  const std::string data = readFile(dataFile("photo-jpeg.mov"));
  const std::string movie = withReference("photo-jpeg.mov", aliasEntry("/Volumes/x/samples.bin"));
  const std::string path = folder.write("refers.mov", movie);
  const auto firstPacket = [&path] {
    const auto source =
        platform::MovieSource::open(InputFile::open(path, nullptr), std::make_shared<Interrupt>(), nullptr);
    const auto demuxer = source ? source->makeDemuxer(nullptr) : nullptr;
    const platform::AvPtr<AVPacket> packet(av_packet_alloc());
    return demuxer && demuxer->read(*packet) == 0 ? packet->size : -1;
  };
  {
    RecordingLog log;
    EXPECT_EQ(firstPacket(), -1);
    EXPECT_TRUE(log.hasContaining("movie reference     :-( refused 'samples.bin' (No such file or directory)"));
  }
  {
    const ScratchFolder outside;
    const std::string foreign = outside.write("samples.bin", data);
    ASSERT_EQ(symlink(foreign.c_str(), folder.file("samples.bin").c_str()), 0);
    OpenWatch watch(outside.path());
    RecordingLog log;
    EXPECT_EQ(firstPacket(), -1);
    EXPECT_TRUE(log.hasContaining("movie reference     :-( refused 'samples.bin' ("));
    EXPECT_FALSE(watch.sawOpening());
    ASSERT_EQ(unlink(folder.file("samples.bin").c_str()), 0);
  }
  folder.write("samples.bin", data);
  EXPECT_GT(firstPacket(), 1000);
}

// ---- protection -------------------------------------------------------------------------------------

TEST(MovieProtection, ProtectedSampleEntriesAreFound) {
  const ScratchFolder folder;
  const std::string content = readFile(dataFile("v1.mp4"));
  for (const char* kind : {"encv", "drmi"}) {
    std::string movie = content;
    const std::size_t at = movie.find("avc1", movie.find("stsd"));
    ASSERT_NE(at, std::string::npos);
    movie.replace(at, 4, kind);
    const auto asset = loaded(folder.write("p.mp4", movie));
    ASSERT_TRUE(asset);
    EXPECT_TRUE(asset->hasProtectedContent()) << kind;
    EXPECT_FALSE(asset->isPlayable()) << kind;
  }
  for (const char* kind : {"enca", "drms"}) {
    std::string movie = content;
    movie.replace(movie.find("mp4a", movie.find("stsd")), 4, kind);
    const auto asset = loaded(folder.write("p.mp4", movie));
    ASSERT_TRUE(asset);
    EXPECT_TRUE(asset->hasProtectedContent()) << kind;
  }
}

TEST(MovieProtection, ScrambledTransportStreamIsProtected) {
  const ScratchFolder folder;
  std::string movie = readFile(dataFile("sample_h264.ts"));
  for (std::size_t at = 188 * 40; at + 188 <= movie.size(); at += 188)
    movie[at + 3] = static_cast<char>(movie[at + 3] | 0x80);
  const auto asset = loaded(folder.write("scrambled.ts", movie));
  ASSERT_TRUE(asset);
  ASSERT_FALSE(asset->tracks().empty());
  EXPECT_TRUE(asset->hasProtectedContent());
  EXPECT_FALSE(loaded(dataFile("sample_h264.ts"))->hasProtectedContent());
}

/// The movie with one more element at the start of its first track entry; the track, the tracks and the segment grow.
TEST(MovieProtection, EncryptedMatroskaTrackIsProtected) {
  const ScratchFolder folder;
  const std::string plain = folder.file("plain.mkv");
  ASSERT_EQ(
      std::system(("ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=64x64:duration=1 -c:v mpeg4 -f matroska "
                   "-live 1 '" +
                   plain + "'")
                      .c_str()),
      0);
  EXPECT_FALSE(loaded(plain)->hasProtectedContent());
  std::string movie = readFile(plain);
  // ContentEncodings > ContentEncoding > (type 1 = encryption) + ContentEncryption > algorithm 5 (AES).
  const std::string encryption("\x6d\x80\x8e\x62\x40\x8b\x50\x33\x81\x01\x50\x35\x84\x47\xe1\x81\x05", 17);
  const std::size_t tracks = movie.rfind("\x16\x54\xae\x6b");
  ASSERT_NE(tracks, std::string::npos);
  // Both sizes are written in eight bytes by the muxer of a live stream, or in fewer; grow the last byte.
  const auto grow = [&movie](std::size_t at) {
    const std::size_t length = static_cast<std::size_t>(__builtin_clz(static_cast<std::uint8_t>(movie[at])) - 24) + 1;
    std::uint64_t size = static_cast<std::uint8_t>(movie[at]) & (0xffU >> length);
    for (std::size_t i = 1; i < length; ++i) size = size << 8 | static_cast<std::uint8_t>(movie[at + i]);
    size += 17;
    for (std::size_t i = length; i-- > 1; size >>= 8) movie[at + i] = static_cast<char>(size);
    movie[at] = static_cast<char>((0x80U >> (length - 1)) | size);
    return at + length;
  };
  const std::size_t entry = movie.find('\xae', grow(tracks + 4));
  ASSERT_NE(entry, std::string::npos);
  movie.insert(grow(entry + 1), encryption);
  const auto asset = loaded(folder.write("encrypted.mkv", movie));
  ASSERT_TRUE(asset);
  EXPECT_TRUE(asset->hasProtectedContent());
}

}  // namespace
}  // namespace vistrelle::testing
