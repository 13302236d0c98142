// A host that cuts: edit MOVIE PART keeps a part of the movie and asks the part what it is. Objects of the library are
// used through their interfaces, and one of its own is put in the place of the library's.
#include <cmath>
#include <iostream>
#include <memory>
#include <string>

#include "vistrelle/movie/loader.h"
#include "vistrelle/movie/queries.h"
#include "vistrelle/movieedit/cut.h"
#include "vistrelle/platform/media/asset.h"
#include "vistrelle/system/tmp_folder.h"

namespace {

/// The library that is installed, counted.
class CountingLibrary final : public vistrelle::platform::MediaLibrary {
 public:
  explicit CountingLibrary(std::shared_ptr<vistrelle::platform::MediaLibrary> next) : next_(std::move(next)) {}
  std::shared_ptr<vistrelle::platform::Asset> openAsset(const std::string& path,
                                                        const vistrelle::platform::OpenOptions& options) override {
    ++opened;
    return next_->openAsset(path, options);
  }
  int opened = 0;

 private:
  std::shared_ptr<vistrelle::platform::MediaLibrary> next_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::string movie = argv[1];
  const std::string part = argv[2];
  vistrelle::tmpFolderSet(part + ".work");
  auto& seam = vistrelle::platform::mediaLibrary();
  const auto library = std::make_shared<CountingLibrary>(seam.get());
  seam.install(library);
  if (!vistrelle::movieCutForceSize(movie, part, 2, 1.0)) return 1;
  if (!vistrelle::movieLoad(part) || library->opened < 2) return 1;
  const double seconds = vistrelle::movieDuration(vistrelle::MYMOVIEget());
  std::cout << seconds << "\n";
  return std::abs(seconds - 2) < 0.2 ? 0 : 1;
}
