#include "vistrelle/system/property_lists.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/support/loopback_server.h"
#include "tests/system/system_fixture.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/system/web.h"

namespace vistrelle {
namespace {

namespace fs = std::filesystem;
using platform::Date;
using platform::Dictionary;
using platform::List;
using platform::Url;
using platform::Value;
using testing::LoopbackServer;

using PropertyListsTest = SystemTest;
using PropertyListsVerboseTest = VerboseSystemTest;
using WebTest = SystemTest;
using WebVerboseTest = VerboseSystemTest;

TEST_F(PropertyListsTest, ColonIsRemovedAndExtensionAdded) {
  EXPECT_TRUE(writePlist(file("a:b"), Dictionary{{"k", 1}}));
  EXPECT_TRUE(fs::exists(file("ab.plist")));
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{"No error creating XML data…", "write plist         :-) " + file("ab.plist")}));
  EXPECT_EQ(testing::readFile(file("ab.plist")).substr(0, 8), "bplist00");
  EXPECT_TRUE(writePlist(file("c.plist"), List{1}));
  EXPECT_TRUE(fs::exists(file("c.plist")));
  EXPECT_TRUE(writePlist(file("c.txt"), List{1}));
  EXPECT_TRUE(fs::exists(file("c.txt.plist")));
}

TEST_F(PropertyListsTest, WrittenDictionaryComesBack) {
  const Dictionary value = {{"date", Date(std::chrono::seconds(5))}, {"list", List{1, "é", Dictionary{{"a", true}}}}};
  EXPECT_TRUE(writePlist(file("a.plist"), value));
  EXPECT_EQ(readPlist(file("a.plist")), value);
}

