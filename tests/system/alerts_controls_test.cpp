#include <gtest/gtest.h>

#include "vistrelle/system/alerts.h"

namespace vistrelle {
namespace {

class FakeView : public platform::View {
 public:
  FakeView(std::string name, bool enablable, std::vector<std::shared_ptr<platform::View>> children = {})
      : name_(std::move(name)), enablable_(enablable), children_(std::move(children)) {}
  bool answersSetEnabled() const override { return enablable_; }
  void setEnabled(bool on) override { enabled = on; }
  std::string className() const override { return name_; }
  void setTextColour(platform::ControlTextColour chosen) override { colour = chosen; }
  std::vector<std::shared_ptr<platform::View>> subviews() const override { return children_; }

  std::optional<bool> enabled;
  std::optional<platform::ControlTextColour> colour;

 private:
  std::string name_;
  bool enablable_;
  std::vector<std::shared_ptr<platform::View>> children_;
};

TEST(SetControlsEnabled, ATextFieldTakesTheColour) {
  const auto field = std::make_shared<FakeView>("NSTextField", true);
  setControlsEnabled(field, false);
  EXPECT_EQ(field->enabled, std::optional<bool>(false));
  EXPECT_EQ(field->colour, platform::ControlTextColour::Disabled);
  setControlsEnabled(field, true);
  EXPECT_EQ(field->enabled, std::optional<bool>(true));
  EXPECT_EQ(field->colour, platform::ControlTextColour::Enabled);
}

TEST(SetControlsEnabled, ABoxPassesItOnTwoLevelsDown) {
  const auto button = std::make_shared<FakeView>("NSButton", true);
  const auto inner = std::make_shared<FakeView>("NSTextField", true);
  const auto innerContent =
      std::make_shared<FakeView>("NSView", false, std::vector<std::shared_ptr<platform::View>>{inner});
  const auto innerBox =
      std::make_shared<FakeView>("NSBox", false, std::vector<std::shared_ptr<platform::View>>{innerContent});
  const auto content =
      std::make_shared<FakeView>("NSView", true, std::vector<std::shared_ptr<platform::View>>{button, innerBox});
  const auto box = std::make_shared<FakeView>("NSBox", false, std::vector<std::shared_ptr<platform::View>>{content});
  setControlsEnabled(box, false);
  EXPECT_EQ(button->enabled, std::optional<bool>(false));
  EXPECT_EQ(button->colour, std::nullopt);
  EXPECT_EQ(inner->enabled, std::optional<bool>(false));
  EXPECT_EQ(inner->colour, platform::ControlTextColour::Disabled);
  // The content view itself is stepped over, and a box that answers no setEnabled keeps its state.
  EXPECT_EQ(content->enabled, std::nullopt);
  EXPECT_EQ(box->enabled, std::nullopt);
}

TEST(SetControlsEnabled, OtherViewsAreNotEntered) {
  const auto button = std::make_shared<FakeView>("NSButton", true);
  const auto content = std::make_shared<FakeView>("NSView", true, std::vector<std::shared_ptr<platform::View>>{button});
  const auto view = std::make_shared<FakeView>("NSView", true, std::vector<std::shared_ptr<platform::View>>{content});
  setControlsEnabled(view, false);
  EXPECT_EQ(view->enabled, std::optional<bool>(false));
  EXPECT_EQ(content->enabled, std::nullopt);
  EXPECT_EQ(button->enabled, std::nullopt);
  setControlsEnabled(nullptr, true);
}

}  // namespace
}  // namespace vistrelle
