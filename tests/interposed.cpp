#include "interposed.h"

#include <dlfcn.h>
#include <sys/sysinfo.h>

#include <algorithm>

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
  return next<FILE*(const char*, const char*)>("popen")(command, mode);
}

}  // extern "C"
