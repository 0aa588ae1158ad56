#include "proc/wait_place.h"

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "proc/proc_file.h"

namespace {

// The argument of a system call that identifies the file, and its kind.
enum class Names { kNothing, kDescriptor, kPath };
struct CallRow {
  long number;
  const char* name;
  Names names;
  int argument;
};
constexpr CallRow kCalls[] = {{SYS_read, "read", Names::kDescriptor, 0},
                              {SYS_pread64, "pread", Names::kDescriptor, 0},
                              {SYS_write, "write", Names::kDescriptor, 0},
                              {SYS_getdents64, "getdents", Names::kDescriptor, 0},
                              {SYS_flock, "flock", Names::kDescriptor, 0},
                              {SYS_fstat, "fstat", Names::kDescriptor, 0},
                              {SYS_statfs, "statfs", Names::kPath, 0},
                              {SYS_open, "open", Names::kPath, 0},
                              {SYS_openat, "open", Names::kPath, 1},
                              {SYS_newfstatat, "stat", Names::kPath, 1},
                              {SYS_readlink, "readlink", Names::kPath, 0},
                              {SYS_wait4, "wait", Names::kNothing, 0},
                              {SYS_clock_nanosleep, "sleep", Names::kNothing, 0},
                              {SYS_futex, "futex", Names::kNothing, 0}};

std::string path_of_descriptor(unsigned long fd) {
  char path[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t length = readlink(link.c_str(), path, sizeof path);
  return length > 0 ? std::string(path, static_cast<size_t>(length)) : "";
}

// Reads text of another thread of this process, in a way that cannot fault.
std::string text_at(unsigned long address) {
  char text[PATH_MAX];
  // Reads page by page, because the page after the text may not be mapped.
  size_t got = 0;
  while (got < sizeof text) {
    const size_t page_left = 4096 - (address + got) % 4096;
    const size_t length = std::min(page_left, sizeof text - got);
    iovec here{text + got, length};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel shows the address as a number
    iovec there{reinterpret_cast<void*>(address + got), length};
    if (process_vm_readv(getpid(), &here, 1, &there, 1, 0) != static_cast<ssize_t>(length)) break;
    if (const void* const end = std::memchr(text + got, '\0', length)) {
      return std::string(text, static_cast<size_t>(static_cast<const char*>(end) - text));
    }
    got += length;
  }
  return "";
}

std::optional<int> process_of(const std::string& path) {
  constexpr char kFolder[] = "/proc/";
  if (path.compare(0, std::strlen(kFolder), kFolder) != 0) return std::nullopt;
  const int pid = std::atoi(path.c_str() + std::strlen(kFolder));
  return pid > 0 ? std::optional(pid) : std::nullopt;
}

}  // namespace

std::string WaitPlace::text() const {
  std::string text = "in " + call;
  // The only pipes that items read are those of commands.
  const bool is_command = path.rfind("pipe:", 0) == 0;
  if (is_command) return text + " from a command that it has started";
  if (!path.empty()) text += " of " + path;
  if (pid) text += " (process " + std::to_string(*pid) + ", \"" + name_of_process(*pid) + "\")";
  return text;
}

std::optional<WaitPlace> wait_place_of(int tid) {
  const std::optional<std::string> line =
      read_proc_file("/proc/self/task/" + std::to_string(tid) + "/syscall");
  if (!line) return std::nullopt;
  // "0 0x5 0x7f... ...": the call's number, then six arguments; or "running".
  char* rest = nullptr;
  const long number = std::strtol(line->c_str(), &rest, 10);
  if (rest == line->c_str()) return std::nullopt;
  unsigned long arguments[6] = {};
  for (unsigned long& argument : arguments) argument = std::strtoul(rest, &rest, 16);
  for (const CallRow& row : kCalls) {
    if (row.number != number) continue;
    WaitPlace place{row.name, "", std::nullopt};
    if (row.names == Names::kDescriptor) place.path = path_of_descriptor(arguments[row.argument]);
    if (row.names == Names::kPath) place.path = text_at(arguments[row.argument]);
    place.pid = process_of(place.path);
    return place;
  }
  return WaitPlace{"system call " + std::to_string(number), "", std::nullopt};
}
