// A worker that fails or lies costs its movie or its picture, and nothing else.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <thread>

#include "tests/platform/confined/fake_workers.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/media/confined/picture_transfer.h"

namespace vistrelle::testing {
namespace {

using platform::Channel;
using platform::ConfinedMediaLibrary;
using platform::ConfinedOptions;
using platform::MediaTime;
using platform::Message;
using platform::WorkerBody;
using platform::wire::Kind;

wire::PlaneShape aShape() {
  return {platform::codeOf("gray"), 64, 48};
}

wire::Frame aFrame() {
  wire::Frame frame;
  frame.time = platform::toWire(MediaTime::zero());
  frame.hasPicture = 1;
  frame.visible = {0, 0, 64, 48};
  frame.presentationWidth = 64;
  frame.presentationHeight = 48;
  return frame;
}

/// Asks for a room of `shape` and returns its descriptor.
platform::UniqueFd roomFor(const Channel& channel, const wire::PlaneShape& shape) {
  channel.send(Message(n(Kind::roomWanted), shape));
  Message answer;
  if (!waitFor(channel, Kind::room, &answer)) ::_exit(0);
  return answer.takeDescriptor();
}

void expectUnreadable(const std::string& what, const std::string& words, WorkerBody body, int silence = 60000) {
  SCOPED_TRACE(what);
  const auto library = libraryOf(std::move(body), silence);
  RecordingLog log;
  const auto asset = openWith(library);
  ASSERT_TRUE(asset);
  EXPECT_TRUE(asset->tracks().empty());
  EXPECT_FALSE(asset->isPlayable());
  EXPECT_FALSE(asset->makeImageGenerator());
  const std::string start = "movie open          :-( '" + dataFile("prog_8s.mp4") + "': ";
  EXPECT_TRUE(log.hasContaining(start + words)) << (log.lines().empty() ? "no line" : log.lines().back());
}

/// A worker that answers the opening with these messages.
WorkerBody sends(std::vector<std::function<Message()>> messages) {
  return [messages](const Channel& channel) {
    Message message;
    if (!waitFor(channel, Kind::open, &message)) ::_exit(0);
    for (const auto& make : messages) channel.send(make());
    ::pause();
  };
}

TEST(HostileWorker, ThatEndsWhileOpeningIsAnUnreadableMovie) {
  const auto afterOpen = [](auto act) -> WorkerBody {
    return [act](const Channel& channel) {
      Message message;
      waitFor(channel, Kind::open, &message);
      act();
    };
  };
  expectUnreadable("exit", "the decoder ended: status 7", afterOpen([] { ::_exit(7); }));
  expectUnreadable("crash", "the decoder ended: signal 11 (Segmentation fault)", afterOpen([] {
                     ::signal(SIGSEGV, SIG_DFL);
                     ::raise(SIGSEGV);
                   }));
  expectUnreadable("kill", "the decoder ended: signal 9 (Killed)", afterOpen([] { ::kill(::getpid(), SIGKILL); }));
  expectUnreadable("at once", "the decoder ended: status 3", [](const Channel&) { ::_exit(3); });
}

TEST(HostileWorker, ThatNeverAnswersIsEnded) {
  expectUnreadable(
      "loops", "the decoder gave no sign of life",
      [](const Channel&) {
        for (std::atomic<int> turns = 0;; ++turns) {
        }
      },
      300);
  expectUnreadable(
      "signs of life for ever", "the decoder took too long",
      [](const Channel& channel) {
        for (;;) {
          channel.send(Message(n(Kind::progress), wire::Nothing{}));
          ::usleep(20000);
        }
      },
      300);
}

// What it is told must not pile up until the user waits for room.
TEST(HostileWorker, ThatNeverReadsIsEnded) {
  expectUnreadable(
      "asks and takes no answer", "the decoder gave no sign of life",
      [](const Channel& channel) {
        while (channel.send(Message(n(Kind::waitingRoomWanted), wire::Nothing{}))) {
        }
      },
      1000);
  const auto asset = openWith(libraryOf(
      [](const Channel& channel) {
        serveOpen(channel);
        ::pause();
      },
      3000));
  ASSERT_TRUE(asset);
  const std::shared_ptr<platform::ImageGenerator> generator = asset->makeImageGenerator();
  ASSERT_TRUE(generator);
  const auto ended = std::make_shared<platform::Signal>();
  const auto error = std::make_shared<std::string>();
  std::thread asking([generator, ended, error] {
    std::vector<MediaTime> times;
    for (int i = 0; i < 40000; ++i) times.push_back(MediaTime::make(i, 100));
    generator->announce(times);
    *error = generator->copyFrame(times[0]).error;
    ended->set();
  });
  const bool hasEnded = ended->waitReal(std::chrono::minutes(2));
  if (!hasEnded) asset->movie()->stop();
  asking.join();
  EXPECT_TRUE(hasEnded);
  EXPECT_EQ(*error, "the decoder gave no sign of life");
}

TEST(HostileWorker, NonsenseWhileOpeningIsAnUnreadableMovie) {
  const std::string nonsense = "the decoder gave no sensible answer (";
  const auto movie = [](auto change) {
    return [change] {
      wire::Movie answer = aMovie();
      change(answer);
      return Message(n(Kind::movie), answer);
    };
  };
  const auto track = [](auto change) {
    return [change] {
      wire::Track answer = aTrack();
      change(answer);
      return Message(n(Kind::track), answer);
    };
  };
  const auto plainMovie = movie([](wire::Movie&) {});
  const auto plainTrack = track([](wire::Track&) {});
  const std::pair<const char*, WorkerBody> lies[] = {
      {"no body", sends({[] { return Message(n(Kind::movie)); }})},
      {"short", sends({[] { return Message(n(Kind::movie), wire::Nothing{}); }})},
      {"long", sends({[] { return Message(n(Kind::movie), aMovie(), "more"); }})},
      {"unknown kind", sends({[] { return Message(4711, wire::Nothing{}); }})},
      {"a user's message", sends({[] { return Message(n(Kind::open), wire::Open{}); }})},
      {"a picture", sends({[] { return Message(n(Kind::frame), aFrame()); }})},
      {"a track first", sends({plainTrack})},
      {"a format first", sends({[] { return Message(n(Kind::format), wire::Format{}); }})},
      {"two movies", sends({plainMovie, plainMovie})},
      {"a million tracks", sends({movie([](wire::Movie& m) { m.tracks = 1000000; })})},
      {"scale 0", sends({movie([](wire::Movie& m) { m.duration.scale = 0; })})},
      {"negative scale", sends({movie([](wire::Movie& m) { m.duration.scale = -1; })})},
      {"epoch", sends({movie([](wire::Movie& m) { m.duration.epoch = 5; })})},
      {"track scale 0", sends({plainMovie, track([](wire::Track& t) { t.range.start.scale = 0; })})},
      {"type", sends({plainMovie, track([](wire::Track& t) { t.type = 99; })})},
      {"endless code", sends({plainMovie, track([](wire::Track& t) { t.typeCode.fill('x'); })})},
      {"formats", sends({plainMovie, track([](wire::Track& t) { t.formats = 4000000000U; })})},
      {"format missing", sends({plainMovie, track([](wire::Track& t) { t.formats = 1; }), plainTrack})},
      {"format sizes", sends({plainMovie, track([](wire::Track& t) { t.formats = 1; }),
                              [] {
                                wire::Format format;
                                format.width = -5;
                                return Message(n(Kind::format), format);
                              }})},
      {"no rate", sends({plainMovie, track([](wire::Track& t) { t.frameRate = std::nanf(""); })})},
      {"endless rate", sends({plainMovie, track([](wire::Track& t) { t.frameRate = HUGE_VALF; })})},
      {"backward rate", sends({plainMovie, track([](wire::Track& t) { t.frameRate = -25; })})},
      {"two greetings", sends({[] { return Message(n(Kind::hello), platform::ConfinementReport{1, 1, 1, 1}); },
                               [] { return Message(n(Kind::hello), platform::ConfinementReport{1, 1, 1, 1}); }})},
  };
  for (const auto& [what, body] : lies) expectUnreadable(what, nonsense, body);
}

TEST(HostileWorker, DescriptorsAndFloodsAreNotTaken) {
  expectUnreadable("a descriptor", "the decoder gave no sensible answer (no message)", [](const Channel& channel) {
    Message message;
    waitFor(channel, Kind::open, &message);
    const platform::UniqueFd mine(::open("/dev/null", O_RDONLY));
    channel.send(Message(n(Kind::movie), aMovie()), mine.get());
    ::pause();
  });
  const auto library = libraryOf([](const Channel& channel) {
    Message message;
    waitFor(channel, Kind::open, &message);
    while (channel.send(Message(n(Kind::log), wire::Nothing{}, std::string(30000, 'x')))) {
    }
  });
  RecordingLog log;
  EXPECT_TRUE(openWith(library)->tracks().empty());
  EXPECT_LE(log.lines().size(), 5001U);
  EXPECT_TRUE(log.hasContaining("a request that is not granted"));
}

TEST(HostileWorker, ReferencesLeadNowhereButBeneathTheFolder) {
  const ScratchFolder folder;
  const std::string movie = folder.write("movies/m.mov", readFile(dataFile("prog_8s.mp4")));
  folder.write("secret", "s");
  folder.write("movies/inside", "i");
  ASSERT_EQ(::symlink("../secret", folder.file("movies/link").c_str()), 0);
  const auto library = libraryOf([](const Channel& channel) {
    Message message;
    waitFor(channel, Kind::open, &message);
    for (const std::string path : {"../secret", "/etc/passwd", "link", "inside", "", ".", "..", "a\0b"}) {
      channel.send(Message(n(Kind::referenceWanted), wire::Nothing{}, path));
      Message answer;
      if (!waitFor(channel, Kind::reference, &answer)) ::_exit(0);
      const bool isGranted = static_cast<bool>(answer.takeDescriptor());
      channel.send(Message(n(Kind::log), wire::Nothing{}, path + (isGranted ? " granted" : " refused")));
    }
    channel.send(Message(n(Kind::referenceWanted), wire::Nothing{}, std::string_view("inside\0/x", 9)));
    Message answer;
    waitFor(channel, Kind::reference, &answer);
    channel.send(Message(n(Kind::log), wire::Nothing{}, answer.takeDescriptor() ? "zero granted" : "zero refused"));
    for (;;) channel.send(Message(n(Kind::referenceWanted), wire::Nothing{}, "inside"));
  });
  RecordingLog log;
  const auto asset = loadedConfined(movie, library);
  ASSERT_TRUE(asset);
  const std::vector<std::string> lines = log.lines();
  ASSERT_EQ(lines.size(), 10U);
  EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 9),
            (std::vector<std::string>{"../secret refused", "/etc/passwd refused", "link refused", "inside granted",
                                      " refused", ". refused", ".. refused", "a refused", "zero refused"}));
  EXPECT_NE(lines[9].find("a request that is not granted"), std::string::npos);
}

