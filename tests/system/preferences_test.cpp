#include "vistrelle/system/preferences.h"

#include "tests/system/system_fixture.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::List;
using platform::OptionalValue;
using platform::Url;
using platform::Value;

using PreferencesTest = SystemTest;
using PreferencesVerboseTest = VerboseSystemTest;

/// Defaults on a machine without a place for them.
struct NoDefaults : platform::ForwardingDefaults {
  NoDefaults() : ForwardingDefaults(platform::fileDefaults("")) {}
};

TEST_F(PreferencesTest, KeyNeverWrittenGivesNothing) {
  EXPECT_FALSE(prefRead("absent"));
  EXPECT_FALSE(prefObject("absent"));
  EXPECT_EQ(prefReadString("absent"), "");
  EXPECT_FALSE(prefReadChild("absent", "child"));
  EXPECT_FALSE(prefRead(std::nullopt));
  EXPECT_FALSE(prefObject(std::nullopt));
  EXPECT_EQ(prefReadString(std::nullopt), "");
}

TEST_F(PreferencesTest, WrittenObjectComesBack) {
  EXPECT_TRUE(prefWrite("key", 12));
  EXPECT_EQ(prefRead("key"), Value(12));
  EXPECT_EQ(prefObject("key"), Value(12));
  EXPECT_EQ(prefReadString("key"), "12");
  EXPECT_TRUE(prefWriteBool("flag", true));
  EXPECT_EQ(prefRead("flag"), Value(true));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(PreferencesTest, MissingArgumentsAreRefused) {
  EXPECT_FALSE(prefWrite(std::nullopt, 1));
  EXPECT_FALSE(prefWrite("key", std::nullopt));
  EXPECT_FALSE(prefWriteBool(std::nullopt, true));
  EXPECT_FALSE(prefWriteDico(std::nullopt, Dictionary{}));
  EXPECT_FALSE(prefWriteDico("key", std::nullopt));
  EXPECT_FALSE(prefWriteChildDico(std::nullopt, "child", 1));
  EXPECT_FALSE(prefWriteChildDico("key", std::nullopt, 1));
  EXPECT_FALSE(prefWriteChildDico("key", "child", std::nullopt));
  EXPECT_FALSE(prefRead("key"));
}

TEST_F(PreferencesTest, MissingDefaultsRefuseWritesAndAcceptDeletions) {
  const platform::Installed<platform::UserDefaults> none(platform::userDefaults(), std::make_shared<NoDefaults>());
  EXPECT_FALSE(prefRead("key"));
  EXPECT_FALSE(prefWrite("key", 1));
  EXPECT_FALSE(prefWriteBool("key", true));
  EXPECT_FALSE(prefWriteDico("key", Dictionary{}));
  EXPECT_FALSE(prefWriteChildDico("key", "child", 1));
  EXPECT_TRUE(prefDeleteChildDico("key", "child"));
  EXPECT_TRUE(prefDelete("key"));
  EXPECT_FALSE(isDeveloperMachine());
}

TEST_F(PreferencesTest, ChildOnAnAbsentKeyMakesADictionaryAndASecondOneKeepsTheFirst) {
  EXPECT_TRUE(prefWriteChildDico("key", "first", 1));
  EXPECT_EQ(prefRead("key"), Value(Dictionary{{"first", 1}}));
  EXPECT_TRUE(prefWriteChildDico("key", "second", "two"));
  EXPECT_EQ(prefRead("key"), Value(Dictionary{{"first", 1}, {"second", "two"}}));
  EXPECT_EQ(prefReadChild("key", "second"), Value("two"));
  EXPECT_FALSE(prefReadChild("key", "third"));
  EXPECT_FALSE(prefReadChild("key", std::nullopt));
  EXPECT_FALSE(prefReadChild(std::nullopt, "first"));
}

TEST_F(PreferencesTest, ChildOfAValueThatIsNoDictionary) {
  prefWrite("key", 12);
  EXPECT_FALSE(prefReadChild("key", "child"));
  EXPECT_TRUE(prefDeleteChildDico("key", "child"));
  EXPECT_EQ(prefRead("key"), Value(12));
  EXPECT_TRUE(prefWriteChildDico("key", "child", 1));
  EXPECT_EQ(prefRead("key"), Value(Dictionary{{"child", 1}}));
}

TEST_F(PreferencesTest, DeletingAnAbsentChildLeavesThePreference) {
  prefWriteChildDico("key", "first", 1);
  const auto before = testing::readFile(preferencesFile());
  EXPECT_TRUE(prefDeleteChildDico("key", "absent"));
  EXPECT_TRUE(prefDeleteChildDico("absent", "first"));
  EXPECT_TRUE(prefDeleteChildDico(std::nullopt, "first"));
  EXPECT_TRUE(prefDeleteChildDico("key", std::nullopt));
  EXPECT_EQ(testing::readFile(preferencesFile()), before);
}

TEST_F(PreferencesTest, DeletingAChildKeepsTheOthers) {
  prefWriteChildDico("key", "first", 1);
  prefWriteChildDico("key", "second", 2);
  EXPECT_TRUE(prefDeleteChildDico("key", "first"));
  EXPECT_EQ(prefRead("key"), Value(Dictionary{{"second", 2}}));
}

TEST_F(PreferencesTest, DeletedKeyIsGone) {
  prefWrite("key", 1);
  EXPECT_TRUE(prefDelete("key"));
  EXPECT_FALSE(prefRead("key"));
  EXPECT_TRUE(prefDelete("key"));
  EXPECT_TRUE(prefDelete(std::nullopt));
  EXPECT_FALSE(log_.has("hasUnappliedChanges :-("));
}

TEST_F(PreferencesTest, DeletionTellsOfUnappliedChanges) {
  struct Behind : platform::ForwardingDefaults {
    using ForwardingDefaults::ForwardingDefaults;
    bool hasUnappliedChanges() override { return true; }
  };
  const platform::Installed<platform::UserDefaults> behind(
      platform::userDefaults(), std::make_shared<Behind>(platform::fileDefaults(preferencesFile())));
  EXPECT_TRUE(prefDelete("key"));
  EXPECT_EQ(log_.count("hasUnappliedChanges :-("), 1);
}

TEST_F(PreferencesTest, DictionaryReplacesTheOldOne) {
  prefWriteDico("key", Dictionary{{"a", 1}, {"b", 2}});
  EXPECT_TRUE(prefWriteDico("key", Dictionary{{"c", 3}}));
  EXPECT_EQ(prefRead("key"), Value(Dictionary{{"c", 3}}));
}

TEST_F(PreferencesTest, DeveloperMachineIsTheOneWithTheMakersDomain) {
  EXPECT_FALSE(isDeveloperMachine());
  prefWrite("id", "somebody@elsewhere.example");
  EXPECT_FALSE(isDeveloperMachine());
  prefWrite("id", 12);
  EXPECT_FALSE(isDeveloperMachine());
  prefWrite("id", "me@vistrelle.example");
  EXPECT_TRUE(isDeveloperMachine());
}

TEST_F(PreferencesVerboseTest, LinesOfReading) {
  prefRead("key");
  prefWrite("key", std::string(60, 'x'));
  log_.clear();
  prefObject("key");
  EXPECT_TRUE(log_.lines().empty());
  prefRead("key");
  EXPECT_EQ(prefReadString("key"), std::string(60, 'x'));
  EXPECT_EQ(log_.count("prefRead            : " + std::string(50, 'x') + " […]"), 2);
}

TEST_F(PreferencesVerboseTest, LinesOfWriting) {
  prefWrite("key", 1);
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{"prefWrite           - old ? nil", "prefWrite           - def : 1"}));
  log_.clear();
  prefWrite("key", 2);
  EXPECT_EQ(log_.lines(), (std::vector<std::string>{"prefWrite           - old ? 1", "prefWrite           - def : 2"}));
}

