/// What movies say about themselves, a JSON object each:
///     sample_report movie.mov other.mkv | jq '.tracks[].codec'
#include "vistrelle/movieinfo/report.h"

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  bool areAllRead = argc > 1;
  for (int i = 1; i < argc; ++i) {
    const std::string report = vistrelle::movieInfosJson(std::string(argv[i]));
    areAllRead = areAllRead && report != "{}";
    std::puts(report.c_str());
  }
  return areAllRead ? 0 : 1;
}
