#include "vistrelle/platform/base/visible_text.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/base/value.h"

namespace vistrelle::platform {
namespace {

TEST(VisibleText, OrdinaryTextOfEveryScriptStays) {
  for (const std::string text : {"", "movie.mov", "Ünïcödé – 日本語 🎬", "a\\b 'c' \"d\""}) {
    EXPECT_EQ(visibleText(text), text);
  }
}

TEST(VisibleText, ControlCharactersAndStrayBytesAreEscaped) {
  EXPECT_EQ(visibleText("a\x1b[31mred"), "a\\x1b[31mred");
  EXPECT_EQ(visibleText("a\nb\tc\rd\bz"), "a\\nb\\tc\\rd\\x08z");
  EXPECT_EQ(visibleText("\x7f"), "\\x7f");
  EXPECT_EQ(visibleText("\xc2\x9b"), "\\u009b");  // the one-character form of ESC [
  EXPECT_EQ(visibleText("\x9b"), "\\x9b");
  EXPECT_EQ(visibleText(std::string("a\0b", 3)), "a\\x00b");
}

TEST(VisibleText, APrintedCollectionKeepsItsLines) {
  const std::string list = description(Value(List{Value("a"), Value("b")}));
  const std::string dictionary = description(Value(Dictionary{{"k", Value(List{Value(1)})}}));
  EXPECT_EQ(visibleText(list), list);
  EXPECT_EQ(visibleText(dictionary), dictionary);
  EXPECT_EQ(visibleText("(\n    \x1b\n)"), "(\n    \\x1b\n)");
  EXPECT_EQ(visibleText("(\nforged line\n)"), "(\\nforged line\\n)");
  EXPECT_EQ(visibleText("(\n    a\n)\nforged"), "(\\n    a\\n)\\nforged");
}

class Collector : public LogSink {
 public:
  explicit Collector(bool terminal) : terminal_(terminal) {}
  void message(std::string_view text) override { texts.emplace_back(text); }
  void plain(std::string_view text) override { texts.emplace_back(text); }
  bool showsToTerminal() const override { return terminal_; }
  std::vector<std::string> texts;

 private:
  bool terminal_;
};

std::vector<std::string> written(bool terminal) {
  auto sink = std::make_shared<Collector>(terminal);
  const Installed<LogSink> installed(logSink(), sink);
  log("name: '{}'\n---------- {:.2f}", "a\x1b]0;title\x07\nb", 1.5);
  plain("dst auto           : {}\n", std::string("a\nb"));
  return sink->texts;
}

TEST(VisibleText, OnATerminalTheDataOfALineIsEscapedAndItsOwnLineBreaksStay) {
  EXPECT_EQ(written(true), (std::vector<std::string>{"name: 'a\\x1b]0;title\\x07\\nb'\n---------- 1.50",
                                                     "dst auto           : a\\nb\n"}));
}

TEST(VisibleText, AProgramReadsTheDataAsItIs) {
  EXPECT_EQ(written(false),
            (std::vector<std::string>{"name: 'a\x1b]0;title\x07\nb'\n---------- 1.50", "dst auto           : a\nb\n"}));
}

}  // namespace
}  // namespace vistrelle::platform
