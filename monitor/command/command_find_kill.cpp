#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>

#include "command/commands.h"
#include "command/process_search.h"
#include "item/process_library.h"
#include "proc/process_handle.h"
#include "text/complaint.h"

int command_find(const FindOptions& options) {
  const auto library = ProcessLibrary::load(options.plugin);
  if (!library) return kExitUsage;
  const auto pids = search_processes(*library, options.mode, options.name);
  if (!pids) return kExitFailed;
  for (const pid_t pid : *pids) std::printf("%d\n", pid);
  return pids->empty() ? kExitFailed : kExitOk;
}

int command_kill(const KillOptions& options) {
  const auto library = ProcessLibrary::load(options.plugin);
  if (!library) return kExitUsage;
  const std::string pid = std::to_string(options.pid);
  // Opened before the name is compared: if the process ends and its PID is another one's, no signal
  // is sent.
  const std::optional<ProcessHandle> process = ProcessHandle::open(options.pid);
  const int found = library->check(options.name, options.pid);
  if (found == -2) {
    complain("process " + pid + " does not have the name \"" + options.name + "\"");
    return kExitFailed;
  }
  if (process && found == 0 && process->signal(SIGKILL)) return kExitOk;
  if (process && found == 0 && errno == EPERM) {
    complain("cannot kill process " + pid + ": " + std::strerror(EPERM));
  } else {
    complain("there is no process " + pid);
  }
  return kExitFailed;
}
