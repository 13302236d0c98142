#include "vistrelle/system/web.h"

#include <algorithm>
#include <string>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/web/web_reader.h"

namespace vistrelle {
namespace {

using platform::OptionalText;

/// The content as ASCII, which is strict: a page with other characters is not read.
OptionalText readAscii(const std::string& url) {
  const auto answer = platform::webReader().get()->read(url);
  const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  if (!answer.bytes) {
    log("web                 :-( '{}' ({})", url, answer.error);
    return std::nullopt;
  }
  if (!std::all_of(answer.bytes->begin(), answer.bytes->end(), isAscii)) {
    log("web                 :-( '{}' (not ASCII)", url);
    return std::nullopt;
  }
  return answer.bytes;
}

}  // namespace

OptionalText sourceOfWebPage(const OptionalText& url, bool withLines) {
  if (!url) return std::nullopt;
  if (withLines && isVerbose()) log("WebClass source_webpa- begin ({})", platform::lastPathComponent(*url));
  const OptionalText text = readAscii(*url);
  if (withLines) logVerbose("WebClass source_webpa- end");
  return text.value_or("");
}

bool isInternetReachable(const OptionalText& url) {
  if (!url) return false;
  if (isVerbose()) log("internetConnexionChe- deb: {}", platform::lastPathComponent(*url));
  const OptionalText text = readAscii(*url);
  if (isVerbose()) log("internetConnexionChe- end: src == {}", text.value_or("nil"));
  return text.has_value();
}

}  // namespace vistrelle
