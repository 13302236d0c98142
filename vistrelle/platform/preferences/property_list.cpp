#include "vistrelle/platform/preferences/property_list.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "vistrelle/platform/preferences/binary_plist.h"
#include "vistrelle/platform/preferences/file_bytes.h"
#include "vistrelle/platform/preferences/xml_plist.h"

namespace vistrelle::platform {

PropertyListReading readPropertyList(std::string_view bytes, const PropertyListLimits& limits) {
  if (bytes.size() > limits.bytes) return {std::nullopt, "the property list is too long"};
  if (bytes.starts_with(binary_plist::kMagic)) {
    return binary_plist::read(bytes, limits, binary_plist::ShortReal::kFloat);
  }
  if (xml_plist::looksLike(bytes)) return xml_plist::read(bytes, limits);
  return {std::nullopt, "not a property list"};
}

PropertyListReading readPropertyListFile(const std::string& path, const PropertyListLimits& limits) {
  const FileReading file = readWholeFile(path, limits.bytes);
  if (!file.bytes) return {std::nullopt, file.error};
  return readPropertyList(*file.bytes, limits);
}

}  // namespace vistrelle::platform
