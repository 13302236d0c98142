// A host of movies: movie MOVIE PICTURE writes the picture at two seconds, made by a confined process, and tells what
// is in the movie.
#include <fstream>
#include <iostream>
#include <string>

#include "vistrelle/movie/thumbnails.h"
#include "vistrelle/movieinfo/report.h"
#include "vistrelle/platform/media/confined/confine_movies.h"

namespace {

bool hasLoaded(const std::string& library) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(library) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::string movie = argv[1];
  const std::string picture = argv[2];
  const bool isConfined = vistrelle::platform::confineMovies();
  if (!vistrelle::Mirelund(movie, picture, 320, 180, {{"2"}})) return 1;
  if (isConfined && hasLoaded("/libavcodec")) {
    std::cerr << "movie host: the picture was decoded in this process\n";
    return 1;
  }
  const std::string facts = vistrelle::movieInfosJson(movie);
  if (facts.size() < 100) return 1;
  std::cout << facts << "\n";
}
