#include "vistrelle/platform/web/web_reader.h"

#include <gtest/gtest.h>

#include <chrono>

#include "tests/support/loopback_server.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle::platform {
namespace {

using testing::LoopbackServer;
using testing::ScratchFolder;

constexpr const char* kTimeout = "Timeout was reached";

class WebReaderTest : public ::testing::Test {
 protected:
  static WebLimits quick() {
    WebLimits limits;
    limits.time = std::chrono::milliseconds(500);
    return limits;
  }
  std::optional<std::string> read(const std::string& path, const WebLimits& limits = {}) {
    const auto answer = curlWebReader(limits)->read(server_.url(path));
    EXPECT_EQ(answer.bytes.has_value(), answer.error.empty());
    error_ = answer.error;
    return answer.bytes;
  }
  LoopbackServer server_;
  std::string error_;
};

TEST_F(WebReaderTest, PageIsRead) {
  EXPECT_EQ(read("/page"), "Hello\n");
}

TEST_F(WebReaderTest, RedirectionIsFollowed) {
  EXPECT_EQ(read("/redirect"), "Hello\n");
}

TEST_F(WebReaderTest, EndlessRedirectionEnds) {
  EXPECT_FALSE(read("/loop"));
  EXPECT_EQ(server_.requests("/loop"), 11);
}

TEST_F(WebReaderTest, RedirectionToAFileIsRefused) {
  EXPECT_FALSE(read("/to-file"));
}

TEST_F(WebReaderTest, StatusOfAnErrorIsAnError) {
  EXPECT_FALSE(read("/absent"));
  EXPECT_EQ(error_, "status 404");
  EXPECT_FALSE(read("/status/500"));
  EXPECT_EQ(read("/status/401"), "body");
}

TEST_F(WebReaderTest, EndlessBodyIsCutOff) {
  WebLimits small;
  small.bytes = 100'000;
  // The size ends it, not the time.
  EXPECT_FALSE(read("/endless", small));
  EXPECT_NE(error_, kTimeout);
  EXPECT_FALSE(read("/declared-long", small));
  EXPECT_NE(error_, kTimeout);
}

TEST_F(WebReaderTest, EndlessHeadersAreCutOff) {
  for (const char* path : {"/endless-headers", "/endless-header", "/to-headers"}) {
    EXPECT_FALSE(read(path)) << path;
    EXPECT_NE(error_, kTimeout) << path;
  }
  // Redirections count together: 256 KiB are reached at the fifth answer.
  EXPECT_LT(server_.requests("/to-headers"), 6);
}

TEST_F(WebReaderTest, PackedBodyIsNotUnpacked) {
  EXPECT_EQ(read("/packed").value_or("").size(), 20U);
}

TEST_F(WebReaderTest, SlowBodyIsGivenUp) {
  EXPECT_FALSE(read("/slow", quick()));
  EXPECT_EQ(error_, kTimeout);
}

TEST_F(WebReaderTest, BodyThatEndsEarlyIsAnError) {
  EXPECT_FALSE(read("/short"));
}

TEST_F(WebReaderTest, BytesComeAsTheyAre) {
  EXPECT_EQ(read("/latin1"), "caf\xE9");
}

TEST_F(WebReaderTest, EmptyPageIsRead) {
  EXPECT_EQ(read("/status/204"), "");
}

TEST(WebReader, RefusedConnectionIsAnError) {
  std::string url;
  {
    const LoopbackServer gone;
    url = gone.url("/page");
  }
  const auto answer = curlWebReader()->read(url);
  EXPECT_FALSE(answer.bytes);
  EXPECT_FALSE(answer.error.empty());
}

TEST(WebReader, OtherSchemesAreRefused) {
  const ScratchFolder scratch;
  const auto file = scratch.write("a.txt", "secret");
  for (const std::string& url :
       {"file://" + file, std::string("ftp://127.0.0.1/a"), std::string("dict://127.0.0.1/d:a"),
        std::string("gopher://127.0.0.1/a"), file, std::string(), std::string("http://")}) {
    EXPECT_FALSE(curlWebReader()->read(url).bytes) << url;
  }
}

}  // namespace
}  // namespace vistrelle::platform
