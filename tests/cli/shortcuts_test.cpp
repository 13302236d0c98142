#include "vistrelle/cli/shortcuts.h"

#include <gtest/gtest.h>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle {
namespace {

TEST(MarkerReaders, EachReadsItsMarker) {
  EXPECT_EQ(progressTime("frame= 10 time=00:01:02.50 bitrate"), 62.5F);
  EXPECT_EQ(progressSteps("steps          : 7"), 7.0F);
  EXPECT_EQ(progressSteps("steps : 7"), 0.0F);
  EXPECT_EQ(progressPourcentage("pourcentage    : 12.5\n"), 12.5F);
  EXPECT_EQ(progressBatch("x (batch 3/9)"), 3.0F);
  EXPECT_EQ(progressProcessing("Processing (4)"), 4.0F);
  EXPECT_EQ(progressBar("50 | (5%)"), 5.0F);
  for (auto* reader :
       {&progressTime, &progressSteps, &progressPourcentage, &progressBatch, &progressProcessing, &progressBar}) {
    EXPECT_EQ(reader("nothing"), 0.0F);
    EXPECT_EQ(reader(std::nullopt), 0.0F);
  }
}

TEST(EncodePercent, SinglePrecisionInOrder) {
  EXPECT_EQ(encodePercent("Enc1 250 x", 25, 10.0F), 100.0F);
  EXPECT_EQ(encodePercent("Enc1 1", 7, 3.0F), 1.0F / 3.0F / 7.0F * 100.0F);
  EXPECT_EQ(encodePercent("none", 25, 10.0F), 0.0F);
}

TEST(DescriptionClip, FiftyCharacters) {
  EXPECT_EQ(descriptionClip(std::string(51, 'x')), std::string(50, 'x') + " […]");
  EXPECT_EQ(descriptionClip(12), "12");
}

TEST(DateCreation2NameForms, WithAndWithoutId) {
  testing::RecordingLog log;
  const testing::ScratchFolder folder;
  const std::string path = folder.write("a.mov", "");
  EXPECT_EQ(dateCreation2NameWithId(path)->substr(19), " (id) a");
  EXPECT_TRUE(dateCreation2NameClip(path)->starts_with("clip-"));
  EXPECT_EQ(dateCreation2NameClip(std::nullopt), std::nullopt);
}

}  // namespace
}  // namespace vistrelle
