#include "vistrelle/movieinfo/classification.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <limits>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using testing::RecordingLog;
using testing::ScratchFolder;
using Texts = std::vector<std::string>;
using namespace std::string_literals;

TEST(FamilyLists, HoldTheirEntriesInOrder) {
  EXPECT_EQ(drmFourCcList(), (Texts{"drmi", "drms"}));
  EXPECT_EQ(mpegAudioExtensionList(), (Texts{"ac3", "mp2", "mpa", "m1a"}));
  EXPECT_EQ(pcmAudioExtensionList(), (Texts{"wav", "wave", "aif", "aiff"}));
  EXPECT_EQ(mpeg2ElementaryExtensionList(), (Texts{"m2v", "mpv"}));
  EXPECT_EQ(mpegElementaryExtensionList(), (Texts{"m2v", "mpv", "m1v"}));
  EXPECT_EQ(mpegProgramExtensionList(), (Texts{"mpg", "mpeg", "mod", "ts", "vob"}));
  EXPECT_EQ(mpegProgramExtensionListAll(), (Texts{"mpg", "mpeg", "mod", "ts", "vob", "tod", "vro"}));
}

TEST(FamilyLists, FrameRatesComeInPairsOfHalfAndFullRate) {
  const std::vector<float> rates = standardFrameRateList();
  EXPECT_EQ(rates, (std::vector<float>{12.5F, 25.0F, 11.99F, 23.98F, 12.0F, 24.0F, 14.98F, 29.97F, 15.0F, 30.0F}));
}

TEST(FamilyLists, KindAOfTheUnsupportedNamesInEitherCase) {
  const Texts kindA{"dv", "mov", "3ivx", "unsupportedVideoCodecFfmpeg"};
  const Texts others{"ffts", "mov", "3ivx", "unsupportedVideoCodecFfmpeg"};
  EXPECT_EQ(ffmpegUnsupportedVideoList("A"), kindA);
  EXPECT_EQ(ffmpegUnsupportedVideoList("a"), kindA);
  EXPECT_EQ(ffmpegUnsupportedVideoList("B"), others);
  EXPECT_EQ(ffmpegUnsupportedVideoList("AA"), others);
  EXPECT_EQ(ffmpegUnsupportedVideoList(""), others);
  EXPECT_EQ(ffmpegUnsupportedVideoList(std::nullopt), others);
}

TEST(InfoDicoHasDrm, ProtectedAudioCodec) {
  RecordingLog record;
  EXPECT_TRUE(infoDicoHasDrm(Dictionary{{"a0_codec", "drms"}, {"v0_codec", "h264"}}));
  EXPECT_EQ(record.lines(), Texts{"dicoContainsItunesDR:-( DRM protected file (a0_codec=drms)"});
}

TEST(InfoDicoHasDrm, StopsAtTheFirstKeyAndTakesThePieceAnywhere) {
  RecordingLog record;
  EXPECT_TRUE(infoDicoHasDrm(Dictionary{{"x_codec_y", "drmi"}, {"z_codec", "drms"}}));
  EXPECT_EQ(record.lines(), Texts{"dicoContainsItunesDR:-( DRM protected file (x_codec_y=drmi)"});
}

TEST(InfoDicoHasDrm, NothingElseCounts) {
  RecordingLog record;
  EXPECT_FALSE(infoDicoHasDrm(std::nullopt));
  EXPECT_FALSE(infoDicoHasDrm(Dictionary{}));
  EXPECT_FALSE(infoDicoHasDrm(Dictionary{{"a0_name", "drms"}, {"codec", "drmi"}}));
  EXPECT_FALSE(infoDicoHasDrm(Dictionary{{"a0_codec", "DRMS"}, {"v0_codec", "drms "}, {"b0_codec", 7}}));
  EXPECT_TRUE(record.lines().empty());
}

class HeaderProbe : public ::testing::Test {
 protected:
  std::string file(const std::string& bytes) { return folder.write("stream" + std::to_string(++made), bytes); }

  ScratchFolder folder;
  RecordingLog record;
  int made = 0;
};

