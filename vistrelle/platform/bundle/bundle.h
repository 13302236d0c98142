#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "vistrelle/platform/base/seam.h"
#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// The program's own folder of resources. A host installs its own; without one the answers are those of a bare tool.
class Bundle {
 public:
  virtual ~Bundle() = default;
  /// The bundle's name; absent for a bare tool.
  virtual OptionalText name() const = 0;
  /// Where resources lie; for a bare tool the folder of the executable.
  virtual std::string resourcePath() const = 0;
  /// Full path of "name.type" among the resources ("type" may be empty); absent when there is no such file.
  virtual OptionalText pathForResource(std::string_view name, std::string_view type) const = 0;
  /// The translation of `key` in the strings table `table`. A key that the table lacks, or a missing table, answers
  /// `fallback`, or the key itself when the fallback is empty.
  virtual std::string localizedString(std::string_view key, std::string_view fallback,
                                      std::string_view table) const = 0;
};

Seam<Bundle>& mainBundle();

}  // namespace vistrelle::platform

#pragma GCC visibility pop
