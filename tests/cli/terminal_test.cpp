// What the tool says about movies whose names and insides hold control characters: visible on a terminal, as it is in
// a pipe, where a program reads it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/clips.h"
#include "tests/support/mov_boxes.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/terminal_run.h"
#include "tests/support/tool_run.h"
#include "vistrelle/cli/last_words.h"

namespace vistrelle {
namespace {

using testing::ScratchFolder;

// A window title, a colour, a forged line, the one-character form of a sequence and a stray byte of its.
const std::string kHostile =
    "a\x1b]0;title\x07\x1b[31m\nforged line \xc2\x9b"
    "31m \x9b"
    "31m";
const std::string kVisible = "a\\x1b]0;title\\x07\\x1b[31m\\nforged line \\u009b31m \\x9b31m";

class Terminal : public ::testing::Test {
 protected:
  std::vector<std::string> command(const std::string& movie) const {
    return testing::toolCommand(
        {"-v", "-i", movie, "-o", folder.file("out.jpg"), "-w", "320", "-h", "240", "-tc", "1", "-y"});
  }

  /// What a terminal shows of the tool's words about `movie`.
  std::string screenOf(const std::string& movie) const { return screenOfCommand(command(movie)); }

  static std::string screenOfCommand(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) line += "'" + word + "' ";
    testing::TerminalRun terminal([&line] { return std::to_string(std::system(line.c_str())); });
    EXPECT_NE(terminal.result(), "(nothing)");
    EXPECT_TRUE(terminal.shows("isSuccess           ? ")) << terminal.screen();
    return terminal.screen();
  }

  std::string pipeOf(const std::string& movie) const { return testing::runProgram(command(movie)).error; }

  /// A clip of two seconds whose title, whose track's name and whose reference to another file are hostile.
  std::string hostileMovie(const std::string& name) const {
    const std::string plain = folder.file("plain.mov");
    testing::runProgram({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=s=320x240:r=10", "-t", "2", "-c:v",
                         "mjpeg", "-metadata", "title=" + kHostile, "-metadata:s:v", "handler_name=" + kHostile,
                         plain});
    std::string movie = testing::readFile(plain);
    const std::string itself("url \0\0\0\1", 8);
    const std::size_t entry = movie.rfind(itself);
    EXPECT_NE(entry, std::string::npos);
    EXPECT_TRUE(testing::insertMovBox(movie, {"moov", "trak", "mdia", "minf", "dinf", "dref", "url "},
                                      kHostile + std::string(1, '\0')));
    movie[entry + itself.size() - 1] = '\0';
    std::filesystem::remove(plain);
    return folder.write(name, movie);
  }

  static void expectNoControls(const std::string& screen) {
    for (std::size_t i = 0; i < screen.size(); ++i) {
      const auto byte = static_cast<unsigned char>(screen[i]);
      const bool isLineEnd = byte == '\n' || (byte == '\r' && i + 1 < screen.size() && screen[i + 1] == '\n');
      const bool isControl = byte < 0x20 || byte == 0x7f || byte == 0x9b;
      EXPECT_TRUE(isLineEnd || !isControl) << "byte " << int{byte} << " in: " << screen.substr(0, i);
      if (!isLineEnd && isControl) return;
    }
    EXPECT_EQ(screen.find("\nforged"), std::string::npos);
  }

  const ScratchFolder folder;
};

TEST_F(Terminal, NamesAreVisibleOnATerminalAndRawInAPipe) {
  const std::string movie = folder.file(kHostile + ".mp4");
  std::filesystem::copy_file(testing::sampleMovie("sample_with_increasing_timestamps_320w_240h_5s.mp4"), movie);
  const std::string screen = screenOf(movie);
  expectNoControls(screen);
  EXPECT_NE(screen.find("/" + kVisible + ".mp4"), std::string::npos) << screen;
  EXPECT_NE(screen.find("isSuccess           ? 1"), std::string::npos);
  EXPECT_NE(pipeOf(movie).find("/" + kHostile + ".mp4"), std::string::npos);
}

TEST_F(Terminal, WhatAMovieHoldsIsVisibleOnATerminalAndRawInAPipe) {
  const std::string movie = hostileMovie("movie.mov");
  const std::string screen = screenOf(movie);
  expectNoControls(screen);
  EXPECT_NE(screen.find("movie reference     :-( refused '" + kVisible + "'"), std::string::npos) << screen;
  EXPECT_NE(pipeOf(movie).find("movie reference     :-( refused '" + kHostile + "'"), std::string::npos);
}

TEST_F(Terminal, TheNameOfAnUnreadableMovieIsVisible) {
  const std::string movie = folder.write(kHostile + ".mov", "no movie");
  const std::string screen = screenOf(movie);
  expectNoControls(screen);
  EXPECT_NE(screen.find(kVisible), std::string::npos) << screen;
  EXPECT_NE(pipeOf(movie).find(kHostile), std::string::npos);
}

TEST_F(Terminal, TheNameOfTheToolItselfIsVisible) {
  const std::string movie = testing::sampleMovie("sample_with_increasing_timestamps_320w_240h_5s.mp4");
  std::vector<std::string> words = command(movie);
  const std::string link = folder.file(kHostile);
  std::filesystem::create_symlink(words.front(), link);
  words.front() = link;
  const std::string screen = screenOfCommand(words);
  expectNoControls(screen);
  EXPECT_NE(screen.find(" " + kVisible + "["), std::string::npos) << screen;
}

TEST_F(Terminal, LastWordsMoveNoCursor) {
  const std::string name = "\xC3\xA9" + kHostile + ".mov";
  testing::TerminalRun terminal([&name]() -> std::string {
    const char* const arguments[] = {"vistrelle", "-i", name.c_str()};
    prepareLastWords(3, arguments);
    sayLastWords("out of memory");
  });
  EXPECT_TRUE(terminal.shows("(Exit)"));
  expectNoControls(terminal.screen());
  EXPECT_NE(terminal.screen().find("Error          : out of memory, '\xC3\xA9"
                                   "a?]0;title??[31m?forged line ?31m ?31m.mov' (Exit)"),
            std::string::npos)
      << terminal.screen();
}

}  // namespace
}  // namespace vistrelle
