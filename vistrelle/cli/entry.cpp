#include "vistrelle/cli/entry.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/movie/thumbnails.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/text/pieces.h"
#include "vistrelle/text/scanning.h"

namespace vistrelle {
namespace {

using platform::OptionalText;
using Texts = std::vector<std::string>;

constexpr int kSuccess = 0;
constexpr int kFailure = 1;

struct Options {
  OptionalText source;
  OptionalText destination;
  std::int32_t width = 1280;
  std::int32_t height = 960;
  std::optional<Texts> timecodes;
  bool overwrite = false;
};

/// The leading integer of a text, limited to 32 bits.
std::int32_t leadingInteger(const std::string& text) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(integerValue(text), Limits::min(), Limits::max()));
}

/// Walks the arguments. Words that are no option are skipped; a later option wins over an earlier one.
Options readOptions(const Texts& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    // The range error of an option without a value is left uncaught on purpose: such a call ends the process.
    const auto value = [&arguments, &i]() -> const std::string& { return arguments.at(++i); };
    const std::string& word = arguments[i];
    if (word == "-i") {
      options.source = value();
    } else if (word == "-w") {
      options.width = leadingInteger(value());
    } else if (word == "-h") {
      options.height = leadingInteger(value());
    } else if (word == "-tc") {
      options.timecodes = piecesAt(value(), '-');
    } else if (word == "-v") {
      setVerbose(true);
    } else if (word == "-y") {
      options.overwrite = true;
    } else if (word == "-o") {
      options.destination = value();
    }
  }
  return options;
}

/// The source as the file manager sees it: "~" is not expanded here.
bool sourceExists(const OptionalText& source) {
  return source && platform::fileManager().get()->exists(*source);
}

/// Fills in the destination and checks both paths and the list; false after a refusal.
bool checkOptions(Options& options) {
  if (!sourceExists(options.source)) {
    platform::plain("Error          : srcPathStr file doesn't exist (Exit)\n");
    return false;
  }
  if (!options.destination) {
    options.destination = platform::appendingPathExtension(*options.source, "jpg");
    platform::plain("dst auto           : {}\n", *options.destination);
  }
  if (testPresenceCocoa(platform::Value(*options.destination)) && !options.overwrite &&
      !isDirCocoa(options.destination)) {
    platform::plain("Error          : dst file already exists (Exit)\n");
    return false;
  }
  if (options.source == options.destination) {
    platform::plain("Error          : srcPathStr = dstPathStr (Exit)\n");
    return false;
  }
  if (!options.timecodes || options.timecodes->empty()) {
    platform::plain("Error          : no timecode (Exit)\n");
    return false;
  }
  return true;
}

}  // namespace

int bannerPrint() {
  platform::plain(
      "-----------------------------------\n"
      "  Vistrelle v1.4(3845) - 2015  \n"
      "     by the Vistrelle developers     \n"
      "-----------------------------------\n"
      "\n");
  return 1;
}

int stderrPrint(const std::string& text) {
  platform::logSink().get()->plain(text);
  return 1;
}

int vistrelleMain(int argc, const char* const* argv) {
  bannerPrint();
  const Texts arguments(argv + std::min(argc, 1), argv + argc);
  Options options = readOptions(arguments);
  if (isVerbose()) {
    platform::plain("input          : {}\n", options.source.value_or("(null)"));
    platform::plain("output         : {}\n", options.destination.value_or("(null)"));
  }
  if (!checkOptions(options)) return kFailure;
  const bool isSuccess =
      Mirelund(options.source, options.destination, options.width, options.height, options.timecodes);
  log("isSuccess           ? {}", isSuccess);
  return isSuccess ? kSuccess : kFailure;
}

}  // namespace vistrelle
