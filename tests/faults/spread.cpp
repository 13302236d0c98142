#include "tests/faults/spread.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>

namespace vistrelle::testing {

std::vector<long> spread(long count, long sample) {
  std::vector<long> numbers;
  if (std::getenv("VISTRELLE_LONG") != nullptr || count <= sample) {
    for (long n = 1; n <= count; ++n) numbers.push_back(n);
    return numbers;
  }
  constexpr unsigned kSeed = 20251121;
  std::mt19937 random(kSeed);
  for (long i = 0; i < sample; ++i) {
    const long from = 1 + i * count / sample;
    const long to = (i + 1) * count / sample;
    numbers.push_back(std::uniform_int_distribution<long>(from, std::max(from, to))(random));
  }
  std::cout << "seed " << kSeed << "\n";
  return numbers;
}

}  // namespace vistrelle::testing
