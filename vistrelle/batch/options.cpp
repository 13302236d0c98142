#include "vistrelle/batch/options.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <thread>
#include <utility>

#include "vistrelle/platform/base/format.h"

namespace vistrelle {
namespace {

using platform::OptionalText;

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;
constexpr std::uint64_t kDefaultMemory = 2560 * kMebibyte;
constexpr std::uint64_t kLeastMemory = 64 * kMebibyte;
constexpr std::uint64_t kMostMemory = std::uint64_t{1} << 50;
constexpr std::chrono::seconds kDefaultTimeout{600};
constexpr double kMostSeconds = 1e7;
constexpr std::uint64_t kMostJobs = 1000;

template <typename Number>
bool readNumber(std::string_view text, Number* number) {
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), *number);
  return code == std::errc() && end == text.data() + text.size();
}

bool readJobs(const std::string& text, BatchOptions* options) {
  std::uint64_t number = 0;
  if (!readNumber(std::string_view(text), &number) || number < 1 || number > kMostJobs) return false;
  options->jobs = number;
  return true;
}

bool readMemory(const std::string& text, BatchOptions* options) {
  constexpr std::string_view kUnits = "KMGT";
  std::string_view digits = text;
  std::uint64_t unit = 1;
  const std::size_t power = digits.empty() ? std::string_view::npos : kUnits.find(digits.back());
  if (power != std::string_view::npos) {
    unit <<= 10 * (power + 1);
    digits.remove_suffix(1);
  }
  double number = 0;
  if (!readNumber(digits, &number) || !(number > 0)) return false;
  const double bytes = number * static_cast<double>(unit);
  if (bytes < static_cast<double>(kLeastMemory) || bytes > static_cast<double>(kMostMemory)) return false;
  options->memoryBytes = static_cast<std::uint64_t>(bytes);
  return true;
}

bool readTimeout(const std::string& text, BatchOptions* options) {
  double seconds = 0;
  if (!readNumber(std::string_view(text), &seconds) || !(seconds > 0 && seconds <= kMostSeconds)) return false;
  options->timeout = std::chrono::milliseconds(std::max<std::int64_t>(1, std::llround(seconds * 1000)));
  return true;
}

bool readPath(const std::string& text, OptionalText* path) {
  *path = text;
  return !text.empty();
}

/// One option with its value. False when there is no such option or the value cannot be meant.
bool takeValue(const std::string& name, const std::string& value, BatchOptions* options) {
  if (name == "--jobs") return readJobs(value, options);
  if (name == "--memory") return readMemory(value, options);
  if (name == "--timeout") return readTimeout(value, options);
  if (name == "--report") return readPath(value, &options->report);
  if (name == "--resume") return readPath(value, &options->resume);
  return false;
}

bool takesValue(const std::string& name) {
  return name == "--jobs" || name == "--memory" || name == "--timeout" || name == "--report" || name == "--resume";
}

bool takeSwitch(const std::string& word, BatchOptions* options) {
  bool* flag = word == "--verbose"   ? &options->isVerbose
               : word == "--help"    ? &options->wantsHelp
               : word == "--version" ? &options->wantsVersion
                                     : nullptr;
  if (flag != nullptr) *flag = true;
  return flag != nullptr;
}

}  // namespace

std::optional<BatchOptions> readBatchOptions(const std::vector<std::string>& arguments, std::string* error) {
  BatchOptions options;
  options.jobs = std::max(1U, std::thread::hardware_concurrency());
  options.memoryBytes = kDefaultMemory;
  options.timeout = kDefaultTimeout;
  bool hasList = false;
  bool areOptionsOver = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (!areOptionsOver && word == "--") {
      areOptionsOver = true;
    } else if (areOptionsOver || word == "-" || !word.starts_with('-')) {
      if (std::exchange(hasList, true)) {
        *error = platform::format("one list only, not '{}' too", word);
        return std::nullopt;
      }
      options.list = word;
    } else if (!takeSwitch(word, &options)) {
      const std::size_t equals = word.find('=');
      const std::string name = word.substr(0, equals);
      const bool isNext = equals == std::string::npos;
      if (!takesValue(name)) {
        *error = platform::format("unknown option '{}'", word);
        return std::nullopt;
      }
      if (isNext && ++i >= arguments.size()) {
        *error = platform::format("{} needs a value", name);
        return std::nullopt;
      }
      const std::string value = isNext ? arguments[i] : word.substr(equals + 1);
      if (!takeValue(name, value, &options)) {
        *error = platform::format("{} cannot be '{}'", name, value);
        return std::nullopt;
      }
    }
  }
  if (options.report && options.resume) {
    *error = "--report or --resume, not both";
    return std::nullopt;
  }
  return options;
}

const char* batchUsage() {
  return "usage: vistrelle-batch [options] [FILE|-]\n"
         "Makes still pictures of many movies. FILE or standard input has one job a line, a JSON object:\n"
         "  {\"source\": \"a.mov\", \"destination\": \"a/\", \"width\": 320, \"height\": 240, \"count\": 5}\n"
         "with one of \"timecodes\": [...], \"count\": N, \"interval\": SECONDS, and perhaps \"format\": \"png\".\n"
         "  --jobs N           jobs at the same time (default: one a processor)\n"
         "  --memory SIZE      memory of each process of a job, in bytes or with K, M, G, T (default 2560M)\n"
         "  --timeout SECONDS  of one job (default 600)\n"
         "  --report FILE      one JSON line a job goes to this new file and not to standard output\n"
         "  --resume FILE      the same; jobs that the file calls finished are not done again\n"
         "  --verbose          what the picture generator says goes to standard error\n"
         "  --help, --version\n"
         "Exit status: 0 when every job is done or its pictures exist, 1 otherwise.\n";
}

}  // namespace vistrelle
