#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vistrelle {

/// A text as a linked list of bytes, for passes of replacement that change little: each pass looks only around the
/// places that the one before has changed, since nothing else can hold the search.
class LinkedText {
 public:
  /// `text` must be shorter than 2^31 bytes. The search and the replacement are borrowed.
  LinkedText(std::string_view text, std::string_view search, std::string_view replacement);

  /// Replaces every occurrence once, left to right; returns how many there were.
  std::size_t pass();

  std::size_t size() const { return size_; }
  std::string text() const;

 private:
  using Node = std::uint32_t;
  static constexpr Node kEnd = 0;  ///< stands before the first byte and after the last

  struct Occurrence {
    Node first;
    Node after;  ///< the node behind the last
  };

  void findAround(std::vector<Occurrence>& found);
  void replace(const Occurrence& occurrence);
  bool isBoundaryBefore(Node node) const;
  Node newNode();
  Node stepBack(Node node, std::size_t count, Node barrier) const;

  std::string_view search_;
  std::string_view replacement_;
  std::vector<std::size_t> borders_;
  bool aligned_;  ///< occurrences are at character boundaries by themselves
  std::vector<Node> next_;
  std::vector<Node> previous_;
  std::string bytes_;
  std::vector<Node> free_;
  std::vector<Node> changed_;  ///< the nodes before the last pass's replacements, in text order
  std::size_t size_;
  bool first_ = true;
};

}  // namespace vistrelle
