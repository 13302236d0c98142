// The tool itself, on real movies.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/child.h"
#include "tests/support/clips.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/terminal_run.h"
#include "tests/support/tool_run.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::runProgram;
using testing::RunResult;
using testing::runTool;
using testing::sampleMovie;
using testing::ScratchFolder;

bool isWholeJpeg(const std::string& path) {
  const std::string bytes = readFile(path);
  return bytes.size() > 4 && bytes.substr(0, 2) == "\xFF\xD8" && bytes.substr(bytes.size() - 2) == "\xFF\xD9";
}

const std::string kCamera = "sample_with_increasing_timestamps_320w_240h_5s.mp4";

class Tool : public ::testing::Test {
 protected:
  RunResult shoot(const std::string& source, const std::vector<std::string>& more = {},
                  const std::function<void()>& prepare = {}) const {
    std::vector<std::string> arguments{"-i", source, "-o", out, "-w", "320", "-h", "240", "-tc", "1"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runTool(arguments, prepare);
  }

  ScratchFolder folder;
  std::string out = folder.file("out.jpg");
};

TEST_F(Tool, MakesThePictureOfACameraMovie) {
  const RunResult run = shoot(sampleMovie(kCamera));
  EXPECT_EQ(run.status, 0) << run.error;
  EXPECT_NE(run.error.find("\nsteps          : 1\n"), std::string::npos) << run.error;
  EXPECT_NE(run.error.find("] isSuccess           ? 1\n"), std::string::npos) << run.error;
  EXPECT_EQ(run.error.rfind("-----------------------------------\n  Vistrelle v1.4(3845) - 2015  \n", 0), 0U);
  EXPECT_EQ(run.output, "");
  EXPECT_TRUE(isWholeJpeg(out));
  const auto picture = platform::Picture::load(out);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->width(), 320);
  EXPECT_EQ(picture->height(), 240);
}

TEST_F(Tool, LogLinesHaveDateNameAndIds) {
  const RunResult run = shoot(sampleMovie(kCamera));
  const std::size_t line = run.error.find(" Mirelund            - begin\n");
  ASSERT_NE(line, std::string::npos);
  const std::size_t start = run.error.rfind('\n', line) + 1;
  EXPECT_THAT(run.error.substr(start, line - start),
              ::testing::MatchesRegex(
                  "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} vistrelle\\[[0-9]+:[0-9]+\\]"));
}

TEST_F(Tool, SeriesIntoAFolder) {
  const std::string pictures = folder.makeFolder("pictures");
  const RunResult run =
      runTool({"-i", sampleMovie(kCamera), "-o", pictures, "-w", "320", "-h", "240", "-tc", "4-0-2.5"});
  EXPECT_EQ(run.status, 0) << run.error;
  for (const char* name : {"/img00.jpg", "/img01.jpg", "/img02.jpg"}) EXPECT_TRUE(isWholeJpeg(pictures + name)) << name;
  const std::size_t one = run.error.find("\nsteps          : 1\n");
  const std::size_t two = run.error.find("\nsteps          : 2\n");
  const std::size_t three = run.error.find("\nsteps          : 3\n");
  EXPECT_LT(one, two);
  EXPECT_LT(two, three);
  EXPECT_NE(three, std::string::npos);
}

struct FormatCase {
  const char* extension;
  const char* start;
  std::size_t length;
};

class Formats : public Tool, public ::testing::WithParamInterface<FormatCase> {};

TEST_P(Formats, ExtensionDecides) {
  out = folder.file(std::string("out.") + GetParam().extension);
  const RunResult run = shoot(sampleMovie(kCamera));
  EXPECT_EQ(run.status, 0) << run.error;
  const std::string bytes = readFile(out);
  EXPECT_EQ(bytes.substr(0, GetParam().length), std::string(GetParam().start, GetParam().length));
}

INSTANTIATE_TEST_SUITE_P(All, Formats,
                         ::testing::Values(FormatCase{"jpg", "\xFF\xD8\xFF", 3}, FormatCase{"tiff", "II*\0", 4},
                                           FormatCase{"bmp", "BM", 2}, FormatCase{"gif", "GIF8", 4},
                                           FormatCase{"png", "\x89PNG", 4}, FormatCase{"jp2", "\0\0\0\x0CjP  ", 8},
                                           FormatCase{"pdf", "%PDF-", 5}),
                         [](const auto& each) { return std::string(each.param.extension); });

// ---- movies that give no picture -----------------------------------------------------------------

