#include "kelv_process.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Kernel task flags, field 9 of the stat line.
constexpr unsigned long kDumpingCore = 0x200;
constexpr unsigned long kKilledBySignal = 0x400;

// A file of a process, read line by line: the status file is long if a process is in many groups.
class ProcessFile {
 public:
  ProcessFile(pid_t pid, const char* name) {
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/%s", pid, name);
    file_ = fopen(path, "re");
  }
  ProcessFile(const ProcessFile&) = delete;
  ProcessFile& operator=(const ProcessFile&) = delete;
  ~ProcessFile() {
    if (file_ != nullptr) fclose(file_);
  }

  // False at the end of the file, and when the process has ended.
  template <size_t kSize>
  bool next(char (&line)[kSize]) {
    return file_ != nullptr && fgets(line, kSize, file_) != nullptr;
  }

 private:
  FILE* file_;
};

// "7 (a b) S 1 7 7 0 -1 4194560 ..." -> 4194560. The name may contain any character, so count the
// fields from the last ')': state, ppid, pgrp, session, tty, tpgid, flags.
unsigned long flags_in(const char* stat_line) {
  const char* field = strrchr(stat_line, ')');
  for (int blanks = 0; field != nullptr && blanks < 7; ++blanks) {
    field = strchr(field + 1, ' ');
  }
  return field != nullptr ? strtoul(field + 1, nullptr, 10) : 0;
}

}  // namespace

int kelv_process_status_check(pid_t pid, int* status) {
  char line[512];
  if (status == nullptr || !ProcessFile(pid, "stat").next(line)) return -1;
  bool fatal = (flags_in(line) & (kDumpingCore | kKilledBySignal)) != 0;
  ProcessFile status_file(pid, "status");
  while (!fatal && status_file.next(line)) {
    fatal = strncmp(line, "CoreDumping:\t1", strlen("CoreDumping:\t1")) == 0;
  }
  *status = fatal ? KELV_PROCESS_STATUS_COREDUMP : KELV_PROCESS_STATUS_NORMAL;
  return 0;
}
