#include "vistrelle/platform/bundle/folder_bundle.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/bundle/strings_table.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle::platform {
namespace {

// A table of translations is small; something larger is not one.
constexpr std::size_t kLargestTable = 16U << 20U;

bool exists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

void addOnce(std::vector<std::string>& list, std::string element) {
  if (!element.empty() && std::find(list.begin(), list.end(), element) == list.end())
    list.push_back(std::move(element));
}

/// "fr_CH.UTF-8@euro" adds "fr-CH" and "fr".
void addLocale(std::vector<std::string>& languages, std::string_view locale) {
  locale = locale.substr(0, locale.find_first_of(".@"));
  if (locale.empty() || locale == "C" || locale == "POSIX") return;
  std::string tag(locale);
  std::replace(tag.begin(), tag.end(), '_', '-');
  addOnce(languages, tag);
  addOnce(languages, tag.substr(0, tag.find('-')));
}

std::optional<std::string> readTableFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) return std::nullopt;
  std::string content;
  char block[16384];
  while (stream.read(block, sizeof block) || stream.gcount() > 0) {
    content.append(block, static_cast<std::size_t>(stream.gcount()));
    if (content.size() > kLargestTable) return std::nullopt;
  }
  return content;
}

class FolderBundle : public Bundle {
 public:
  explicit FolderBundle(FolderBundleDescription description) : description_(std::move(description)) {
    if (description_.name && description_.name->empty()) description_.name.reset();
    auto languages = description_.languages.empty() ? preferredLanguages() : description_.languages;
    for (const auto& language : languages) {
      addOnce(translatedFolders_, language);
      std::string underscored = language;
      std::replace(underscored.begin(), underscored.end(), '-', '_');
      addOnce(translatedFolders_, underscored);
    }
    for (const char* last : {"Base", "en", "English"}) addOnce(translatedFolders_, last);
    for (auto& folder : translatedFolders_) {
      folder = appendingPathComponent(description_.resourceFolder, folder + ".lproj");
    }
  }

  OptionalText name() const override { return description_.name; }
  std::string resourcePath() const override { return description_.resourceFolder; }

  OptionalText pathForResource(std::string_view name, std::string_view type) const override {
    if (auto plain = resourceInFolder(description_.resourceFolder, name, type)) return plain;
    return translatedResource(name, type);
  }

  std::string localizedString(std::string_view key, std::string_view fallback, std::string_view table) const override {
    const auto strings = tableNamed(std::string(table));
    const auto entry = strings->find(key);
    if (entry != strings->end()) return entry->second;
    return std::string(fallback.empty() ? key : fallback);
  }

 private:
  using Table = std::shared_ptr<const StringsTable>;

  OptionalText translatedResource(std::string_view name, std::string_view type) const {
    for (const auto& folder : translatedFolders_) {
      if (auto path = resourceInFolder(folder, name, type)) return path;
    }
    return std::nullopt;
  }

  Table tableNamed(const std::string& name) const {
    std::lock_guard lock(mutex_);
    auto known = tables_.find(name);
    if (known == tables_.end()) known = tables_.emplace(name, load(name)).first;
    return known->second;
  }

  Table load(const std::string& name) const {
    auto path = translatedResource(name, "strings");
    if (!path) path = resourceInFolder(description_.resourceFolder, name, "strings");
    if (!path) return std::make_shared<StringsTable>();
    const auto content = readTableFile(*path);
    auto parsed = content ? parseStringsTable(*content) : std::nullopt;
    if (!parsed) log("bundle              :-( strings table cannot be read '{}'", *path);
    return std::make_shared<StringsTable>(parsed ? std::move(*parsed) : StringsTable{});
  }

  FolderBundleDescription description_;
  std::vector<std::string> translatedFolders_;
  mutable std::mutex mutex_;
  mutable std::map<std::string, Table> tables_;
};

}  // namespace

std::shared_ptr<Bundle> folderBundle(FolderBundleDescription description) {
  return std::make_shared<FolderBundle>(std::move(description));
}

std::vector<std::string> preferredLanguages() {
  const auto variable = [](const char* name) -> std::string_view {
    const char* value = std::getenv(name);
    return value ? value : "";
  };
  std::string_view locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    locale = variable(name);
    if (!locale.empty()) break;
  }
  std::vector<std::string> languages;
  if (locale.empty() || locale == "C" || locale == "POSIX") return languages;
  // LANGUAGE is a list with ":" between, and counts only outside the C locale, as in gettext.
  std::string_view list = variable("LANGUAGE");
  while (!list.empty()) {
    const auto end = list.find(':');
    addLocale(languages, list.substr(0, end));
    list = end == std::string_view::npos ? std::string_view{} : list.substr(end + 1);
  }
  addLocale(languages, locale);
  return languages;
}

OptionalText resourceInFolder(std::string_view folder, std::string_view name, std::string_view type) {
  if (name.empty()) return std::nullopt;
  std::string file(name);
  if (!type.empty()) file.append(".").append(type);
  std::string path = appendingPathComponent(folder, file);
  if (!exists(path)) return std::nullopt;
  return path;
}

}  // namespace vistrelle::platform
