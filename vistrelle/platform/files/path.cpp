#include "vistrelle/platform/files/path.h"

#include <pwd.h>
#include <unistd.h>

#include <charconv>
#include <climits>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

namespace vistrelle::platform {
namespace {

struct Account {
  std::string name;
  std::string home;
};

/// `look` is getpwnam_r or getpwuid_r with its key bound.
template <typename Look>
std::optional<Account> account(const Look& look) {
  std::vector<char> buffer(16 * 1024);
  passwd entry{};
  passwd* found = nullptr;
  if (look(&entry, buffer.data(), buffer.size(), &found) != 0 || !found) return std::nullopt;
  return Account{entry.pw_name ? entry.pw_name : "", entry.pw_dir ? entry.pw_dir : ""};
}

std::optional<Account> currentAccount() {
  return account([](passwd* entry, char* buffer, std::size_t size, passwd** found) {
    return ::getpwuid_r(::getuid(), entry, buffer, size, found);
  });
}

std::optional<Account> accountNamed(const std::string& name) {
  return account([&name](passwd* entry, char* buffer, std::size_t size, passwd** found) {
    return ::getpwnam_r(name.c_str(), entry, buffer, size, found);
  });
}

/// The position of the last component's "." that begins an extension; npos when there is none.
std::size_t extensionPoint(const std::string& component) {
  const auto point = component.rfind('.');
  if (point == std::string::npos || point == 0 || point + 1 == component.size()) return std::string::npos;
  return component.find(' ', point) == std::string::npos ? point : std::string::npos;
}

std::string resolved(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
  return real ? std::string(real.get()) : std::string();
}

bool isLink(const std::string& path) {
  char target[1];
  return ::readlink(path.c_str(), target, sizeof target) >= 0;
}

}  // namespace

std::string droppingTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return std::string(path);
}

std::string lastPathComponent(std::string_view path) {
  const std::string trimmed = droppingTrailingSlashes(path);
  const auto slash = trimmed.rfind('/');
  return slash == std::string::npos || trimmed == "/" ? trimmed : trimmed.substr(slash + 1);
}

std::string deletingLastPathComponent(std::string_view path) {
  const std::string trimmed = droppingTrailingSlashes(path);
  const auto slash = trimmed.rfind('/');
  return slash == std::string::npos ? "" : droppingTrailingSlashes(trimmed.substr(0, slash + 1));
}

std::string pathExtension(std::string_view path) {
  const std::string component = lastPathComponent(path);
  const auto point = extensionPoint(component);
  return point == std::string::npos ? "" : component.substr(point + 1);
}

std::string deletingPathExtension(std::string_view path) {
  std::string trimmed = droppingTrailingSlashes(path);
  const std::string component = lastPathComponent(trimmed);
  const auto point = extensionPoint(component);
  if (point != std::string::npos) trimmed.resize(trimmed.size() - (component.size() - point));
  return trimmed;
}

std::string appendingPathExtension(std::string_view path, std::string_view extension) {
  if (path.empty()) return "";
  return droppingTrailingSlashes(path).append(1, '.').append(extension);
}

std::string appendingPathComponent(std::string_view path, std::string_view component) {
  if (path.empty()) return std::string(component);
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  std::string joined = droppingTrailingSlashes(path);
  if (component.empty()) return joined;
  if (joined != "/") joined += '/';
  return joined.append(droppingTrailingSlashes(component));
}

std::string homeFolderOfRecord() {
  const auto entry = currentAccount();
  return entry ? droppingTrailingSlashes(entry->home) : "";
}

std::string loginName() {
  const auto entry = currentAccount();
  return entry ? entry->name : "";
}

std::string homeFolder() {
  const char* variable = std::getenv("HOME");
  if (variable && *variable) return droppingTrailingSlashes(variable);
  const std::string recorded = homeFolderOfRecord();
  return recorded.empty() ? "/" : recorded;
}

std::string expandingTilde(std::string_view path) {
  if (path.empty() || path.front() != '~') return std::string(path);
  const auto slash = path.find('/');
  const std::string user(path.substr(1, slash == std::string_view::npos ? slash : slash - 1));
  std::string home = homeFolder();
  if (!user.empty()) {
    const auto entry = accountNamed(user);
    if (!entry || entry->home.empty()) return std::string(path);
    home = entry->home;
  }
  return appendingPathComponent(home, slash == std::string_view::npos ? "" : path.substr(slash));
}

std::string standardizedPath(std::string_view path) {
  const std::string expanded = expandingTilde(path);
  const bool absolute = !expanded.empty() && expanded.front() == '/';
  std::string result = absolute ? "/" : "";
  for (std::size_t begin = 0; begin < expanded.size();) {
    const auto end = std::min(expanded.find('/', begin), expanded.size());
    const std::string component = expanded.substr(begin, end - begin);
    begin = end + 1;
    if (component.empty() || component == ".") continue;
    if (component == ".." && absolute) {
      if (isLink(result)) {
        const std::string target = resolved(result);
        if (!target.empty()) result = target;
      }
      result = deletingLastPathComponent(result);
    } else {
      if (!result.empty() && result.back() != '/') result += '/';
      result += component;
    }
  }
  // A path of nothing but "." components names the current folder still.
  return result.empty() && !expanded.empty() ? "." : result;
}

std::string absolutePath(std::string_view path) {
  if (path.empty() || path.front() == '/') return std::string(path);
  return appendingPathComponent(resolved("."), path);
}

std::string canonicalPath(std::string_view path) {
  const std::string trimmed = droppingTrailingSlashes(path);
  if (trimmed.empty()) return "";
  const std::string name = lastPathComponent(trimmed);
  if (name == "/" || name == "." || name == "..") return resolved(trimmed);
  const std::string parent = deletingLastPathComponent(trimmed);
  const std::string place = resolved(parent.empty() ? "." : parent);
  return place.empty() ? "" : appendingPathComponent(place, name);
}

std::string fileUrlText(std::string_view path) {
  static constexpr char digits[] = "0123456789ABCDEF";
  static constexpr std::string_view kept =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/!$&'()*+,=:@";
  std::string text = "file://";
  for (const char character : absolutePath(path)) {
    if (kept.find(character) != std::string_view::npos) {
      text += character;
    } else {
      const auto byte = static_cast<unsigned char>(character);
      text.append({'%', digits[byte >> 4], digits[byte & 15]});
    }
  }
  return text;
}

std::string pathOfFileUrl(std::string_view url) {
  static constexpr std::string_view scheme = "file://";
  static constexpr std::string_view localHost = "localhost/";
  if (!url.starts_with(scheme)) return "";
  url.remove_prefix(scheme.size());
  if (url.starts_with(localHost)) url.remove_prefix(localHost.size() - 1);
  if (!url.starts_with('/')) return "";
  std::string path;
  for (std::size_t i = 0; i < url.size(); ++i) {
    unsigned char byte = 0;
    const char* digits = url.data() + i + 1;
    if (url[i] == '%' && i + 2 < url.size() && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      path += static_cast<char>(byte);
      i += 2;
    } else {
      path += url[i];
    }
  }
  return path.find('\0') == std::string::npos ? path : "";
}

}  // namespace vistrelle::platform