TEST_F(HeaderProbe, EachKindByItsFirstBytes) {
  const std::string transport = file("G@\x11\x10"s);
  const std::string program = file("\x00\x00\x01\xBA\x44\x00\x04\x00\x04\x01rest"s);
  const std::string ac3 = file("\x0B\x77\x12"s);
  EXPECT_TRUE(streamHeaderProbe(transport, 0));
  EXPECT_TRUE(streamHeaderProbe(program, 1));
  EXPECT_TRUE(streamHeaderProbe(ac3, 2));
  EXPECT_FALSE(streamHeaderProbe(ac3, 0));
  EXPECT_FALSE(streamHeaderProbe(transport, 1));
  EXPECT_FALSE(streamHeaderProbe(program, 2));
  EXPECT_EQ(record.lines(), (Texts{"ts headers          :-) <47>", "ps headers          :-) <000001ba 44000400 0401>",
                                   "ac3 headers         :-) <0b77>", "ts headers          :-( <0b>",
                                   "ps headers          :-( <47401110>", "ac3 headers         :-( <0000>"}));
}

TEST_F(HeaderProbe, EmptyFileFailsEveryKind) {
  const std::string empty = file("");
  for (const std::int64_t kind : {0, 1, 2}) EXPECT_FALSE(streamHeaderProbe(empty, kind));
  EXPECT_EQ(record.lines(),
            (Texts{"ts headers          :-( <>", "ps headers          :-( <>", "ac3 headers         :-( <>"}));
}

TEST_F(HeaderProbe, Mpeg1PackHeaderFails) {
  EXPECT_FALSE(streamHeaderProbe(file("\x00\x00\x01\xBA\x21\x00\x01\x00\x01\x80"s), 1));
  EXPECT_TRUE(record.has("ps headers          :-( <000001ba 21000100 0180>"));
}

TEST_F(HeaderProbe, ProgramStreamThatStartsLaterFails) {
  EXPECT_FALSE(streamHeaderProbe(file("\x00\x00\x01\xBA\x44\x00\x04\x00\x0C\x01"s), 1));
}

TEST_F(HeaderProbe, WhatIsAskedInVainSaysNothing) {
  EXPECT_FALSE(streamHeaderProbe(std::nullopt, 0));
  EXPECT_FALSE(streamHeaderProbe(folder.file("absent"), 0));
  EXPECT_FALSE(streamHeaderProbe(file("G"), 3));
  EXPECT_FALSE(streamHeaderProbe(file("G"), -1));
  EXPECT_TRUE(record.lines().empty());
}

TEST_F(HeaderProbe, OnlyRegularFilesAreRead) {
  const std::string fifo = folder.file("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(streamHeaderProbe(fifo, 0));
  EXPECT_FALSE(streamHeaderProbe(folder.path(), 2));
  EXPECT_EQ(record.lines(), (Texts{"ts headers          :-( (null)", "ac3 headers         :-( (null)"}));
}

TEST(BitrateLimit, SevenHundredMegabytesForAnHour) {
  RecordingLog record(true);
  EXPECT_EQ(bitrateLimit(700, 3600.0F), 1439);
  EXPECT_EQ(record.lines(), (Texts{"duration            : 3600.00\"", "poidsAVMax          : 700 MB > 5872026 bits",
                                   "poidsA              : 82 MB (691200 bits)", "poidsV              : 5180826",
                                   "bitrate Limited     : 1439 kb/s"}));
}

TEST(BitrateLimit, QuietWithoutTheVerboseSwitch) {
  RecordingLog record;
  bitrateLimit(700, 3600.0F);
  EXPECT_TRUE(record.lines().empty());
}

TEST(BitrateLimit, BudgetBelowTheAudioIsNegativeAndTruncatedTowardZero) {
  // 8388.608 - 192 x 60 = -3131.392; a sixtieth of it is -52.19.
  EXPECT_EQ(bitrateLimit(1, 60.0F), -52);
  EXPECT_EQ(bitrateLimit(0, 60.0F), -192);
}

TEST(BitrateLimit, SizesAreSinglePrecision) {
  // 2^24 + 1 megabytes are 2^24 in single precision.
  EXPECT_EQ(bitrateLimit(16777217, 1.0F), bitrateLimit(16777216, 1.0F));
}

TEST(BitrateLimit, NoDurationIsWhateverTheDivisionGives) {
  EXPECT_EQ(bitrateLimit(700, 0.0F), std::numeric_limits<std::int64_t>::max());
}

}  // namespace
}  // namespace vistrelle
