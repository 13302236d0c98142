#pragma once

#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <utility>

#include "convert.h"

namespace call {

/// The operations by name. `add` takes a function (or a lambda that adapts one) and derives the JSON form of its
/// arguments and result from its type:
///   registry.add("nbArrondi", &nbArrondi);
class Registry {
 public:
  using Operation = std::function<Json(const Json& arguments)>;

  template <typename R, typename... A>
  void add(const std::string& name, R (*function)(A...)) {
    operations_[name] = bind<R, A...>(function, std::index_sequence_for<A...>());
  }
  template <typename Callable>
  requires std::is_class_v<Callable>
  void add(const std::string& name, Callable callable) { addMember(name, callable, &Callable::operator()); }

  const Operation* find(const std::string& name) const {
    const auto found = operations_.find(name);
    return found == operations_.end() ? nullptr : &found->second;
  }
  const std::map<std::string, Operation>& all() const { return operations_; }

 private:
  template <typename Callable, typename R, typename... A>
  void addMember(const std::string& name, Callable callable, R (Callable::*)(A...) const) {
    operations_[name] = bind<R, A...>(std::move(callable), std::index_sequence_for<A...>());
  }

  template <typename R, typename... A, typename Callable, std::size_t... I>
  static Operation bind(Callable callable, std::index_sequence<I...>) {
    return [callable](const Json& arguments) -> Json {
      if (arguments.size() != sizeof...(A)) {
        throw WrongArgument(std::to_string(sizeof...(A)) + " arguments are needed, not " +
                            std::to_string(arguments.size()));
      }
      if constexpr (std::is_void_v<R>) {
        callable(argument<std::decay_t<A>>(arguments[I])...);
        return Json();
      } else {
        return result<std::decay_t<R>>(callable(argument<std::decay_t<A>>(arguments[I])...));
      }
    };
  }

  std::map<std::string, Operation> operations_;
};

// One function a module, each in <module>_operations.cpp.
void addCliOperations(Registry& registry);
void addFilesOperations(Registry& registry);
void addImageOperations(Registry& registry);
void addMovieOperations(Registry& registry);
void addMovieeditOperations(Registry& registry);
void addMovieinfoOperations(Registry& registry);
void addSystemOperations(Registry& registry);
void addDialogOperations(Registry& registry);
void addTextOperations(Registry& registry);

}  // namespace call
