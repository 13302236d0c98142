#include "vistrelle/platform/dialogs/wire.h"

#include <gtest/gtest.h>

namespace vistrelle::platform::wire {
namespace {

TEST(Wire, TextsSurviveAnyCut) {
  const Texts first{"", "shown", std::string("a\0b", 3), "Été"};
  const Texts second;
  const std::string stream = encode(first) + encode(second) + encode(first);
  for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
    Decoder decoder;
    std::vector<Texts> received;
    for (const auto& part : {stream.substr(0, cut), stream.substr(cut)}) {
      decoder.add(part);
      while (auto texts = decoder.next()) received.push_back(*texts);
    }
    EXPECT_EQ(received, (std::vector<Texts>{first, second, first}));
    EXPECT_FALSE(decoder.failed());
  }
}

TEST(Wire, NonsenseIsNoticed) {
  Decoder tooLong;
  tooLong.add("\xFF\xFF\xFF\xFF");
  EXPECT_EQ(tooLong.next(), std::nullopt);
  EXPECT_TRUE(tooLong.failed());

  // A text that is said to be longer than its message, and a length that is cut short.
  for (const std::string& body : {std::string("\x09\0\0\0ab", 6), std::string("\x01\0", 2)}) {
    Decoder decoder;
    decoder.add(std::string(1, static_cast<char>(body.size())) + std::string(3, '\0') + body);
    EXPECT_EQ(decoder.next(), std::nullopt);
    EXPECT_TRUE(decoder.failed());
    decoder.add(encode({"shown"}));
    EXPECT_EQ(decoder.next(), std::nullopt);
  }
}

TEST(Wire, ContentsSurvive) {
  AlertContent content;
  content.message = "m";
  content.alternateButton = "";
  content.otherButton = "+C";
  content.critical = true;
  content.checkbox = "";
  content.field = AlertField{"text", 300, 40.5};
  const auto read = contentFromTexts(contentToTexts(content));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->message, "m");
  EXPECT_EQ(read->informative, "");
  EXPECT_EQ(read->defaultButton, std::nullopt);
  EXPECT_EQ(read->alternateButton, "");
  EXPECT_EQ(read->otherButton, "+C");
  EXPECT_TRUE(read->critical);
  EXPECT_EQ(read->checkbox, "");
  ASSERT_TRUE(read->field);
  EXPECT_EQ(read->field->text, "text");
  EXPECT_EQ(read->field->width, 300);
  EXPECT_EQ(read->field->height, 40.5);
  content.field.reset();
  EXPECT_FALSE(contentFromTexts(contentToTexts(content))->field);
}

TEST(Wire, AnythingElseIsNoContent) {
  EXPECT_FALSE(contentFromTexts({}));
  EXPECT_FALSE(contentFromTexts({"a", "b", "c"}));
  EXPECT_FALSE(contentFromTexts(Texts(11)));
}

}  // namespace
}  // namespace vistrelle::platform::wire