TEST(HostileWorker, LiesAboutSizesAreNoSizes) {
  const auto sizeFrom = [](const Message& lie) {
    const auto asset = openWith(libraryOf([&lie](const Channel& channel) {
      serveOpen(channel);
      Message message;
      if (waitFor(channel, Kind::measure, &message)) channel.send(lie);
      ::pause();
    }));
    return asset->naturalSize();
  };
  const auto size = [](double width, double height) { return Message(n(Kind::size), wire::Size{width, height}); };
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(sizeFrom(size(640, 480)), (platform::Size{640, 480}));
  EXPECT_EQ(sizeFrom(size(std::nan(""), 480)), platform::Size{});
  EXPECT_EQ(sizeFrom(size(640, kInfinity)), platform::Size{});
  EXPECT_EQ(sizeFrom(size(-1, 480)), platform::Size{});
  EXPECT_EQ(sizeFrom(Message(n(Kind::size), wire::Nothing{})), platform::Size{});
  EXPECT_EQ(sizeFrom(Message(n(Kind::frame), aFrame())), platform::Size{});
}

// ---- pictures ---------------------------------------------------------------------------------------

/// Answers each request for a picture with `answer`.
WorkerBody answersFramesWith(std::function<void(const Channel&)> answer) {
  return [answer](const Channel& channel) {
    serveOpen(channel);
    for (Message message; waitFor(channel, Kind::copyFrame, &message);) answer(channel);
  };
}

