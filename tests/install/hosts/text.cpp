// A host of texts and files: its own log, and no library of movies in its process.
#include "vistrelle/text/text.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "vistrelle/files/queries.h"
#include "vistrelle/platform/base/log.h"
#include "vistrelle/text/numbers.h"

namespace {

class CountingSink final : public vistrelle::platform::LogSink {
 public:
  void message(std::string_view) override { ++lines; }
  void plain(std::string_view) override { ++lines; }
  int lines = 0;
};

bool hasLoaded(const std::string& library) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(library) != std::string::npos) return true;
  }
  return false;
}

int fail(const char* what) {
  std::cerr << "text host: " << what << "\n";
  return EXIT_FAILURE;
}

}  // namespace

int main(int, char** argv) {
  const auto sink = std::make_shared<CountingSink>();
  const vistrelle::platform::Installed installed(vistrelle::platform::logSink(),
                                                 std::shared_ptr<vistrelle::platform::LogSink>(sink));
  vistrelle::platform::log("one line, {}", 1);
  if (sink->lines != 1) return fail("the host's log got no line");
  if (vistrelle::reduceRatio(1920, 1080) != std::pair<std::int64_t, std::int64_t>(16, 9)) return fail("reduceRatio");
  if (vistrelle::htmlEntityDecodeStr("caf&eacute; &amp; th&eacute;") != "caf\u00e9 & th\u00e9")
    return fail("htmlEntityDecodeStr");
  if (vistrelle::poidsFile(argv[0], "k") <= 0) return fail("poidsFile");
  if (!vistrelle::isDirCocoa("/")) return fail("isDirCocoa");
  for (const char* library : {"/libavcodec", "/libavformat", "/libavutil", "/libsw"}) {
    if (hasLoaded(library)) return fail(library);
  }
  std::cout << "16:9\n";
}
