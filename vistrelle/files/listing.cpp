#include "vistrelle/files/listing.h"

#include <deque>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/text/unicode.h"

namespace vistrelle {

using platform::fileManager;
using platform::OptionalText;

namespace {

constexpr std::size_t findBound = 200;

std::vector<std::string> fullPathsOfEntries(const std::string& folder) {
  auto entries = fileManager().get()->entries(folder);
  if (!entries) return {};
  for (std::string& entry : *entries) entry = platform::appendingPathComponent(folder, entry);
  return std::move(*entries);
}

PathList notEmpty(std::vector<std::string> list) {
  if (list.empty()) return std::nullopt;
  return list;
}

bool isFolderItself(const std::string& path) {
  return isDirCocoa(path) && !fileManager().get()->linkDestination(path);
}

}  // namespace

PathList lsCocoa(const OptionalText& folder) {
  if (!folder) return std::nullopt;
  logVerbose("lsCocoa             - begin : {}", *folder);
  std::vector<std::string> paths = fullPathsOfEntries(platform::expandingTilde(*folder));
  if (isVerbose()) log("lsCocoa             - end : {} items : {}", paths.size(), platform::description(paths));
  return notEmpty(std::move(paths));
}

PathList lsGrepCocoa(const OptionalText& folder, const OptionalText& extension) {
  if (!folder) return std::nullopt;
  const std::string asked = extension.value_or("");
  const std::string askedUpper = platform::uppercased(asked);
  const PathList all = lsCocoa(folder);
  if (isVerbose()) log("lsGrepCocoa a       : {}", all ? platform::description(*all) : "(null)");
  if (!all) return std::nullopt;
  std::vector<std::string> kept;
  for (const std::string& path : *all) {
    const std::string own = platform::pathExtension(path);
    logVerbose("lsGrepCocoa extStr  :'{}' ? ext={} file={}", asked, own, path);
    if (platform::uppercased(own) == askedUpper) kept.push_back(path);
  }
  if (isVerbose() && !kept.empty()) log("lsGrepCocoa return  : {}", platform::description(kept));
  if (kept.size() == 1 && kept.front().empty()) kept.clear();
  return notEmpty(std::move(kept));
}

PathList findCocoa(const OptionalText& folder, const OptionalText& search, bool isCaseInsensitive) {
  if (!folder) return std::nullopt;
  std::string wanted = search.value_or("");
  if (isCaseInsensitive) wanted = platform::lowercased(wanted);
  logVerbose("findCocoa           - folder: {} grep:{} isCaseInsensitive:{}", *folder, wanted, isCaseInsensitive);

  // One work list in two halves: what was judged and kept, and what is still to be looked at.
  std::vector<std::string> kept;
  std::deque<std::string> waiting;
  if (PathList first = lsCocoa(folder)) waiting.assign(first->begin(), first->end());
  while (!waiting.empty()) {
    const bool mayOpen = kept.size() + waiting.size() < findBound;
    const std::string path = std::move(waiting.front());
    waiting.pop_front();
    if (mayOpen && isFolderItself(path)) {
      for (std::string& entry : fullPathsOfEntries(path)) waiting.push_back(std::move(entry));
    } else if (!wanted.empty() &&
               (isCaseInsensitive ? platform::lowercased(path) : path).find(wanted) != std::string::npos) {
      kept.push_back(path);
    }
  }
  log("findCocoa           - end : {} items", kept.size());
  if (isVerbose()) log("findCocoa           - end : {} items : {}", kept.size(), platform::description(kept));
  return notEmpty(std::move(kept));
}

}  // namespace vistrelle
