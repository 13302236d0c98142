// A library to preload that lets one call of a program fail: the n-th of a kind after main has begun.
//   VISTRELLE_FAULT=KIND:N      malloc, open, read, write, fsync, close, rename, fork, pipe, waitpid; N from 1, 0: none
//   VISTRELLE_FAULT_IN=main     only in the process that main began in; "children": only in its children
//   VISTRELLE_FAULT_COUNT=FILE  the number of calls of that kind is appended at the end of main
// The standard streams are left alone, so that the program can hear its orders and say what happened.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <new>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

enum class Kind { none, malloc, open, read, write, fsync, close, rename, fork, pipe, waitpid };
constexpr const char* kNames[] = {"none",  "malloc", "open", "read", "write",  "fsync",
                                  "close", "rename", "fork", "pipe", "waitpid"};

/// In memory that all processes of the program share.
struct Count {
  std::atomic<long> calls{0};
};
Count* count = nullptr;
std::atomic<bool> armed{false};
bool isChild = false;
Kind chosen = Kind::none;
long failing = 0;
enum class Where { everywhere, main, children } where = Where::everywhere;

bool fails(Kind kind) {
  if (kind != chosen || !armed.load(std::memory_order_relaxed)) return false;
  if (where != Where::everywhere && isChild == (where == Where::main)) return false;
  return count->calls.fetch_add(1) + 1 == failing;
}

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

int failWith(int error) {
  errno = error;
  return -1;
}

void readOrders() {
  const char* fault = ::getenv("VISTRELLE_FAULT");
  const char* colon = fault == nullptr ? nullptr : ::strchr(fault, ':');
  if (colon == nullptr) return;
  for (int i = 1; i < static_cast<int>(sizeof kNames / sizeof *kNames); ++i) {
    const size_t length = ::strlen(kNames[i]);
    if (::strncmp(fault, kNames[i], length) == 0 && fault + length == colon) chosen = static_cast<Kind>(i);
  }
  failing = ::atol(colon + 1);
  void* shared = ::mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) ::abort();
  count = new (shared) Count;
  const char* place = ::getenv("VISTRELLE_FAULT_IN");
  if (place != nullptr) where = ::strcmp(place, "main") == 0 ? Where::main : Where::children;
  ::unsetenv("VISTRELLE_FAULT");  // programs that this one starts are none of it
}

void appendCount() {
  const char* path = ::getenv("VISTRELLE_FAULT_COUNT");
  if (path == nullptr) return;
  const int file = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  char line[32];
  const int length = ::snprintf(line, sizeof line, "%ld\n", count->calls.load());
  if (file >= 0) (void)!::write(file, line, static_cast<size_t>(length));
  if (file >= 0) ::close(file);
}

int (*realMain)(int, char**, char**) = nullptr;

int armedMain(int argc, char** argv, char** environment) {
  armed = count != nullptr;
  const int status = realMain(argc, argv, environment);
  armed = false;
  if (count != nullptr && !isChild) appendCount();
  return status;
}

}  // namespace

extern "C" {

int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*rtldFini)(), void* stackEnd) {
  readOrders();
  realMain = main;
  using Start = int(int (*)(int, char**, char**), int, char**, void (*)(), void (*)(), void (*)(), void*);
  return next<Start>("__libc_start_main")(armedMain, argc, argv, init, fini, rtldFini, stackEnd);
}

void* malloc(size_t size) {
  if (!fails(Kind::malloc)) return __libc_malloc(size);
  errno = ENOMEM;
  return nullptr;
}
void* calloc(size_t count, size_t size) {
  if (!fails(Kind::malloc)) return __libc_calloc(count, size);
  errno = ENOMEM;
  return nullptr;
}
void* realloc(void* block, size_t size) {
  if (!fails(Kind::malloc)) return __libc_realloc(block, size);
  errno = ENOMEM;
  return nullptr;
}
void* memalign(size_t alignment, size_t size) {
  if (!fails(Kind::malloc)) return __libc_memalign(alignment, size);
  errno = ENOMEM;
  return nullptr;
}
void* aligned_alloc(size_t alignment, size_t size) {
  return memalign(alignment, size);
}
int posix_memalign(void** block, size_t alignment, size_t size) {
  void* made = memalign(alignment, size);
  if (made == nullptr) return ENOMEM;
  *block = made;
  return 0;
}

