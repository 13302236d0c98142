#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/files/unique_fd.h"
#include "vistrelle/platform/preferences/file_bytes.h"
#include "vistrelle/platform/preferences/property_list.h"
#include "vistrelle/platform/preferences/user_defaults.h"

namespace vistrelle::platform {
namespace {

constexpr auto kLongestLockWait = std::chrono::seconds(10);
constexpr auto kLockPause = std::chrono::microseconds(500);
constexpr mode_t kPrivateFile = 0600;
constexpr std::uint32_t kPrivateFolder = 0700;

/// The lock of one preferences file against other processes and other objects of this one. A file of its own, since
/// the preferences file is replaced with every change. Its descriptor's end releases it.
UniqueFd lockFile(const std::string& path) {
  UniqueFd file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kPrivateFile));
  if (!file) return file;
  // A holder may be stopped in a debugger: this process must not hang for that.
  const auto end = std::chrono::steady_clock::now() + kLongestLockWait;
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() >= end) return UniqueFd();
    std::this_thread::sleep_for(kLockPause);
  }
  return file;
}

/// The file of these preferences; absent, with the reason, also when it could not be read back.
PropertyListWriting fileOf(const Dictionary& preferences) {
  auto written = writeBinaryPropertyList(Value(preferences));
  if (!written.bytes) return written;
  if (auto reading = readPropertyList(*written.bytes); !reading.value) return {std::nullopt, std::move(reading.error)};
  return written;
}

class FileDefaults : public UserDefaults {
 public:
  explicit FileDefaults(std::string path) : path_(std::move(path)) {}

  bool available() override { return !path_.empty(); }

  OptionalValue object(std::string_view key) override {
    std::lock_guard guard(mutex_);
    if (path_.empty()) return std::nullopt;
    if (const auto change = pending_.find(key); change != pending_.end()) return change->second;
    refresh();
    const auto entry = values_.find(key);
    if (entry == values_.end()) return std::nullopt;
    return entry->second;
  }

  void set(std::string_view key, const Value& value) override {
    // A value that could not be read back would make a damaged file of everything stored with it.
    if (const std::string error = fileOf(Dictionary{{std::string(key), value}}).error; !error.empty()) {
      log("preferences         :-( '{}' is not stored: {}", key, error);
      return;
    }
    change(key, value);
  }

  void remove(std::string_view key) override { change(key, std::nullopt); }

  bool hasUnappliedChanges() override {
    std::lock_guard guard(mutex_);
    return !pending_.empty();
  }

 private:
  /// What tells one content of the file from another. The file that was read stays open, so that no later file can
  /// have its number.
  struct Identity {
    dev_t device = 0;
    ino_t number = 0;
    off_t size = 0;
    timespec changed{};
    bool operator==(const Identity& other) const {
      return device == other.device && number == other.number && size == other.size &&
             changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }
  };

  static Identity identityOf(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim};
  }

  void forget() {
    read_.close();
    identity_.reset();
    values_.clear();
  }

  /// Reads the file when it is not the one read before.
  void refresh() {
    struct stat status {};
    if (::stat(path_.c_str(), &status) != 0) {
      if (errno == ENOENT || errno == ENOTDIR) forget();
      return;
    }
    if (identity_ && *identity_ == identityOf(status)) return;
    const Content content = load();
    if (content == Content::kUnreadable && !std::exchange(complained_, true)) {
      log("preferences         :-( file cannot be read '{}'", path_);
    }
    if (content != Content::kDamaged) return;
    // Somebody may have put it right since: only under the lock is it the file that will be moved.
    const UniqueFd lock = lockFile(path_ + ".lock");
    if (lock && load() == Content::kDamaged) setAside();
  }

  enum class Content { kRead, kAbsent, kUnreadable, kDamaged };

  Content load() {
    UniqueFd file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
      const bool absent = errno == ENOENT || errno == ENOTDIR;
      forget();
      return absent ? Content::kAbsent : Content::kUnreadable;
    }
    const FileReading content = readWholeFile(file.get(), PropertyListLimits().bytes);
    forget();
    if (!content.bytes && content.number != 0) return Content::kUnreadable;
    PropertyListReading parsed{std::nullopt, content.error};
    if (content.bytes) parsed = readPropertyList(*content.bytes);
    auto* dictionary = parsed.value ? parsed.value->get<Dictionary>() : nullptr;
    if (!dictionary) {
      damage_ = parsed.value ? "not a dictionary" : parsed.error;
      return Content::kDamaged;
    }
    values_ = std::move(*dictionary);
    identity_ = identityOf(status);
    read_ = std::move(file);
    return Content::kRead;
  }

  /// Moves the damaged file to a name that is free; the lock is held.
  bool setAside() {
    for (int i = 1; i < 1000; ++i) {
      const std::string aside = path_ + (i == 1 ? ".damaged" : format(".damaged-{}", i));
      struct stat taken {};
      if (::lstat(aside.c_str(), &taken) == 0) continue;
      if (::rename(path_.c_str(), aside.c_str()) != 0) break;
      log("preferences         :-( damaged file set aside '{}' -> '{}' ({})", path_, aside, damage_);
      return true;
    }
    log("preferences         :-( damaged file cannot be set aside '{}' ({})", path_, damage_);
    return false;
  }

  void change(std::string_view key, OptionalValue value) {
    std::lock_guard guard(mutex_);
    if (path_.empty()) return;
    pending_.insert_or_assign(std::string(key), std::move(value));
    const std::string error = applyPending();
    if (!error.empty()) log("preferences         :-( '{}' cannot be written: {}", path_, error);
  }

  /// Writes all pending changes over what the file holds now; empty, or why not.
  std::string applyPending() {
    const auto files = fileManager().get();
    if (const auto made = files->makeFolder(deletingLastPathComponent(path_), kPrivateFolder); !made.ok()) {
      return made.description();
    }
    const UniqueFd lock = lockFile(path_ + ".lock");
    if (!lock) return "it cannot be locked";
    const Content content = load();
    if (content == Content::kUnreadable) return "the present file cannot be read";
    if (content == Content::kDamaged && !setAside()) return "the present file is damaged";
    Dictionary changed = values_;
    for (const auto& [key, value] : pending_) {
      if (value) {
        changed.insert_or_assign(key, *value);
      } else {
        changed.erase(key);
      }
    }
    if (content != Content::kDamaged && changed == values_) {
      pending_.clear();
      return {};
    }
    const auto written = fileOf(changed);
    if (!written.bytes) return written.error;
    if (const auto put = files->writeByReplacing(path_, bytesOf(*written.bytes)); !put.ok()) return put.description();
    pending_.clear();
    load();
    return {};
  }

  const std::string path_;
  std::mutex mutex_;
  Dictionary values_;
  std::optional<Identity> identity_;
  UniqueFd read_;
  std::string damage_;
  bool complained_ = false;
  /// Changes that are not in the file yet; an absent value removes its key.
  std::map<std::string, OptionalValue, std::less<>> pending_;
};

}  // namespace

std::shared_ptr<UserDefaults> fileDefaults(std::string path) {
  return std::make_shared<FileDefaults>(std::move(path));
}

}  // namespace vistrelle::platform
