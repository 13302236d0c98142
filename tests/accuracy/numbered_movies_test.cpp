// The tool's pictures of movies whose frames carry their own number. Prints one row a movie. VISTRELLE_LONG takes all
// movies, VISTRELLE_PEERS adds what ffmpeg and ffmpegthumbnailer show at the same times, VISTRELLE_NUMBERED names one
// movie or several.
#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <sstream>

#include "numbered_frames.h"
#include "tests/support/mov_boxes.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

namespace vistrelle::testing {
namespace {

namespace fs = std::filesystem;

// What a plain run takes: one of each kind.
const std::vector<std::string> kSample = {
    "h264_open.mp4",
    "h264_pyramid_open.mkv",
    "h264_mbaff_open.ts",
    "h264_intra_refresh.ts",
    "h264_avi_pyramid.avi",
    "raw_open.h264",
    "hevc_open.mp4",
    "hevc.ts",
    "mpeg1.dat",
    "mpeg2_program.vob",
    "mpeg2.mxf",
    "mpeg4_xvid.avi",
    "wmv2.wmv",
    "h263.3gp",
    "sorenson.flv",
    "vp8.webm",
    "vp9_hidden.webm",
    "av1.mp4",
    "theora.ogv",
    "prores_4444.mov",
    "dnxhr.mov",
    "mjpeg.avi",
    "raw.dv",
    "fragmented_every_frame.mp4",
    "rate_23.976.mp4",
    "rate_59.94.mp4",
    "rate_120.mkv",
    "one_frame.mkv",
    "subsecond.ts",
    "late_start.ts",
    "clock_wraps.ts",
    "edit_offset_open.mp4",
    "edit_empty.mp4",
    "edit_empty.mov",
    "gaps.mkv",
    "vary.ts",
    "doubled_times.mkv",
    "negative_start.mkv",
    "joined.ts",
    "joined_large.ts",
    "joined_behind.ts",
    "not_coded.avi",
    "headers_only_b.avi",
    "garbage_wmv2.avi",
    "resized_mpeg2.ts",
    "resized_open.mp4",
    "resized_vp9.webm",
    "truncated.mkv",
    "damaged.mp4",
};

bool isSet(const char* name) {
  return std::getenv(name) != nullptr;
}

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

std::vector<std::string> namesToTest() {
  if (const char* given = std::getenv("VISTRELLE_NUMBERED")) return wordsOf(given);
  if (!isSet("VISTRELLE_LONG")) return kSample;
  return wordsOf(runProgram({VISTRELLE_TEST_DATA "/make_numbered.sh", "list"}).output);
}

/// The folder of the movies, made on first use; what is there already is kept.
std::string madeFolder(const std::vector<std::string>& names) {
  const std::string folder = (fs::current_path() / "numbered_movies").string();
  std::string command = "exec '" VISTRELLE_TEST_DATA "/make_numbered.sh' '" + folder + "'";
  for (const std::string& name : names) command += " '" + name + "'";
  return std::system(command.c_str()) == 0 ? folder : std::string();
}

std::string textOf(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", seconds);
  return text;
}

void useOneProcessor() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(0, &one);
  ::sched_setaffinity(0, sizeof one, &one);
}

/// What one program showed of one movie.
struct Score {
  std::size_t asked = 0;
  std::size_t exact = 0;
  std::size_t told = 0;  ///< not the frame, and the log says that the picture is damaged or missing
  std::string firstMiss;

  void note(std::optional<int> shown, int wanted, bool isTold, const std::string& how) {
    ++asked;
    if (shown == wanted) {
      ++exact;
    } else if (isTold) {
      ++told;
    } else if (firstMiss.empty()) {
      firstMiss = how + ": wanted " + std::to_string(wanted) + ", got " +
                  (shown ? std::to_string(*shown) : std::string("nothing readable"));
    }
  }
};

class NumberedMovie {
 public:
  NumberedMovie(const std::string& folder, const std::string& name)
      : path_(folder + "/" + name),
        truth_(NumberTruth::load(path_ + ".truth")),
        isDamaged_(name.starts_with("damaged")) {
    if (truth_.entries.empty()) return;
    // The tool's range ends at a whole second; beyond it the first picture comes.
    const double end = std::floor(truth_.entries.back().seconds + 1e-5);
    for (double time = 0; time <= end; time += 0.5) times_.push_back(time);
  }

  bool isThere() const { return !times_.empty(); }
  const std::vector<double>& times() const { return times_; }

