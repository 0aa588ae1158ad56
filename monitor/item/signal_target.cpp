#include "item/signal_target.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <utility>

#include "proc/proc_file.h"
#include "proc/process_handle.h"

namespace {

struct SignalTarget {
  ProcessIdentity thread;
  ProcessHandle process;
};
// A pointer, because a thread without memory to note the destructor of its variable ends the
// program.
thread_local SignalTarget* target = nullptr;

}  // namespace

bool hold_signal_target(int tid) {
  forget_signal_target();
  const ProcessIdentity thread{tid, start_ticks_of(tid)};
  const int pid = std::atoi(status_value(tid, "Tgid").value_or("").c_str());
  errno = ESRCH;
  if (thread.start_ticks == 0 || pid <= 0) return false;
  std::optional<ProcessHandle> process = ProcessHandle::open(pid);
  if (!process) return false;
  target = new SignalTarget{thread, std::move(*process)};
  return true;
}

void forget_signal_target() {
  delete std::exchange(target, nullptr);
}

// Called from the plug-in. A recovery that names a process itself has no target that was judged:
// the signal then goes to the process that has the number now.
extern "C" int sigqueue(pid_t pid, int number, const union sigval value) {
  const bool is_target = target && target->thread.pid == pid;
  if (is_target && start_ticks_of(pid) != target->thread.start_ticks) {
    errno = ESRCH;
    return -1;
  }
  if (is_target) return target->process.queue(number, value) ? 0 : -1;
  const std::optional<ProcessHandle> process = ProcessHandle::open(pid);
  return process && process->queue(number, value) ? 0 : -1;
}
