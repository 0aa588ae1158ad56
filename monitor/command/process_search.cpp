#include "command/process_search.h"

#include <unistd.h>

#include <algorithm>

#include "command/commands.h"
#include "text/complaint.h"

std::optional<std::vector<pid_t>> search_processes(const ProcessLibrary& library,
                                                   const std::string& mode,
                                                   const std::string& text) {
  auto pids = mode == "exact"    ? library.find_exact(text)
              : mode == "prefix" ? library.find_prefix(text)
                                 : library.find_wildcard(text);
  if (!pids) {
    complain("cannot search the processes");
    return std::nullopt;
  }
  // A pattern that begins with a star also matches this program's command line.
  if (*pids == std::vector<pid_t>{getpid()}) complain(kOnlyMatchIsSelf);
  pids->erase(std::remove(pids->begin(), pids->end(), getpid()), pids->end());
  return pids;
}
