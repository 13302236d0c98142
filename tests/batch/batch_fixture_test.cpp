#include "tests/batch/batch_fixture.h"

#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

namespace vistrelle::testing {

std::vector<Json> reportLines(const std::string& text) {
  std::vector<Json> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    const Json value = Json::parse(line, nullptr, false);
    EXPECT_FALSE(value.is_discarded()) << line;
    if (!value.is_discarded()) lines.push_back(value);
  }
  return lines;
}

Json BatchResult::about(int line) const {
  Json found;
  int count = 0;
  for (const Json& entry : lines) {
    if (entry.value("line", 0) != line) continue;
    found = entry;
    ++count;
  }
  EXPECT_LE(count, 1) << "line " << line;
  return count == 1 ? found : Json();
}

std::string BatchResult::statusOf(int line) const {
  const Json entry = about(line);
  return entry.is_null() ? "(none)" : entry.value("status", "(none)");
}

std::string BatchResult::reasonOf(int line) const {
  const Json entry = about(line);
  return entry.is_null() ? "(none)" : entry.value("reason", "");
}

bool waitUntil(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::string statusField(pid_t process, const std::string& field) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(field + ":")) continue;
    const std::size_t begin = line.find_first_not_of(" \t", field.size() + 1);
    return begin == std::string::npos ? "" : line.substr(begin);
  }
  return "";
}

std::vector<pid_t> descendantsOf(pid_t process) {
  std::vector<pid_t> found{process};
  for (std::size_t i = 0; i < found.size(); ++i) {
    const std::string own = std::to_string(found[i]);
    std::ifstream file("/proc/" + own + "/task/" + own + "/children");
    for (pid_t child = 0; file >> child;) found.push_back(child);
  }
  found.erase(found.begin());
  return found;
}

void BatchTest::SetUp() {
  movie_ = folder_.file("movie.mp4");
  std::filesystem::copy_file(sampleMovie("sample_with_increasing_timestamps_320w_240h_5s.mp4"), movie_);
  std::filesystem::create_directory(out());
}

Json BatchTest::job(const std::string& destination) const {
  return {{"source", movie_}, {"destination", destination}, {"width", 160}, {"height", 120}, {"timecodes", {"1"}}};
}

Json BatchTest::longJob(const std::string& destination) const {
  Json entry = job(destination);
  entry["width"] = 1600;
  entry["height"] = 1200;
  std::vector<std::string> times;
  for (int i = 0; i < 10000; ++i) times.push_back(i % 2 == 0 ? "1" : "3");
  entry["timecodes"] = times;
  return entry;
}

std::string BatchTest::writeList(const std::vector<Json>& jobs) const {
  std::string text;
  // A text stands for a line as it is.
  for (const Json& entry : jobs) text += (entry.is_string() ? entry.get<std::string>() : entry.dump()) + "\n";
  return folder_.write("list.jsonl", text);
}

std::vector<std::string> BatchTest::command(const std::vector<std::string>& arguments) {
  std::vector<std::string> words{VISTRELLE_BATCH};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

BatchResult BatchTest::resultOf(RunResult run) {
  BatchResult result{std::move(run), {}};
  result.lines = reportLines(result.run.output);
  return result;
}

BatchResult BatchTest::runBatch(const std::vector<Json>& jobs, std::vector<std::string> options) const {
  options.push_back(writeList(jobs));
  return resultOf(runProgram(command(options)));
}

std::vector<std::string> BatchTest::privateFolders() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(out())) {
    const std::string name = entry.path().filename();
    if (name.starts_with(".")) names.push_back(name);
  }
  return names;
}

bool BatchTest::longJobIsAtWork() const {
  return waitUntil([this] {
    std::error_code error;
    for (const std::string& name : privateFolders()) {
      if (std::filesystem::exists(out(name) + "/pictures/img02.jpg", error)) return true;
    }
    return false;
  });
}

}  // namespace vistrelle::testing
