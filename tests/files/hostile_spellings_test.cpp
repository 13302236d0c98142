#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <random>

#include "tests/files/files_fixture.h"
#include "vistrelle/files/guarded.h"

// Thousands of spellings of places that nothing may remove. One test runs in a root folder of its own, where a mistake
// can only harm copies; the other on the machine's own places, with a file manager that removes nothing.
namespace vistrelle {
namespace {

using namespace testing;
using Components = std::vector<std::string>;

class Speller {
 public:
  Speller() : seed_(std::random_device()()), engine_(seed_) { std::cout << "seed " << seed_ << std::endl; }

  std::size_t below(std::size_t bound) { return std::uniform_int_distribution<std::size_t>(0, bound - 1)(engine_); }
  bool chance(int percent) { return below(100) < static_cast<std::size_t>(percent); }
  template <typename T>
  const T& one(const std::vector<T>& choices) {
    return choices[below(choices.size())];
  }

  /// `start` names the folder that holds the first component; every folder holds one named `inside`.
  std::string spell(const std::string& start, const Components& components, const std::string& inside) {
    std::string path = start + noise();
    for (std::size_t index = 0; index < components.size(); ++index) {
      const std::string& name = components[index];
      if (index > 0) path += "/" + noise();
      path += name;
      if (chance(20)) path += "/" + noise() + "../" + noise() + name;
      if (chance(15)) path += "/" + noise() + inside + "/..";
    }
    static const std::vector<std::string> ends{"", "", "/", "//", "/.", "/./", "/.//"};
    return path + one(ends);
  }

 private:
  std::string noise() {
    static const std::vector<std::string> pieces{"", "", "", "/", "./", "//", ".//./"};
    return one(pieces);
  }

  unsigned seed_;
  std::mt19937 engine_;
};

Components split(const std::string& path) {
  Components components;
  for (const fs::path& part : fs::path(path).relative_path()) components.push_back(part.string());
  return components;
}

class HostileSpellings : public FilesTest {
 protected:
  static constexpr int spellings = 6000;
};

/// A small system: homes, volumes and top folders, each with something to lose.
class OwnRoot {
 public:
  const std::vector<std::string> places{"/etc",           "/top",         "/Volumes/Disk",  "/Users/bob",
                                        "/home",          "/home/bob",    "/home/alice",    "/media/usb",
                                        "/mnt/disk",      "/mnt",         "/run/media/bob", "/run/media/bob/stick",
                                        "/Volumes/a.mov", "/Users/a.txt", "/top.txt"};

  static void make(const std::string& root) {
    for (const char* folder : {"/etc", "/top", "/Volumes/Disk", "/Users/bob", "/home/bob/Movies", "/home/alice",
                               "/media/usb", "/mnt/disk", "/run/media/bob/stick", "/srv/area", "/srv/links"}) {
      fs::create_directories(root + folder);
    }
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      if (entry.is_directory()) made.push_back(entry.path().string());
    }
    for (const std::string& folder : made) {
      fs::create_directory(folder + "/inside");
      std::ofstream(folder + "/keep") << "x";
    }
    fs::create_directory(root + "/inside");
    for (const char* file : {"/Volumes/a.mov", "/Users/a.txt", "/top.txt"}) std::ofstream(root + file) << "x";
    std::ofstream(root + "/etc/passwd") << "root:x:0:0::/home/bob:/bin/sh\nalice:x:1000:1000::/home/alice:/bin/sh\n";
    for (const auto& [link, target] : links()) fs::create_symlink(target, root + link);
  }

  static std::vector<std::pair<std::string, std::string>> links() {
    return {{"/srv/links/root", "/"},           {"/srv/links/home", "/home"},       {"/srv/links/mnt", "../../mnt"},
            {"/srv/links/volumes", "/Volumes"}, {"/srv/links/media", "root/media"}, {"/srv/links/users", "/Users"}};
  }

  /// Some way to name the folder that holds `components`, and what is left to name.
  static std::string start(Speller& speller, Components& components) {
    for (const auto& [link, target] : links()) {
      const std::string name = fs::path(target).filename().string();
      if (components.size() > 1 && !name.empty() && components.front() == name && speller.chance(30)) {
        components.erase(components.begin());
        return link + "/";
      }
    }
    static const std::vector<std::string> roots{"/",
                                                "//",
                                                "/./",
                                                "/../",
                                                "/srv/../",
                                                "../../",
                                                "./../../",
                                                "/srv/links/root/",
                                                "~/../../",
                                                "~alice/../../",
                                                "~/Movies/../../../",
                                                "/ZRKauthoring/../"};
    return speller.one(roots);
  }

