// Searches processes for several commands.
#ifndef MONITOR_PROCESS_SEARCH_H
#define MONITOR_PROCESS_SEARCH_H

#include <optional>
#include <string>
#include <vector>

#include "item/process_library.h"

// The processes that match `text`, except this one. `mode` is "exact", "prefix" or "wildcard". If
// the search fails, prints the reason and returns nothing.
std::optional<std::vector<pid_t>> search_processes(const ProcessLibrary& library,
                                                   const std::string& mode,
                                                   const std::string& text);

#endif
