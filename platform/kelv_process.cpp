#include "kelv_process.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Kernel task flags, field 9 of the stat line.
constexpr unsigned long kDumpingCore = 0x200;
constexpr unsigned long kKilledBySignal = 0x400;

// Reads /proc/<pid>/<name> with one read(), as a text. False when the process has gone.
template <size_t kSize>
bool read_process_file(pid_t pid, const char* name, char (&text)[kSize]) {
  char path[64];
  snprintf(path, sizeof path, "/proc/%d/%s", pid, name);
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  ssize_t length;
  do {
    length = read(file, text, kSize - 1);
  } while (length < 0 && errno == EINTR);
  close(file);
  text[length > 0 ? length : 0] = '\0';
  return length > 0;
}

// "7 (a b) S 1 7 7 0 -1 4194560 ..." -> 4194560. The name may hold anything, so the fields are
// counted from the last ')': state, ppid, pgrp, session, tty, tpgid, flags.
unsigned long flags_in(const char* stat_line) {
  const char* field = strrchr(stat_line, ')');
  for (int blanks = 0; field != nullptr && blanks < 7; ++blanks) {
    field = strchr(field + 1, ' ');
  }
  return field != nullptr ? strtoul(field + 1, nullptr, 10) : 0;
}

}  // namespace

int kelv_process_status_check(pid_t pid, int* status) {
  if (status == nullptr) return -1;
  char text[4096];
  if (!read_process_file(pid, "stat", text)) return -1;
  bool fatal = (flags_in(text) & (kDumpingCore | kKilledBySignal)) != 0;
  if (!fatal) {
    if (!read_process_file(pid, "status", text)) return -1;
    fatal = strstr(text, "\nCoreDumping:\t1") != nullptr;
  }
  *status = fatal ? KELV_PROCESS_STATUS_COREDUMP : KELV_PROCESS_STATUS_NORMAL;
  return 0;
}
