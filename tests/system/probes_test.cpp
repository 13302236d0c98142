#include "vistrelle/system/probes.h"

#include <unistd.h>

#include <filesystem>
#include <limits>
#include <map>

#include "tests/system/system_fixture.h"
#include "vistrelle/platform/bundle/bundle.h"
#include "vistrelle/platform/bundle/folder_bundle.h"
#include "vistrelle/platform/process/machine.h"
#include "vistrelle/platform/workspace/workspace.h"

namespace vistrelle {
namespace {

namespace fs = std::filesystem;
using platform::Colour;
using platform::OptionalValue;
using platform::Value;

/// A machine that answers what a test tells it.
struct ToldMachine : platform::ForwardingMachine {
  ToldMachine() : ForwardingMachine(platform::localMachine()) {}
  std::optional<std::int64_t> answer(std::string_view question) override { return find(answers, question); }
  std::optional<std::int64_t> hardwareNumber(std::string_view name) override { return find(numbers, name); }
  std::string systemVersion() override { return version; }

  using Answers = std::map<std::string, std::int64_t, std::less<>>;
  static std::optional<std::int64_t> find(const Answers& from, std::string_view name) {
    const auto found = from.find(name);
    if (found == from.end()) return std::nullopt;
    return found->second;
  }
  Answers answers;
  Answers numbers;
  std::string version = "Version 12 (Build 6.1.0)";
};

struct ToldWorkspace : platform::ForwardingWorkspace {
  ToldWorkspace() : ForwardingWorkspace(nullptr) {}
  bool openUrl(const platform::Url& url) override {
    opened.push_back(url.text);
    return true;
  }
  bool displayIsAccelerated() override { return accelerated; }
  void noteFileSystemChanged(const std::string&) override {}
  std::vector<std::string> opened;
  bool accelerated = false;
};

template <typename Fixture>
class Told : public Fixture {
 protected:
  std::shared_ptr<ToldMachine> machine_ = std::make_shared<ToldMachine>();
  platform::Installed<platform::Machine> installedMachine_{platform::machine(), machine_};
  std::shared_ptr<ToldWorkspace> workspace_ = std::make_shared<ToldWorkspace>();
  platform::Installed<platform::Workspace> installedWorkspace_{platform::workspace(), workspace_};
};
using ProbesTest = Told<SystemTest>;
using ProbesVerboseTest = Told<VerboseSystemTest>;

/// A bundle whose tools folder holds the distribution's tools.
class DvdToolsTest : public VerboseSystemTest {
 protected:
  void tool(const std::string& name, const std::string& script) {
    const auto path = write("tools/" + name, "#!/bin/sh\n" + script);
    fs::permissions(path, fs::perms::owner_all);
  }
  platform::Installed<platform::Bundle> bundle_{platform::mainBundle(),
                                                platform::folderBundle({"Studio", scratch_.path(), {}})};
};

TEST_F(DvdToolsTest, RealToolsOfTheDistribution) {
  ASSERT_TRUE(fs::exists("/usr/bin/spumux")) << "the package dvdauthor is needed";
  fs::create_directories(file("tools"));
  for (const char* name : {"spumux", "dvdauthor"}) {
    fs::create_symlink(std::string("/usr/bin/") + name, file("tools/") + name);
  }
  // 0.7.2 in Debian 12.
  for (const bool spumux : {true, false}) {
    const float version = dvdToolVersion(spumux);
    EXPECT_GT(version, 0.0F);
    EXPECT_LT(version, 1.0F);
    EXPECT_TRUE(log_.has(platform::format("versionSpumuxDvdauth: {:f}", version)));
  }
  EXPECT_TRUE(log_.hasContaining("versionSpumux       : DVDAuthor::spumux, version"));
}

TEST_F(DvdToolsTest, FirstLineWithAVersionAboveNothingCounts) {
  tool("spumux",
       "echo 'no number'; echo 'version none' 1>&2; echo 'spumux, version 1.2.3 and more'; echo 'version 9'\n");
  EXPECT_FLOAT_EQ(dvdToolVersion(true), 1.0203F);
  tool("dvdauthor", "echo 'version zero'\n");
  EXPECT_EQ(dvdToolVersion(false), 0.0F);
  EXPECT_TRUE(log_.has("versionSpumuxDvdauth: 0.000000"));
}

TEST_F(DvdToolsTest, AbsentAndSilentToolsHaveNoVersion) {
  EXPECT_EQ(dvdToolVersion(true), 0.0F);
  tool("spumux", "exit 0\n");
  EXPECT_EQ(dvdToolVersion(true), 0.0F);
  EXPECT_TRUE(log_.has("versionSpumux       : nil"));
}

TEST_F(ProbesTest, PackedSystemVersionBefore104) {
  machine_->answers = {{"sysv", 0x1039}};
  EXPECT_FLOAT_EQ(versionOS(), 10.0309F);
  EXPECT_TRUE(log_.has("Operating System    : 10.3.9"));
}

TEST_F(ProbesTest, SystemVersionInParts) {
  machine_->answers = {{"sysv", 0x1095}, {"sys1", 10}, {"sys2", 9}, {"sys3", 5}};
  EXPECT_FLOAT_EQ(versionOS(), 10.0905F);
  EXPECT_TRUE(log_.has("Operating System    : 10.9.5"));
}

TEST_F(ProbesTest, SystemVersionFromTheReleaseFile) {
  machine_->version = "Version 7.6 (Build 1)";
  for (const ToldMachine::Answers& answers : {ToldMachine::Answers{}, ToldMachine::Answers{{"sysv", 0x1095}},
                                              ToldMachine::Answers{{"sysv", 0x1095}, {"sys1", 10}, {"sys2", 9}}}) {
    machine_->answers = answers;
    EXPECT_FLOAT_EQ(versionOS(), 7.06F);
  }
  EXPECT_TRUE(log_.hasContaining("OS version (#2)     : 7.6 (->"));
  EXPECT_FALSE(log_.hasContaining("Operating System"));
}

TEST_F(ProbesTest, SystemWithoutAVersionIsUnknown) {
  for (const char* version : {"", "Version", "Version 12", "12"}) {
    machine_->version = version;
    EXPECT_EQ(versionOS(), -1.0F) << version;
  }
}

TEST_F(SystemTest, ThisSystemsVersion) {
  EXPECT_GT(versionOS(), 0.0F);
  EXPECT_TRUE(log_.hasContaining("OS version (#2)     : "));
}

TEST_F(ProbesTest, QuickTimeVersion) {
  EXPECT_EQ(versionQT(), 0.0F);
  EXPECT_TRUE(log_.has("versionQT           :-( echec"));
  machine_->answers = {{"qtim", 0x07628000}};
  EXPECT_FLOAT_EQ(versionQT(), 7.0602F);
  EXPECT_TRUE(log_.has("QuickTime           : 7.6.2"));
}

TEST_F(ProbesVerboseTest, QuickTimeNumber) {
  machine_->answers = {{"qtim", 0x10600000}};
  EXPECT_FLOAT_EQ(versionQT(), 16.06F);
  EXPECT_TRUE(log_.has("QuickTime           : 16.6.0"));
  EXPECT_TRUE(log_.has("16.059999"));
}

TEST_F(ProbesTest, DisplayAcceleration) {
  EXPECT_FALSE(isQuartzExtreme());
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{
                "Quartz Extreme      :-( not compatible video card",
                "INFORMATION         : if you have two graphic cards, the two cards must be Quartz Extreme compatible.",
                "                      if this is not the case, please remove the non compatible card."}));
  log_.clear();
  workspace_->accelerated = true;
  EXPECT_TRUE(isQuartzExtreme());
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"Quartz Extreme      :-) compatible video card"});
}

