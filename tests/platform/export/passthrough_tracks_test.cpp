#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/platform/export/mov_tables.h"
#include "tests/platform/export/passthrough_fixture.h"
#include "tests/platform/export/sound_clips.h"
#include "tests/support/mov_boxes.h"
#include "vistrelle/platform/media/mov/movie_writer.h"

// What tracks are besides pictures and sound of usual length: scaled, far into a file, very long, of texts.

namespace vistrelle::testing {
namespace {

using platform::Composition;
using platform::MediaTime;

std::string sineMovie(const std::string& name, const std::vector<std::string>& coding) {
  return clip(name, {{"-f", "lavfi", "-i", "sine=duration=2:sample_rate=48000"}, coding});
}

TEST(PassthroughScaled, soundLastsAsLongAsItsPictures) {
  for (const auto& [name, coding] : std::vector<std::pair<std::string, std::vector<std::string>>>{
           {"scaled.pcm.mov", {"-c:a", "pcm_s16le"}}, {"scaled.aac.mov", {"-c:a", "aac"}}}) {
    SCOPED_TRACE(name);
    const ScratchFolder folder;
    const auto composition = whole(loaded(sineMovie(name, coding)));
    composition->scaleTimeRange(range(1, 1), at(2));
    const Written written = writeTo(*composition, folder.file("scaled.mov"));
    ASSERT_TRUE(written.succeeded) << written.error;
    EXPECT_NEAR(std::stod(probed(written.path, "a:0", "stream=duration")), 3, 0.03);
    // The last second's packets come twice as slowly.
    std::istringstream lines(probed(written.path, "a:0", "packet=pts_time,duration_time"));
    std::vector<double> times;
    for (std::string line; std::getline(lines, line);) times.push_back(std::atof(line.c_str()));
    ASSERT_GE(times.size(), 4U);
    EXPECT_GE(times.back(), 2.9);
    const auto second = std::ranges::lower_bound(times, 1.0);
    ASSERT_GT(times.end() - second, 2);
    const double before = times[1] - times[0];
    EXPECT_NEAR(*(times.end() - 2) - *(times.end() - 3), 2 * before, before * 0.05);
    expectReadable(written.path);
  }
}

TEST(PassthroughLong, tenDaysBeforeTheFirstFrame) {
  const ScratchFolder folder;
  const auto movie = loaded(clip("plain.mp4", {numberedPictures(100), {"-c:v", "libx264", "-bf", "0", "-g", "25"}}));
  const auto composition = Composition::make();
  constexpr int kTenDays = 864000;
  // In ticks that take a number of more than 32 bits to count.
  const MediaTime start = at(std::int64_t{kTenDays} * 30000 + 1, 30000);
  ASSERT_TRUE(composition->insertTimeRange(range(1, 2), movie, start, nullptr));
  const Written written = writeTo(*composition, folder.file("long.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const auto tables = tablesOf(written.path);
  ASSERT_EQ(tables.tracks.size(), 1U);
  EXPECT_GT(tables.tracks[0].edits.front().duration, std::uint64_t{1} << 32);
  const DecodedMovie shown = decoded(written.path);
  ASSERT_EQ(shown.frames.size(), 50U);
  EXPECT_EQ(shown.frames[0].number, 25);
  EXPECT_NEAR(shown.frames[0].time.seconds(), kTenDays, 0.001);
  EXPECT_NEAR(shown.frames[25].time.seconds(), kTenDays + 1, 0.001);
  EXPECT_NEAR(std::stod(probed(written.path, "v:0", "format=duration")), kTenDays + 2, 0.001);
  EXPECT_NEAR(loaded(written.path)->duration().seconds(), kTenDays + 2, 0.001);
}

/// A movie whose samples begin 5 GB into the file: the gap before them is a hole that takes no place.
std::string farMovie(const ScratchFolder& folder) {
  const std::string near = readFile(clip("near.mov", {numberedPictures(50), {"-c:v", "mjpeg", "-q:v", "3"}}));
  const std::size_t media = near.find("mdat") - 4;
  const std::size_t movie = near.find("moov") - 4;
  std::string head = near.substr(0, media);
  std::string tables = near.substr(movie);
  constexpr std::uint64_t kHole = std::uint64_t{5} << 30;
  // 'stco' becomes 'co64': each offset is four bytes longer, and so is every box around.
  const std::size_t chunks = tables.find("stco");
  std::string content = tables.substr(chunks + 4, 8);
  const std::size_t count = static_cast<std::uint8_t>(tables[chunks + 11]);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint64_t offset = 0;
    for (std::size_t n = 0; n < 4; ++n) {
      offset = offset << 8 | static_cast<std::uint8_t>(tables[chunks + 12 + 4 * i + n]);
    }
    content += bigEndian(offset + kHole + 8, 8);
  }
  tables.replace(chunks, 4, "free");
  EXPECT_TRUE(insertMovBox(tables, {"moov", "trak", "mdia", "minf", "stbl"}, movBox("co64", content)));
  head += bigEndian(1, 4) + "mdat" + bigEndian(16 + kHole + movie - media - 8, 8);
  const std::string path = folder.write("far.mov", head);
  const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  const std::string rest = near.substr(media + 8);
  const std::string samples = rest.substr(0, movie - media - 8);
  const auto at = static_cast<off_t>(media + 16 + kHole);
  EXPECT_EQ(::pwrite(fd, samples.data(), samples.size(), at), std::ssize(samples));
  EXPECT_EQ(::pwrite(fd, tables.data(), tables.size(), at + std::ssize(samples)), std::ssize(tables));
  ::close(fd);
  return path;
}

TEST(PassthroughLarge, samplesBehindFourGigabytesAreRead) {
  const ScratchFolder folder;
  const std::string path = farMovie(folder);
  struct stat facts {};
  ASSERT_EQ(::stat(path.c_str(), &facts), 0);
  ASSERT_GT(facts.st_size, off_t{5} << 30);
  const auto movie = loaded(path);
  ASSERT_TRUE(movie);
  const auto composition = whole(movie);
  composition->removeTimeRange(range(0, 1));
  const Written written = writeTo(*composition, folder.file("written.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  expectShows(written.path, shownBy({{1, 1}}, 25), 1);
}

TEST(PassthroughLarge, boxesBecomeWideWhereNumbersDo) {
  namespace mov = platform::mov;
  constexpr std::uint64_t kFar = std::uint64_t{6} << 30;
  mov::WrittenMovie movie;
  movie.timeScale = 600;
  movie.duration = kFar;
  mov::WrittenTrack track;
  track.id = 1;
  track.timeScale = 600;
  track.header.handler = mov::fourCc("vide");
  track.edits.push_back({kFar, 0, 0x10000});
  track.descriptions.push_back({0, 0, 0, 16, 'j', 'p', 'e', 'g', 0, 0, 0, 0, 0, 0, 0, 1});
  for (int i = 0; i < 3; ++i) {
    mov::WrittenSample sample;
    sample.offset = static_cast<std::int64_t>(kFar) + i * 100;
    sample.size = sample.bytes = 100;
    sample.duration = 0x80000000U;
    track.samples.push_back(sample);
  }
  movie.tracks.push_back(track);
  const std::vector<std::uint8_t> box = mov::movieBox(movie);
  const auto tables = tablesIn(box);
  ASSERT_TRUE(tables);
  ASSERT_EQ(tables->tracks.size(), 1U);
  const mov::SampleTables& read = tables->tracks[0];
  ASSERT_EQ(read.edits.size(), 1U);
  EXPECT_EQ(read.edits[0].duration, kFar);
  ASSERT_EQ(read.samples.size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(read.samples[i].offset, track.samples[i].offset);
  }
  const std::vector<std::uint8_t> head = mov::mediaDataHead(kFar);
  EXPECT_EQ(head.size(), mov::mediaDataHead(1).size());
  const std::string tail(head.end() - 16, head.end());
  EXPECT_EQ(tail, bigEndian(1, 4) + "mdat" + bigEndian(kFar + 16, 8));
}

TEST(PassthroughHeaders, trackAperturesSurvive) {
  const ScratchFolder folder;
  std::string movie = readFile(clip("tapt.mov", {numberedPictures(50), {"-c:v", "libx264", "-g", "12"}}));
  std::string modes;
  for (const auto& [type, width] :
       std::vector<std::pair<std::string, std::uint64_t>>{{"clef", 250}, {"prof", 240}, {"enof", 256}}) {
    modes += movBox(type, bigEndian(0, 4) + bigEndian(width << 16, 4) + bigEndian(64 << 16, 4));
  }
  ASSERT_TRUE(insertMovBox(movie, {"moov", "trak"}, movBox("tapt", modes)));
  const auto composition = whole(loaded(folder.write("tapt.mov", movie)));
  composition->removeTimeRange(range(0, 1));
  const Written written = writeTo(*composition, folder.file("written.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  EXPECT_NE(readFile(written.path).find(movBox("tapt", modes)), std::string::npos);
  expectReadable(written.path);
}

TEST(PassthroughTexts, thoseInTheRangeStayAtTheirTimes) {
  const ScratchFolder folder;
  const std::string texts =
      clipFolder().write("texts.srt",
                         "1\n00:00:00,200 --> 00:00:00,800\nearly\n\n2\n00:00:01,600 --> 00:00:02,400\nmiddle\n\n3\n"
                         "00:00:03,000 --> 00:00:03,500\nlate\n");
  for (const std::string name : {"texts.mov", "texts.mp4"}) {
    SCOPED_TRACE(name);
    const std::string path = clip(name, {numberedPictures(100), {"-i", texts, "-c:v", "libx264", "-c:s", "mov_text"}});
    const auto composition = whole(loaded(path));
    composition->removeTimeRange(range(28, 10, 10));  // the end, "late" with it
    composition->removeTimeRange(range(0, 1));
    const Written written = writeTo(*composition, folder.file("written.mov"));
    ASSERT_TRUE(written.succeeded) << written.error;
    const std::string shown = folder.file("shown.srt");
    runFfmpeg({"-i", written.path, "-map", "0:s", shown});
    const std::string kept = readFile(shown);
    EXPECT_EQ(kept.find("early"), std::string::npos) << kept;
    EXPECT_NE(kept.find("00:00:00,600 --> 00:00:01,400\nmiddle"), std::string::npos) << kept;
    EXPECT_EQ(kept.find("late"), std::string::npos) << kept;
    expectReadable(written.path);
  }
}

TEST(PassthroughTimecode, dropFrameNumbersCountOnOverTheMinute) {
  const ScratchFolder folder;
  const std::string path =
      clip("drop.mov", {numberedPictures(120, "30000/1001"), {"-c:v", "libx264", "-timecode", "00:00:59;00"}});
  const auto composition = whole(loaded(path));
  composition->removeTimeRange({at(0), at(30 * 1001, 30000)});
  const Written written = writeTo(*composition, folder.file("drop.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  EXPECT_EQ(probed(written.path, "v:0", "stream_tags=timecode"), "00:01:00;02");
}

}  // namespace
}  // namespace vistrelle::testing