class BadMovie : public Tool {
 protected:
  /// Status 1, the given words, no picture, and quickly.
  void expectRefused(const std::string& source, const std::string& words) {
    const RunResult run = shoot(source);
    EXPECT_EQ(run.status, 1) << source << run.error;
    EXPECT_EQ(run.signal, 0);
    EXPECT_NE(run.error.find(words), std::string::npos) << run.error;
    EXPECT_FALSE(fs::exists(out));
    EXPECT_LT(run.seconds, 15);
  }
};

TEST_F(BadMovie, Unreadable) {
  expectRefused(folder.write("text.mov", "This is no movie at all, but long enough to look into it."),
                "movie not readable");
}
TEST_F(BadMovie, ZeroBytes) {
  expectRefused(folder.write("zero.mov", ""), "movie not readable");
}
TEST_F(BadMovie, HeaderOnly) {
  expectRefused(sampleMovie("empty.flv"), "movie not readable");
}
TEST_F(BadMovie, AudioOnly) {
  expectRefused(testing::soundClip(folder), "no usable track (v tracks=0/1) ");
}
TEST_F(BadMovie, Encrypted) {
  expectRefused(testing::encryptedClip(folder), "protected file (DRM=1)");
}
TEST_F(BadMovie, MpegByName) {
  const std::string named = folder.file("clip.MPG");
  fs::copy_file(sampleMovie(kCamera), named);
  expectRefused(named, "Mirelund            :-( mpeg!");
}
TEST_F(BadMovie, Folder) {
  expectRefused(folder.makeFolder("clip.mov"), "movie not readable");
}
TEST_F(BadMovie, Device) {
  expectRefused("/dev/zero", "movie not readable");
  expectRefused("/dev/null", "movie not readable");
  expectRefused("/dev/tty", "");
}
TEST_F(BadMovie, Fifo) {
  const std::string fifo = folder.file("pipe.mov");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  expectRefused(fifo, "movie not readable");
}
TEST_F(BadMovie, CutBeforeItsIndex) {
  // The sample table stands behind the samples and is lost.
  const std::string movie = readFile(testing::lateIndexClip(folder));
  expectRefused(folder.write("cut.mp4", movie.substr(0, movie.size() / 2)), "movie not readable");
}

TEST_F(Tool, EveryTruncationEndsOrderly) {
  const std::string movie = readFile(sampleMovie(kCamera));
  for (const double part : {0.0001, 0.01, 0.1, 0.3, 0.6, 0.9, 0.99}) {
    const std::string cut =
        folder.write("cut.mp4", movie.substr(0, static_cast<std::size_t>(part * double(movie.size()))));
    const RunResult run = shoot(cut, {"-tc", "0-2-4.5"});
    EXPECT_TRUE(run.status == 0 || run.status == 1) << part << " signal " << run.signal << run.error;
    EXPECT_EQ(fs::exists(out), run.status == 0) << run.error;
    fs::remove(out);
  }
}

// ---- sizes ---------------------------------------------------------------------------------------

TEST_F(Tool, SizesThatAreNone) {
  for (const char* side : {"0", "-3", "abc", "2000000000", "99999999999999999999"}) {
    const RunResult run = shoot(sampleMovie(kCamera), {"-w", side, "-h", side});
    EXPECT_EQ(run.status, 1) << side << run.error;
    EXPECT_FALSE(fs::exists(out));
    EXPECT_LT(run.seconds, 15);
  }
}

TEST_F(Tool, TinyPictureFailsAndGoes) {
  const RunResult run = shoot(sampleMovie(kCamera), {"-w", "16", "-h", "12"});
  EXPECT_EQ(run.status, 1);
  EXPECT_FALSE(fs::exists(out));
  EXPECT_NE(run.error.find("failed run, file removed : " + out), std::string::npos) << run.error;
}

// ---- destinations --------------------------------------------------------------------------------

TEST_F(Tool, DestinationInAMissingFolder) {
  out = folder.file("missing/out.jpg");
  const RunResult run = shoot(sampleMovie(kCamera));
  EXPECT_EQ(run.status, 1) << run.error;
  EXPECT_FALSE(fs::exists(folder.file("missing")));
}

