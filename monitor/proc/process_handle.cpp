#include "proc/process_handle.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "proc/proc_file.h"

// They follow the last ")", because the name can contain ")".
// "4242 (a) b) S 1 ..." -> "S 1 ..."
std::string stat_fields(pid_t pid) {
  const std::string stat = read_proc_file(proc_path(pid, "stat")).value_or("");
  const size_t end_of_name = stat.rfind(") ");
  return end_of_name == std::string::npos ? "" : stat.substr(end_of_name + 2);
}

std::string stat_field(const std::string& fields_from_third, int number) {
  size_t begin = 0;
  for (int skipped = 3; skipped < number; ++skipped) {
    begin = fields_from_third.find(' ', begin);
    if (begin == std::string::npos) return "";
    ++begin;
  }
  return fields_from_third.substr(begin, fields_from_third.find_first_of(" \n", begin) - begin);
}

unsigned long long start_ticks_of(pid_t pid) {
  constexpr int kStartTime = 22;
  return std::strtoull(stat_field(stat_fields(pid), kStartTime).c_str(), nullptr, 10);
}

std::optional<ProcessHandle> ProcessHandle::open(pid_t pid) {
  UniqueFd fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (fd.get() < 0) return std::nullopt;
  return ProcessHandle(std::move(fd));
}

bool ProcessHandle::queue(int number, sigval value) const {
  siginfo_t info{};
  info.si_signo = number;
  info.si_code = SI_QUEUE;
  info.si_pid = getpid();
  info.si_uid = getuid();
  info.si_value = value;
  return send(number, &info);
}

bool ProcessHandle::send(int number, siginfo_t* info) const {
  return syscall(SYS_pidfd_send_signal, fd_.get(), number, info, 0) == 0;
}

void signal_process(const ProcessIdentity& process, int number) {
  const std::optional<ProcessHandle> handle = ProcessHandle::open(process.pid);
  const bool has_no_descriptor = !handle && (errno == EMFILE || errno == ENFILE);
  // The handle is of the process that has the PID now, which can be another one.
  if (start_ticks_of(process.pid) != process.start_ticks) return;
  if (handle) handle->signal(number);
  if (has_no_descriptor) kill(process.pid, number);  // still better than to let it run
}
