#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/movieedit/clean_slots.h"
#include "tests/support/fake_movie.h"
#include "tests/support/recording_log.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/media/export/export_session.h"

namespace vistrelle::testing {

/// One export that a test let happen.
struct ExportRecord {
  std::string preset;
  std::string path;
  bool wasThere = false;  ///< something stood at the path when it was given
  std::shared_ptr<platform::Asset> movie;
};

/// A session that writes two kilobytes, or nothing.
class FakeSession : public platform::ExportSession {
 public:
  FakeSession(std::shared_ptr<ExportRecord> record, bool fails) : record_(std::move(record)), fails_(fails) {}
  ~FakeSession() override {
    if (worker_.joinable()) worker_.join();
  }
  std::string description() const override { return "<session>"; }
  void setOutputUrl(const platform::Url& url) override {
    record_->path = platform::pathOfFileUrl(url.text);
    record_->wasThere = std::ifstream(record_->path).good();
  }
  void setOutputFileType(const std::string& type) override { type_ = type; }
  std::string outputFileType() const override { return type_; }
  std::vector<std::string> supportedFileTypes() const override { return {type_}; }
  void exportAsynchronously(std::function<void()> completion) override {
    if (!fails_) std::ofstream(record_->path) << std::string(2048, 'm');
    worker_ = std::thread(std::move(completion));
  }
  float progress() const override { return 1.0F; }
  platform::ExportStatus status() const override {
    return fails_ ? platform::ExportStatus::failed : platform::ExportStatus::completed;
  }
  platform::OptionalText error() const override {
    return fails_ ? platform::OptionalText("no disk") : platform::OptionalText();
  }
  void cancelExport() override {}

 private:
  std::shared_ptr<ExportRecord> record_;
  bool fails_;
  std::string type_;
  std::thread worker_;
};

class FakeExportLibrary : public platform::ExportLibrary {
 public:
  std::shared_ptr<platform::ExportSession> makeSession(const std::shared_ptr<platform::Asset>& asset,
                                                       const std::string& presetName) override {
    records.push_back(std::make_shared<ExportRecord>(ExportRecord{presetName, {}, false, asset}));
    return std::make_shared<FakeSession>(records.back(), fails);
  }
  bool fails = false;
  std::vector<std::shared_ptr<ExportRecord>> records;
};

/// Movies of the test's own, and exports that are only recorded.
class EditTest : public CleanSlots {
 protected:
  EditTest() { record.clear(); }

  std::string add(const std::string& name, std::shared_ptr<platform::Asset> movie) {
    const std::string path = folder.write(name, "movie");
    library->movies[path] = std::move(movie);
    return path;
  }
  /// Pictures and sound of the same length.
  static std::shared_ptr<FakeAsset> movieOf(double pictures, double sound) {
    const auto movie = std::make_shared<FakeAsset>();
    if (pictures > 0) movie->trackList.push_back(videoTrack(0, pictures));
    if (sound > 0) {
      movie->trackList.push_back(std::make_shared<FakeTrack>(platform::MediaType::audio, rangeOf(0, sound)));
    }
    movie->length = platform::MediaTime::makeWithSeconds(std::max(pictures, sound), 1000);
    return movie;
  }

  static std::vector<platform::Segment> segmentsOf(const std::shared_ptr<platform::Asset>& movie, std::size_t track) {
    const auto composition = std::dynamic_pointer_cast<platform::Composition>(movie);
    if (!composition || composition->mutableTracks().size() <= track) return {};
    return composition->mutableTracks()[track]->segments();
  }
  /// "12.3+30 at 0+30" of every segment, "- at 0+5" of an empty one.
  static std::string told(const std::shared_ptr<platform::Asset>& movie, std::size_t track = 0) {
    std::string text;
    const auto range = [](const platform::TimeRange& one) {
      return platform::format("{}+{}", one.start.seconds(), one.duration.seconds());
    };
    for (const platform::Segment& segment : segmentsOf(movie, track)) {
      if (!text.empty()) text += ", ";
      text += (segment.track ? range(segment.source) : "-") + " at " + range(segment.target);
    }
    return text;
  }
  std::shared_ptr<platform::Asset> exported() const {
    return exports->records.empty() ? nullptr : exports->records.back()->movie;
  }
  /// Whether the lines were logged in this order, others between them.
  static bool inOrder(const std::vector<std::string>& lines, const std::vector<std::string>& wanted) {
    auto from = lines.begin();
    for (const std::string& line : wanted) {
      from = std::find(from, lines.end(), line);
      if (from == lines.end()) {
        ADD_FAILURE() << "missing in its place: " << line;
        return false;
      }
      ++from;
    }
    return true;
  }

  std::shared_ptr<FakeLibrary> library = std::make_shared<FakeLibrary>();
  std::shared_ptr<FakeExportLibrary> exports = std::make_shared<FakeExportLibrary>();
  platform::Installed<platform::MediaLibrary> libraryInstalled{platform::mediaLibrary(), library};
  platform::Installed<platform::ExportLibrary> exportsInstalled{platform::exportLibrary(), exports};
  RecordingLog record{true};
};

}  // namespace vistrelle::testing
