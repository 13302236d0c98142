#include "vistrelle/cli/last_words.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>

#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/late/late_library.h"

namespace vistrelle {
namespace {

constexpr int kFailure = 1;

// Room made beforehand: when it is needed there may be none.
struct Run {
  pid_t process = -1;
  const char* source = "";
  std::array<char, PATH_MAX> destination{};  // empty when it was there before
};
Run run;
std::terminate_handler formerHandler = nullptr;

/// The value of the last such option; null when it is not there.
const char* valueOf(const char* option, int argc, const char* const* argv) {
  const char* value = nullptr;
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], option) == 0) value = argv[i + 1];
  }
  return value;
}

void rememberDestination(const char* given) {
  const char* const path = given != nullptr ? given : run.source;
  const char* const ending = given != nullptr ? "" : ".jpg";
  const std::size_t length = std::strlen(path);
  if (*path == '\0' || length + std::strlen(ending) >= run.destination.size()) return;
  std::memcpy(run.destination.data(), path, length);
  std::strcpy(run.destination.data() + length, ending);
  struct stat present {};
  if (::lstat(run.destination.data(), &present) == 0) run.destination[0] = '\0';
}

bool writeBytes(const char* bytes, std::size_t count) {
  return ::write(STDERR_FILENO, bytes, count) == static_cast<ssize_t>(count);
}

/// On a terminal without control characters (C0, DEL, C1) and stray bytes, which could move the cursor.
void write(std::string_view text) {
  const bool isShown = ::isatty(STDERR_FILENO) != 0;
  for (std::size_t offset = 0; offset < text.size();) {
    const platform::Character character = platform::characterAt(text, offset);
    const bool isControl = character.code < 0x20 || (character.code >= 0x7f && character.code < 0xa0);
    const bool isHidden = isShown && (isControl || !character.valid);
    if (!(isHidden ? writeBytes("?", 1) : writeBytes(text.data() + offset, character.length))) return;
    offset += character.length;
  }
}

void endOutOfMemory() {
  try {
    if (std::current_exception()) std::rethrow_exception(std::current_exception());
  } catch (const std::bad_alloc&) {
    sayLastWords("out of memory");
  } catch (...) {
  }
  formerHandler();
}

}  // namespace

void prepareLastWords(int argc, const char* const* argv) {
  run.process = ::getpid();
  if (const char* source = valueOf("-i", argc, argv)) run.source = source;
  rememberDestination(valueOf("-o", argc, argv));
  formerHandler = std::set_terminate(endOutOfMemory);
#ifdef VISTRELLE_LATE_LOADING
  platform::onLateFailure([](const char* reason) { sayLastWords(reason); });
#endif
}

void sayLastWords(const char* reason) {
  if (::getpid() != run.process) ::_exit(kFailure);
  write("Error          : ");
  write(reason);
  write(", '");
  write(run.source);
  write("' (Exit)");
  writeBytes("\n", 1);
  struct stat made {};
  if (run.destination[0] != '\0' && ::lstat(run.destination.data(), &made) == 0 && S_ISREG(made.st_mode)) {
    ::unlink(run.destination.data());
  }
  ::_exit(kFailure);
}

}  // namespace vistrelle
