/// Chapter pictures by the tool, with a progress bar of our own:
///     sample_chapters vistrelle movie.mov folder 0 1:02:10 3725.5
/// Starts the tool, reads what it writes on standard error line by line, and moves a bar at each line of progress.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/cli/shortcuts.h"

namespace {

struct Tool {
  pid_t process = -1;
  std::FILE* errors = nullptr;  ///< what it writes on standard error
};

Tool start(std::vector<std::string> words) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return {};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  Tool tool;
  if (::posix_spawnp(&tool.process, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) tool.process = -1;
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  tool.errors = ::fdopen(ends[0], "r");
  return tool;
}

void draw(std::size_t done, std::size_t all) {
  constexpr std::size_t kWidth = 30;
  const std::size_t filled = all == 0 ? kWidth : kWidth * done / all;
  std::printf("\r[%s%s] %zu of %zu", std::string(filled, '#').c_str(), std::string(kWidth - filled, '.').c_str(), done,
              all);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: %s TOOL MOVIE FOLDER TIME...\n", argv[0]);
    return 2;
  }
  std::string times = argv[4];
  for (int i = 5; i < argc; ++i) times += std::string("-") + argv[i];
  const auto all = static_cast<std::size_t>(argc - 4);

  // A failed run removes its destination with all that it holds: it gets a folder of its own.
  std::error_code ignored;
  if (!std::filesystem::create_directory(argv[3], ignored)) {
    std::fprintf(stderr, "%s: exists already or cannot be made\n", argv[3]);
    return 1;
  }
  const Tool tool = start({argv[1], "-i", argv[2], "-o", argv[3], "-w", "640", "-h", "360", "-tc", times});
  if (tool.process < 0 || tool.errors == nullptr) return 1;

  std::string said;  // what was no progress, for the case of failure
  char line[4096];
  while (std::fgets(line, sizeof line, tool.errors) != nullptr) {
    const std::string text = line;
    if (text.starts_with(vistrelle::markerSteps())) {
      draw(static_cast<std::size_t>(vistrelle::progressSteps(text)), all);
    } else {
      said += text;
    }
  }
  std::fclose(tool.errors);
  int status = 0;
  ::waitpid(tool.process, &status, 0);
  const bool isWritten = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  std::printf("\n%s\n", isWritten ? "written" : ("not written:\n" + said).c_str());
  if (!isWritten) std::filesystem::remove(argv[3], ignored);  // only while it is empty
  return isWritten ? 0 : 1;
}
