// Reads one JSON object a line, {"op": "nbArrondi", "args": [2, 3.14159]}, and prints one a line,
// {"log": ["..."], "result": 3.1400001}; {"error": "..."} for an unknown operation or wrong arguments.
#include <iostream>
#include <mutex>
#include <string>

#include "registry.h"
#include "vistrelle/platform/base/log.h"

namespace {

using call::Json;

/// Collects what one operation says.
class Transcript : public vistrelle::platform::LogSink {
 public:
  void message(std::string_view text) override {
    std::lock_guard lock(mutex_);
    log_.push_back(std::string(text));
  }
  void plain(std::string_view text) override {
    std::lock_guard lock(mutex_);
    plain_ += text;
  }
  /// Puts what came since the last call into `answer`.
  void moveInto(Json& answer) {
    std::lock_guard lock(mutex_);
    answer["log"] = std::exchange(log_, Json::array());
    if (!plain_.empty()) answer["stderr"] = lines(std::exchange(plain_, {}));
  }

 private:
  static Json lines(const std::string& text) {
    Json list = Json::array();
    for (std::size_t start = 0; start < text.size();) {
      const std::size_t end = std::min(text.find('\n', start), text.size());
      list.push_back(text.substr(start, end - start));
      start = end + 1;
    }
    return list;
  }

  std::mutex mutex_;
  Json log_ = Json::array();
  std::string plain_;
};

Json answerTo(const std::string& line, const call::Registry& registry) {
  const Json request = Json::parse(line, nullptr, false);
  if (!request.is_object() || !request.contains("op") || !request["op"].is_string()) {
    return {{"error", "a line is {\"op\": \"name\", \"args\": [...]}"}};
  }
  const auto name = request["op"].get<std::string>();
  const auto* operation = registry.find(name);
  if (!operation) return {{"error", "unknown operation: " + name}};
  const Json arguments = request.value("args", Json::array());
  if (!arguments.is_array()) return {{"error", "args is a list"}};
  try {
    return {{"result", (*operation)(arguments)}};
  } catch (const std::exception& error) {
    return {{"error", name + ": " + error.what()}};
  }
}

}  // namespace

int main() {
  call::Registry registry;
  call::addCliOperations(registry);
  call::addFilesOperations(registry);
  call::addImageOperations(registry);
  call::addMovieOperations(registry);
  call::addMovieeditOperations(registry);
  call::addMovieinfoOperations(registry);
  call::addSystemOperations(registry);
  call::addDialogOperations(registry);
  call::addTextOperations(registry);
  registry.add("operations", [&registry] {
    std::vector<std::string> names;
    for (const auto& entry : registry.all()) names.push_back(entry.first);
    return names;
  });

  const auto transcript = std::make_shared<Transcript>();
  vistrelle::platform::logSink().install(transcript);
  for (std::string line; std::getline(std::cin, line);) {
    if (line.empty()) continue;
    Json answer = answerTo(line, registry);
    transcript->moveInto(answer);
    std::cout << answer.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
  }
}
