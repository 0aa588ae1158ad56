#include "interposed.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>

namespace {

const Hooks kNoHooks;
const Hooks* g_hooks = &kNoHooks;
int g_get_nprocs_calls = 0;

// Returns the C library's function of that name, which has the same type as ours.
template <typename Function>
Function* next(const char* name, Function* /*ours*/) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

ScopedHooks::ScopedHooks() {
  g_hooks = &hooks_;
}
ScopedHooks::~ScopedHooks() {
  g_hooks = &kNoHooks;
}

int get_nprocs_calls() {
  return g_get_nprocs_calls;
}

FILE* real_popen(const char* command, const char* mode) {
  return next("popen", popen)(command, mode);
}

int get_nprocs() noexcept {
  ++g_get_nprocs_calls;
  return kCores;
}

int usleep(useconds_t duration_us) {
  if (!g_hooks->usleep) return next("usleep", usleep)(duration_us);
  g_hooks->usleep(duration_us);
  return 0;
}

unsigned int sleep(unsigned int seconds) {
  if (!g_hooks->sleep) return next("sleep", sleep)(seconds);
  g_hooks->sleep(seconds);
  return 0;
}

int open(const char* path, int flags, ...) {
  static const auto real_open = next("open", open);
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  EXPECT_NE(flags & O_CLOEXEC, 0) << path;
  if (g_hooks->open) g_hooks->open(path);
  const int refusal = g_hooks->refuse_open ? g_hooks->refuse_open(flags) : 0;
  if (refusal == 0) return real_open(path, flags, mode);
  errno = refusal;
  return -1;
}

DIR* opendir(const char* path) {
  if (!g_hooks->opendir_fails || !g_hooks->opendir_fails(path))
    return next("opendir", opendir)(path);
  errno = EMFILE;
  return nullptr;
}

int statfs(const char* path, struct statfs* status) noexcept {
  return g_hooks->statfs ? g_hooks->statfs(path, status) : next("statfs", statfs)(path, status);
}

ssize_t read(int fd, void* buffer, size_t size) {
  static const auto real_read = next("read", read);
  return real_read(fd, buffer,
                   g_hooks->read_at_most ? std::min(size, g_hooks->read_at_most()) : size);
}

FILE* popen(const char* command, const char* mode) {
  return g_hooks->popen ? g_hooks->popen() : real_popen(command, mode);
}