TEST_F(PropertyListsTest, MissingArgumentsAreRefused) {
  EXPECT_FALSE(writePlist(std::nullopt, 1));
  EXPECT_FALSE(writePlist(file("a"), std::nullopt));
  EXPECT_FALSE(readPlist(std::nullopt));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(PropertyListsTest, ObjectThatCannotBeSerialised) {
  EXPECT_FALSE(writePlist(file("a.plist"), List{Url{"http://a"}}));
  EXPECT_EQ(log_.lines(), (std::vector<std::string>{"property lists cannot contain a URL", "error release       - pre",
                                                    "error release       - post"}));
  EXPECT_FALSE(fs::exists(file("a.plist")));
}

TEST_F(PropertyListsTest, FileThatCannotBeWritten) {
  EXPECT_FALSE(writePlist(file("absent/a.plist"), 1));
  EXPECT_TRUE(log_.has("write plist         :-( " + file("absent/a.plist")));
}

TEST_F(PropertyListsTest, OlderFileThatCannotBeReplacedStillCounts) {
  struct FullDisk : platform::ForwardingFileManager {
    using ForwardingFileManager::ForwardingFileManager;
    platform::FileResult writeByReplacing(const std::string& path, platform::Bytes) override { return {ENOSPC, path}; }
  };
  EXPECT_TRUE(writePlist(file("a.plist"), 1));
  const auto before = testing::readFile(file("a.plist"));
  const platform::Installed<platform::FileManager> full(platform::fileManager(),
                                                        std::make_shared<FullDisk>(platform::fileManager().get()));
  log_.clear();
  EXPECT_TRUE(writePlist(file("a.plist"), 2));
  EXPECT_EQ(testing::readFile(file("a.plist")), before);
  EXPECT_TRUE(log_.hasContaining("writePlist          :-( No space left on device"));
  EXPECT_TRUE(log_.has("write plist         :-) " + file("a.plist")));
}

TEST_F(PropertyListsTest, NumberUnderBirthdateIsReplaced) {
  for (const Value& number : {Value(12), Value(0.5), Value(std::uint64_t{1} << 63U)}) {
    writePlist(file("a.plist"), Dictionary{{"Birthdate", number}, {"other", 12}});
    EXPECT_EQ(readPlist(file("a.plist")), (Dictionary{{"Birthdate", 1564.0}, {"other", 12}}));
  }
  for (const Value& other : {Value("12"), Value(true), Value(Date())}) {
    writePlist(file("a.plist"), Dictionary{{"Birthdate", other}});
    EXPECT_EQ(readPlist(file("a.plist")), (Dictionary{{"Birthdate", other}}));
  }
}

TEST_F(PropertyListsTest, WhatIsNoDictionaryGivesNothingAndALine) {
  EXPECT_FALSE(readPlist(file("absent.plist")));
  EXPECT_TRUE(log_.has("readPlist           :-( '" + file("absent.plist") + "' (open: No such file or directory)"));
  writePlist(file("list.plist"), List{1});
  EXPECT_FALSE(readPlist(file("list.plist")));
  EXPECT_TRUE(log_.has("readPlist           :-( '" + file("list.plist") + "' (not a dictionary)"));
  EXPECT_FALSE(readPlist(write("text.plist", "hello")));
  EXPECT_TRUE(log_.has("readPlist           :-( '" + file("text.plist") + "' (not a property list)"));
  EXPECT_FALSE(readPlist(scratch_.path()));
}

TEST_F(PropertyListsTest, CreationDateIsTheOlderOne) {
  const auto path = write("a.txt", "");
  setModificationDate(path, Date(std::chrono::seconds(1'000'000'000)));
  EXPECT_EQ(creationDateOfPath(path), Date(std::chrono::seconds(1'000'000'000)));
  EXPECT_EQ(creationDateOfPath(scratch_.path() + "/./a.txt"), Date(std::chrono::seconds(1'000'000'000)));
  EXPECT_FALSE(creationDateOfPath(file("absent")));
  EXPECT_FALSE(creationDateOfPath(std::nullopt));
}

TEST_F(PropertyListsVerboseTest, LinesOfTheCreationDate) {
  const auto path = write("a.txt", "");
  setModificationDate(path, Date(std::chrono::seconds(1'000'000'000)));
  creationDateOfPath(path);
  EXPECT_TRUE(log_.has("path : " + path));
  EXPECT_TRUE(log_.has("dico (creation date) : 2001-09-09 01:46:40 +0000"));
}

TEST_F(WebTest, PageOfARealServer) {
  LoopbackServer server;
  EXPECT_EQ(sourceOfWebPage(server.url("/page"), true), "Hello\n");
  EXPECT_TRUE(isInternetReachable(server.url("/page")));
  EXPECT_EQ(sourceOfWebPage(server.url("/redirect"), true), "Hello\n");
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(WebTest, PageThatCannotBeReadIsEmpty) {
  LoopbackServer server;
  for (const auto& url : {server.url("/absent"), server.url("/latin1"), server.url("/short"), server.url("/to-file"),
                          std::string("file:///etc/hostname"), std::string("nonsense://a"), std::string()}) {
    EXPECT_EQ(sourceOfWebPage(url, false), "") << url;
    EXPECT_FALSE(isInternetReachable(url)) << url;
  }
  EXPECT_TRUE(log_.has("web                 :-( '" + server.url("/latin1") + "' (not ASCII)"));
  EXPECT_TRUE(log_.has("web                 :-( '" + server.url("/absent") + "' (status 404)"));
}

TEST_F(WebTest, EmptyPageIsRead) {
  LoopbackServer server;
  EXPECT_EQ(sourceOfWebPage(server.url("/status/204"), false), "");
  EXPECT_TRUE(isInternetReachable(server.url("/status/204")));
}

TEST_F(WebTest, AbsentUrl) {
  EXPECT_FALSE(sourceOfWebPage(std::nullopt, true));
  EXPECT_FALSE(isInternetReachable(std::nullopt));
}

TEST_F(WebVerboseTest, Lines) {
  LoopbackServer server;
  sourceOfWebPage(server.url("/page"), false);
  EXPECT_TRUE(log_.lines().empty());
  sourceOfWebPage(server.url("/page"), true);
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{"WebClass source_webpa- begin (page)", "WebClass source_webpa- end"}));
  log_.clear();
  isInternetReachable(server.url("/page"));
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{"internetConnexionChe- deb: page", "internetConnexionChe- end: src == Hello\n"}));
  log_.clear();
  isInternetReachable(server.url("/absent"));
  EXPECT_EQ(log_.lines().back(), "internetConnexionChe- end: src == nil");
}

}  // namespace
}  // namespace vistrelle