int open(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  if (fails(Kind::open)) return failWith(EMFILE);
  return next<int(const char*, int, ...)>("open")(path, flags, mode);
}
int open64(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  if (fails(Kind::open)) return failWith(EMFILE);
  return next<int(const char*, int, ...)>("open64")(path, flags, mode);
}
int openat(int folder, const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  if (fails(Kind::open)) return failWith(EMFILE);
  return next<int(int, const char*, int, ...)>("openat")(folder, path, flags, mode);
}
int openat64(int folder, const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  if (fails(Kind::open)) return failWith(EMFILE);
  return next<int(int, const char*, int, ...)>("openat64")(folder, path, flags, mode);
}

ssize_t read(int file, void* buffer, size_t size) {
  if (file > STDERR_FILENO && fails(Kind::read)) return failWith(EIO);
  return next<ssize_t(int, void*, size_t)>("read")(file, buffer, size);
}
ssize_t pread(int file, void* buffer, size_t size, off_t offset) {
  if (fails(Kind::read)) return failWith(EIO);
  return next<ssize_t(int, void*, size_t, off_t)>("pread")(file, buffer, size, offset);
}
ssize_t pread64(int file, void* buffer, size_t size, off64_t offset) {
  if (fails(Kind::read)) return failWith(EIO);
  return next<ssize_t(int, void*, size_t, off64_t)>("pread64")(file, buffer, size, offset);
}
ssize_t recvmsg(int socket, msghdr* message, int flags) {
  if (fails(Kind::read)) return failWith(EIO);
  return next<ssize_t(int, msghdr*, int)>("recvmsg")(socket, message, flags);
}
ssize_t copy_file_range(int from, off64_t* fromOffset, int to, off64_t* toOffset, size_t size, unsigned flags) {
  if (fails(Kind::read)) return failWith(EIO);
  return next<ssize_t(int, off64_t*, int, off64_t*, size_t, unsigned)>("copy_file_range")(from, fromOffset, to,
                                                                                          toOffset, size, flags);
}
ssize_t write(int file, const void* buffer, size_t size) {
  if (file > STDERR_FILENO && fails(Kind::write)) return failWith(ENOSPC);
  return next<ssize_t(int, const void*, size_t)>("write")(file, buffer, size);
}
ssize_t pwrite(int file, const void* buffer, size_t size, off_t offset) {
  if (fails(Kind::write)) return failWith(ENOSPC);
  return next<ssize_t(int, const void*, size_t, off_t)>("pwrite")(file, buffer, size, offset);
}
ssize_t pwrite64(int file, const void* buffer, size_t size, off64_t offset) {
  if (fails(Kind::write)) return failWith(ENOSPC);
  return next<ssize_t(int, const void*, size_t, off64_t)>("pwrite64")(file, buffer, size, offset);
}
ssize_t pwritev(int file, const iovec* pieces, int count, off_t offset) {
  if (fails(Kind::write)) return failWith(ENOSPC);
  return next<ssize_t(int, const iovec*, int, off_t)>("pwritev")(file, pieces, count, offset);
}
ssize_t pwritev64(int file, const iovec* pieces, int count, off64_t offset) {
  if (fails(Kind::write)) return failWith(ENOSPC);
  return next<ssize_t(int, const iovec*, int, off64_t)>("pwritev64")(file, pieces, count, offset);
}
ssize_t sendmsg(int socket, const msghdr* message, int flags) {
  if (fails(Kind::write)) return failWith(ENOBUFS);
  return next<ssize_t(int, const msghdr*, int)>("sendmsg")(socket, message, flags);
}
int ftruncate(int file, off_t size) {
  if (fails(Kind::write)) return failWith(EIO);
  return next<int(int, off_t)>("ftruncate")(file, size);
}
int ftruncate64(int file, off64_t size) {
  if (fails(Kind::write)) return failWith(EIO);
  return next<int(int, off64_t)>("ftruncate64")(file, size);
}
int posix_fallocate(int file, off_t offset, off_t size) {
  if (fails(Kind::write)) return ENOSPC;
  return next<int(int, off_t, off_t)>("posix_fallocate")(file, offset, size);
}
int posix_fallocate64(int file, off64_t offset, off64_t size) {
  if (fails(Kind::write)) return ENOSPC;
  return next<int(int, off64_t, off64_t)>("posix_fallocate64")(file, offset, size);
}
int fallocate64(int file, int mode, off64_t offset, off64_t size) {
  if (fails(Kind::write)) return failWith(ENOSPC);
  return next<int(int, int, off64_t, off64_t)>("fallocate64")(file, mode, offset, size);
}
int fallocate(int file, int mode, off_t offset, off_t size) {
  if (fails(Kind::write)) return failWith(ENOSPC);
  return next<int(int, int, off_t, off_t)>("fallocate")(file, mode, offset, size);
}

