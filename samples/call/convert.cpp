#include "convert.h"

#include <ctime>

#include "vistrelle/platform/base/clock.h"

namespace call {

namespace p = vistrelle::platform;

Handles& Handles::all() {
  static Handles handles;
  return handles;
}

const Handles::Entry& Handles::entry(int number) const {
  if (number < 1 || static_cast<std::size_t>(number) > objects_.size()) throw WrongArgument("unknown handle");
  return objects_[static_cast<std::size_t>(number) - 1];
}

p::Date parseDate(const std::string& text) {
  std::tm utc{};
  const char* rest = ::strptime(text.c_str(), "%Y-%m-%d %H:%M:%S +0000", &utc);
  if (!rest || *rest != '\0') throw WrongArgument("a date is needed: YYYY-MM-DD HH:MM:SS +0000");
  return p::Date(std::chrono::seconds(::timegm(&utc)));
}

Json fromNumber(double number) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number > 0 ? "inf" : "-inf";
  return number;
}

double toNumber(const Json& json) {
  if (json == "nan") return std::numeric_limits<double>::quiet_NaN();
  if (json == "inf") return std::numeric_limits<double>::infinity();
  if (json == "-inf") return -std::numeric_limits<double>::infinity();
  if (!json.is_number()) throw WrongArgument("a number is needed");
  return json.get<double>();
}

p::Colour toColour(const Json& json) {
  const Json& parts = json.at("rgba");
  if (!parts.is_array() || parts.size() != 4) throw WrongArgument("a colour is needed: {\"rgba\": [r,g,b,a]}");
  return {toNumber(parts[0]), toNumber(parts[1]), toNumber(parts[2]), toNumber(parts[3])};
}

std::shared_ptr<const p::Picture> openPicture(const Json& json) {
  if (json.is_object() && json.contains("handle"))
    return Handles::all().find<const p::Picture>(json["handle"].get<int>());
  return p::Picture::load(json.at("picture").get<std::string>());
}

std::shared_ptr<p::Asset> openMovie(const Json& json) {
  if (json.is_object() && json.contains("handle")) return Handles::all().find<p::Asset>(json["handle"].get<int>());
  auto asset = p::mediaLibrary().get()->openAsset(json.at("movie").get<std::string>(), {});
  if (!asset) return nullptr;
  static const std::vector<std::string> keys{"playable", "hasProtectedContent", "tracks", "duration"};
  auto loaded = std::make_shared<p::Signal>();
  asset->loadValuesAsynchronously(keys, [loaded] { loaded->set(); });
  if (!p::clock().get()->wait(*loaded, std::chrono::seconds(20))) asset->cancelLoading();
  return asset;
}

std::shared_ptr<p::Composition> openComposition(const Json& json) {
  const std::shared_ptr<p::Asset> movie = openMovie(json);
  auto composition = std::dynamic_pointer_cast<p::Composition>(movie);
  if (movie && !composition) throw WrongArgument("a composition is needed");
  return composition;
}

namespace {

p::Value objectValue(const Json& json) {
  if (json.contains("date")) return parseDate(json["date"].get<std::string>());
  if (json.contains("url")) return p::Url{json["url"].get<std::string>()};
  if (json.contains("rgba")) return toColour(json);
  if (json.contains("picture")) return std::shared_ptr<const p::Opaque>(openPicture(json));
  if (json.contains("movie")) return std::shared_ptr<const p::Opaque>(openMovie(json));
  const int handle = json.contains("handle") ? json["handle"].get<int>() : 0;
  if (handle && Handles::all().holds<p::Picture>(handle)) return std::shared_ptr<const p::Opaque>(openPicture(json));
  if (handle && Handles::all().holds<p::Asset>(handle)) return std::shared_ptr<const p::Opaque>(openMovie(json));
  p::Dictionary dictionary;
  for (const auto& [key, value] : json.items()) dictionary.emplace(key, toValue(value));
  return dictionary;
}

Json fromData(const p::Data& data) {
  std::string hex;
  char digits[3];
  for (const std::byte byte : data) {
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(byte));
    hex += digits;
  }
  return Json{{"data", hex}};
}

}  // namespace

p::Value toValue(const Json& json) {
  switch (json.type()) {
    case Json::value_t::string:
      return json.get<std::string>();
    case Json::value_t::boolean:
      return json.get<bool>();
    case Json::value_t::number_unsigned:
      if (json.get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX)) return json.get<std::uint64_t>();
      return json.get<std::int64_t>();
    case Json::value_t::number_integer:
      return json.get<std::int64_t>();
    case Json::value_t::number_float:
      return json.get<double>();
    case Json::value_t::array: {
      p::List list;
      for (const Json& element : json) list.push_back(toValue(element));
      return list;
    }
    case Json::value_t::object:
      return objectValue(json);
    default:
      throw WrongArgument("null has no place here");
  }
}

Json fromValue(const p::Value& value) {
  return std::visit(
      [](const auto& stored) -> Json {
        using T = std::decay_t<decltype(stored)>;
        if constexpr (std::is_same_v<T, p::Date>) {
          return p::description(p::Value(stored));
        } else if constexpr (std::is_same_v<T, p::Data>) {
          return fromData(stored);
        } else if constexpr (std::is_same_v<T, p::Url>) {
          return Json{{"url", stored.text}};
        } else if constexpr (std::is_same_v<T, p::Colour>) {
          return Json{{"rgba", {stored.red, stored.green, stored.blue, stored.alpha}}};
        } else if constexpr (std::is_same_v<T, p::List>) {
          Json list = Json::array();
          for (const p::Value& element : stored) list.push_back(fromValue(element));
          return list;
        } else if constexpr (std::is_same_v<T, p::Dictionary>) {
          Json dictionary = Json::object();
          for (const auto& [key, element] : stored) dictionary[key] = fromValue(element);
          return dictionary;
        } else if constexpr (std::is_same_v<T, std::shared_ptr<const p::Opaque>>) {
          return stored ? Json{{"description", stored->description()}} : Json();
        } else {
          return result(stored);
        }
      },
      value.stored());
}

}  // namespace call
