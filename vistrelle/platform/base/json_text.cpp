#include "vistrelle/platform/base/json_text.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

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

}  // namespace

std::string jsonText(const Value& value) {
  constexpr int kIndent = 2;
  return converted(value).dump(kIndent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace vistrelle::platform
