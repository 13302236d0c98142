#include <cstdio>
#include <cstdlib>

#include "vistrelle/movie/loader.h"
#include "vistrelle/movieedit/export.h"

// export_movie MOVIE OUTPUT MODE: one export as a host makes it; for bench/prores.
int main(int argc, char** argv) {
  if (argc != 4 || !vistrelle::movieLoad(argv[1])) {
    std::fputs("usage: export_movie MOVIE OUTPUT MODE\n", stderr);
    return 2;
  }
  return vistrelle::qtAvExport(vistrelle::MYMOVIEget(), argv[2], std::atoll(argv[3])) ? 0 : 1;
}
