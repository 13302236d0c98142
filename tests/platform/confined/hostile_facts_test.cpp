// A worker that lies about metadata, details of tracks or samples: there are none, and a line or an error says so.

#include <gtest/gtest.h>
#include <unistd.h>

#include <limits>
#include <memory>

#include "tests/platform/confined/fake_workers.h"
#include "tests/support/recording_log.h"
#include "vistrelle/platform/media/asset_reader.h"
#include "vistrelle/platform/media/confined/fact_bytes.h"
#include "vistrelle/platform/media/confined/movie_facts.h"
#include "vistrelle/platform/media/confined/pieces.h"

namespace vistrelle::testing {
namespace {

using platform::Channel;
using platform::MediaTime;
using platform::Message;
using platform::WorkerBody;
using platform::wire::Kind;

using Answer = std::shared_ptr<const Message>;

template <typename... Parts>
Answer answer(Kind kind, const Parts&... parts) {
  return std::make_shared<const Message>(n(kind), parts...);
}

/// Answers each request but the first with these messages.
WorkerBody answersWith(std::vector<Answer> answers) {
  return [answers](const Channel& channel) {
    serveOpen(channel);
    for (Message message; channel.receive(&message, -1, true) == Channel::Status::message;) {
      for (const Answer& each : answers) channel.send(*each);
    }
  };
}

Answer piece(std::uint32_t isLast, std::string_view bytes) {
  return answer(Kind::piece, wire::Piece{isLast}, bytes);
}

Answer allOf(const platform::Data& bytes) {
  return piece(1, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

/// Metadata with one entry of this key, and whatever else is written behind it.
Answer entryOf(const std::string& key, std::uint8_t kind, std::uint8_t end) {
  platform::FactWriter writer;
  for (int i = 0; i < 2; ++i) writer.number(std::uint32_t{0});  // formats, languages
  writer.number(std::uint8_t{0});                               // no lyrics
  writer.number(std::uint8_t{1});
  for (const std::string& text : {std::string("ilst"), key, std::string()}) writer.text(text);
  writer.number(kind);
  writer.text("value");
  writer.number(end);
  return allOf(writer.take());
}

TEST(HostileFacts, LiesAboutMetadataAreNoMetadata) {
  const std::string full(platform::kMaxTextBytes, 'x');
  platform::FactWriter names;
  names.number(std::uint32_t{4000000000U});
  platform::FactWriter longText;
  longText.number(std::uint32_t{1});
  longText.number(std::uint64_t{1} << 62);
  const std::pair<const char*, std::vector<Answer>> lies[] = {
      {"a movie", {answer(Kind::movie, aMovie())}},
      {"no body", {answer(Kind::piece)}},
      {"nothing", {piece(1, "")}},
      {"nonsense", {piece(1, "nonsense that is long enough for a number or two")}},
      {"neither last nor not", {piece(2, "")}},
      {"a small piece", {piece(0, "small"), piece(1, "")}},
      {"an empty piece", {piece(0, ""), piece(1, "")}},
      {"something between", {piece(0, full), answer(Kind::frame, wire::Frame{})}},
      {"names", {allOf(names.take())}},
      {"a long text", {allOf(longText.take())}},
      {"a key that stands for nothing", {entryOf("none", 0, 0)}},
      {"an unknown kind", {entryOf("desc", 77, 0)}},
      {"no end", {entryOf("desc", 0, 1)}},
      {"neither end nor not", {entryOf("desc", 0, 2)}},
  };
  for (const auto& [what, answers] : lies) {
    SCOPED_TRACE(what);
    const auto asset = openWith(libraryOf(answersWith(answers)));
    RecordingLog log;
    const platform::MovieMetadata metadata = asset->metadata();
    EXPECT_TRUE(metadata.common.empty() && metadata.formats.empty() && metadata.chapterLocales.empty());
    EXPECT_FALSE(metadata.lyrics);
    EXPECT_TRUE(log.hasContaining("': the decoder gave no sensible answer ("));
  }
  const auto honest = openWith(libraryOf(answersWith({entryOf("desc", 0, 0)})))->metadata();
  EXPECT_EQ(honest.common.size(), 1U);
}

TEST(HostileFacts, PiecesWithoutEndAreEnded) {
  const auto asset = openWith(libraryOf([](const Channel& channel) {
    serveOpen(channel);
    Message message;
    channel.receive(&message, -1, true);
    while (channel.send(*piece(0, std::string(platform::kMaxTextBytes, 'x')))) {
    }
  }));
  RecordingLog log;
  EXPECT_TRUE(asset->metadata().common.empty());
  EXPECT_TRUE(log.hasContaining("pieces that do not go together"));
}

TEST(HostileFacts, LiesAboutDetailsAreNoDetails) {
  const auto with = [](auto change) {
    platform::TrackDetails details;
    details.codec = "h264";
    details.frameRate = platform::FrameRate{25, 1, false};
    change(details);
    return allOf(platform::bytesOf(details));
  };
  const auto detailsFrom = [](const Answer& lie) {
    return openWith(libraryOf(answersWith({lie})))->tracks()[0]->details();
  };
  const std::pair<const char*, Answer> lies[] = {
      {"turned a little", with([](auto& d) { d.rotation = 45; })},
      {"turned too far", with([](auto& d) { d.rotation = 360; })},
      {"turned back", with([](auto& d) { d.rotation = -90; })},
      {"negative channels", with([](auto& d) { d.channels = -1; })},
      {"sample rate", with([](auto& d) { d.sampleRate = std::numeric_limits<std::int64_t>::max(); })},
      {"divided by nothing", with([](auto& d) { d.frameRate->denominator = 0; })},
      {"negative rate", with([](auto& d) { d.frameRate->numerator = -25; })},
      {"scale 0", with([](auto& d) {
         d.headerDuration = {1, 0, platform::MediaTime::kValid, 0};
       })},
      {"a small piece", piece(1, "abc")},
  };
  for (const auto& [what, lie] : lies) {
    SCOPED_TRACE(what);
    RecordingLog log;
    EXPECT_FALSE(detailsFrom(lie).codec);
    EXPECT_TRUE(log.hasContaining("': the decoder gave no sensible answer (facts that cannot be)"));
  }
  EXPECT_EQ(detailsFrom(with([](auto&) {})).codec, "h264");
}

TEST(HostileFacts, LiesAboutSamplesAreNoSamples) {
  using platform::ReaderStatus;
  const auto reading = [](ReaderStatus status, std::uint32_t hasSample, auto change) {
    wire::Reading body;
    body.presentation = body.duration = platform::toWire(MediaTime::make(1, 1));
    body.status = static_cast<std::uint32_t>(status);
    body.hasSample = hasSample;
    change(body);
    return answer(Kind::reading, body);
  };
  const auto plain = [](wire::Reading&) {};
  const Answer begun = reading(ReaderStatus::reading, 0, plain);
  const Answer sample = reading(ReaderStatus::reading, 1, plain);
  const std::pair<const char*, std::vector<Answer>> lies[] = {
      {"a size", {answer(Kind::size, wire::Size{})}},
      {"short", {answer(Kind::reading, wire::Nothing{})}},
      {"still reading", {begun}},
      {"unknown status", {reading(static_cast<ReaderStatus>(99), 0, plain)}},
      {"a sample at the end", {reading(ReaderStatus::completed, 1, plain), piece(1, "x")}},
      {"no time", {reading(ReaderStatus::reading, 1, [](auto& r) { r.presentation.scale = 0; }), piece(1, "x")}},
      {"no duration", {reading(ReaderStatus::reading, 1, [](auto& r) { r.duration.scale = -7; }), piece(1, "x")}},
      {"two samples", {sample, sample}},
      {"a small piece", {sample, piece(0, "x"), piece(1, "x")}},
  };
  const auto readerOf = [&begun](const std::vector<Answer>& answers) {
    const auto asset = openWith(libraryOf([begun, answers](const Channel& channel) {
      serveOpen(channel);
      Message message;
      if (!waitFor(channel, Kind::startReading, &message)) ::_exit(0);
      channel.send(*begun);
      if (!waitFor(channel, Kind::nextSample, &message)) ::_exit(0);
      for (const Answer& each : answers) channel.send(*each);
      ::pause();
    }));
    auto reader = asset->makeReader(nullptr);
    reader->addOutput(asset->tracks()[0]);
    EXPECT_TRUE(reader->startReading());
    return reader;
  };
  for (const auto& [what, answers] : lies) {
    SCOPED_TRACE(what);
    const auto reader = readerOf(answers);
    EXPECT_FALSE(reader->copyNextSampleBuffer());
    EXPECT_EQ(reader->status(), ReaderStatus::failed);
    EXPECT_NE(reader->error().value_or("").find("the decoder gave no sensible answer"), std::string::npos);
  }
  const auto honest = readerOf({sample, piece(1, "abc")})->copyNextSampleBuffer();
  ASSERT_TRUE(honest);
  EXPECT_EQ(honest->bytes.size(), 3U);
  const auto asset = openWith(libraryOf(answersWith({reading(ReaderStatus::completed, 0, plain)})));
  const auto reader = asset->makeReader(nullptr);
  reader->addOutput(asset->tracks()[0]);
  EXPECT_FALSE(reader->startReading());  // nothing has been read that could be complete
  EXPECT_EQ(reader->status(), ReaderStatus::failed);
}

}  // namespace
}  // namespace vistrelle::testing
