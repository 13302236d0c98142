#include "vistrelle/movieinfo/codec_names.h"

#include <gtest/gtest.h>

namespace vistrelle {
namespace {

struct Row {
  const char* code;
  const char* name;
};

TEST(VideoCodecName, EveryRow) {
  for (const Row row : {Row{"avc1", "h264"},    {"m2v", "mpeg2video"},  {"m2s", "mpeg2video"},  {"mp2v", "mpeg2video"},
                        {"m2v1", "mpeg2video"}, {"hdv1", "mpeg2video"}, {"hdv2", "mpeg2video"}, {"hdv3", "mpeg2video"},
                        {"m1v", "mpeg1video"},  {"mpeg", "mpeg1video"}, {"m1s", "mpeg1video"},  {"m1v1", "mpeg1video"},
                        {"flv1", "flv"},        {"div3", "divx"},       {"div4", "divx"},       {"div5", "divx"},
                        {"div6", "divx"},       {"div", "divx"},        {"dx45", "divx"},       {"mp4v", "mpeg4"},
                        {"xvid", "mpeg4"},      {"mp43", "msmpeg4"},    {"mp42", "msmpeg4v2"},  {"cvid", "cinepack"},
                        {"rle", "qtrle"},       {"AVC1", "h264"},       {"FLV1", "flv"}}) {
    EXPECT_EQ(videoCodecName(row.code), row.name) << row.code;
  }
}

TEST(VideoCodecName, Dx50IsDivxAndNeverMpeg4) {
  EXPECT_EQ(videoCodecName("DX50"), "divx");
  EXPECT_EQ(videoCodecName("dx50"), "divx");
}

TEST(VideoCodecName, BlanksStay) {
  EXPECT_EQ(videoCodecName("rle "), "rle ");
  EXPECT_EQ(videoCodecName("m2v "), "m2v ");
  EXPECT_EQ(videoCodecName("div "), "div ");
}

TEST(VideoCodecName, OthersAreTheirOwnNameInLowerCase) {
  EXPECT_EQ(videoCodecName("HVC1"), "hvc1");
  EXPECT_EQ(videoCodecName("encv"), "encv");
  EXPECT_EQ(videoCodecName(""), "");
}

TEST(AudioCodecName, EveryRow) {
  for (const Row row : {Row{"mp4a", "aac"},
                        {".mp2", "mp2"},
                        {".mp3", "mp3"},
                        {"twos", "pcm_s16be"},
                        {"sowt", "pcm_s16le"},
                        {"ima4", "adpcm_ima_qt"},
                        {"wma2", "wmav2"},
                        {"wma", "vc1"},
                        {"WMA ", "vc1"},
                        {"wmva", "vc1"},
                        {"ms .", "ac3"},
                        {"ac-3", "ac3"},
                        {"lpcm", "lpcm"}}) {
    EXPECT_EQ(audioCodecName(row.code), row.name) << row.code;
  }
}

TEST(AudioCodecName, OneBlankAtTheEndIsDropped) {
  EXPECT_EQ(audioCodecName("aac "), "aac");
  EXPECT_EQ(audioCodecName("ab  "), "ab ");
  EXPECT_EQ(audioCodecName(" "), "");
}

TEST(AudioCodecName, TheRowWithTheCapitalNeverMatches) {
  EXPECT_EQ(audioCodecName("ms.U"), "ms.u");
  EXPECT_EQ(audioCodecName("ms.u"), "ms.u");
}

}  // namespace
}  // namespace vistrelle
