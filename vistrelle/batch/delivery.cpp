#include "vistrelle/batch/delivery.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "vistrelle/image/formats.h"
#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle {
namespace {

using platform::FileAttributes;
using platform::FileKind;
using platform::fileManager;

constexpr std::int64_t kLargestPicture = std::int64_t{1} << 31;

std::optional<FileAttributes> itemAt(const std::string& path) {
  return fileManager().get()->attributes(path, true);
}

bool isPictureAt(const std::string& path, std::int64_t* bytes) {
  const auto item = itemAt(path);
  *bytes = item ? item->size : 0;
  return item && item->kind == FileKind::regular && item->size > 0;
}

bool isAnythingAt(const std::string& path) {
  return fileManager().get()->attributes(path, false).has_value();
}

bool haveSameBytes(const std::string& one, const std::string& other) {
  const auto files = fileManager().get();
  const auto a = files->contents(one, kLargestPicture);
  const auto b = files->contents(other, kLargestPicture);
  return a && b && *a == *b;
}

std::string lowerCase(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return text;
}

bool namesPicture(const std::string& path) {
  return !platform::pathExtension(path).empty() && (pictureFormat(path) != PictureFormat::jpeg);
}

}  // namespace

Delivery::Delivery(const BatchJob& job) : destination_(job.destination), wantedFormat_(job.format.value_or("")) {
  isFolderThere_ = fileManager().get()->isFolder(destination_);
  isFile_ = !isFolderThere_ && !job.namesFolder && namesPicture(destination_);
  extension_ = isFile_ ? lowerCase(platform::pathExtension(destination_)) : job.format.value_or("jpg");
}

std::string Delivery::nameOf(std::size_t index) const {
  return platform::format("img{:02}.{}", index, extension_);
}

std::string Delivery::placeOf(std::size_t index) const {
  return isFile_ ? destination_ : platform::appendingPathComponent(destination_, nameOf(index));
}

std::optional<Outcome> Delivery::refusal(std::size_t pictures) const {
  if (isFile_ && pictures != 1) {
    return Outcome{kBadInput, platform::format("the destination is one file for {} pictures", pictures), {}, 0};
  }
  if (isFile_ && !wantedFormat_.empty() && pictureFormat(destination_) != pictureFormat("x." + wantedFormat_)) {
    return Outcome{kBadInput, platform::format("format {} for a file named .{}", wantedFormat_, extension_), {}, 0};
  }
  const bool isOther = !isFolderThere_ && isAnythingAt(destination_);
  std::int64_t bytes = 0;
  if (isOther && !(isFile_ && isPictureAt(destination_, &bytes))) {
    return Outcome{kBadInput, isFile_ ? "the destination is no picture" : "the destination is no folder", {}, 0};
  }
  return std::nullopt;
}

std::optional<Outcome> Delivery::existing(std::size_t pictures) const {
  Outcome outcome{kExists, {}, {}, 0};
  for (std::size_t i = 0; i < pictures; ++i) {
    BatchFile file{placeOf(i), 0, 0, 0};
    if (!isPictureAt(file.path, &file.bytes)) return std::nullopt;
    outcome.files.push_back(std::move(file));
  }
  return outcome;
}

/// A place that something else has.
std::optional<Outcome> Delivery::conflict(const std::string& folder, std::size_t pictures) const {
  for (std::size_t i = 0; i < pictures; ++i) {
    const std::string made = platform::appendingPathComponent(folder, nameOf(i));
    if (isAnythingAt(placeOf(i)) && !haveSameBytes(made, placeOf(i))) {
      return Outcome{kBadInput, platform::format("'{}' is there already and is another picture", placeOf(i)), {}, 0};
    }
  }
  return std::nullopt;
}

Outcome Delivery::moveEach(const std::string& folder, std::vector<BatchFile> files) const {
  std::vector<std::string> moved;
  const auto manager = fileManager().get();
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string made = platform::appendingPathComponent(folder, nameOf(i));
    const platform::FileResult result =
        isAnythingAt(placeOf(i)) ? platform::FileResult(EEXIST, placeOf(i)) : manager->move(made, placeOf(i));
    if (result.ok()) {
      moved.push_back(placeOf(i));
    } else if (result.code() != EEXIST || !haveSameBytes(made, placeOf(i))) {
      for (const std::string& path : moved) (void)manager->remove(path);
      return failureOf(result.code(), placeOf(i));
    }
    files[i].path = placeOf(i);
  }
  return {kDone, {}, std::move(files), 0};
}

Outcome Delivery::deliver(const std::string& folder, std::vector<BatchFile> files) const {
  if (!isFile_ && !isAnythingAt(destination_)) {
    // The whole folder at once.
    const platform::FileResult result = fileManager().get()->move(folder, destination_);
    if (!result.ok() && result.code() != EEXIST && result.code() != ENOTEMPTY) {
      return failureOf(result.code(), destination_);
    }
    if (result.ok()) {
      for (std::size_t i = 0; i < files.size(); ++i) files[i].path = placeOf(i);
      return {kDone, {}, std::move(files), 0};
    }
  }
  if (auto outcome = conflict(folder, files.size())) return *outcome;
  return moveEach(folder, std::move(files));
}

}  // namespace vistrelle
