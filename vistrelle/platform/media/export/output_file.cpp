#include "vistrelle/platform/media/export/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/file_writing.h"
#include "vistrelle/platform/files/termination_hold.h"

namespace vistrelle::platform {
namespace {

std::string linkOf(int descriptor) {
  return format("/proc/self/fd/{}", descriptor);
}

}  // namespace

std::unique_ptr<OutputFile> OutputFile::create(const std::string& path, std::string* error) {
  const auto fail = [&](int code) {
    *error = FileError{code, path}.description();
    return nullptr;
  };
  if (path.find('\0') != std::string::npos) return fail(EINVAL);
  std::unique_ptr<OutputFile> output(new OutputFile);
  output->path_ = path;
  output->place_ = placeOf(behindLinks(path));
  if (output->place_.code != 0) return fail(output->place_.code);
  struct stat former {};
  if (::fstatat(output->place_.folder.get(), output->place_.name.c_str(), &former, AT_SYMLINK_NOFOLLOW) == 0) {
    if (S_ISDIR(former.st_mode)) return fail(EISDIR);
    if (!S_ISREG(former.st_mode)) return fail(EINVAL);
    output->replaces_ = true;
    output->formerMode_ = former.st_mode & 0777;
  }
  const int code = output->openTemporary();
  return code == 0 ? std::move(output) : fail(code);
}

int OutputFile::openTemporary() {
  const int folder = place_.folder.get();
  file_ = UniqueFd(::openat(folder, ".", O_RDWR | O_TMPFILE | O_CLOEXEC, 0666));
  // Without /proc it could not be given a name later.
  if (file_ && ::access(linkOf(file_.get()).c_str(), F_OK) == 0) return 0;
  return createTemporary(temporary_, [&](const std::string& name) {
    file_ = UniqueFd(::openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    const int code = file_ ? 0 : errno;
    if (code != 0) temporary_.clear();
    return code;
  });
}

OutputFile::~OutputFile() {
  if (!temporary_.empty()) ::unlinkat(place_.folder.get(), temporary_.c_str(), 0);
}

int OutputFile::nameTemporary() {
  if (!temporary_.empty()) return 0;
  std::string name;
  const int code = createTemporary(name, [&](const std::string& candidate) {
    const std::string link = linkOf(file_.get());
    const int folder = place_.folder.get();
    return ::linkat(AT_FDCWD, link.c_str(), folder, candidate.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
  });
  if (code == 0) temporary_ = name;
  return code;
}

int OutputFile::takeName() {
  const TerminationHold hold;  // no hidden name is left behind
  const int folder = place_.folder.get();
  const char* name = place_.name.c_str();
  if (!replaces_ && temporary_.empty()) {
    return ::linkat(AT_FDCWD, linkOf(file_.get()).c_str(), folder, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
  }
  if (const int code = nameTemporary()) return code;
  const unsigned int flags = replaces_ ? 0 : RENAME_NOREPLACE;
  if (::renameat2(folder, temporary_.c_str(), folder, name, flags) != 0) {
    // Some file systems cannot refuse to replace; a hard link can.
    if (errno != EINVAL || replaces_) return errno;
    if (::linkat(folder, temporary_.c_str(), folder, name, 0) != 0) return errno;
    return 0;  // the hidden name goes with this object
  }
  temporary_.clear();
  return 0;
}

bool OutputFile::putInPlace(std::string* error) {
  int code = 0;
  if (replaces_ && ::fchmod(file_.get(), formerMode_) != 0 && errno != EPERM) code = errno;
  if (code == 0 && ::fsync(file_.get()) != 0) code = errno;
  if (code == 0) code = takeName();
  if (code == 0 && file_.close() != 0) code = errno;
  if (code != 0) *error = FileError{code, path_}.description();
  return code == 0;
}

}  // namespace vistrelle::platform