  Score askTool() const {
    Score score;
    std::vector<double> backwards(times_.rbegin(), times_.rend());
    std::vector<double> shuffled = times_;
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(11));
    for (const bool alone : {false, true}) {
      const std::string threads = alone ? " on one processor" : "";
      askList(times_, alone, "forwards" + threads, score);
      askList(backwards, alone, "backwards" + threads, score);
      askList(shuffled, alone, "shuffled" + threads, score);
    }
    for (const double time : times_) askList({time}, false, "alone", score);
    return score;
  }

  /// The frame that `ffmpeg -ss T -i F -frames:v 1` writes.
  Score askFfmpeg() const {
    Score score;
    for (const double time : times_) {
      const ScratchFolder folder;
      const std::string out = folder.file("out.png");
      runProgram({"ffmpeg", "-nostdin", "-v", "error", "-ss", textOf(time), "-i", path_, "-frames:v", "1", out});
      score.note(numberInFile(out), truth_.numberAt(time), false, textOf(time));
    }
    return score;
  }

  /// ffmpegthumbnailer takes whole seconds only.
  Score askThumbnailer() const {
    Score score;
    for (const double time : times_) {
      if (time != std::floor(time)) continue;
      const ScratchFolder folder;
      const std::string out = folder.file("out.png");
      char text[32];
      std::snprintf(text, sizeof text, "00:00:%02d", static_cast<int>(time));
      runProgram({"ffmpegthumbnailer", "-i", path_, "-o", out, "-t", text, "-s", "320"});
      score.note(numberInFile(out), truth_.numberAt(time), false, text);
    }
    return score;
  }

 private:
  void askList(const std::vector<double>& times, bool oneProcessor, const std::string& how, Score& score) const {
    const ScratchFolder folder;
    std::string list;
    for (const double time : times) list += (list.empty() ? "" : "-") + textOf(time);
    const RunResult run = runTool({"-i", path_, "-o", folder.path(), "-w", "320", "-h", "192", "-tc", list},
                                  oneProcessor ? useOneProcessor : std::function<void()>());
    for (std::size_t i = 0; i < times.size(); ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "img%02zu.jpg", i);
      const std::string picture = folder.file(name);
      const bool isTold = isDamaged_ && (fs::exists(picture) ? saysDamage(run.error, times[i])
                                                             : run.error.find("Mirelund error") != std::string::npos);
      score.note(numberInFile(picture), truth_.numberAt(times[i]), isTold, how + " at " + textOf(times[i]));
    }
  }

  /// Whether the log calls a frame at or shortly before this time damaged. Pictures are made side by side, so the lines
  /// of one may stand among those of another.
  static bool saysDamage(const std::string& log, double time) {
    constexpr double kLongestFrame = 0.2;
    const std::string tag = "] frame at ";
    for (std::size_t at = log.find(tag); at != std::string::npos; at = log.find(tag, at + 1)) {
      const std::string line = log.substr(at + tag.size(), log.find('\n', at) - at - tag.size());
      const double said = std::strtod(line.c_str(), nullptr);
      const bool isHere = said <= time + 1e-3 && time - said < kLongestFrame;
      if (isHere && line.find("decoded with errors") != std::string::npos) return true;
    }
    return false;
  }

  std::string path_;
  NumberTruth truth_;
  bool isDamaged_;
  std::vector<double> times_;
};

std::string shareOf(const Score& score) {
  return std::to_string(score.exact) + " / " + std::to_string(score.asked);
}

TEST(NumberedMovies, ShowTheNumberOnScreen) {
  const std::vector<std::string> names = namesToTest();
  const std::string folder = madeFolder(names);
  ASSERT_FALSE(folder.empty()) << "some movies could not be made";
  const bool peers = isSet("VISTRELLE_PEERS");
  Score all;
  std::size_t wholeMovies = 0;
  for (const std::string& name : names) {
    const NumberedMovie movie(folder, name);
    ASSERT_TRUE(movie.isThere()) << name;
    const Score score = movie.askTool();
    std::printf("| %s | %s", name.c_str(), shareOf(score).c_str());
    if (score.told > 0) std::printf(" and %zu said to be damaged", score.told);
    std::printf(" |");
    if (peers) std::printf(" %s | %s |", shareOf(movie.askFfmpeg()).c_str(), shareOf(movie.askThumbnailer()).c_str());
    std::printf("\n");
    std::fflush(stdout);
    EXPECT_EQ(score.exact + score.told, score.asked) << name << " " << score.firstMiss;
    all.asked += score.asked;
    all.exact += score.exact;
    all.told += score.told;
    if (score.exact == score.asked) ++wholeMovies;
  }
  std::printf("%zu movies, %zu wholly exact; %zu askings, %zu exact, %zu said to be damaged\n", names.size(),
              wholeMovies, all.asked, all.exact, all.told);
}

