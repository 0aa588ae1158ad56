#include "interposed.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>

namespace {

Hooks* g_hooks = nullptr;
int g_get_nprocs_calls = 0;

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

ScopedHooks::ScopedHooks() {
  g_hooks = &hooks_;
}

ScopedHooks::~ScopedHooks() {
  g_hooks = nullptr;
}

int get_nprocs_calls() {
  return g_get_nprocs_calls;
}

FILE* real_popen(const char* command, const char* mode) {
  return next<FILE*(const char*, const char*)>("popen")(command, mode);
}

extern "C" {

int get_nprocs() noexcept {
  ++g_get_nprocs_calls;
  return kCores;
}

int usleep(useconds_t duration_us) {
  if (!g_hooks || !g_hooks->usleep) return next<int(useconds_t)>("usleep")(duration_us);
  g_hooks->usleep(duration_us);
  return 0;
}

unsigned int sleep(unsigned int seconds) {
  if (!g_hooks || !g_hooks->sleep) return next<unsigned int(unsigned int)>("sleep")(seconds);
  g_hooks->sleep(seconds);
  return 0;
}

int open(const char* path, int flags, ...) {
  static const auto real_open = next<int(const char*, int, ...)>("open");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (g_hooks && g_hooks->open) g_hooks->open(path);
  return real_open(path, flags, mode);
}

DIR* opendir(const char* path) {
  if (!g_hooks || !g_hooks->opendir_fails || !g_hooks->opendir_fails(path)) {
    return next<DIR*(const char*)>("opendir")(path);
  }
  errno = EMFILE;
  return nullptr;
}

int statfs(const char* path, struct statfs* status) noexcept {
  if (g_hooks && g_hooks->statfs) return g_hooks->statfs(path, status);
  return next<int(const char*, struct statfs*)>("statfs")(path, status);
}

ssize_t read(int fd, void* buffer, size_t size) {
  static const auto real_read = next<ssize_t(int, void*, size_t)>("read");
  if (g_hooks && g_hooks->read_at_most) size = std::min(size, g_hooks->read_at_most());
  return real_read(fd, buffer, size);
}

FILE* popen(const char* command, const char* mode) {
  if (g_hooks && g_hooks->popen) return g_hooks->popen();
  return real_popen(command, mode);
}

}  // extern "C"
