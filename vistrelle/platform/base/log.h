#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/seam.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// Where the system's words go. Both calls may come from any thread.
class LogSink {
 public:
  virtual ~LogSink() = default;
  /// A log message; the sink adds date, program name, process and thread id.
  virtual void message(std::string_view text) = 0;
  /// Text for a calling program or a reader at the terminal: unchanged, no prefix, no line end added.
  virtual void plain(std::string_view text) = 0;
  /// Whether names and other data are to be made visible (visible_text.h) before they come here.
  virtual bool showsToTerminal() const { return false; }
};

/// The sink in use. The default writes to standard error, each message as one write
/// ("2025-11-21 01:23:45.678 vistrelle[4711:4712] message"), and copies messages to the local system logger
/// when its socket exists. Failures to write (closed or full standard error) are ignored. On a terminal the control
/// characters of arguments are escaped; a program that reads standard error gets them as they are.
Seam<LogSink>& logSink();

/// The text of a format for `sink`.
std::string textFor(const LogSink& sink, FormatLiteral literal, std::initializer_list<FormatArgument> arguments);

/// Logs one message. The format is a literal; user data is an argument.
template <typename... Arguments>
void log(FormatLiteral literal, const Arguments&... arguments) {
  const std::shared_ptr<LogSink> sink = logSink().get();
  sink->message(textFor(*sink, literal, {FormatArgument(arguments)...}));
}

/// Writes plain text to standard error (progress, refusals, banner).
template <typename... Arguments>
void plain(FormatLiteral literal, const Arguments&... arguments) {
  const std::shared_ptr<LogSink> sink = logSink().get();
  sink->plain(textFor(*sink, literal, {FormatArgument(arguments)...}));
}

}  // namespace vistrelle::platform

#pragma GCC visibility pop
