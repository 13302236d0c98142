#include "vistrelle/batch/job.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/json_text.h"
#include "vistrelle/platform/base/number_text.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::List;
using platform::OptionalText;
using platform::Value;

constexpr std::int64_t kLargestSide = 65500;
constexpr double kSmallestInterval = 0.5;  // times fall on half seconds
constexpr double kLargestTime = 1e9;
constexpr std::array<std::string_view, 10> kFormats{"jpg", "jpeg", "png", "tif", "tiff",
                                                    "bmp", "gif",  "jp2", "jpx", "pdf"};

OptionalText textAt(const Dictionary& fields, std::string_view key) {
  const auto found = fields.find(key);
  const auto* text = found == fields.end() ? nullptr : found->second.get<std::string>();
  return text == nullptr ? OptionalText() : *text;
}

/// Reads the fields of one job; the first thing that is wrong stays as the error.
class FieldReader {
 public:
  explicit FieldReader(const Dictionary& fields) : fields_(fields) {}

  std::optional<BatchJob> read() {
    refuseUnknownFields();
    BatchJob job;
    readPaths(job);
    readSide("width", &job.width);
    readSide("height", &job.height);
    readTimes(job);
    readFormat(job);
    if (!error_.empty()) return std::nullopt;
    return job;
  }
  const std::string& error() const { return error_; }

 private:
  void fail(std::string text) {
    if (error_.empty()) error_ = std::move(text);
  }

  const Value* field(std::string_view key) const {
    const auto found = fields_.find(key);
    return found == fields_.end() ? nullptr : &found->second;
  }

  void refuseUnknownFields() {
    constexpr std::array<std::string_view, 8> kFields{"source", "destination", "width",    "height",
                                                      "format", "timecodes",   "interval", "count"};
    for (const auto& [key, value] : fields_) {
      if (std::ranges::find(kFields, key) == kFields.end()) {
        fail(platform::format("unknown field {}", platform::jsonLine(Value(key))));
      }
    }
  }

  std::string readPath(std::string_view key) {
    const OptionalText text = textAt(fields_, key);
    if (!text || text->empty()) {
      fail(platform::format("no {}", key));
    } else if (text->find('\0') != std::string::npos) {
      fail(platform::format("{} is no file name", key));
    } else {
      return platform::standardizedPath(platform::absolutePath(platform::expandingTilde(*text)));
    }
    return {};
  }

  void readPaths(BatchJob& job) {
    job.source = readPath("source");
    job.destination = readPath("destination");
    job.namesFolder = textAt(fields_, "destination").value_or("").ends_with('/');
    if (error_.empty() && job.source == job.destination) fail("source and destination are the same");
  }

  void readSide(std::string_view key, std::int64_t* side) {
    const Value* value = field(key);
    if (value == nullptr) return;
    const auto* number = value->get<std::int64_t>();
    if (number == nullptr || *number < 1 || *number > kLargestSide) {
      fail(platform::format("{} is no whole number from 1 to {}", key, kLargestSide));
    } else {
      *side = *number;
    }
  }

  void readTimes(BatchJob& job) {
    const Value* timecodes = field("timecodes");
    const Value* count = field("count");
    const Value* interval = field("interval");
    if ((timecodes != nullptr) + (count != nullptr) + (interval != nullptr) != 1) {
      return fail("one of timecodes, count and interval is needed");
    }
    if (timecodes != nullptr) return readTimecodes(*timecodes, job);
    if (count != nullptr) {
      const auto* number = count->get<std::int64_t>();
      if (number == nullptr || *number < 1 || *number > kMostPictures) {
        return fail(platform::format("count is no whole number from 1 to {}", kMostPictures));
      }
      job.count = *number;
      return;
    }
    job.interval = interval->number().value_or(0);
    if (!(job.interval >= kSmallestInterval && job.interval <= kLargestTime)) {
      fail(platform::format("interval is no number of seconds from {:.1f} on", kSmallestInterval));
    }
  }

  void readTimecodes(const Value& value, BatchJob& job) {
    const auto* list = value.get<List>();
    if (list == nullptr || list->empty() || std::ssize(*list) > kMostPictures) {
      return fail(platform::format("timecodes is no list of 1 to {} timecodes", kMostPictures));
    }
    job.timecodes.emplace();
    for (const Value& item : *list) {
      const auto* text = item.get<std::string>();
      const double number = item.number().value_or(-1);
      if (text != nullptr) {
        job.timecodes->push_back(*text);
      } else if (number >= 0 && number <= kLargestTime) {
        job.timecodes->push_back(platform::format("{:.3f}", number));
      } else {
        return fail("a timecode is neither a text nor a number of seconds");
      }
    }
  }

  void readFormat(BatchJob& job) {
    const Value* value = field("format");
    if (value == nullptr) return;
    job.format = textAt(fields_, "format");
    if (!job.format || std::ranges::find(kFormats, *job.format) == kFormats.end()) {
      fail("format is none of jpg, jpeg, png, tif, tiff, bmp, gif, jp2, jpx, pdf");
    }
  }

  const Dictionary& fields_;
  std::string error_;
};

}  // namespace

std::string textId(const std::string& text) {
  std::uint64_t hash = 14695981039346656037U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
  return platform::format("{:016x}", hash);
}

std::string BatchJob::id() const {
  Dictionary fields{{"source", source},    {"destination", destination}, {"namesFolder", namesFolder},
                    {"width", width},      {"height", height},           {"count", count},
                    {"interval", interval}};
  if (format) fields.emplace("format", *format);
  if (timecodes) fields.emplace("timecodes", List(timecodes->begin(), timecodes->end()));
  return textId(platform::jsonLine(Value(std::move(fields))));
}

std::string BatchJob::privateFolder() const {
  const std::string name = ".vistrelle-batch-" + id();
  return platform::appendingPathComponent(platform::deletingLastPathComponent(destination), name);
}

std::optional<BatchJob> readJob(const std::string& line, std::string* error) {
  const std::optional<Value> value = platform::readJson(line, error);
  if (!value) return std::nullopt;
  const auto* fields = value->get<Dictionary>();
  if (fields == nullptr) {
    *error = "not an object";
    return std::nullopt;
  }
  FieldReader reader(*fields);
  std::optional<BatchJob> job = reader.read();
  if (!job) *error = reader.error();
  return job;
}

NamedPaths namedPaths(const std::string& line) {
  std::string error;
  const std::optional<Value> value = platform::readJson(line, &error);
  const auto* fields = value ? value->get<Dictionary>() : nullptr;
  if (fields == nullptr) return {};
  return {textAt(*fields, "source"), textAt(*fields, "destination")};
}

}  // namespace vistrelle