TEST_F(PreferencesVerboseTest, LinesOfWritingAFlag) {
  const auto linesFor = [this](const OptionalValue& former) {
    prefDelete("key");
    if (former) platform::userDefaults().get()->set("key", *former);
    log_.clear();
    prefWriteBool("key", true);
    EXPECT_EQ(log_.lines().at(1), "prefWrite           - def : 1");
    return log_.lines().at(0);
  };
  EXPECT_EQ(linesFor(std::nullopt), "prefWrite           - old ? -1");
  EXPECT_EQ(linesFor(true), "prefWrite           - old ? 1");
  EXPECT_EQ(linesFor(false), "prefWrite           - old ? 0");
  EXPECT_EQ(linesFor(7), "prefWrite           - old ? 1");
  EXPECT_EQ(linesFor(0), "prefWrite           - old ? 0");
  EXPECT_EQ(linesFor(" yes"), "prefWrite           - old ? 1");
  EXPECT_EQ(linesFor("+001"), "prefWrite           - old ? 1");
  EXPECT_EQ(linesFor("no"), "prefWrite           - old ? 0");
  EXPECT_EQ(linesFor("000"), "prefWrite           - old ? 0");
  EXPECT_EQ(linesFor(List{1}), "prefWrite           - old ? 0");
}

TEST_F(PreferencesVerboseTest, LinesOfDictionaries) {
  prefWriteDico("key", Dictionary{});
  EXPECT_TRUE(log_.lines().empty());
  prefWriteDico("key", Dictionary{});
  EXPECT_TRUE(log_.has("prefWriteDico       - old does not exist anymore :-)"));
  prefWriteChildDico("other", "child", "v");
  prefWriteChildDico("other", "child", "w");
  EXPECT_TRUE(log_.has("prefWriteChildDico  : new key=child, new value=v"));
  EXPECT_TRUE(log_.has("prefWriteChildDico  : new key=child, new value=w"));
  prefDeleteChildDico("other", "child");
  EXPECT_TRUE(log_.has("key to delete       : key=child, value=w"));
}

TEST_F(PreferencesTest, ValueThatCannotBeStoredLeavesALine) {
  EXPECT_TRUE(prefWrite("key", Url{"http://a"}));
  EXPECT_TRUE(log_.hasContaining("'key' is not stored"));
  EXPECT_FALSE(prefRead("key"));
}

}  // namespace
}  // namespace vistrelle
