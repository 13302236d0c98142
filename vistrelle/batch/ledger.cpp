#include "vistrelle/batch/ledger.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "vistrelle/batch/outcome.h"
#include "vistrelle/platform/base/json_text.h"

namespace vistrelle {
namespace {

const std::string* textAt(const platform::Dictionary& fields, std::string_view key) {
  const auto found = fields.find(key);
  return found == fields.end() ? nullptr : found->second.get<std::string>();
}

}  // namespace

bool Ledger::addReported(const std::string& line) {
  constexpr std::array<std::string_view, 5> kFinal{kDone, kExists, kBadInput, kTimeout, kCrashed};
  std::string error;
  const auto value = platform::readJson(line, &error);
  const auto* fields = value ? value->get<platform::Dictionary>() : nullptr;
  if (fields == nullptr) return false;
  const std::string* status = textAt(*fields, "status");
  const std::string* id = textAt(*fields, "id");
  if (status == nullptr || id == nullptr || std::ranges::find(kFinal, *status) == kFinal.end()) return false;
  ++finished_[*id];
  return true;
}

bool Ledger::takeFinished(const std::string& id) {
  const auto found = finished_.find(id);
  if (found == finished_.end()) return false;
  if (--found->second == 0) finished_.erase(found);
  return true;
}

Ledger::Claim Ledger::claim(const BatchJob& job, std::uint64_t line) {
  const std::string id = job.id();
  const auto [place, isNew] = holders_.try_emplace(textId(job.destination), Holder{id, line});
  if (isNew) return Claim::free;
  return place->second.id == id ? Claim::same : Claim::conflict;
}

std::uint64_t Ledger::holder(const BatchJob& job) const {
  const auto found = holders_.find(textId(job.destination));
  return found == holders_.end() ? 0 : found->second.line;
}

}  // namespace vistrelle
