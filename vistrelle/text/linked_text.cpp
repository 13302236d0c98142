#include "vistrelle/text/linked_text.h"

#include <algorithm>

#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/text/replacing.h"

namespace vistrelle {
namespace {

/// How far a change of bytes can move the boundaries of characters.
constexpr std::size_t kCharacterReach = 4;

}  // namespace

LinkedText::LinkedText(std::string_view text, std::string_view search, std::string_view replacement)
    : search_(search),
      replacement_(replacement),
      borders_(bordersOf(search)),
      aligned_(platform::isValidUtf8(search)),
      size_(text.size()) {
  bytes_.reserve(text.size() + 1);
  bytes_.push_back('\0');
  bytes_.append(text);
  next_.resize(bytes_.size());
  previous_.resize(bytes_.size());
  for (std::size_t i = 0; i < bytes_.size(); ++i) {
    next_[i] = static_cast<Node>((i + 1) % bytes_.size());
    previous_[i] = static_cast<Node>(i == 0 ? bytes_.size() - 1 : i - 1);
  }
  changed_.push_back(kEnd);
}

std::size_t LinkedText::pass() {
  std::vector<Occurrence> found;
  findAround(found);
  changed_.clear();
  for (const Occurrence& occurrence : found) replace(occurrence);
  first_ = false;
  return found.size();
}

std::string LinkedText::text() const {
  std::string text;
  text.reserve(size_);
  for (Node node = next_[kEnd]; node != kEnd; node = next_[node]) text.push_back(bytes_[node]);
  return text;
}

LinkedText::Node LinkedText::stepBack(Node node, std::size_t count, Node barrier) const {
  // Ends on the last node that is not looked at: the barrier, the start, or the one `count` bytes before.
  for (; count > 0 && node != barrier && node != kEnd; --count) node = previous_[node];
  return node;
}

// Runs the search (Knuth, Morris, Pratt) over stretches that reach as far around each change as an occurrence that
// touches it can. The text stands still meanwhile: a pass does not see its own replacements.
void LinkedText::findAround(std::vector<Occurrence>& found) {
  const std::size_t margin = search_.size() - 1 + (aligned_ ? 0 : kCharacterReach);
  const std::size_t reach = first_ ? size_ : replacement_.size() + margin;
  Node barrier = kEnd;  // last byte of the last occurrence
  for (std::size_t change = 0; change < changed_.size();) {
    Node node = stepBack(changed_[change], margin, barrier);
    std::size_t toChange = 0;
    for (Node step = changed_[change]; step != node; step = previous_[step]) ++toChange;
    std::size_t remaining = toChange + reach;
    ++change;
    std::size_t matched = 0;
    while (remaining > 0 && next_[node] != kEnd) {
      node = next_[node];
      --remaining;
      while (matched > 0 && (matched == search_.size() || bytes_[node] != search_[matched])) {
        matched = borders_[matched];
      }
      if (bytes_[node] == search_[matched]) ++matched;
      if (matched == search_.size()) {
        Node first = node;
        for (std::size_t i = 1; i < matched; ++i) first = previous_[first];
        if (aligned_ || (isBoundaryBefore(first) && isBoundaryBefore(next_[node]))) {
          found.push_back({first, next_[node]});
          barrier = node;
          matched = 0;
        }
      }
      while (change < changed_.size() && changed_[change] == node) {
        remaining = std::max(remaining, reach);
        ++change;
      }
    }
  }
}

void LinkedText::replace(const Occurrence& occurrence) {
  const Node before = previous_[occurrence.first];
  Node node = occurrence.first;
  Node last = before;
  std::size_t reused = 0;
  for (; node != occurrence.after; node = next_[node]) {
    if (reused < replacement_.size()) {
      bytes_[node] = replacement_[reused++];
      last = node;
    } else {
      free_.push_back(node);
    }
  }
  for (; reused < replacement_.size(); ++reused) {
    const Node added = newNode();
    bytes_[added] = replacement_[reused];
    next_[last] = added;
    previous_[added] = last;
    last = added;
  }
  next_[last] = occurrence.after;
  previous_[occurrence.after] = last;
  size_ = size_ - search_.size() + replacement_.size();
  if (changed_.empty() || changed_.back() != before) changed_.push_back(before);
}

bool LinkedText::isBoundaryBefore(Node node) const {
  char around[2 * kCharacterReach];
  std::size_t count = 0;
  Node start = node;
  std::size_t offset = 0;
  for (; offset < kCharacterReach && previous_[start] != kEnd; ++offset) start = previous_[start];
  for (; count < offset + kCharacterReach && (start != kEnd); start = next_[start]) around[count++] = bytes_[start];
  return platform::isCharacterBoundary(std::string_view(around, count), offset);
}

LinkedText::Node LinkedText::newNode() {
  if (!free_.empty()) {
    const Node node = free_.back();
    free_.pop_back();
    return node;
  }
  const auto node = static_cast<Node>(bytes_.size());
  bytes_.push_back('\0');
  next_.push_back(kEnd);
  previous_.push_back(kEnd);
  return node;
}

}  // namespace vistrelle