TEST_F(Tool, DestinationOnAFullDisk) {
  if (!testing::isAdministrator()) GTEST_SKIP() << "only the administrator may mount a small disk";
  const std::string disk = folder.makeFolder("disk");
  out = disk + "/out.jpg";
  EXPECT_TRUE(testing::inChild([&] {
    ASSERT_TRUE(testing::mountScratch(disk.c_str(), "size=256k"));
    const std::string filler = folder.write("disk/filler", std::string(248 * 1024, 'x'));
    const RunResult full = shoot(sampleMovie(kCamera), {"-w", "1280", "-h", "960"});
    EXPECT_EQ(full.status, 1) << full.error;
    EXPECT_FALSE(fs::exists(out));
    EXPECT_EQ(fs::file_size(filler), 248U * 1024U);
    fs::remove(filler);
    const RunResult fits = shoot(sampleMovie(kCamera));
    EXPECT_EQ(fits.status, 0) << fits.error;
    EXPECT_TRUE(isWholeJpeg(out));
  }));
}

TEST_F(Tool, DestinationThatMayNotBeWritten) {
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  const std::string tool = folder.file("vistrelle");
  fs::copy_file(VISTRELLE_TOOL, tool);
  const std::string movie = folder.file("clip.mp4");
  fs::copy_file(sampleMovie(kCamera), movie);
  ASSERT_EQ(::chmod(movie.c_str(), 0444), 0);
  const std::string closed = folder.makeFolder("closed");
  const std::string precious = folder.write("closed/precious.jpg", "precious");
  ASSERT_EQ(::chmod(closed.c_str(), 0555), 0);
  const auto shootAt = [&](const std::string& target) {
    return runProgram({tool, "-i", movie, "-o", target, "-y", "-w", "320", "-h", "240", "-tc", "1"},
                      testing::becomeNobody);
  };
  const RunResult fresh = shootAt(closed + "/out.jpg");
  EXPECT_EQ(fresh.status, 1) << fresh.error;
  EXPECT_FALSE(fs::exists(closed + "/out.jpg"));
  const RunResult old = shootAt(precious);
  EXPECT_EQ(old.status, 1) << old.error;
  EXPECT_EQ(readFile(precious), "precious");
  ASSERT_EQ(::chmod(closed.c_str(), 0755), 0);
}

TEST_F(Tool, DanglingLinkGetsItsTarget) {
  fs::create_symlink(folder.file("target.jpg"), out);
  const RunResult run = shoot(sampleMovie(kCamera));
  EXPECT_EQ(run.status, 0) << run.error;
  EXPECT_TRUE(fs::is_symlink(out));
  EXPECT_TRUE(isWholeJpeg(folder.file("target.jpg")));
}

TEST_F(Tool, LinkToAPreciousFile) {
  const std::string precious = folder.write("precious", "precious");
  fs::create_symlink(precious, out);
  const RunResult refused = shoot(sampleMovie(kCamera));
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.error.find("Error          : dst file already exists (Exit)\n"), std::string::npos);
  EXPECT_EQ(readFile(precious), "precious");
  // A failed run with "-y" removes the link and not what it points to.
  const RunResult failed = shoot(sampleMovie(kCamera), {"-y", "-w", "0"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(readFile(precious), "precious");
}

TEST_F(Tool, NothingButTheDestinationIsTouched) {
  const std::string movie = folder.file("clip.mp4");
  fs::copy_file(sampleMovie(kCamera), movie);
  const std::string before = readFile(movie);
  const RunResult run = shoot(movie);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(readFile(movie), before);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 2);
}

// ---- names are bytes -----------------------------------------------------------------------------

TEST_F(Tool, OddNamesSurvive) {
  for (const char* name :
       {"a b.mp4", "it's \"quoted\".mp4", "100%d %s %02d.mp4", "two\nlines.mp4", "\xC3\xA9t\xC3\xA9.mp4",
        "bad\xFF\xC3.mp4", "concat:a|b.mp4", "http:x.mp4", "pic%02d.mp4", "-i.mp4", "file:x.mp4"}) {
    fs::copy_file(sampleMovie(kCamera), folder.file(name));
    const auto inFolder = [this] {
      if (::chdir(folder.path().c_str()) != 0) ::_exit(126);
    };
    const RunResult run = runTool({"-i", name, "-w", "320", "-h", "240", "-tc", "1"}, inFolder);
    EXPECT_EQ(run.status, 0) << name << run.error;
    EXPECT_TRUE(isWholeJpeg(folder.file(std::string(name) + ".jpg"))) << name;
    EXPECT_NE(run.error.find("dst auto           : " + std::string(name) + ".jpg\n"), std::string::npos);
  }
}

// ---- standard streams and signals ----------------------------------------------------------------

