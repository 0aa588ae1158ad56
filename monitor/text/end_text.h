// Durations, and ends of processes, as text.
#ifndef MONITOR_END_TEXT_H
#define MONITOR_END_TEXT_H

#include <chrono>
#include <string>

#include "proc/process_end.h"

// "0.4 s", "12 s", "3 min 12 s", "3 h 12 min", "5 d 3 h": the two largest units, rounded down.
std::string duration_text(std::chrono::milliseconds duration);

// "3.2 s": one decimal.
std::string seconds_text(std::chrono::duration<double> duration);

// A wait status as "exited with status 1", "killed by signal 9", "killed by signal 11 (core
// dumped)".
std::string wait_status_text(int status);

// "killed by signal 9 after 3 h 12 min"; "ended after 2 s" if the wait status is unknown.
std::string end_text(const ProcessEnd& end);

#endif
