#include "vistrelle/movieedit/probe.h"

#include <vector>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movie/thumbnails.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/system/commands.h"
#include "vistrelle/system/tmp_folder.h"
#include "vistrelle/text/scanning.h"

namespace vistrelle {
namespace {

using platform::OptionalText;

constexpr std::int64_t kProbeWidth = 80;
constexpr std::int64_t kProbeHeight = 64;
constexpr const char* kRemuxTool = "/usr/local/bin/ffmpeg";

}  // namespace

bool qtDecodingProbe(const OptionalText& path) {
  if (!path) return false;
  bool isDecodable = false;
  if (tmpFolderReady()) {
    const std::string probe = platform::appendingPathComponent(tmpFolderPath(), "av-qt_compliant.jpg");
    rmCocoa(probe);
    isDecodable = Mirelund(path, probe, kProbeWidth, kProbeHeight, std::vector<std::string>{"0.0"});
    rmCocoa(probe);
  }
  log("isQtDecodingAvailabl:-{} '{}'", mood(isDecodable), *path);
  return isDecodable;
}

bool ffmpegRemuxMov(const OptionalText& path) {
  if (!path || !testPresenceCocoa(platform::Value(*path))) return false;
  const std::string source = platform::expandingTilde(*path);
  const std::string output = platform::appendingPathExtension(source, "mov");
  if (!testPresenceCocoa(platform::Value(kRemuxTool))) log("ffmpegRemuxMov      :-( no tool at '{}'", kRemuxTool);
  // The tool writes into the file that such a movie is read from.
  if (MYMOVIEpathGet() == platform::standardizedPath(output)) MYMOVIErelease();
  taskArray(
      std::vector<std::string>{kRemuxTool, "-i", source, "-c:v", "copy", "-strict", "experimental", "-y", output});
  if (!movieLoad(output)) return false;
  const std::string name = platform::lastPathComponent(source);
  const auto generator = MYMOVIEget()->makeImageGenerator();
  if (!generator) {
    log("AVAssetImageGenerato:-( failed to create ({})", name);
    return false;
  }
  log("AVAssetImageGenerato:-) created ({})", name);
  generator->setAppliesPreferredTrackTransform(false);
  const platform::FrameResult first = generator->copyFrame(platform::MediaTime::zero());
  log("Mirelund actualTime = {:.3f}", first.actualTime.seconds());
  return true;
}

std::string progressCommand(const OptionalText& text, std::int64_t total) {
  return platform::format(
      "/bin/echo \"scale=6; `/bin/echo \"{}\"  | grep A: | strings | tail -1 | awk -F A:  '{{print $2}}' | "
      "awk -F '(' '{{print $1}}' | awk  '{{print $1}}'` /{} * 100\" | bc -l",
      text.value_or("(null)"), total);
}

float progressPercentFromLog(const OptionalText& text, std::int64_t total) {
  return floatValue(progressCommand(text, total));
}

}  // namespace vistrelle
