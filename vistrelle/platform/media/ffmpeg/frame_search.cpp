#include "vistrelle/platform/media/ffmpeg/frame_search.h"

extern "C" {
#include <libavutil/common.h>
}

#include <limits>

namespace vistrelle::platform {

namespace {

// Runs that begin one key further back each, before the start of the stream is the place to begin.
constexpr int kKeysBack = 6;
constexpr int kMostRuns = kKeysBack + 6;

}  // namespace

FrameRun::Answer FrameSearch::find(std::int64_t place) {
  if (run_.canContinueTo(place)) {
    const Answer answer = goOn(place);
    if (isFinal(answer)) return answer;
  }
  finishGroup();
  return beginAnew(place);
}

// What a damaged stream gives must depend on the asked place only, so an answer that is touched by damage is always
// worked out by a run of its own that begins at a fixed place.
bool FrameSearch::isFinal(const Answer& answer) const {
  if (answer.kind != Answer::Kind::found) return false;
  if (!answer.frame->damage.any()) return true;
  return run_.usesOneThread() && run_.landing().fromStart;
}

FrameRun::Answer FrameSearch::goOn(std::int64_t place) {
  const std::int64_t from = run_.current()->place;
  if (run_.sharesGroupWith(place)) return workUpTo(place, from);
  finishGroup();
  const LandingRules& landing = run_.rules().landing;
  const std::int64_t near = landing.second * (landing.hasIndex ? 2 : 8);
  if (av_sat_sub64(place, from) > near) return {Answer::Kind::unproven, nullptr, {}};
  run_.skipToKeyFor(place);
  return workUpTo(place, run_.landing().fromStart ? from : run_.landing().keyPts);
}

// Answers what was announced between `from` and `place` on the way, each frame being decoded anyway.
FrameRun::Answer FrameSearch::workUpTo(std::int64_t place, std::int64_t from) {
  for (auto open = plan_.nextOpen(from); open && *open < place; open = plan_.nextOpenAfter(*open)) {
    if (!workOut(*open)) break;
  }
  return run_.answer(place);
}

bool FrameSearch::workOut(std::int64_t place) {
  const Answer answer = run_.answer(place);
  if (!isFinal(answer)) return false;
  store_.keep(answer.frame);
  plan_.setAnswer(place, answer.frame->place);
  return true;
}

// Before the run leaves: what was announced further on among the same frames would cost them again.
void FrameSearch::finishGroup() {
  if (!run_.current()) return;
  for (auto open = plan_.nextOpen(run_.current()->place); open; open = plan_.nextOpenAfter(*open)) {
    if (!run_.canContinueTo(*open) || !run_.sharesGroupWith(*open) || !workOut(*open)) return;
  }
}

// Decides how the next run can do better. False when there is nothing left to try.
bool FrameSearch::improve(const Answer& answer, std::int64_t* limit, bool* triedBefore) {
  const bool isFound = answer.kind == Answer::Kind::found;
  if (isFound && !run_.usesOneThread()) {
    run_.useOneThread();
    return true;
  }
  if (isFound) {
    // The damage may come from where decoding began: one key further back it would be gone.
    if (*triedBefore || run_.landing().fromStart) return false;
    // What conceals an error may be any frame before it, left out or not.
    *triedBefore = true;
    run_.setSkipping(false);
  } else if (run_.isDisordered() && !run_.usesPatience()) {
    run_.usePatience();
    return true;
  } else if (run_.leftOutTheAnswer()) {
    run_.setSkipping(false);
    return true;
  } else if (run_.landing().fromStart) {
    return false;
  }
  *limit = run_.landing().keyPts - 1;
  return true;
}

FrameRun::Answer FrameSearch::beginAnew(std::int64_t place) {
  std::int64_t limit = place;
  bool triedBefore = false;
  Answer answer;
  for (int runs = 0, keysBack = 0; runs < kMostRuns; ++runs) {
    const bool landed = run_.rules().isCounted || keysBack > kKeysBack ? run_.landAtStart(place, &answer.error)
                                                                       : run_.land(limit, place, &answer.error);
    if (!landed) {
      answer.kind = Answer::Kind::failed;
      break;
    }
    constexpr std::int64_t kEarliest = std::numeric_limits<std::int64_t>::min();
    answer = workUpTo(place, run_.landing().fromStart ? kEarliest : run_.landing().keyPts);
    const std::int64_t formerLimit = limit;
    if (isFinal(answer) || !improve(answer, &limit, &triedBefore)) break;
    if (limit != formerLimit) ++keysBack;
  }
  run_.setSkipping(skips_);
  if (answer.kind == Answer::Kind::unproven && answer.error.empty()) answer.error = "the frame could not be proven";
  return answer;
}

}  // namespace vistrelle::platform
