#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vistrelle/batch/job.h"
#include "vistrelle/batch/outcome.h"

namespace vistrelle {

/// Where the pictures of a job belong. A destination is a folder when there is one of that name, when it ends in "/"
/// and when its extension is not that of a picture; otherwise it is one file.
class Delivery {
 public:
  explicit Delivery(const BatchJob& job);

  /// What is wrong with the destination for so many pictures; nothing when it is good.
  std::optional<Outcome> refusal(std::size_t pictures) const;
  /// "exists" when all of so many pictures are there already.
  std::optional<Outcome> existing(std::size_t pictures) const;
  /// The extension of the pictures, and the name of the one at `index` in a folder.
  const std::string& extension() const { return extension_; }
  std::string nameOf(std::size_t index) const;
  /// Moves the pictures out of `folder`, where nameOf() names them, to their places; none replaces anything. Where a
  /// picture of the same bytes is already, that one stays. Either all are there afterwards or none was moved.
  Outcome deliver(const std::string& folder, std::vector<BatchFile> files) const;

 private:
  std::string placeOf(std::size_t index) const;
  std::optional<Outcome> conflict(const std::string& folder, std::size_t pictures) const;
  Outcome moveEach(const std::string& folder, std::vector<BatchFile> files) const;

  std::string destination_;
  std::string extension_;
  std::string wantedFormat_;  // empty: none
  bool isFile_ = false;
  bool isFolderThere_ = false;
};

}  // namespace vistrelle
