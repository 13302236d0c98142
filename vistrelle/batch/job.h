#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

namespace vistrelle {

/// One movie of a list and what is wanted of it.
struct BatchJob {
  std::string source;        ///< absolute
  std::string destination;   ///< absolute
  bool namesFolder = false;  ///< the destination ended in "/"
  std::int64_t width = 1280;
  std::int64_t height = 960;
  // One of the three.
  std::optional<std::vector<std::string>> timecodes;  ///< in the tool's grammar
  std::int64_t count = 0;                             ///< pictures at the middles of as many equal parts
  double interval = 0;                                ///< seconds from one picture to the next, from zero on
  platform::OptionalText format;                      ///< extension of the pictures, lower case

  /// 16 characters that stand for all of the above: equal for equal jobs, whatever line they stand in.
  std::string id() const;
  /// The hidden folder beside the destination in which the job works.
  std::string privateFolder() const;
};

/// No job makes more pictures.
constexpr std::int64_t kMostPictures = 10000;

/// The job of one line; nothing with an error text when it is none. Texts of the line stand visibly in the error.
std::optional<BatchJob> readJob(const std::string& line, std::string* error);

/// The source and destination of a line as they stand there, for a report; absent where there are none.
struct NamedPaths {
  platform::OptionalText source;
  platform::OptionalText destination;
};
NamedPaths namedPaths(const std::string& line);

/// 16 hexadecimal digits for a text (FNV-1a, 64 bits).
std::string textId(const std::string& text);

}  // namespace vistrelle