TEST_F(Tool, ClosedStandardStreams) {
  const RunResult run = shoot(sampleMovie(kCamera), {}, [] {
    ::close(0);
    ::close(1);
    ::close(2);
  });
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.error, "");
  EXPECT_TRUE(isWholeJpeg(out));
}

TEST_F(Tool, FullStandardError) {
  const RunResult run = shoot(sampleMovie(kCamera), {}, [] { ::dup2(::open("/dev/full", O_WRONLY), STDERR_FILENO); });
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(isWholeJpeg(out));
}

TEST_F(Tool, StandardErrorThatNobodyReads) {
  const RunResult run = shoot(sampleMovie(kCamera), {}, [] {
    int ends[2];
    if (::pipe(ends) != 0) ::_exit(126);
    ::close(ends[0]);
    ::dup2(ends[1], STDERR_FILENO);
  });
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.signal, 0);
  EXPECT_TRUE(isWholeJpeg(out));
}

class Signals : public Tool, public ::testing::WithParamInterface<int> {};

TEST_P(Signals, InMidRunEndTheToolAndLeaveWholePicturesOnly) {
  const std::string pictures = folder.makeFolder("pictures");
  std::string list = "0";
  for (int i = 1; i < 400; ++i) list += "-" + std::to_string(i % 5);
  testing::RunningProgram program(
      testing::toolCommand({"-i", sampleMovie(kCamera), "-o", pictures, "-w", "1280", "-h", "960", "-tc", list}));
  ASSERT_TRUE(program.waitForError("steps          : 2\n"));
  program.send(GetParam());
  const RunResult run = program.finish();
  EXPECT_EQ(run.signal, GetParam()) << run.status;
  int count = 0;
  for (const auto& entry : fs::directory_iterator(pictures)) {
    EXPECT_TRUE(isWholeJpeg(entry.path().string())) << entry.path();
    ++count;
  }
  EXPECT_GE(count, 2);
  EXPECT_LT(count, 400);
}

INSTANTIATE_TEST_SUITE_P(All, Signals, ::testing::Values(SIGTERM, SIGINT));

TEST_F(Tool, OptionWithoutItsValueAborts) {
  const RunResult run = runTool({"-i"});
  EXPECT_EQ(run.signal, SIGABRT);
  EXPECT_EQ(run.error.rfind("-----------------------------------\n", 0), 0U);
  EXPECT_EQ(run.error.find("Error  "), std::string::npos);
}

TEST_F(Tool, NumbersDoNotDependOnTheLocale) {
  const RunResult run = shoot(sampleMovie(kCamera), {"-v", "-tc", "1.5"}, [] { ::setenv("LC_ALL", "de_DE.UTF-8", 1); });
  EXPECT_EQ(run.status, 0) << run.error;
  EXPECT_NE(run.error.find("Mirelund currTime   = 3/2 (1.500)\n"), std::string::npos) << run.error;
}

TEST_F(Tool, MisreadTimecodeIsSilentInOrdinaryUse) {
  const RunResult quiet = shoot(sampleMovie(kCamera), {"-tc", "1:30"});
  EXPECT_EQ(quiet.status, 0);
  EXPECT_EQ(quiet.error.find("timecodeStr2Float"), std::string::npos);
}

TEST_F(Tool, SuspiciousZeroIsSaidOnceAndReturnAnswersIt) {
  const std::string command = std::string("env -u DISPLAY -u WAYLAND_DISPLAY '") + VISTRELLE_TOOL + "' -v -i '" +
                              sampleMovie(kCamera) + "' -o '" + out + "' -w 320 -h 240 -tc 1:30";
  testing::TerminalRun terminal([&command] { return std::to_string(std::system(command.c_str())); });
  ASSERT_TRUE(terminal.shows("revoir :-( returnedFloat = 0.000000")) << terminal.screen();
  terminal.type("\n");
  EXPECT_EQ(terminal.result(), "0") << terminal.screen();
  EXPECT_TRUE(terminal.shows("FERMETURE USER      : CLIC")) << terminal.screen();
  const std::string& screen = terminal.screen();
  const std::size_t first = screen.find("utils > timecodeStr2Float ? :-/");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(screen.find("utils > timecodeStr2Float ? :-/", first + 1), std::string::npos);
  // It comes from the loop, after the list was shown.
  EXPECT_LT(screen.find("Mirelund dstTimeDou"), first);
  EXPECT_TRUE(isWholeJpeg(out));
}

}  // namespace
}  // namespace vistrelle
