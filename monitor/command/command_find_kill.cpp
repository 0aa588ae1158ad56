#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "command/commands.h"
#include "command/process_search.h"
#include "item/process_library.h"
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
  // The library sends the signal in the background and does not report whether it was permitted.
  if (::kill(options.pid, 0) != 0 && errno == EPERM) {
    complain("cannot kill process " + pid + ": " + std::strerror(EPERM));
    return kExitFailed;
  }
  switch (library->kill(options.name, options.pid)) {
    case 0:
      return kExitOk;
    case -2:
      complain("process " + pid + " does not have the name \"" + options.name + "\"");
      return kExitFailed;
    default:
      complain("there is no process " + pid);
      return kExitFailed;
  }
}
