// Replacement over 10 MB against a plain copy-and-search loop, number reading against from_chars and the removal of
// blanks.
#include <benchmark/benchmark.h>

#include <charconv>
#include <string>
#include <string_view>

#include "vistrelle/text/text.h"

namespace {

constexpr std::size_t kMegabytes10 = 10 * 1000 * 1000;

/// Words of five letters with a blank behind each.
const std::string& sample() {
  static const std::string text = [] {
    std::string words;
    words.reserve(kMegabytes10);
    for (std::size_t i = 0; words.size() < kMegabytes10; ++i) {
      for (std::size_t letter = 0; letter < 5; ++letter) words += static_cast<char>('a' + (i * 7 + letter * 3) % 26);
      words += i % 10 == 0 ? "  " : " ";
    }
    return words;
  }();
  return text;
}

std::string copyAndSearch(std::string_view text, std::string_view search, std::string_view replacement) {
  std::string result;
  std::size_t copied = 0;
  for (std::size_t at = text.find(search); at != std::string_view::npos; at = text.find(search, copied)) {
    result.append(text, copied, at - copied);
    result.append(replacement);
    copied = at + search.size();
  }
  result.append(text, copied, text.size() - copied);
  return result;
}

// 0: no occurrence, 1: every word, 2: every tenth word, 3: a word.
const char* searchOf(std::int64_t kind) {
  constexpr const char* kSearches[] = {"absent", " ", "  ", "adgjm "};
  return kSearches[kind];
}

void plainLoop(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(copyAndSearch(sample(), searchOf(state.range(0)), "_"));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sample().size()));
}
BENCHMARK(plainLoop)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

void findAndReplaceOnce(benchmark::State& state) {
  const vistrelle::OptionalText text = sample();
  const vistrelle::OptionalText search = searchOf(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(vistrelle::findAndReplace(text, search, "_", false));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text->size()));
}
BENCHMARK(findAndReplaceOnce)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

void findAndReplaceUntilGone(benchmark::State& state) {
  const vistrelle::OptionalText text = sample();
  for (auto _ : state) benchmark::DoNotOptimize(vistrelle::findAndReplace(text, "  ", " ", true));
}
BENCHMARK(findAndReplaceUntilGone)->Unit(benchmark::kMillisecond);

constexpr const char* kNumbers[] = {"23.976", "1 234.5", "-0.7", "1 920 000.25 "};

void fromCharsWithoutBlanks(benchmark::State& state) {
  const std::string text = kNumbers[state.range(0)];
  for (auto _ : state) {
    std::string digits;
    for (const char c : text) {
      if (c != ' ') digits += c;
    }
    float value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    benchmark::DoNotOptimize(value);
  }
}
BENCHMARK(fromCharsWithoutBlanks)->DenseRange(0, 3);

void str2Float(benchmark::State& state) {
  const vistrelle::OptionalText text = kNumbers[state.range(0)];
  for (auto _ : state) benchmark::DoNotOptimize(vistrelle::str2Float(text));
}
BENCHMARK(str2Float)->DenseRange(0, 3);

}  // namespace
