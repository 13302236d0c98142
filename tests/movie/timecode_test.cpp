#include "vistrelle/movie/timecode.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/support/recording_log.h"
#include "vistrelle/platform/dialogs/dialog.h"

namespace vistrelle {
namespace {

using testing::RecordingLog;

struct Reading {
  const char* text;
  float seconds;
};

class TimecodeForms : public ::testing::TestWithParam<Reading> {};

TEST_P(TimecodeForms, GivesSeconds) {
  RecordingLog record;
  EXPECT_EQ(timecodeStr2Float(GetParam().text), GetParam().seconds);
  EXPECT_TRUE(record.lines().empty());
  EXPECT_EQ(timecodeSeconds(GetParam().text), GetParam().seconds);
}

INSTANTIATE_TEST_SUITE_P(All, TimecodeForms,
                         ::testing::Values(Reading{"12.5", 12.5F}, Reading{"  90", 90.0F}, Reading{"00:01:30", 90.0F},
                                           Reading{"01:00:00,250", 3600.25F}, Reading{"00:00:02.12/25", 2.48F},
                                           Reading{"1:00:00:00", 24.0F * 3600}, Reading{"1:30", 0.0F},
                                           Reading{"12,5", 12.0F}, Reading{"", 0.0F}, Reading{"   ", 0.0F},
                                           Reading{"0", 0.0F}, Reading{"00:00:00", 0.0F}, Reading{"0.0", 0.0F},
                                           Reading{"00:01:00 extra", 60.0F}, Reading{"12 extra", 12.0F},
                                           // The one-piece form reads the whole text, blanks left out.
                                           Reading{"1 2", 12.0F},
                                           // Without a point it is no frame count.
                                           Reading{"00:00:12/25", 12.0F}, Reading{"30:00:00", 108000.0F},
                                           // Frames over nothing: "inf" and "nan" are no numbers.
                                           Reading{"00:00:02.12/0", 0.0F}, Reading{"00:00:02.0/0", 0.0F},
                                           Reading{"00:01:02.5/0", 60.0F},
                                           // A second point ends the fraction; the slash after it does not count.
                                           Reading{"00:00:01.2.3/4", 1.2F}, Reading{"1:2:3:4", 93784.0F},
                                           Reading{"1.5:0:0:0", 129600.0F}, Reading{"1:00:00:02.12/25", 86402.48F},
                                           Reading{"00:00:01,5/10", 1.5F}, Reading{"1:2:3:4:5", 0.0F},
                                           Reading{"::", 0.0F}, Reading{":::", 0.0F}, Reading{"00:00:1e1", 10.0F}));

TEST(Timecode, AbsentTextIsZero) {
  RecordingLog record(true);
  EXPECT_EQ(timecodeStr2Float(std::nullopt), 0.0F);
  EXPECT_EQ(timecodeSeconds(std::nullopt), 0.0F);
  EXPECT_TRUE(record.lines().empty());
}

TEST(Timecode, SumIsMadeInDoublePrecision) {
  // 4660:20:16.5 is 16777216.5 s: in single precision the seconds would be lost before the sum is complete.
  EXPECT_EQ(timecodeStr2Float("4660:20:17.0"), static_cast<float>(4660.0 * 3600 + 20 * 60 + 17.0));
}

bool withoutReaderLines(const std::string& line) {
  return line.rfind("str2Float", 0) != 0;
}

std::vector<std::string> ownLines(const RecordingLog& record) {
  std::vector<std::string> own;
  for (const auto& line : record.lines()) {
    if (withoutReaderLines(line)) own.push_back(line);
  }
  return own;
}

TEST(Timecode, VerboseLinesOfPlainSeconds) {
  RecordingLog record(true);
  timecodeStr2Float(" 12.5 x");
  EXPECT_EQ(ownLines(record), (std::vector<std::string>{"tcMArray            : 12.5", "delimiterMsStr      : '.'",
                                                        "returnedFloat       :-) 12.500000"}));
  EXPECT_TRUE(record.has("str2Float           - deb : 12.5 x…"));
}

TEST(Timecode, VerboseLinesOfDaysAndFrames) {
  RecordingLog record(true);
  timecodeStr2Float("1:02:03:04.12/25");
  EXPECT_EQ(ownLines(record),
            (std::vector<std::string>{
                "tcMArray            : 1 02 03 04.12/25",
                "tcMArray *3         : " + platform::description(std::vector<std::string>{"26", "03", "04.12/25"}),
                "delimiterMsStr      : '.'",
                "tcMArray ms         : " + platform::description(std::vector<std::string>{"26", "03", "4.480"}),
                "returnedFloat       :-) 93784.476562"}));
}

TEST(Timecode, VerboseLineWithoutPoint) {
  RecordingLog record(true);
  timecodeStr2Float("00:01:30");
  EXPECT_TRUE(record.has("delimiterMsStr      : 'nil'"));
}

TEST(Timecode, SilentReadingWritesNothingEvenWhenVerbose) {
  RecordingLog record(true);
  EXPECT_EQ(timecodeSeconds("1:02:03:04.12/25"), 93784.48F);
  EXPECT_EQ(timecodeSeconds("1:30"), 0.0F);
  EXPECT_TRUE(record.lines().empty());
  EXPECT_TRUE(record.plain().empty());
}

}  // namespace
}  // namespace vistrelle
