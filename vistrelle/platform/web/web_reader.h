#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "vistrelle/platform/base/seam.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

struct WebLimits {
  /// For the whole answer, redirections included.
  std::chrono::milliseconds time{30'000};
  /// Until a connection stands.
  std::chrono::milliseconds connecting{10'000};
  std::size_t bytes = std::size_t{16} << 20U;
  long redirections = 10;
  /// Of all answers on the way together.
  std::size_t headerBytes = std::size_t{256} << 10U;
};

struct WebAnswer {
  /// The body; absent when there is none to be had, `error` then says why.
  std::optional<std::string> bytes;
  std::string error;
};

/// Reads what a URL names. Only http and https are read, also after a redirection. An answer counts with status 101,
/// 200 to 399, 401 and 407; every other status is an error, as are an answer that is too long and one that takes too
/// long. Any thread may read.
class WebReader {
 public:
  virtual ~WebReader() = default;
  virtual WebAnswer read(const std::string& url) = 0;
};

std::shared_ptr<WebReader> curlWebReader(const WebLimits& limits = {});

Seam<WebReader>& webReader();

}  // namespace vistrelle::platform

#pragma GCC visibility pop