TEST(HostileWorker, AnHonestFakeIsBelieved) {
  const auto library = libraryOf(answersFramesWith([](const Channel& channel) {
    const platform::UniqueFd room = roomFor(channel, aShape());
    const std::string pixels(64 * 48, '\x55');
    (void)!::pwrite(room.get(), pixels.data(), pixels.size(), 0);
    channel.send(Message(n(Kind::frame), aFrame()));
  }));
  const auto asset = openWith(library);
  const auto result = asset->makeImageGenerator()->copyFrame(MediaTime::zero());
  ASSERT_TRUE(result.picture) << result.error;
  const auto& plane = result.picture->planar()->planes[0];
  EXPECT_EQ(plane.data[0], 0x55);
  EXPECT_EQ(plane.data[47 * plane.rowBytes + 63], 0x55);
}

TEST(HostileWorker, LiesAboutPicturesAreNoPictures) {
  const auto withFrame = [](auto change) {
    return [change](const Channel& channel) {
      (void)roomFor(channel, aShape());
      wire::Frame frame = aFrame();
      change(frame);
      channel.send(Message(n(Kind::frame), frame));
    };
  };
  const auto withShape = [](const char* layout, std::int32_t width, std::int32_t height) {
    return [layout, width, height](const Channel& channel) {
      (void)roomFor(channel, {platform::codeOf(layout), width, height});
      channel.send(Message(n(Kind::frame), aFrame()));
    };
  };
  const std::pair<const char*, std::function<void(const Channel&)>> lies[] = {
      {"no room", [](const Channel& channel) { channel.send(Message(n(Kind::frame), aFrame())); }},
      {"a movie", [](const Channel& channel) { channel.send(Message(n(Kind::movie), aMovie())); }},
      {"short", [](const Channel& channel) { channel.send(Message(n(Kind::frame), wire::Nothing{})); }},
      {"scale 0", withFrame([](wire::Frame& f) { f.time.scale = 0; })},
      {"outside", withFrame([](wire::Frame& f) { f.visible = {0, 0, 65, 48}; })},
      {"before", withFrame([](wire::Frame& f) { f.visible = {-1, 0, 64, 48}; })},
      {"nothing visible", withFrame([](wire::Frame& f) { f.visible = {0, 0, 0, 0}; })},
      {"no number", withFrame([](wire::Frame& f) { f.visible[2] = std::nan(""); })},
      {"no size", withFrame([](wire::Frame& f) { f.presentationWidth = 0; })},
      {"infinite size", withFrame([](wire::Frame& f) {
         f.presentationHeight = std::numeric_limits<double>::infinity();
       })},
      {"turns", withFrame([](wire::Frame& f) { f.quarterTurns = 4; })},
      {"backward turns", withFrame([](wire::Frame& f) { f.quarterTurns = -1; })},
      {"chroma", withFrame([](wire::Frame& f) { f.chromaLocation = 1000; })},
      {"unknown layout", withShape("nothing", 64, 48)},
      {"surface of a device", withShape("vaapi", 64, 48)},
      {"no width", withShape("gray", 0, 48)},
      {"negative", withShape("gray", 64, -48)},
      {"too many pixels", withShape("gray", 1 << 20, 1 << 20)},
      {"too many bytes", withShape("rgba64le", 1 << 14, 1 << 14)},
      {"two rooms",
       [](const Channel& channel) {
         const platform::UniqueFd kept = roomFor(channel, aShape());
         (void)roomFor(channel, aShape());
         channel.send(Message(n(Kind::frame), aFrame()));
       }},
      {"still writable",
       [](const Channel& channel) {
         const platform::UniqueFd room = roomFor(channel, aShape());
         ::mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED, room.get(), 0);
         channel.send(Message(n(Kind::frame), aFrame()));
         ::pause();
       }},
  };
  for (const auto& [what, answer] : lies) {
    SCOPED_TRACE(what);
    const auto library = libraryOf(answersFramesWith(answer));
    const auto asset = openWith(library);
    const auto generator = asset->makeImageGenerator();
    ASSERT_TRUE(generator);
    for (int i = 0; i < 2; ++i) {
      const auto result = generator->copyFrame(MediaTime::zero());
      EXPECT_FALSE(result.picture);
      EXPECT_FALSE(result.actualTime.isValid());
      EXPECT_NE(result.error.find("the decoder gave no sensible answer"), std::string::npos) << result.error;
    }
  }
}