  bool isWhole() const {
    return std::all_of(places.begin(), places.end(),
                       [](const std::string& place) {
                         return fs::is_regular_file(place) || (fs::exists(place + "/inside") && !isBare(place));
                       }) &&
           fs::exists("/home/bob/Movies/keep") && fs::exists("/srv/area/keep");
  }

 private:
  static bool isBare(const std::string& place) { return !fs::exists(place + "/keep"); }
  static inline std::vector<std::string> made;
};

TEST_F(HostileSpellings, removeNothingInARootOfItsOwn) {
  if (!canMount()) GTEST_SKIP() << "a mount of one's own is not possible here";
  const std::string root = scratch.makeFolder("root");
  EXPECT_TRUE(inChild([&] {
    ASSERT_TRUE(mountScratch(root.c_str(), "size=16m"));
    OwnRoot::make(root);
    ASSERT_EQ(0, ::chroot(root.c_str()));
    ASSERT_EQ(0, ::chdir("/srv/area"));
    ::setenv("HOME", "/home/bob", 1);
    const OwnRoot own;
    ASSERT_TRUE(own.isWhole());
    RecordingLog log;
    Speller speller;
    for (int count = 0; count < spellings; ++count) {
      Components components = split(speller.one(own.places));
      const bool isFile = components.back().find('.') != std::string::npos;
      const std::string start = OwnRoot::start(speller, components);
      std::string path = speller.spell(start, components, "inside");
      if (isFile) path = path.substr(0, path.find_last_not_of("/.") + 1);
      rmCocoa(path);
      ASSERT_TRUE(own.isWhole()) << "removed: " << path;
    }
    for (const char* path : {"/", "//", "/.", "/..", "/srv/..", "~/../..", "/srv/links/root/", "/srv/links/root/.",
                             "..", "../..", "~", "~/", "~/.", "~root", "~root/", "~alice", "~alice/."}) {
      EXPECT_FALSE(rmCocoa(path)) << path;
      ASSERT_TRUE(own.isWhole() && fs::exists("/srv/links/root")) << path;
    }
    EXPECT_TRUE(desktop->recycled.empty());
    // The same spellings of an ordinary place do remove it, so that the test above can fail.
    for (int count = 0; count < 500; ++count) {
      fs::create_directories("/srv/area/victim/inside");
      Components components{"srv", "area", "victim"};
      const std::string start = OwnRoot::start(speller, components);
      fs::create_directories("/srv/inside");
      fs::create_directories("/srv/area/inside");
      const std::string path = speller.spell(start, components, "inside");
      if (path.starts_with("/ZRK")) continue;  // there is no such folder to go up from
      EXPECT_TRUE(rmCocoa(path)) << path;
      ASSERT_FALSE(fs::exists("/srv/area/victim")) << path;
    }
  }));
}

TEST_F(HostileSpellings, reachNoRemovalOnThisMachine) {
  WithoutHarm harmless;
  RecordingLog log;
  Speller speller;
  std::vector<std::string> places{"/mnt/disk",     "/media/usb",      "/home/somebody",
                                  "/Volumes/Disk", "/Users/somebody", "/run/media/somebody/stick"};
  for (const auto& entry : fs::directory_iterator("/")) {
    if (!entry.is_symlink()) places.push_back(entry.path().string());
  }
  places.push_back(home());
  places.push_back(fs::path(home()).parent_path().string());
  scratch.makeFolder("people/bob/usr");
  fs::create_symlink("/", scratch.file("root"));
  const std::vector<std::string> roots{"/", "//", "/./", "/../", "/usr/../", scratch.file("root/"), "~root/../"};
  for (int count = 0; count < spellings; ++count) {
    const std::string path = speller.spell(speller.one(roots), split(speller.one(places)), "usr");
    rmCocoa(path);
    // Where a step of the spelling does not exist on this machine the path names nothing.
    ASSERT_TRUE(harmless.files->removed.empty() || !exists(harmless.files->removed.back())) << path;
  }
  EXPECT_TRUE(desktop->recycled.empty());
}

}  // namespace
}  // namespace vistrelle
