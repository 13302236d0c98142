#include <array>
#include <cmath>
#include <utility>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/movieinfo/geometry.h"
#include "vistrelle/text/numbers.h"
#include "vistrelle/text/scanning.h"

namespace vistrelle {
namespace {

using Ratio = std::pair<std::int64_t, std::int64_t>;

constexpr float kNear = 0.02F;
constexpr float kFairlyNear = 0.04F;
// The decimals, not 4/3 and 16/9: intended.
constexpr float kFourThirds = 1.33F;
constexpr float kSixteenNinths = 1.77F;

struct NamedPixel {
  const char* name;
  double divisor;
};

/// In the order in which they are tried: the first that fits counts.
constexpr std::array<NamedPixel, 5> kNamedPixels{{{"16:15", 1.0666666666666667},
                                                  {"64:45", 1.4222222222222223},
                                                  {"8:9", 0.8888888888888888},
                                                  {"32:27", 1.1851851851851851},
                                                  {"4:3", 1.3333333333333333}}};

std::string textOf(const Ratio& ratio) {
  return platform::format("{}:{}", ratio.first, ratio.second);
}

std::string describe(const Ratio& ratio) {
  return platform::description(platform::Value(platform::List{ratio.first, ratio.second}));
}

/// How far from 4:3 still counts as 4:3 depends on the pixels; 16:9 has one limit.
std::string displayRatio(float displayed, float fourThirdsLimit, std::int64_t width, std::int64_t height) {
  if (std::abs(displayed - kFourThirds) < fourThirdsLimit) return "4:3";
  if (std::abs(displayed - kSixteenNinths) < kNear) return "16:9";
  return textOf(reduceRatio(width, height));
}

std::string computedPixelRatio(float displayed, float encoded) {
  log("par else");
  const std::int64_t thousandths = truncatedInteger(static_cast<double>((displayed / encoded) * 1000.0F));
  Ratio ratio = reduceRatio(thousandths, 1000);
  log("la_Array2 0         = {}", describe(ratio));
  const std::int64_t divisor = commonSubMultiple(thousandths, 1000, 1000, false);
  log("modInt              = {}", divisor);
  if (ratio.first > 3 * divisor && ratio.second > 3 * divisor) {
    ratio = reduceRatio(ratio.first / divisor, ratio.second / divisor);
    log("la_Array2 1         = {}", describe(ratio));
  }
  // The numerator by itself: always 1, as intended.
  const auto numerator = static_cast<double>(ratio.first);
  log("parFloat            = {:f}", numerator / numerator);
  return textOf(ratio);
}

std::string pixelRatio(float displayed, float encoded) {
  for (const NamedPixel& named : kNamedPixels) {
    const double expected = static_cast<double>(displayed) / named.divisor;
    if (std::abs(expected - static_cast<double>(encoded)) < static_cast<double>(kNear)) return named.name;
  }
  return computedPixelRatio(displayed, encoded);
}

}  // namespace

std::vector<std::string> qtDarPar(std::int64_t dw, std::int64_t dh, std::int64_t ew, std::int64_t eh) {
  log("qt DAR PAR          - begin");
  log("Sizes Displayed     : {}x{} vs Encoded {}x{}", dw, dh, ew, eh);
  const float displayed = static_cast<float>(dw) / static_cast<float>(dh);
  float encoded = displayed;
  if (ew == 1 && eh == 1) {
    log("PAR                 : pas encore déterminable…");
  } else {
    encoded = static_cast<float>(ew) / static_cast<float>(eh);
  }
  log("Ratio Displayed     : {:.02f} vs Encoded {:.02f}", displayed, encoded);
  std::string dar;
  std::string par = "1:1";
  if (std::abs(displayed - encoded) < kNear) {
    log("square pixels");
    dar = displayRatio(displayed, kNear, dw, dh);
  } else {
    log("anamorphous pixels");
    dar = displayRatio(displayed, kFairlyNear, dw, dh);
    logVerbose("DAR (tmp)           : {}", dar);
    par = pixelRatio(displayed, encoded);
  }
  log("DAR                 : {}", dar);
  log("PAR                 : {}", par);
  log("qt DAR PAR          - end");
  return {dar, par};
}

std::optional<platform::Dictionary> qtDarParDico(std::int64_t dw, std::int64_t dh, std::int64_t ew, std::int64_t eh) {
  const std::vector<std::string> ratios = qtDarPar(dw, dh, ew, eh);
  if (ratios.size() != 2) return std::nullopt;
  return platform::Dictionary{{"v0_dar", ratios[0]}, {"v0_par", ratios[1]}};
}

}  // namespace vistrelle
