#include "vistrelle/batch/outcome.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/confined/refused_memory.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::List;
using platform::Value;

constexpr const char* kOutOfMemory = "out of memory";

bool startsWithAny(const std::string& text, std::initializer_list<std::string_view> beginnings) {
  return std::ranges::any_of(beginnings, [&](std::string_view beginning) { return text.starts_with(beginning); });
}

/// To the microsecond: more is noise of the division.
double rounded(double seconds) {
  constexpr double kMillion = 1e6;
  return std::round(seconds * kMillion) / kMillion;
}

}  // namespace

bool isTemporary(int error) {
  constexpr std::array kPassing{ENOSPC,   EDQUOT,    EIO,    ENOMEM,  EMFILE,    ENFILE,       EAGAIN,
                                ESTALE,   EINTR,     EBUSY,  ENOBUFS, EFBIG,     ETIMEDOUT,    ECONNRESET,
                                ENOTCONN, EHOSTDOWN, ENODEV, ENXIO,   EREMOTEIO, EHOSTUNREACH, ENETUNREACH};
  return std::ranges::find(kPassing, error) != kPassing.end();
}

Outcome failureOf(int error, const std::string& what) {
  const char* status = isTemporary(error) ? kTemporaryFailure : kBadInput;
  return {status, platform::format("{}: {}", what, ::strerror(error)), {}, 0};
}

Outcome failureOfDecoder(const std::string& words, const std::string& which) {
  const std::string reason = which + (words.empty() ? "no reason given" : words);
  const std::string refused = platform::format("the decoder ended: status {}", platform::kOutOfMemoryStatus);
  if (words == refused || startsWithAny(words, {kOutOfMemory})) return {kTemporaryFailure, which + kOutOfMemory, {}, 0};
  if (startsWithAny(words, {"no process for a decoder", "the process that makes decoders has ended",
                            "there is no room for the picture"})) {
    return {kTemporaryFailure, reason, {}, 0};
  }
  if (startsWithAny(words, {"the decoder took too long", "the decoder gave no sign of life"})) {
    return {kTimeout, reason, {}, 0};
  }
  if (startsWithAny(words, {"the decoder ended: ", "the decoder gave no sensible answer"})) {
    return {kCrashed, reason, {}, 0};
  }
  return {kBadInput, reason, {}, 0};
}

Dictionary reportFields(const Outcome& outcome, const BatchJob& job) {
  Dictionary fields{{"status", outcome.status}, {"seconds", rounded(outcome.seconds)}};
  if (!outcome.reason.empty()) fields.emplace("reason", outcome.reason);
  if (!outcome.isSuccess()) return fields;
  List files;
  for (const BatchFile& file : outcome.files) {
    Dictionary entry{{"path", file.path}, {"bytes", file.bytes}};
    if (outcome.status == kDone) {
      entry.insert({{"asked", rounded(file.asked)},
                    {"time", rounded(file.actual)},
                    {"width", job.width},
                    {"height", job.height}});
    }
    files.emplace_back(std::move(entry));
  }
  fields.emplace("files", std::move(files));
  return fields;
}

}  // namespace vistrelle
