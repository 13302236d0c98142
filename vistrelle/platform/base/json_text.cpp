#include "vistrelle/platform/base/json_text.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/number_text.h"

namespace vistrelle::platform {
namespace {

using Json = nlohmann::json;

Json converted(const Value& value);

struct Converter {
  Json operator()(const std::string& text) const { return text; }
  Json operator()(std::int64_t number) const { return number; }
  Json operator()(std::uint64_t number) const { return number; }
  Json operator()(double number) const { return std::isfinite(number) ? Json(number) : Json(); }
  /// The double that the float's own fewest digits stand for, so that 29.97 does not become 29.969999313354492.
  Json operator()(float number) const {
    if (!std::isfinite(number)) return {};
    const std::string text = shortestText(number);
    double nearest = 0;
    std::from_chars(text.data(), text.data() + text.size(), nearest);
    return nearest;
  }
  Json operator()(bool flag) const { return flag; }
  Json operator()(const Date& date) const { return description(Value(date)); }
  Json operator()(const Data& data) const { return {{"bytes", data.size()}}; }
  Json operator()(const Url& url) const { return url.text; }
  Json operator()(const Colour& colour) const {
    return Json::array({colour.red, colour.green, colour.blue, colour.alpha});
  }
  Json operator()(const List& list) const {
    Json array = Json::array();
    for (const Value& element : list) array.push_back(converted(element));
    return array;
  }
  Json operator()(const Dictionary& dictionary) const {
    Json object = Json::object();
    for (const auto& [key, element] : dictionary) object[key] = converted(element);
    return object;
  }
  Json operator()(const std::shared_ptr<const Opaque>& object) const {
    return object ? Json(object->description()) : Json();
  }
};

Json converted(const Value& value) {
  return std::visit(Converter(), value.stored());
}

constexpr int kMostLevels = 32;

Value valueOf(const Json& json) {
  switch (json.type()) {
    case Json::value_t::string:
      return Value(json.get_ref<const std::string&>());
    case Json::value_t::boolean:
      return Value(json.get<bool>());
    case Json::value_t::number_integer:
      return Value(json.get<std::int64_t>());
    case Json::value_t::number_unsigned: {
      const auto number = json.get<std::uint64_t>();
      return number <= INT64_MAX ? Value(static_cast<std::int64_t>(number)) : Value(number);
    }
    case Json::value_t::number_float:
      return Value(json.get<double>());
    case Json::value_t::array: {
      List list;
      for (const Json& element : json) list.push_back(valueOf(element));
      return Value(std::move(list));
    }
    case Json::value_t::object: {
      Dictionary dictionary;
      for (const auto& [key, element] : json.items()) dictionary.emplace(key, valueOf(element));
      return Value(std::move(dictionary));
    }
    default:
      return jsonNull();
  }
}

/// DEL and the controls U+0080 to U+009F, which the library leaves as they are. They can stand in texts only.
std::string withoutRawControls(const std::string& line) {
  std::string shown;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const auto byte = static_cast<unsigned char>(line[i]);
    const auto next = i + 1 < line.size() ? static_cast<unsigned char>(line[i + 1]) : 0U;
    if (byte == 0x7f) {
      shown += "\\u007f";
    } else if (byte == 0xc2 && next >= 0x80 && next <= 0x9f) {
      shown += format("\\u00{:02x}", next);
      ++i;
    } else {
      shown += line[i];
    }
  }
  return shown;
}

}  // namespace

std::string jsonText(const Value& value) {
  constexpr int kIndent = 2;
  return converted(value).dump(kIndent, ' ', false, Json::error_handler_t::replace);
}

std::string jsonLine(const Value& value) {
  return withoutRawControls(converted(value).dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::optional<Value> readJson(std::string_view text, std::string* error) {
  bool isTooDeep = false;
  const auto limitDepth = [&isTooDeep](int depth, Json::parse_event_t, const Json&) {
    isTooDeep = isTooDeep || depth > kMostLevels;
    return !isTooDeep;
  };
  try {
    const Json json = Json::parse(text, limitDepth);
    if (!isTooDeep) return valueOf(json);
    *error = "nested too deep";
  } catch (const Json::parse_error& failure) {
    *error = format("not JSON (byte {})", failure.byte);
  } catch (const Json::exception&) {
    *error = "not JSON";
  }
  return std::nullopt;
}

}  // namespace vistrelle::platform
