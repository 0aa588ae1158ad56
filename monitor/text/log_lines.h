// Log records as lines on standard error.
#ifndef MONITOR_LOG_LINES_H
#define MONITOR_LOG_LINES_H

#include <string>

// From here on the records of the platform's log go to standard error in the monitor's own form.
void log_as_lines();

// One line of the monitor's own, on any thread. `level` as the platform's log has it: "warning".
void log_line(const char* level, const std::string& text);

#endif
