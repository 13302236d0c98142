#include <algorithm>
#include <array>
#include <numeric>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/text/numbers.h"
#include "vistrelle/text/scanning.h"
#include "vistrelle/text/whole_numbers.h"

namespace vistrelle {
namespace {

using std::int64_t;
using std::uint64_t;

// 43, 61, 73, 79, 97, 103, 151, 163, 173 and 193 are left out on purpose.
constexpr std::array<int64_t, 37> kCandidates = {1,   2,   3,   5,   7,   11,  13,  17,  19,  23,  29,  31,  37,
                                                 41,  47,  53,  59,  67,  71,  83,  89,  101, 107, 109, 113, 127,
                                                 131, 137, 139, 149, 157, 167, 179, 181, 191, 197, 199};

uint64_t magnitude(int64_t number) {
  return number < 0 ? uint64_t{0} - static_cast<uint64_t>(number) : static_cast<uint64_t>(number);
}

/// The numbers that divide two sizes, found through the divisors of their greatest common divisor. A range is walked
/// by its members or by their cofactors, whichever are fewer, so that huge numbers take bounded time.
class CommonDivisors {
 public:
  CommonDivisors(int64_t a, int64_t b, bool evenOnly)
      : greatest_(std::gcd(magnitude(a), magnitude(b))), evenOnly_(evenOnly) {}

  bool has(uint64_t candidate) const {
    return candidate != 0 && (!evenOnly_ || candidate % 2 == 0) && greatest_ % candidate == 0;
  }

  /// The smallest in [from, end); 0 when there is none.
  int64_t smallest(int64_t from, int64_t end) const {
    if (end <= from || from < 1) return 0;
    const auto first = static_cast<uint64_t>(from);
    uint64_t last = static_cast<uint64_t>(end) - 1;
    if (greatest_ != 0) last = std::min(last, greatest_);  // 0 is divided by every number
    if (first > last) return 0;
    if (greatest_ == 0 || last - first <= greatest_ / first - greatest_ / last) {
      for (uint64_t candidate = first; candidate <= last; ++candidate) {
        if (has(candidate)) return static_cast<int64_t>(candidate);
      }
      return 0;
    }
    for (uint64_t cofactor = greatest_ / first; cofactor >= greatest_ / last; --cofactor) {
      const uint64_t candidate = greatest_ / cofactor;
      if (greatest_ % cofactor == 0 && candidate <= last && has(candidate)) return static_cast<int64_t>(candidate);
    }
    return 0;
  }

  /// The largest even one from 2 to `last`; 0 when there is none.
  int64_t largestEven(int64_t last) const {
    if (last < 2 || greatest_ % 2 != 0) return 0;
    if (greatest_ == 0) return last - last % 2;
    const uint64_t limit = std::min(static_cast<uint64_t>(last), greatest_);
    const uint64_t firstCofactor = greatest_ / limit;
    if (limit <= greatest_ / 2 - firstCofactor) {
      for (uint64_t candidate = limit - limit % 2; candidate >= 2; candidate -= 2) {
        if (has(candidate)) return static_cast<int64_t>(candidate);
      }
      return 0;
    }
    for (uint64_t cofactor = firstCofactor; cofactor <= greatest_ / 2; ++cofactor) {
      const uint64_t candidate = greatest_ / cofactor;
      if (greatest_ % cofactor == 0 && candidate <= limit && candidate % 2 == 0) return static_cast<int64_t>(candidate);
    }
    return 0;
  }

 private:
  uint64_t greatest_;
  bool evenOnly_;
};

int64_t nearAsked(const CommonDivisors& divisors, int64_t asked) {
  // Single precision first: large asked values are rounded before they are scaled.
  const auto around = static_cast<double>(static_cast<float>(asked));
  if (const int64_t found = divisors.smallest(truncatedInteger(around / 1.5 + 0.5), truncatedInteger(around * 1.5))) {
    return found;
  }
  logVerbose("nbsSousMultipleCommu: pass range < {}", asked);
  if (const int64_t found = divisors.smallest(truncatedInteger(around * 0.5), truncatedInteger(around / 1.5))) {
    return found;
  }
  logVerbose("nbsSousMultipleCommu: pass range > {}", asked);
  return divisors.smallest(truncatedInteger(static_cast<double>(asked) * 1.5), saturatingProduct(2, asked));
}

int64_t inLists(const CommonDivisors& divisors, int64_t asked, bool evenOnly) {
  logVerbose("nbsSousMultipleCommu: pass range nb 1ers");
  if (evenOnly) return divisors.largestEven(saturatingProduct(2, asked));
  const auto found = std::find_if(kCandidates.rbegin(), kCandidates.rend(),
                                  [&](int64_t candidate) { return divisors.has(static_cast<uint64_t>(candidate)); });
  return found == kCandidates.rend() ? 0 : *found;
}

}  // namespace

std::pair<int64_t, int64_t> reduceRatio(int64_t a, int64_t b) {
  if (a == 0 && b == 0) return {1, 1};
  for (const int64_t divisor : {2, 3, 5, 7, 11, 13, 17}) {
    while (a % divisor == 0 && b % divisor == 0) {
      a /= divisor;
      b /= divisor;
    }
  }
  return {a, b};
}

int64_t commonSubMultiple(int64_t a, int64_t b, int64_t asked, bool evenOnly) {
  const int64_t rest = remainderOf(a, asked);
  log("nbsSousMultipleCommu: size={} vs {} -> results={} & {} (with {} as the asked Under Common Multiple)", a, b, rest,
      rest, asked);
  if (asked != 0 && rest == 0 && remainderOf(b, asked) == 0 && (!evenOnly || asked % 2 == 0)) {
    logVerbose("nbsSousMultipleCommu:-) initial {} is a valid Under Common Multiple", asked);
    return asked;
  }
  logVerbose("nbsSousMultipleCommu: pass ± {}", asked);
  int64_t found = 0;
  if (asked != 0) {
    const CommonDivisors divisors(a, b, evenOnly);
    found = nearAsked(divisors, asked);
    if (found == 0) found = inLists(divisors, asked, evenOnly);
  }
  if (found == 0) {
    found = -1;
  } else {
    logVerbose("SousMultiple mod    :-) {}", found);
  }
  log("nbsSousMultipleCommu: fin {}", found);
  return found;
}

int64_t nbMultipleArrondi(int64_t n, int64_t m) {
  const int64_t rest = remainderOf(n, m);
  if (rest == 0) return n;
  const int64_t low = n - rest;
  logVerbose("arrondiInferieur     : {}", low);
  const bool down = static_cast<float>(m / 2) > static_cast<float>(rest);
  logVerbose("{}", down ? "nbMultipleArrondi    : arrondir en-dessous" : "nbMultipleArrondi    : arrondir au dessus");
  const int64_t rounded = down ? low : saturatingSum(low, m);
  log("nbMultipleArrondi    :-) {}", rounded);
  return rounded;
}

}  // namespace vistrelle