// As the kernel does with a page that it moves or writes away.
TEST(HostileWorker, ARoomThatIsHeldForAMomentIsWaitedFor) {
  const auto library = libraryOf(answersFramesWith([](const Channel& channel) {
    const platform::UniqueFd room = roomFor(channel, aShape());
    void* const held = ::mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED, room.get(), 0);
    channel.send(Message(n(Kind::frame), aFrame()));
    ::usleep(200000);
    ::munmap(held, 64);
  }));
  const auto result = openWith(library)->makeImageGenerator()->copyFrame(MediaTime::zero());
  EXPECT_TRUE(result.picture) << result.error;
}

TEST(HostileWorker, ARoomNeitherGrowsNorShrinks) {
  const auto library = libraryOf(answersFramesWith([](const Channel& channel) {
    const platform::UniqueFd room = roomFor(channel, aShape());
    const bool changed = ::ftruncate(room.get(), 0) == 0 || ::ftruncate(room.get(), 1 << 20) == 0;
    channel.send(Message(n(Kind::log), wire::Nothing{}, changed ? "changed" : "kept"));
    channel.send(Message(n(Kind::frame), aFrame()));
  }));
  RecordingLog log;
  EXPECT_TRUE(openWith(library)->makeImageGenerator()->copyFrame(MediaTime::zero()).picture);
  EXPECT_TRUE(log.has("kept"));
}

