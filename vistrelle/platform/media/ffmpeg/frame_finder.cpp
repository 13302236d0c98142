#include "vistrelle/platform/media/ffmpeg/frame_finder.h"

#include <optional>
#include <utility>

namespace vistrelle::platform {

FrameFinder::FrameFinder(std::shared_ptr<MovieSource> source, int streamIndex, const FrameOptions& options,
                         RunRules rules)
    : store_(options.keptBytes, statistics_),
      run_(std::move(source), streamIndex, options, rules, plan_, statistics_),
      search_(run_, plan_, store_, options.skipsNonReference) {}

void FrameFinder::announce(std::span<const std::int64_t> places) {
  store_.clear();
  plan_.announce(places);
}

FrameRun::Answer FrameFinder::find(std::int64_t place) {
  FrameRun::Answer answer = knownOrSearched(place);
  if (const auto unneeded = plan_.consume(place)) store_.drop(*unneeded);
  return answer;
}

FrameRun::Answer FrameFinder::knownOrSearched(std::int64_t place) {
  if (const auto known = plan_.answerOf(place)) {
    if (auto frame = store_.find(*known)) return {FrameRun::Answer::Kind::found, std::move(frame), {}};
    plan_.forgetAnswers(*known);
  }
  return search_.find(place);
}

}  // namespace vistrelle::platform
