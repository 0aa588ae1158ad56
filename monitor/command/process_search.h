// Lists and searches processes for several commands. Each function prints the reason and returns
// nothing if it cannot give the whole answer.
#ifndef MONITOR_PROCESS_SEARCH_H
#define MONITOR_PROCESS_SEARCH_H

#include <optional>
#include <string>
#include <vector>

#include "item/process_library.h"

// Every user process; with CPU usage this takes 60 seconds.
std::optional<Listing> list_processes(const ProcessLibrary& library, bool with_cpu);

// The processes that match `text`. `mode` is "exact", "prefix" or "wildcard".
std::optional<std::vector<pid_t>> find_processes(const ProcessLibrary& library,
                                                 const std::string& mode, const std::string& text);

// The same without this process.
std::optional<std::vector<pid_t>> search_processes(const ProcessLibrary& library,
                                                   const std::string& mode,
                                                   const std::string& text);

#endif
