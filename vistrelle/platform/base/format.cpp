#include "vistrelle/platform/base/format.h"

#include <fmt/args.h>
#include <fmt/format.h>

namespace vistrelle::platform {

std::string formatText(FormatLiteral format, std::span<const FormatArgument> arguments) {
  fmt::dynamic_format_arg_store<fmt::format_context> store;
  for (const FormatArgument& argument : arguments) {
    std::visit(
        [&store](const auto& value) {
          if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string_view>) {
            store.push_back(fmt::string_view(value.data(), value.size()));
          } else {
            store.push_back(value);
          }
        },
        argument.stored());
  }
  try {
    return fmt::vformat(fmt::string_view(format.text().data(), format.text().size()), store);
  } catch (const fmt::format_error&) {
    return std::string(format.text());
  }
}

}  // namespace vistrelle::platform
