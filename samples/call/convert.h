#pragma once

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeindex>
#include <utility>
#include <vector>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/imaging/picture.h"
#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/composition.h"
#include "vistrelle/platform/media/media_time.h"

/// How the arguments and results of operations look in JSON.
namespace call {

using Json = nlohmann::json;

/// An argument that does not have the form its operation takes.
class WrongArgument : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Objects that operations returned, kept under their numbers as long as the process lives.
class Handles {
 public:
  static Handles& all();
  template <typename T>
  int keep(std::shared_ptr<T> object) {
    using Plain = std::remove_const_t<T>;
    objects_.emplace_back(std::type_index(typeid(Plain)), std::const_pointer_cast<Plain>(std::move(object)));
    return static_cast<int>(objects_.size());
  }
  /// The object of that number; throws WrongArgument when there is none or it is of another type.
  template <typename T>
  std::shared_ptr<T> find(int number) const {
    const auto& [type, object] = entry(number);
    if (type != std::type_index(typeid(std::remove_const_t<T>))) throw WrongArgument("handle of another type");
    return std::static_pointer_cast<std::remove_const_t<T>>(object);
  }
  /// Whether the object of that number is of type T.
  template <typename T>
  bool holds(int number) const {
    return entry(number).first == std::type_index(typeid(std::remove_const_t<T>));
  }

 private:
  using Entry = std::pair<std::type_index, std::shared_ptr<void>>;
  const Entry& entry(int number) const;
  std::vector<Entry> objects_;
};

/// "2015-03-01 12:34:56 +0000".
vistrelle::platform::Date parseDate(const std::string& text);

/// Text, numbers, booleans, lists and dictionaries as they are; {"date": "..."}, {"url": "..."}, {"rgba": [r,g,b,a]},
/// {"picture": "path"}, {"movie": "path"} and {"handle": n} stand for objects.
vistrelle::platform::Value toValue(const Json& json);
Json fromValue(const vistrelle::platform::Value& value);

std::shared_ptr<vistrelle::platform::Asset> openMovie(const Json& json);
/// A movie argument where only a composition will do.
std::shared_ptr<vistrelle::platform::Composition> openComposition(const Json& json);
std::shared_ptr<const vistrelle::platform::Picture> openPicture(const Json& json);
vistrelle::platform::Colour toColour(const Json& json);
Json fromNumber(double number);
double toNumber(const Json& json);

template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};
template <typename T>
struct IsVector : std::false_type {};
template <typename T>
struct IsVector<std::vector<T>> : std::true_type {};
template <typename T>
struct IsShared : std::false_type {};
template <typename T>
struct IsShared<std::shared_ptr<T>> : std::true_type {};
template <typename T>
struct IsPair : std::false_type {};
template <typename A, typename B>
struct IsPair<std::pair<A, B>> : std::true_type {};

template <typename T>
T fromShared(const Json& json) {
  using Object = typename T::element_type;
  namespace p = vistrelle::platform;
  if (json.is_null()) return nullptr;
  if constexpr (std::is_same_v<std::remove_const_t<Object>, p::Asset>)
    return openMovie(json);
  else if constexpr (std::is_same_v<Object, p::Composition>)
    return openComposition(json);
  else if constexpr (std::is_same_v<std::remove_const_t<Object>, p::Picture>)
    return openPicture(json);
  else if (json.is_object() && json.contains("handle"))
    return Handles::all().find<Object>(json["handle"].get<int>());
  else
    throw WrongArgument("a handle is needed");
}

/// The C++ argument that stands for `json`; throws WrongArgument.
template <typename T>
T argument(const Json& json) {
  namespace p = vistrelle::platform;
  try {
    if constexpr (IsOptional<T>::value) {
      if (json.is_null()) return std::nullopt;
      return argument<typename T::value_type>(json);
    } else if constexpr (IsVector<T>::value && !std::is_same_v<T, p::Data>) {
      if (!json.is_array()) throw WrongArgument("a list is needed");
      T list;
      for (const Json& element : json) list.push_back(argument<typename T::value_type>(element));
      return list;
    } else if constexpr (IsShared<T>::value) {
      return fromShared<T>(json);
    } else if constexpr (std::is_same_v<T, p::Value>) {
      return toValue(json);
    } else if constexpr (std::is_same_v<T, p::Dictionary>) {
      const p::Value value = toValue(json);
      if (const auto* dictionary = value.get<p::Dictionary>()) return *dictionary;
      throw WrongArgument("a dictionary is needed");
    } else if constexpr (std::is_same_v<T, p::Date>) {
      return parseDate(json.get<std::string>());
    } else if constexpr (std::is_same_v<T, p::Colour>) {
      return toColour(json);
    } else if constexpr (std::is_same_v<T, p::MediaTime>) {
      return p::MediaTime::make(json.at("value").get<std::int64_t>(), json.at("scale").get<std::int32_t>());
    } else if constexpr (std::is_same_v<T, p::TimeRange>) {
      return p::TimeRange{argument<p::MediaTime>(json.at("start")), argument<p::MediaTime>(json.at("duration"))};
    } else if constexpr (std::is_same_v<T, bool>) {
      return json.get<bool>();
    } else if constexpr (std::is_floating_point_v<T>) {
      return static_cast<T>(toNumber(json));
    } else if constexpr (std::is_integral_v<T>) {
      if (!json.is_number_integer()) throw WrongArgument("a whole number is needed");
      return json.get<T>();
    } else {
      return json.get<T>();
    }
  } catch (const Json::exception& error) {
    throw WrongArgument(error.what());
  }
}

/// The JSON that stands for a result. Single-precision numbers have 9 significant digits.
template <typename T>
Json result(const T& value) {
  namespace p = vistrelle::platform;
  if constexpr (IsOptional<T>::value) {
    return value ? result(*value) : Json();
  } else if constexpr (IsVector<T>::value && !std::is_same_v<T, p::Data>) {
    Json list = Json::array();
    for (const auto& element : value) list.push_back(result(typename T::value_type(element)));
    return list;
  } else if constexpr (IsPair<T>::value) {
    return Json::array({result(value.first), result(value.second)});
  } else if constexpr (IsShared<T>::value) {
    // A composition is kept as a movie: operations on movies take it too.
    if constexpr (std::is_same_v<typename T::element_type, p::Composition>)
      return result(std::shared_ptr<p::Asset>(value));
    else
      return value ? Json{{"handle", Handles::all().keep(value)}} : Json();
  } else if constexpr (std::is_same_v<T, p::MediaTime>) {
    if (!value.isNumeric()) return Json();
    return Json{{"value", value.value}, {"scale", value.scale}};
  } else if constexpr (std::is_same_v<T, p::TimeRange>) {
    if (!value.isValid()) return Json();
    return Json{{"start", result(value.start)}, {"duration", result(value.duration)}};
  } else if constexpr (std::is_same_v<T, bool> || std::is_integral_v<T> || std::is_same_v<T, std::string>) {
    return Json(value);
  } else if constexpr (std::is_same_v<T, float>) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.9g", static_cast<double>(value));
    return std::isfinite(value) ? Json(std::strtod(digits, nullptr)) : fromNumber(static_cast<double>(value));
  } else if constexpr (std::is_same_v<T, double>) {
    return fromNumber(value);
  } else {
    return fromValue(p::Value(value));
  }
}

}  // namespace call
