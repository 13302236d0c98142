// The tool's list of times: pieces between hyphens, each read as a timecode and turned into a time.

#include <cmath>
#include <cstdint>

#include "fuzz/support.h"
#include "vistrelle/movie/timecode.h"
#include "vistrelle/platform/media/media_time.h"
#include "vistrelle/text/pieces.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  require(silenced);
  std::string joined;
  for (const std::string& piece : vistrelle::piecesAt(asText(data, size), '-')) {
    require(piece.find('-') == std::string::npos);
    joined += (joined.empty() ? "" : "-") + piece;
    const float seconds = vistrelle::timecodeSeconds(piece);
    require(!std::isnan(seconds) && seconds >= 0);  // a sign ends a piece
    // Blanks before it change nothing.
    require(vistrelle::timecodeSeconds("  " + piece) == seconds);
    const auto time = vistrelle::platform::MediaTime::makeWithSeconds(static_cast<double>(seconds), 2);
    require(time.isValid());
    if (time.isNumeric()) require(time.seconds() <= static_cast<double>(seconds));
  }
  return 0;
}
