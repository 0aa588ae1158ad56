// System functions that this program replaces. A test can count the plug-in's calls, return its own
// results and avoid real sleeps.
#ifndef INTERPOSED_H
#define INTERPOSED_H

#include <sys/vfs.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

#include "child.h"

// An empty hook passes the call to the C library.
struct Hooks {
  std::function<void(useconds_t)> usleep;
  std::function<int(const char*, struct statfs*)> statfs;
  std::function<FILE*()> popen;
  std::function<size_t()> read_at_most;  // maximum bytes of one read()
  std::function<void(unsigned int)> sleep;
  std::function<void(const char*)> open;  // observes only
  std::function<int(int)> refuse_open;    // takes the flags; returns the errno, or 0
  std::function<bool(const char*)> opendir_fails;
};

// Sets the hooks while it exists.
class ScopedHooks : InPlace {
 public:
  ScopedHooks();
  ~ScopedHooks();
  Hooks* operator->() { return &hooks_; }

 private:
  Hooks hooks_;
};

// The C library's function, for a hook that runs another command.
FILE* real_popen(const char* command, const char* mode);

// get_nprocs() always returns this number, because the plug-in reads the core count once per
// process.
constexpr int kCores = 7;
// The number of its calls since the program started.
int get_nprocs_calls();

#endif
