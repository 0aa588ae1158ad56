#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "command/commands.h"
#include "item/process_library.h"
#include "text/complaint.h"

int command_find(const FindOptions& options) {
  const auto library = ProcessLibrary::load(options.plugin);
  if (!library) return kExitUsage;
  auto pids = options.mode == "exact"    ? library->find_exact(options.name)
              : options.mode == "prefix" ? library->find_prefix(options.name)
                                         : library->find_wildcard(options.name);
  if (!pids) {
    complain("cannot search the processes");
    return kExitFailed;
  }
  // A pattern that begins with a star also matches this program's command line.
  if (*pids == std::vector<pid_t>{getpid()}) complain(kOnlyMatchIsSelf);
  pids->erase(std::remove(pids->begin(), pids->end(), getpid()), pids->end());
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
