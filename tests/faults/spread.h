#pragma once

#include <vector>

namespace vistrelle::testing {

/// The numbers of the calls that fail: all of 1 to `count` in a long run (VISTRELLE_LONG), else `sample` of them,
/// spread; the last ones are always among them.
std::vector<long> spread(long count, long sample);

}  // namespace vistrelle::testing