TEST_F(ProbesVerboseTest, ProcessorSubtype) {
  EXPECT_FALSE(cpuG3());
  EXPECT_EQ(log_.lines(), (std::vector<std::string>{"cpuSubtype          : 750", "cpu > G3            :-)"}));
  log_.clear();
  machine_->numbers = {{"hw.cpusubtype", 9}};
  EXPECT_TRUE(cpuG3());
  EXPECT_EQ(log_.lines(), (std::vector<std::string>{"cpuSubtype          : 9", "cpuG3               :-("}));
}

TEST_F(ProbesTest, ProcessorsAreCounted) {
  const auto count = processorCount();
  EXPECT_EQ(count, ::sysconf(_SC_NPROCESSORS_CONF));
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"Processors/Cores    x " + std::to_string(count)});
}

TEST_F(ProbesTest, ColourOfAText) {
  const Colour orange{1, 128 / 255.0, 0, 1};
  EXPECT_EQ(colorHexaRgb("#FF8000"), Value(orange));
  EXPECT_EQ(colorHexaRgb("ff8000"), Value(orange));
  EXPECT_EQ(colorHexaRgb("#FF8000 and more"), Value(orange));
  const Colour black{0, 0, 0, 1};
  for (const char* text : {"", "#", "xyz", "##FF8000", " FF8000", "0xFF8000"}) {
    EXPECT_EQ(colorHexaRgb(text), Value(black)) << text;
  }
  EXPECT_EQ(colorHexaRgb("F"), Value(Colour{0, 0, 15 / 255.0, 1}));
  EXPECT_EQ(colorHexaRgb("12FF8000"), Value(orange));
  EXPECT_EQ(colorHexaRgb("123456789ABCDEF"), Value(Colour{1, 1, 1, 1}));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(ProbesTest, TextOfAColour) {
  EXPECT_EQ(colorHexaRgb(*colorHexaRgb("#FF8000")), Value("ff8000"));
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"colorHexaRgb        :-) ff8000"});
  EXPECT_EQ(colorHexaRgb(Colour{0.5, 0, 1, 0.25}), Value("7f00ff"));
  EXPECT_EQ(colorHexaRgb(Colour{-1, 2, 0, 1}), Value("00ff00"));
  for (int value = 0; value < 256; ++value) {
    const std::string text = platform::format("{:02x}{:02x}{:02x}", value, 255 - value, value);
    EXPECT_EQ(colorHexaRgb(*colorHexaRgb(text)), Value(text));
  }
}

