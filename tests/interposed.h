// System functions that this program defines before the C library does. The plug-in calls them by
// name, so a test can count the calls, answer in the system's place and let no time pass.
#ifndef INTERPOSED_H
#define INTERPOSED_H

#include <sys/vfs.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

// An empty hook hands the call on to the C library.
struct Hooks {
  std::function<void(useconds_t)> usleep;
  std::function<int(const char*, struct statfs*)> statfs;
  std::function<FILE*()> popen;
  std::function<size_t()> read_at_most;  // bytes of one read()
  std::function<void(unsigned int)> sleep;
  std::function<void(const char*)> open;  // looks on; the C library opens
  std::function<bool(const char*)> opendir_fails;
};

// The hooks that hold while it lives.
class ScopedHooks {
 public:
  ScopedHooks();
  ScopedHooks& operator=(ScopedHooks&&) = delete;  // neither copied nor moved
  ~ScopedHooks();
  Hooks* operator->() { return &hooks_; }

 private:
  Hooks hooks_;
};

// The C library's own, for a hook that has another command run.
FILE* real_popen(const char* command, const char* mode);

// get_nprocs() always gives this number: the core count is cached for the life of the process.
constexpr int kCores = 7;
// How often it was called since the program started.
int get_nprocs_calls();

#endif
