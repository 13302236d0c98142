#include "vistrelle/platform/dialogs/alert_content.h"

#include <gtest/gtest.h>

namespace vistrelle::platform {
namespace {

std::vector<std::string> captions(const OptionalText& first, const OptionalText& alternate, const OptionalText& other) {
  AlertContent content;
  content.defaultButton = first;
  content.alternateButton = alternate;
  content.otherButton = other;
  std::vector<std::string> texts;
  for (const auto& button : alertButtons(content)) texts.push_back(button.caption);
  return texts;
}

TEST(AlertButtons, StandInListOrder) {
  using Captions = std::vector<std::string>;
  EXPECT_EQ(captions({}, {}, {}), Captions{"OK"});
  EXPECT_EQ(captions("", {}, {}), Captions{""});
  EXPECT_EQ(captions("A", "B", {}), (Captions{"A", "B"}));
  EXPECT_EQ(captions("A", "B", "C"), (Captions{"A", "C", "B"}));
  EXPECT_EQ(captions({}, {}, "C"), (Captions{"OK", "C"}));
}

TEST(CancelPosition, IsTheLastOfTwoAndTheThirdOfThree) {
  EXPECT_EQ(cancelPosition(0), 0U);
  EXPECT_EQ(cancelPosition(1), 0U);
  EXPECT_EQ(cancelPosition(2), 1U);
  EXPECT_EQ(cancelPosition(3), 2U);
}

}  // namespace
}  // namespace vistrelle::platform