// ---- real workers that meet their end ---------------------------------------------------------------

TEST(WorkerEnd, AFreshWorkerServesTheNextTimes) {
  const auto asset = loadedConfined(dataFile("prog_8s.mp4"));
  ASSERT_TRUE(asset);
  const auto generator = asset->makeImageGenerator();
  const std::vector<MediaTime> times{MediaTime::make(1, 1), MediaTime::make(2, 1), MediaTime::make(3, 1)};
  generator->announce(times);
  ASSERT_TRUE(generator->copyFrame(times[0]).picture);
  for (const int signal : {SIGKILL, SIGSEGV}) {
    const pid_t former = asset->movie()->workerProcess();
    ASSERT_EQ(::kill(former, signal), 0);
    ::usleep(50000);
    const auto lost = generator->copyFrame(times[1]);
    EXPECT_FALSE(lost.picture);
    EXPECT_NE(lost.error.find("the decoder ended: signal"), std::string::npos) << lost.error;
    EXPECT_TRUE(generator->copyFrame(times[1]).picture);
    EXPECT_NE(asset->movie()->workerProcess(), former);
  }
  EXPECT_TRUE(generator->copyFrame(times[2]).picture);
}

TEST(WorkerEnd, AWorkerThatStandsStillIsReplaced) {
  ConfinedOptions options;
  const auto library = libraryOf([](const Channel& channel) { platform::runWorker(channel, {}); }, 4000);
  const auto asset = openWith(library);
  ASSERT_TRUE(asset);
  const auto generator = asset->makeImageGenerator();
  ASSERT_TRUE(generator->copyFrame(MediaTime::zero()).picture);
  ASSERT_EQ(::kill(asset->movie()->workerProcess(), SIGSTOP), 0);
  EXPECT_EQ(generator->copyFrame(MediaTime::zero()).error, "the decoder gave no sign of life");
  // On a busy machine a fresh one may be too slow for so little patience as well; sooner or later one is not.
  bool isServed = false;
  for (int i = 0; i < 20 && !isServed; ++i) isServed = generator->copyFrame(MediaTime::zero()).picture != nullptr;
  EXPECT_TRUE(isServed);
}

TEST(WorkerEnd, WithoutTheNurseryThereAreErrorsOnly) {
  const auto library = libraryOf([](const Channel& channel) { platform::runWorker(channel, {}); });
  const auto asset = openWith(library);
  ASSERT_TRUE(asset);
  const auto generator = asset->makeImageGenerator();
  ::kill(library->nursery()->process(), SIGKILL);
  // The worker ends after it, on a busy machine some time after.
  bool isServed = true;
  for (int i = 0; i < 3000 && isServed; ++i) {
    isServed = generator->copyFrame(MediaTime::zero()).picture != nullptr;
    if (isServed) ::usleep(10000);
  }
  EXPECT_FALSE(isServed);
  EXPECT_EQ(generator->copyFrame(MediaTime::zero()).error, "the process that makes decoders has ended");
  RecordingLog log;
  EXPECT_TRUE(openWith(library)->tracks().empty());
  EXPECT_TRUE(log.hasContaining("the process that makes decoders has ended"));
}

TEST(WorkerEnd, LoadingThatIsCalledOffEndsItsWorker) {
  const auto library = libraryOf([](const Channel&) { ::pause(); }, 60000);
  const auto asset = library->openAsset(dataFile("prog_8s.mp4"), {});
  const auto ended = std::make_shared<platform::Signal>();
  asset->loadValuesAsynchronously({}, [ended] { ended->set(); });
  ::usleep(50000);
  asset->cancelLoading();
  EXPECT_TRUE(ended->waitReal(std::chrono::seconds(5)));
  EXPECT_TRUE(asset->tracks().empty());
}

TEST(WorkerEnd, MemoryThatIsRefusedEndsIt) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's memory is not limited";
#endif
  const auto library = libraryOf([](const Channel& channel) {
    platform::WorkerOptions options;
    options.limits.dataBytes = 24 << 20;
    platform::runWorker(channel, options);
  });
  RecordingLog log;
  const auto asset = openWith(library);
  ASSERT_TRUE(asset);
  const auto generator = asset->makeImageGenerator();
  std::string words = log.lines().empty() ? "" : log.lines().back();
  if (generator) {
    const auto result = generator->copyFrame(MediaTime::make(4, 1));
    EXPECT_FALSE(result.picture);
    words = result.error;
  }
  EXPECT_FALSE(words.empty());
}

}  // namespace
}  // namespace vistrelle::testing
