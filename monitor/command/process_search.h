// The search for processes that several commands offer.
#ifndef MONITOR_PROCESS_SEARCH_H
#define MONITOR_PROCESS_SEARCH_H

#include <optional>
#include <string>
#include <vector>

#include "item/process_library.h"

// The processes that `text` means, this one left out. `mode` is "exact", "prefix" or "wildcard".
// Nothing, which has been said, if they cannot be searched.
std::optional<std::vector<pid_t>> search_processes(const ProcessLibrary& library,
                                                   const std::string& mode,
                                                   const std::string& text);

#endif
