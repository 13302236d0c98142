#pragma once

#include <memory>

#include "vistrelle/platform/base/log.h"

/// Log lines go nowhere: a fuzzer's own output is to be seen.
inline void silenceLog() {
  class Nowhere : public vistrelle::platform::LogSink {
   public:
    void message(std::string_view /*text*/) override {}
    void plain(std::string_view /*text*/) override {}
  };
  vistrelle::platform::logSink().install(std::make_shared<Nowhere>());
}
