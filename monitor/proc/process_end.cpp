#include "proc/process_end.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>

#include "proc/proc_file.h"
#include "proc/process_handle.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

// The result of PIDFD_GET_INFO in its first version; later versions only add fields.
struct PidfdInfo {
  uint64_t mask;
  uint64_t cgroup_id;
  uint32_t pid, tgid, ppid, ruid, rgid, euid, egid, suid, sgid, fsuid, fsgid;
  int32_t exit_code;
};
static_assert(sizeof(PidfdInfo) == 64);
constexpr uint64_t kInfoExit = 1U << 3;
#define MIRT_PIDFD_GET_INFO _IOWR(0xFF, 11, PidfdInfo)

constexpr int kState = 3, kFlagsField = 9, kStartTime = 22, kExitCode = 52;
constexpr unsigned long kExiting = 4;  // PF_EXITING of the kernel

bool is_readable(int fd) {
  pollfd readable{fd, POLLIN, 0};
  int count;
  do count = poll(&readable, 1, 0);
  while (count < 0 && errno == EINTR);
  return count > 0;
}

// The time since the machine started, including suspended time, like the start times of processes.
nanoseconds uptime() {
  timespec time{};
  clock_gettime(CLOCK_BOOTTIME, &time);
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

nanoseconds from_ticks(unsigned long long ticks) {
  static const long per_second = sysconf(_SC_CLK_TCK);
  return nanoseconds(static_cast<int64_t>(ticks) * (1000000000L / per_second));
}

}  // namespace

std::optional<FollowedProcess> FollowedProcess::follow(int pid, Steady::time_point seen) {
  UniqueFd fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (fd.get() < 0) return std::nullopt;
  const unsigned long long ticks = start_ticks_of(pid);
  // The process still runs, so the PID was not reused and the data is about this process.
  const bool is_its_own = ticks != 0 && !is_readable(fd.get());
  // A suspend or a delay of this thread makes this time too early. So a process that was seen is
  // never refused.
  const Steady::time_point now = Steady::now();
  const auto began = now - (uptime() - from_ticks(ticks));
  if (!is_its_own || began > seen) {
    errno = ESRCH;
    return std::nullopt;
  }
  return FollowedProcess(pid, std::move(fd), ticks);
}

std::chrono::system_clock::time_point FollowedProcess::started() const {
  using System = std::chrono::system_clock;
  const nanoseconds age = uptime() - from_ticks(start_ticks_);
  return System::now() - std::chrono::duration_cast<System::duration>(age);
}

bool FollowedProcess::is_exiting() const {
  const std::string flags = stat_field(stat_fields(pid_), kFlagsField);
  return (std::strtoul(flags.c_str(), nullptr, 10) & kExiting) != 0 || is_readable(fd_.get());
}

std::optional<ProcessEnd> FollowedProcess::end() const {
  if (!is_readable(fd_.get())) return std::nullopt;
  const auto ran = std::chrono::duration_cast<milliseconds>(uptime() - from_ticks(start_ticks_));
  std::optional<int> status = exit_status();
  if (!status) status = status_of_zombie();
  if (!status) status = exit_status();  // the parent may have waited for it in between
  return ProcessEnd{status, ran};
}

// The kernel provides the status after the parent has waited for the process.
std::optional<int> FollowedProcess::exit_status() const {
  PidfdInfo info{};
  info.mask = kInfoExit;
  if (ioctl(fd_.get(), MIRT_PIDFD_GET_INFO, &info) != 0) return std::nullopt;
  if ((info.mask & kInfoExit) == 0) return std::nullopt;
  return info.exit_code;
}

std::optional<int> FollowedProcess::status_of_zombie() const {
  // Without the right to inspect the process, the kernel always shows an exit code of 0.
  char target[1];
  if (readlink(proc_path(pid_, "ns/pid").c_str(), target, sizeof target) < 0 && errno == EACCES) {
    return std::nullopt;
  }
  const std::string fields = stat_fields(pid_);
  if (stat_field(fields, kState) != "Z") return std::nullopt;
  if (std::strtoull(stat_field(fields, kStartTime).c_str(), nullptr, 10) != start_ticks_) {
    return std::nullopt;
  }
  const std::string code = stat_field(fields, kExitCode);
  return code.empty() ? std::nullopt : std::optional(std::atoi(code.c_str()));
}