/// The numbers that the tool shows at these times.
std::vector<std::optional<int>> numbersShown(const std::string& movie, const std::vector<std::string>& times) {
  const ScratchFolder folder;
  std::string list;
  for (const std::string& time : times) list += (list.empty() ? "" : "-") + time;
  runTool({"-i", movie, "-o", folder.path(), "-w", "320", "-h", "192", "-tc", list});
  std::vector<std::optional<int>> numbers;
  for (std::size_t i = 0; i < times.size(); ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "img%02zu.jpg", i);
    numbers.push_back(numberInFile(folder.file(name)));
  }
  return numbers;
}

TEST(EditedMovies, SeveralEditsOneAfterAnother) {
  const std::string source = madeFolder({"no_edit_list.mov"}) + "/no_edit_list.mov";
  std::string movie = readFile(source);
  // 25 frames a second, 512 ticks each; the movie's clock has 1000 ticks a second. From 2.01 s, which is within frame
  // 50, for a second; nothing for half a second; from 0.5 s for a second; frame 75 stands still for a second.
  ASSERT_TRUE(insertMovBox(movie, {"moov", "trak"},
                           editListBox({{1000, 25728}, {500, -1}, {1000, 6400}, {1000, 38400, 0}, {500, 0}})));
  const ScratchFolder folder;
  const std::string path = folder.write("edited.mov", movie);
  const auto shown = numbersShown(path, {"0", "0.5", "1", "1.5", "2", "2.5", "3", "3.5", "4"});
  // 2.01 s: 50; 2.51 s: 62; nothing shown: the last of the first edit, before 3.01 s: 75; 0.5 s: 12; 1.0 s: 25; then
  // the still; then from the start.
  const std::vector<std::optional<int>> wanted{50, 62, 75, 12, 25, 75, 75, 0, 12};
  EXPECT_EQ(shown, wanted);
}

TEST(EditedMovies, AnEditThatBeginsBeforeTheFirstFrame) {
  const std::string source = madeFolder({"h264_closed.mp4"}) + "/h264_closed.mp4";
  std::string movie = readFile(source);
  // Its own edit begins with the first frame, whose time is 1024; this one begins at 0, so all is 0.08 s later.
  const std::string own = bigEndian(1024, 4) + bigEndian(0x10000, 4);
  const std::size_t at = movie.find(own, movie.find("elst"));
  ASSERT_NE(at, std::string::npos);
  movie.replace(at, 4, bigEndian(0, 4));
  const ScratchFolder folder;
  const auto shown = numbersShown(folder.write("late.mp4", movie), {"0", "0.5", "1", "3"});
  const std::vector<std::optional<int>> wanted{0, 10, 23, 73};
  EXPECT_EQ(shown, wanted);
}

TEST(DolbyVision, WithoutABaseLayerTheLogSaysSo) {
  const std::string source = madeFolder({"hevc_closed.mp4"}) + "/hevc_closed.mp4";
  for (const int profile : {5, 8}) {
    std::string movie = readFile(source);
    // Version 1.0, the profile, level 6, metadata and base layer present; of profile 8 the base layer is HDR10.
    const std::string record = bigEndian(0x0100, 2) +
                               bigEndian(static_cast<std::uint64_t>(profile << 9 | 6 << 3 | 5), 2) +
                               bigEndian(profile == 8 ? 0x10 : 0, 1) + std::string(19, '\0');
    ASSERT_TRUE(insertMovBox(movie, {"moov", "trak", "mdia", "minf", "stbl", "stsd", "hvc1"}, movBox("dvcC", record)));
    const ScratchFolder folder;
    const std::string path = folder.write("vision.mp4", movie);
    const RunResult run = runTool({"-i", path, "-o", folder.file("out.jpg"), "-w", "320", "-h", "192", "-tc", "1"});
    EXPECT_EQ(run.status, 0) << run.error;
    EXPECT_EQ(run.error.find("Dolby Vision profile 5 has no base layer") != std::string::npos, profile == 5)
        << run.error;
    EXPECT_EQ(numberInFile(folder.file("out.jpg")), 25);
  }
}

}  // namespace
}  // namespace vistrelle::testing