int fsync(int file) {
  if (fails(Kind::fsync)) return failWith(EIO);
  return next<int(int)>("fsync")(file);
}
int fdatasync(int file) {
  if (fails(Kind::fsync)) return failWith(EIO);
  return next<int(int)>("fdatasync")(file);
}
int close(int file) {
  const int result = next<int(int)>("close")(file);
  return fails(Kind::close) ? failWith(EIO) : result;
}

int rename(const char* from, const char* to) {
  if (fails(Kind::rename)) return failWith(EIO);
  return next<int(const char*, const char*)>("rename")(from, to);
}
int renameat(int fromFolder, const char* from, int toFolder, const char* to) {
  if (fails(Kind::rename)) return failWith(EIO);
  return next<int(int, const char*, int, const char*)>("renameat")(fromFolder, from, toFolder, to);
}
int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) {
  if (fails(Kind::rename)) return failWith(EIO);
  return next<int(int, const char*, int, const char*, unsigned)>("renameat2")(fromFolder, from, toFolder, to, flags);
}
int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) {
  if (fails(Kind::rename)) return failWith(EIO);
  return next<int(int, const char*, int, const char*, int)>("linkat")(fromFolder, from, toFolder, to, flags);
}

pid_t fork() {
  if (fails(Kind::fork)) return failWith(EAGAIN);
  const pid_t child = next<pid_t()>("fork")();
  if (child == 0) isChild = true;
  return child;
}
int posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment) {
  if (fails(Kind::fork)) return EAGAIN;
  return next<decltype(posix_spawn)>("posix_spawn")(child, path, actions, attributes, arguments, environment);
}
int posix_spawnp(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment) {
  if (fails(Kind::fork)) return EAGAIN;
  return next<decltype(posix_spawnp)>("posix_spawnp")(child, path, actions, attributes, arguments, environment);
}
int pipe(int files[2]) {
  if (fails(Kind::pipe)) return failWith(EMFILE);
  return next<int(int*)>("pipe")(files);
}
int pipe2(int files[2], int flags) {
  if (fails(Kind::pipe)) return failWith(EMFILE);
  return next<int(int*, int)>("pipe2")(files, flags);
}
int socketpair(int domain, int type, int protocol, int files[2]) {
  if (fails(Kind::pipe)) return failWith(EMFILE);
  return next<int(int, int, int, int*)>("socketpair")(domain, type, protocol, files);
}
int memfd_create(const char* name, unsigned flags) {
  if (fails(Kind::open)) return failWith(EMFILE);
  return next<int(const char*, unsigned)>("memfd_create")(name, flags);
}
pid_t waitpid(pid_t child, int* status, int options) {
  const pid_t result = next<pid_t(pid_t, int*, int)>("waitpid")(child, status, options);
  return fails(Kind::waitpid) ? failWith(ECHILD) : result;
}

}  // extern "C"
