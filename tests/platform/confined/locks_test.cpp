// Nothing but the movie itself is opened, whatever it is called and whatever it pretends to be.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "tests/platform/confined/confined_movies.h"
#include "tests/support/clips.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

namespace vistrelle::testing {
namespace {

constexpr const char* kHostileNames[] = {"http:x.mov",
                                         "pipe:0",
                                         "concat:a|b",
                                         "pic%02d.jpg",
                                         "C:clip.mov",
                                         "file:x.mov",
                                         "subfile,,start,0,end,9,,:x.mov",
                                         "async:cache:x.mov",
                                         "-i",
                                         "%s%n%x.mov",
                                         "fd:3",
                                         "a\nb\t\xff.mov"};

TEST(Locks, HostileNamesAreJustNames) {
  const ScratchFolder folder;
  const std::string content = readFile(dataFile("prog_8s.mp4"));
  for (const char* name : kHostileNames) {
    const auto asset = loadedConfined(folder.write(name, content));
    ASSERT_TRUE(asset) << name;
    EXPECT_EQ(asset->tracks().size(), 2U) << name;
    EXPECT_TRUE(asset->makeImageGenerator()->copyFrame(platform::MediaTime::zero()).picture) << name;
  }
}

std::vector<std::string> playlists(const std::string& secret) {
  const std::string url = "file://" + secret;
  return {"#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\n" + secret + "\n#EXT-X-ENDLIST\n",
          "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\n" + url + "\n",
          "#EXTM3U\n#EXT-X-MEDIA-SEQUENCE:0\n#EXTINF:1,\nconcat:" + secret + "|/etc/passwd\n",
          "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\nhttp://127.0.0.1:9/x.m3u8\n",
          "#EXTM3U\n#EXT-X-KEY:METHOD=AES-128,URI=\"" + url + "\"\n#EXTINF:1,\n" + secret + "\n",
          "#EXTM3U\n#EXT-X-MAP:URI=\"" + url + "\"\n#EXTINF:1,\n" + secret + "\n",
          "ffconcat version 1.0\nfile '" + secret + "'\n",
          "ffconcat version 1.0\nfile 'subfile,,start,0,end,100,,:" + secret + "'\n",
          "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=x\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=video 5004 RTP/AVP 33\r\n",
          "v=0\r\nc=IN IP4 224.2.36.42/127\r\nm=audio 5006 RTP/AVP 0\r\n",
          "<?xml version=\"1.0\"?><MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\"><Period><AdaptationSet><Representation "
          "id=\"1\"><BaseURL>" +
              url + "</BaseURL></Representation></AdaptationSet></Period></MPD>",
          "<SmoothStreamingMedia MajorVersion=\"2\"><StreamIndex Url=\"" + url + "\"/></SmoothStreamingMedia>",
          "[Reference]\nRef1=" + url + "\n",
          "[playlist]\nFile1=" + secret + "\nNumberOfEntries=1\n",
          "<ASX version=\"3.0\"><Entry><Ref href=\"" + url + "\"/></Entry></ASX>",
          "<smil><body><video src=\"" + secret + "\"/></body></smil>",
          "rtsptextrtsp://127.0.0.1/x",
          "RTSP/1.0 302 Found\r\nLocation: rtsp://127.0.0.1/x\r\n\r\n",
          "http://127.0.0.1:9/x.mov\n",
          "WEBVTT\n\n00:00.000 --> 00:01.000\n" + url + "\n",
          ";FFMETADATA1\ntitle=" + url + "\n",
          "import avs\nAviSource(\"" + secret + "\")\n"};
}

TEST(Locks, PlaylistsAreNoMovies) {
  const ScratchFolder folder;
  const std::string secret = folder.write("secret/secret.ts", readFile(dataFile("sample_h264.ts")));
  int number = 0;
  for (const std::string& playlist : playlists(secret)) {
    RecordingLog log;
    const auto asset = loadedConfined(folder.write("list" + std::to_string(number++) + ".mov", playlist));
    ASSERT_TRUE(asset) << playlist;
    EXPECT_TRUE(asset->tracks().empty()) << playlist;
    EXPECT_TRUE(log.hasContaining("movie open          :-( '")) << playlist;
  }
  EXPECT_GE(number, 20);
}

TEST(Locks, WhatIsNoRegularFileIsRefusedAtOnce) {
  const ScratchFolder folder;
  const std::string fifo = folder.file("fifo.mov");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::string socketPath = folder.file("s.mov");
  const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const std::string loop = folder.file("loop.mov");
  const std::string first = folder.file("one.mov");
  const std::string second = folder.file("two.mov");
  ASSERT_EQ(::symlink(loop.c_str(), loop.c_str()), 0);
  ASSERT_EQ(::symlink(second.c_str(), first.c_str()), 0);
  ASSERT_EQ(::symlink(first.c_str(), second.c_str()), 0);
  const auto start = std::chrono::steady_clock::now();
  for (const std::string& path : {fifo, socketPath, loop, first, folder.path(), std::string("/dev/zero"),
                                  std::string("/dev/null"), std::string("/dev/tty"), std::string("/dev/random"),
                                  std::string("/dev/mem"), folder.file("absent"), std::string()}) {
    RecordingLog log;
    EXPECT_FALSE(confinedLibrary()->openAsset(path, {})) << path;
    EXPECT_TRUE(log.hasContaining("movie open          :-( '" + path + "': ")) << path;
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  ::close(listener);
}

// ---- what the tool really does, as the kernel sees it ------------------------------------------------

struct Trace {
  RunResult run;
  std::vector<std::string> lines;
};

/// The tool under strace, for a movie of `path`.
Trace traceTool(const ScratchFolder& folder, const std::string& path, const char* calls) {
  const std::string output = folder.file("trace");
  std::vector<std::string> command{"strace", "-f", "-qq", "-e", std::string("trace=") + calls, "-o", output};
  for (const std::string& word :
       toolCommand({"-i", path, "-o", folder.file("out.jpg"), "-w", "160", "-h", "120", "-tc", "0-1", "-y"})) {
    command.push_back(word);
  }
  // The address sanitizer's search for leaks cannot trace a traced process.
  Trace trace{runProgram(command, [] { ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1); }), {}};
  std::ifstream file(output);
  for (std::string line; std::getline(file, line);) trace.lines.push_back(line);
  return trace;
}

bool canTrace(const ScratchFolder& folder) {
  return runProgram({"strace", "-o", folder.file("probe"), "true"}).status == 0;
}

TEST(Locks, TheToolMakesNoSocketButItsOwnPairsAndTheLoggers) {
  const ScratchFolder folder;
  if (!canTrace(folder)) GTEST_SKIP() << "strace is missing or may not trace";
  const std::string secret = folder.write("secret/secret.ts", readFile(dataFile("sample_h264.ts")));
  std::vector<std::string> movies{dataFile("prog_8s.mp4")};
  const std::vector<std::string> lists = playlists(secret);
  // One that names a file, and all that would need the network: pages, sessions, streams.
  for (const std::size_t number : {0, 3, 8, 9, 16, 17, 18}) {
    movies.push_back(folder.write("list" + std::to_string(number) + ".mov", lists.at(number)));
  }
  for (const std::string& movie : movies) {
    const Trace trace = traceTool(folder, movie, "socket,connect,bind,listen,accept,accept4,sendto");
    EXPECT_EQ(trace.run.signal, 0);
    for (const std::string& line : trace.lines) {
      // A process that is killed between two calls leaves a line without a call's name.
      if (line.find("?(") != std::string::npos) continue;
      const bool isLogger = line.find("AF_UNIX, SOCK_DGRAM") != std::string::npos ||
                            line.find("/dev/log") != std::string::npos || line.find("sendto(") != std::string::npos;
      EXPECT_TRUE(isLogger || line.find('(') == std::string::npos) << movie << ": " << line;
    }
  }
}

/// The first number of a line is the process that made the call.
std::string processOf(const std::string& line) {
  return line.substr(0, line.find(' '));
}

TEST(Locks, NoForeignFileIsOpenedAndNoneByADecoder) {
  const ScratchFolder folder;
  if (!canTrace(folder)) GTEST_SKIP() << "strace is missing or may not trace";
  const std::string secret = folder.write("secret/secret.ts", readFile(dataFile("sample_h264.ts")));
  const std::vector<std::string> lists = playlists(secret);
  for (const std::string& movie :
       {dataFile("prog_8s.mp4"), dataFile("sample_h264.ts"), folder.write("one.mov", lists[0]),
        folder.write("two.mov", lists[6]), folder.write("three.mov", lists[8])}) {
    const Trace trace = traceTool(folder, movie, "open,openat,openat2,seccomp,execve");
    std::set<std::string> confined;
    std::set<std::string> openers;
    int programs = 0;
    for (const std::string& line : trace.lines) {
      if (line.find("seccomp(SECCOMP_SET_MODE_FILTER") != std::string::npos) confined.insert(processOf(line));
      programs += line.find("execve(") != std::string::npos ? 1 : 0;
      if (line.find("open") == std::string::npos) continue;
      EXPECT_EQ(line.find(secret), std::string::npos) << line;
      EXPECT_FALSE(confined.contains(processOf(line))) << "opened by a decoder: " << line;
      if (line.find('"' + movie + '"') != std::string::npos) openers.insert(processOf(line));
    }
    EXPECT_EQ(confined.size(), 1U) << movie;
    EXPECT_EQ(programs, 1) << movie;
    EXPECT_EQ(openers, std::set<std::string>{processOf(trace.lines.front())}) << movie;
  }
}

TEST(Locks, TheToolLeavesNoProcessBehind) {
  const ScratchFolder folder;
  if (!canTrace(folder)) GTEST_SKIP() << "strace is missing or may not trace";
  const Trace trace = traceTool(folder, dataFile("prog_8s.mp4"), "exit_group");
  EXPECT_EQ(trace.run.status, 0) << trace.run.error;
  // The tool, the process that makes decoders, one decoder: each is seen to its end.
  int ends = 0;
  for (const std::string& line : trace.lines) {
    ends += line.find("exit_group") != std::string::npos || line.find("killed by") != std::string::npos ? 1 : 0;
  }
  EXPECT_GE(ends, 2);
}

}  // namespace
}  // namespace vistrelle::testing