TEST_F(ProbesTest, ColourThatCannotBeConvertedAndOtherObjects) {
  EXPECT_FALSE(colorHexaRgb(Colour{std::numeric_limits<double>::quiet_NaN(), 0, 0, 1}));
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"colorHexaRgb        :-( nil"});
  EXPECT_FALSE(colorHexaRgb(12));
  EXPECT_FALSE(colorHexaRgb(std::nullopt));
  EXPECT_EQ(log_.lines().size(), 1U);
}

TEST_F(ProbesVerboseTest, LinesOfColours) {
  const auto colour = colorHexaRgb("#FF8000");
  EXPECT_EQ(log_.lines(), (std::vector<std::string>{"colorHexaRgb…", "colorHexaRgb: hexa -> …",
                                                    "colorHexaRgb        :-) " + platform::description(colour)}));
  log_.clear();
  colorHexaRgb(colour);
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{"colorHexaRgb…", "colorHexaRgb: rgb -> …", "colorHexaRgb        :-) ff8000"}));
}

TEST_F(ProbesTest, UrlIsOpenedByTheWorkspace) {
  openURLText("http://localhost/a");
  openURLText(std::nullopt);
  EXPECT_EQ(workspace_->opened, std::vector<std::string>{"http://localhost/a"});
}

TEST_F(ProbesTest, AppleScriptDoesNothing) {
  EXPECT_FALSE(runAppleScript("beep"));
  EXPECT_FALSE(runAppleScript(std::nullopt));
  EXPECT_EQ(log_.count("runAppleScript      :-( not available"), 2);
}

}  // namespace
}  // namespace vistrelle
