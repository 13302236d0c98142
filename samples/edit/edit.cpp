/// Movies put together without re-encoding; every edit is exact to the frame:
///     sample_edit cut  part.mov   movie.mp4 12.3 30        30 seconds from 12.3 s on
///     sample_edit join both.mov   first.mp4 second.mp4     one behind the other
///     sample_edit mux  dubbed.mov movie.mp4 sound.m4a 250  side by side, all sound 250 ms later
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "vistrelle/movie/loader.h"
#include "vistrelle/movieedit/cut.h"
#include "vistrelle/movieedit/joining.h"
#include "vistrelle/movieedit/mux.h"
#include "vistrelle/system/tmp_folder.h"

namespace {

bool join(const std::string& destination, const std::string& first, const std::string& second) {
  if (!vistrelle::movieLoad(first)) return false;
  const vistrelle::Movie front = vistrelle::MYMOVIEget();
  if (!vistrelle::movieLoad(second)) return false;
  return vistrelle::moviesConcatenate(front, vistrelle::MYMOVIEget(), 1, destination);
}

bool mux(const std::string& destination, const std::string& movie, const std::string& sound,
         std::int64_t milliseconds) {
  // All sound of the composition is moved alike; above 0 it comes later.
  const vistrelle::platform::Dictionary offsets{{"a0_id", std::int64_t{1}}, {"a1_offsetMs", milliseconds}};
  return vistrelle::muxAvQtExport({{movie, sound}}, destination, offsets);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() < 4) {
    std::fprintf(stderr, "usage: %s cut|join|mux DESTINATION MOVIE ...\n", argv[0]);
    return 2;
  }
  // Work files go to a folder of our own.
  std::string folder = std::filesystem::temp_directory_path() / "sample_edit.XXXXXX";
  if (::mkdtemp(folder.data()) == nullptr) return 1;
  vistrelle::tmpFolderSet(folder);

  bool isWritten = false;
  if (words[0] == "cut" && words.size() == 5) {
    isWritten =
        vistrelle::movieCutForceSize(words[2], words[1], std::atoi(words[4].c_str()), std::atof(words[3].c_str()));
  } else if (words[0] == "join") {
    isWritten = join(words[1], words[2], words[3]);
  } else if (words[0] == "mux") {
    isWritten = mux(words[1], words[2], words[3], words.size() > 4 ? std::atoll(words[4].c_str()) : 0);
  }
  std::filesystem::remove_all(folder);
  std::puts(isWritten ? "written" : "not written");
  return isWritten ? 0 : 1;
}
