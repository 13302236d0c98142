#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/batch/batch_fixture.h"
#include "tests/support/child.h"

namespace vistrelle::testing {
namespace {

namespace fs = std::filesystem;

class Statuses : public BatchTest {};

TEST_F(Statuses, OnePictureIsTheToolsOwnToTheByte) {
  const BatchResult result = runBatch({job(out("a.jpg"))});
  EXPECT_EQ(result.run.status, 0) << result.run.error;
  ASSERT_EQ(result.statusOf(1), "done") << result.reasonOf(1);
  const Json line = result.about(1);
  ASSERT_EQ(line["files"].size(), 1U);
  const Json file = line["files"][0];
  EXPECT_EQ(file["path"], out("a.jpg"));
  EXPECT_EQ(file["bytes"], fs::file_size(out("a.jpg")));
  EXPECT_EQ(file["asked"], 1.0);
  EXPECT_NEAR(file["time"].get<double>(), 1.0, 0.05);
  EXPECT_EQ(file["width"], 160);
  EXPECT_EQ(file["height"], 120);
  EXPECT_GT(line["seconds"].get<double>(), 0);
  EXPECT_EQ(line["source"], movie());
  EXPECT_EQ(line["id"].get<std::string>().size(), 16U);

  const std::string byTool = folder_.file("tool.jpg");
  ASSERT_EQ(runTool({"-i", movie(), "-o", byTool, "-w", "160", "-h", "120", "-tc", "1"}).status, 0);
  EXPECT_EQ(readFile(out("a.jpg")), readFile(byTool));
  EXPECT_TRUE(privateFolders().empty());
}

TEST_F(Statuses, SeveralPicturesMakeAFolderWithTheRightsOfANewOne) {
  Json entry = job(out("pictures"));
  entry["timecodes"] = {"0", 2.5, "00:00:04"};
  const BatchResult result = runBatch({entry});
  ASSERT_EQ(result.statusOf(1), "done") << result.reasonOf(1);
  ASSERT_EQ(result.about(1)["files"].size(), 3U);
  EXPECT_EQ(result.about(1)["files"][2]["path"], out("pictures/img02.jpg"));
  EXPECT_EQ(result.about(1)["files"][1]["asked"], 2.5);
  EXPECT_EQ(result.about(1)["files"][2]["asked"], 4.0);
  fs::create_directory(folder_.file("usual"));
  EXPECT_EQ(fs::status(out("pictures")).permissions(), fs::status(folder_.file("usual")).permissions());

  const std::string byTool = folder_.makeFolder("tool");
  ASSERT_EQ(runTool({"-i", movie(), "-o", byTool, "-w", "160", "-h", "120", "-tc", "0-2.5-4"}).status, 0);
  for (const char* name : {"/img00.jpg", "/img01.jpg", "/img02.jpg"}) {
    EXPECT_EQ(readFile(out("pictures") + name), readFile(byTool + name)) << name;
  }
}

TEST_F(Statuses, CountAndIntervalFollowTheMoviesLength) {
  Json count = job(out("count"));
  count.erase("timecodes");
  count["count"] = 2;  // of five seconds: the middles of two halves, on half seconds
  Json interval = job(out("interval"));
  interval.erase("timecodes");
  interval["interval"] = 2;
  const BatchResult result = runBatch({count, interval});
  ASSERT_EQ(result.statusOf(1), "done") << result.reasonOf(1);
  ASSERT_EQ(result.statusOf(2), "done") << result.reasonOf(2);
  const auto asked = [&](int line) {
    std::vector<double> times;
    const Json entry = result.about(line);
    for (const Json& file : entry["files"]) times.push_back(file["asked"]);
    return times;
  };
  EXPECT_EQ(asked(1), (std::vector<double>{1.0, 3.5}));
  EXPECT_EQ(asked(2), (std::vector<double>{0, 2, 4}));
}

TEST_F(Statuses, FormatsByNameAndByField) {
  Json folder = job(out("tiffs/"));
  folder["format"] = "tiff";
  Json named = job(out("b.PNG"));
  Json contrary = job(out("c.gif"));
  contrary["format"] = "bmp";
  Json agreeing = job(out("d.jpeg"));
  agreeing["format"] = "jpg";
  const BatchResult result = runBatch({folder, named, contrary, agreeing});
  ASSERT_EQ(result.statusOf(1), "done") << result.reasonOf(1);
  EXPECT_TRUE(readFile(out("tiffs/img00.tiff")).starts_with("II*") ||
              readFile(out("tiffs/img00.tiff")).starts_with("MM"));
  ASSERT_EQ(result.statusOf(2), "done") << result.reasonOf(2);
  EXPECT_TRUE(readFile(out("b.PNG")).starts_with("\x89PNG"));
  EXPECT_EQ(result.statusOf(3), "bad input");
  EXPECT_EQ(result.reasonOf(3), "format bmp for a file named .gif");
  EXPECT_EQ(result.statusOf(4), "done") << result.reasonOf(4);
}

TEST_F(Statuses, WhatExistsIsNotMadeAgain) {
  const std::vector<Json> jobs{job(out("a.jpg")), job(out("folder/"))};
  ASSERT_EQ(runBatch(jobs).run.status, 0);
  const auto before = fs::last_write_time(out("a.jpg"));
  fs::remove(movie());  // not even looked at
  const BatchResult again = runBatch(jobs);
  EXPECT_EQ(again.run.status, 0);
  EXPECT_EQ(again.statusOf(1), "exists");
  EXPECT_EQ(again.statusOf(2), "exists");
  EXPECT_EQ(again.about(1)["files"][0]["bytes"], fs::file_size(out("a.jpg")));
  EXPECT_EQ(again.about(2)["files"][0]["path"], out("folder/img00.jpg"));
  EXPECT_EQ(fs::last_write_time(out("a.jpg")), before);
}

TEST_F(Statuses, EveryBadLineHasItsLineAndTheRestGoesOn) {
  const auto with = [&](const char* key, const Json& value) {
    Json entry = job(out("never.jpg"));
    entry[key] = value;
    return entry;
  };
  const auto without = [&](const char* key) {
    Json entry = job(out("never.jpg"));
    entry.erase(key);
    return entry;
  };
  const std::string deep(100, '[');
  const std::vector<std::pair<Json, std::string>> bad{
      {"no json", "not JSON (byte 2)"},
      {"[1]", "not an object"},
      {"{\"source\": \"a\xff\"}", "not JSON (byte 14)"},
      {deep, "not JSON (byte 101)"},
      {deep + std::string(100, ']'), "nested too deep"},
      {job("/x").dump() + "{}", "not JSON"},
      {without("source"), "no source"},
      {with("source", ""), "no source"},
      {with("destination", 7), "no destination"},
      {with("source", std::string("a\0b", 3)), "source is no file name"},
      {with("destination", movie()), "source and destination are the same"},
      {with("width", 0), "width is no whole number from 1 to 65500"},
      {with("height", 1e9), "height is no whole number from 1 to 65500"},
      {with("width", "320"), "width is no whole number from 1 to 65500"},
      {without("timecodes"), "one of timecodes, count and interval is needed"},
      {with("count", 2), "one of timecodes, count and interval is needed"},
      {with("timecodes", Json::array()), "timecodes is no list of 1 to 10000 timecodes"},
      {with("timecodes", {-1}), "a timecode is neither a text nor a number of seconds"},
      {with("format", "webp"), "format is none of jpg, jpeg, png, tif, tiff, bmp, gif, jp2, jpx, pdf"},
      {with("widht", 3), "unknown field \"widht\""},
      {with("timecodes", {"1", "2"}), "the destination is one file for 2 pictures"},
      {with("source", folder_.file("none.mp4")), "source: No such file or directory"},
      {with("source", folder_.path()), "the source is no regular file"},
      {with("source", folder_.write("not.mp4", "no movie")), "Invalid data found when processing input"},
      {with("source", sampleMovie("weird_aspect.small.mpg")), "mpeg!"},
      {with("source", sampleMovie("video_without_video_stream.mp4")), "no usable track (v tracks=0/1)"},
      {with("width", 1), "less than 3 kilobytes of pictures"},
  };
  std::vector<Json> jobs;
  int number = 0;
  for (auto& [entry, reason] : bad) {
    Json own = entry;
    if (own.is_object() && own.value("destination", Json()).is_string() && own["destination"] != movie()) {
      own["destination"] = out("never" + std::to_string(++number) + ".jpg");
    }
    jobs.push_back(own);
  }
  jobs.push_back(job(out("last.jpg")));
  const BatchResult result = runBatch(jobs);
  EXPECT_EQ(result.run.status, 1);
  for (std::size_t i = 0; i < bad.size(); ++i) {
    const int line = static_cast<int>(i) + 1;
    EXPECT_EQ(result.statusOf(line), "bad input")
        << line << " " << jobs[i].dump(-1, ' ', false, Json::error_handler_t::replace);
    EXPECT_EQ(result.reasonOf(line).find(bad[i].second), 0U) << line << " " << result.reasonOf(line);
  }
  EXPECT_EQ(result.statusOf(static_cast<int>(jobs.size())), "done");
  EXPECT_EQ(result.lines.size(), jobs.size());
  EXPECT_TRUE(privateFolders().empty());
}

TEST_F(Statuses, LinesOfEveryKindOfEnd) {
  const std::string list =
      folder_.write("list", "\xef\xbb\xbf" + job(out("a.jpg")).dump() + "\r\n\n   \n" + job(out("b.jpg")).dump());
  const BatchResult result = resultOf(runProgram({"sh", "-c", "cat \"$1\" | \"$2\" -", "sh", list, VISTRELLE_BATCH}));
  EXPECT_EQ(result.run.status, 0) << result.run.output;
  EXPECT_EQ(result.lines.size(), 2U);
  EXPECT_EQ(result.statusOf(1), "done");
  EXPECT_EQ(result.statusOf(4), "done");
}

TEST_F(Statuses, ALineThatIsTooLongIsPassedOver) {
  const BatchResult result = runBatch({std::string(3 << 20, ' ') + "x", job(out("a.jpg"))});
  EXPECT_EQ(result.reasonOf(1), "the line is too long");
  EXPECT_EQ(result.statusOf(2), "done");
}

TEST_F(Statuses, ADestinationInAMissingFolder) {
  const BatchResult result = runBatch({job(out("missing/a.jpg"))});
  EXPECT_EQ(result.run.status, 1);
  EXPECT_EQ(result.statusOf(1), "bad input");
  EXPECT_EQ(result.reasonOf(1), "folder of the destination: No such file or directory");
  EXPECT_FALSE(fs::exists(out("missing")));
}

TEST_F(Statuses, OneDestinationOnceOnly) {
  fs::create_directory_symlink(out(), folder_.file("alias"));
  Json other = job(out("a.jpg"));
  other["timecodes"] = {"3"};
  Json folder = job(out("f/"));
  Json otherFolder = job(out("./f"));
  otherFolder["timecodes"] = {"3"};
  const BatchResult result =
      runBatch({job(out("a.jpg")), job(out("a.jpg")), other, folder, otherFolder, job(folder_.file("alias/a.jpg"))},
               {"--jobs", "2"});
  EXPECT_EQ(result.statusOf(1), "done");
  EXPECT_EQ(result.statusOf(2), "exists");
  EXPECT_EQ(result.statusOf(3), "bad input");
  EXPECT_EQ(result.reasonOf(3), "the destination is that of line 1");
  EXPECT_EQ(result.statusOf(4), "done");
  EXPECT_EQ(result.reasonOf(5), "the destination is that of line 4");
  EXPECT_EQ(result.statusOf(6), "exists");  // by another name
  EXPECT_EQ(result.run.status, 1);
}

TEST_F(Statuses, AFailedJobLeavesThePicturesOfOthersAlone) {
  const std::string folder = folder_.makeFolder("out/shared");
  const std::string own = folder_.write("out/shared/img00.jpg", "somebody's picture");
  Json failing = job(folder);
  failing["source"] = folder_.write("not.mp4", "no movie");
  Json small = job(folder + "/tiny.jpg");
  small["width"] = 1;  // the generator makes pictures, calls that a failure and removes its folder
  Json good = job(out("./shared"));
  for (Json* entry : {&failing, &good}) (*entry)["timecodes"] = {"1", "2"};
  EXPECT_EQ(runBatch({failing}).statusOf(1), "bad input");
  EXPECT_EQ(runBatch({small}).reasonOf(1), "less than 3 kilobytes of pictures");
  const BatchResult result = runBatch({good});
  EXPECT_EQ(result.statusOf(1), "bad input");
  EXPECT_EQ(result.reasonOf(1), "'" + own + "' is there already and is another picture");
  EXPECT_EQ(readFile(own), "somebody's picture");
  EXPECT_FALSE(fs::exists(folder + "/img01.jpg"));
  EXPECT_TRUE(privateFolders().empty());
}

TEST_F(Statuses, SomePicturesOfAnInterruptedRunAreCompletedToTheSameBytes) {
  Json entry = job(out("set"));
  entry["timecodes"] = {"1", "2", "3"};
  ASSERT_EQ(runBatch({entry}).statusOf(1), "done");
  const std::string first = readFile(out("set/img00.jpg"));
  const std::string last = readFile(out("set/img02.jpg"));
  fs::remove(out("set/img02.jpg"));
  const BatchResult again = runBatch({entry});
  EXPECT_EQ(again.statusOf(1), "done") << again.reasonOf(1);
  EXPECT_EQ(readFile(out("set/img00.jpg")), first);
  EXPECT_EQ(readFile(out("set/img02.jpg")), last);
}

TEST_F(Statuses, TheSameInputGivesTheSameBytesHoweverManyJobs) {
  std::vector<Json> one;
  std::vector<Json> two;
  for (int i = 0; i < 6; ++i) {
    Json entry = job(out("one" + std::to_string(i)));
    entry["source"] = i % 2 == 0 ? movie() : sampleMovie("v1.mp4");
    entry["timecodes"] = {"0.5", std::to_string(i % 3)};
    one.push_back(entry);
    entry["destination"] = out("two" + std::to_string(i));
    two.push_back(entry);
  }
  ASSERT_EQ(runBatch(one, {"--jobs", "1"}).run.status, 0);
  ASSERT_EQ(runBatch(two, {"--jobs=3"}).run.status, 0);
  for (int i = 0; i < 6; ++i) {
    for (const char* name : {"/img00.jpg", "/img01.jpg"}) {
      EXPECT_EQ(readFile(out("one" + std::to_string(i)) + name), readFile(out("two" + std::to_string(i)) + name));
    }
  }
}

TEST_F(Statuses, AFullDiskIsAFailureThatPasses) {
  if (!canMount()) GTEST_SKIP() << "no file system can be mounted here";
  EXPECT_TRUE(inChild([&] {
    ASSERT_TRUE(mountScratch(out().c_str(), "size=64k"));
    Json entry = job(out("large.png"));
    entry["width"] = 1280;
    entry["height"] = 960;
    const BatchResult result = runBatch({entry});
    EXPECT_EQ(result.run.status, 1);
    EXPECT_EQ(result.statusOf(1), "temporary failure");
    EXPECT_NE(result.reasonOf(1).find("No space left on device"), std::string::npos) << result.reasonOf(1);
    EXPECT_FALSE(fs::exists(out("large.png")));
    EXPECT_TRUE(privateFolders().empty());
  }));
}

TEST_F(Statuses, AJobThatAnotherProcessWorksOn) {
  // What a killed worker left is taken over, what one at work has is not.
  const std::string id = runBatch({"{}", job(out("first.jpg"))}).about(2)["id"];
  fs::remove(out("first.jpg"));
  const std::string folder = out(".vistrelle-batch-" + id);
  fs::create_directories(folder + "/pictures/rest");
  const int lock = ::open((folder + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(::flock(lock, LOCK_EX), 0);
  const BatchResult refused = runBatch({job(out("first.jpg"))});
  EXPECT_EQ(refused.statusOf(1), "temporary failure");
  EXPECT_EQ(refused.reasonOf(1), "another process works on this job");
  EXPECT_TRUE(fs::exists(folder + "/pictures/rest"));
  ::close(lock);
  EXPECT_EQ(runBatch({job(out("first.jpg"))}).statusOf(1), "done");
  EXPECT_TRUE(privateFolders().empty());
}

TEST_F(Statuses, APrivateFolderOfSomebodyElseIsNotUsed) {
  if (!isAdministrator()) GTEST_SKIP() << "needs another user's folder";
  const std::string id = runBatch({job(out("first.jpg"))}).about(1)["id"];
  fs::remove(out("first.jpg"));
  const std::string folder = out(".vistrelle-batch-" + id);
  fs::create_directory(folder);
  ASSERT_EQ(::chown(folder.c_str(), 65534, 65534), 0);
  const BatchResult result = runBatch({job(out("first.jpg"))});
  EXPECT_EQ(result.statusOf(1), "bad input");
  EXPECT_EQ(result.reasonOf(1), "folder of the destination: File exists");
  EXPECT_TRUE(fs::exists(folder));
}

TEST_F(Statuses, MemoryIsBounded) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "a sanitizer's memory cannot be limited";
#endif
  // One frame is larger than what is allowed: how much the libraries take beside it differs from build to build.
  const std::string large = folder_.file("large.avi");
  ASSERT_EQ(runProgram({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=s=11520x6480:r=1:d=1", "-c:v", "mjpeg",
                        "-threads", "1", large})
                .status,
            0);
  Json entry = job(out("large.jpg"));
  entry["source"] = large;
  entry["timecodes"] = {"0"};
  const BatchResult refused = runBatch({entry, job(out("small.jpg"))}, {"--memory", "64M", "--jobs", "1"});
  EXPECT_EQ(refused.statusOf(1), "temporary failure");
  EXPECT_NE(refused.reasonOf(1).find("out of memory"), std::string::npos) << refused.reasonOf(1);
  EXPECT_EQ(refused.statusOf(2), "done") << refused.reasonOf(2);
  EXPECT_EQ(runBatch({entry}).statusOf(1), "done");
}

}  // namespace
}  // namespace vistrelle::testing
